#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// The property-list key of a bundle's identifier, such as "com.example.app".
inline constexpr std::string_view kBundleIdentifierKey = "CFBundleIdentifier";
/// The property-list key of a bundle's version.
inline constexpr std::string_view kBundleVersionKey = "CFBundleVersion";

/// One program or shared object with the property list that describes it. Immutable; any thread.
class QLSDK_EXPORT Bundle {
  public:
    /// `path`: where the bundle lies. `infoDictionary`: its property list, null when it has none or when the
    /// file could not be read as a dictionary. `localizedStrings`: key to text, or null.
    Bundle(std::string path, Value infoDictionary, Value localizedStrings = {});

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const Value& infoDictionary() const noexcept { return infoDictionary_; }

    /// The property-list value under `key` as stored; null when absent.
    [[nodiscard]] Value objectForInfoDictionaryKey(std::string_view key) const {
        return infoDictionary_[key];
    }

    /// The value under `key` rendered as text; absent when the key is.
    [[nodiscard]] std::optional<std::string> textForInfoDictionaryKey(std::string_view key) const;

    /// The text of `key` in the user's language, or else in English; the key itself where there is neither.
    [[nodiscard]] std::string localizedString(std::string_view key) const;

  private:
    std::string path_;
    Value infoDictionary_;
    Value localizedStrings_;
};

/// An address that belongs to the library itself, whether that is a shared object or linked into the program.
[[nodiscard]] QLSDK_EXPORT const void* libraryAddress() noexcept;

/// Port: finds bundles.
///
/// Adapters read each property list once and answer from memory afterwards: a change of the file needs a new
/// process. Any thread. Never null: a bundle without a readable property list is an empty one.
class QLSDK_EXPORT Bundles {
  public:
    virtual ~Bundles() = default;

    /// The host application's bundle.
    [[nodiscard]] virtual std::shared_ptr<const Bundle> mainBundle() = 0;

    /// The bundle that contains the code or data at `address`. Code linked into the program belongs to the
    /// main bundle, and so does an address that is null or belongs to nothing. The library's own bundle,
    /// which tells the library's version however it is linked, is that of `libraryAddress` and of the
    /// library's plain functions and constants.
    [[nodiscard]] virtual std::shared_ptr<const Bundle> bundleForAddress(const void* address) = 0;
};

}  // namespace qlsdk::platform
