#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// One named piece of remote configuration: a JSON object that is read by key paths.
///
/// A key path lists the keys to follow from the top of the object down, the last one naming the value itself:
/// {"search", "enabled"} reads "enabled" inside "search". Every getter answers its default when a key on the
/// way is missing or empty, when what should contain the next key is no object, when the value is of another
/// kind, and for an empty path. Nothing is converted between numbers and texts.
///
/// Immutable; any thread. In an archive it is a record with the keys "name" and "config".
class QLSDK_EXPORT QLSDKDynamicConfigEntity final : public platform::Archivable {
  public:
    static constexpr std::string_view kClassName = "QLSDKDynamicConfigEntity";

    using KeyPath = std::vector<std::string>;

    /// `config` is a dictionary; with anything else every getter answers its default.
    QLSDKDynamicConfigEntity(std::optional<std::string> name, Value config);

    /// Reads the record form. A missing name stays absent, a missing or odd configuration is an empty one.
    [[nodiscard]] static std::shared_ptr<platform::Archivable> initWithCoder(platform::KeyedDecoder& decoder);

    /// Any number: true unless it is zero. JSON's true and false are the numbers 1 and 0.
    [[nodiscard]] bool boolValue(const KeyPath& path, bool defaultValue) const;
    /// Any number, its fraction cut toward zero; what lies outside 64 bits becomes the nearest end.
    [[nodiscard]] std::int64_t longValue(const KeyPath& path, std::int64_t defaultValue) const;
    /// Any number.
    [[nodiscard]] double doubleValue(const KeyPath& path, double defaultValue) const;
    /// A text only. Absent just when the default is answered and that is absent.
    [[nodiscard]] std::optional<std::string> stringValue(const KeyPath& path,
                                                         std::optional<std::string> defaultValue) const;

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override;

  private:
    enum class ValueClass { number, string };

    /// Null when the path leads to nothing, or to something that is not of `valueClass`.
    [[nodiscard]] Value _configValue(const KeyPath& path, ValueClass valueClass) const;

    const std::optional<std::string> name_;
    const Value config_;
};

}  // namespace qlsdk
