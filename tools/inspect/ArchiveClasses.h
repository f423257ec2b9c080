#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace quillkit {

/// What an archived configuration entity holds. The library's own class shows its content only value by
/// value.
class ConfigEntityView final : public qlsdk::platform::Archivable {
  public:
    static constexpr std::string_view kClassName = "QLSDKDynamicConfigEntity";

    ConfigEntityView(std::optional<std::string> name, qlsdk::platform::ArchivedObject config)
        : name_(std::move(name)), config_(std::move(config)) {}

    [[nodiscard]] static std::shared_ptr<Archivable> initWithCoder(qlsdk::platform::KeyedDecoder& decoder) {
        auto name = decoder.decodeText("name");
        return std::make_shared<ConfigEntityView>(std::move(name), decoder.decodeObject("config"));
    }

    [[nodiscard]] const std::optional<std::string>& name() const noexcept { return name_; }
    [[nodiscard]] const qlsdk::platform::ArchivedObject& config() const noexcept { return config_; }

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return kClassName; }
    void encodeWithCoder(qlsdk::platform::KeyedEncoder& encoder) const override {
        encoder.encodeText(name_, "name");
        encoder.encodeObject(config_, "config");
    }

  private:
    std::optional<std::string> name_;
    qlsdk::platform::ArchivedObject config_;
};

/// Reads an archive with every class that the library writes. Absent when it is none.
[[nodiscard]] std::optional<qlsdk::platform::ArchivedObject> readArchive(qlsdk::DataView bytes);

}  // namespace quillkit
