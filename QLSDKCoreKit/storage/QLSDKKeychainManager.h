#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// The suffix of the service name under which the library keeps its items. It begins with a dot.
QLSDK_EXTERN_C const char* const kQLSDKKeychainServiceNameSuffix;

/// Small byte values under string keys, kept in the platform's keychain on this device only.
///
/// Synchronous; any thread. Nothing is thrown or logged: failures are statuses (0 is success, see
/// platform/Keychain.h), false or absent data, and leave an existing item as it was.
class QLSDK_EXPORT QLSDKKeychainManager {
  public:
    QLSDKKeychainManager() = delete;

    /// The attributes that identify the item of `key`: class, generic, account, service, synchronizable.
    [[nodiscard]] static Dictionary queryForKey(std::string_view key);
    /// The same with an accessibility (one of `kSecAttrAccessible…`).
    [[nodiscard]] static Dictionary queryForKey(std::string_view key, std::string_view access);

    /// Stores data that can be read while the device is unlocked. True when the status is 0. A key that is
    /// not UTF-8 is refused (`errSecParam`).
    static bool setData(DataView data, std::string_view key);
    /// An existing item keeps its accessibility. Where that is the other one, the update finds no item of the
    /// accessibility it asks for and the status says so (`errSecItemNotFound`); the item is unchanged.
    static platform::OSStatus setDataWithStatus(DataView data, std::string_view key);

    /// Stores data that can be read from the first unlocking on, in the background too. Otherwise as above.
    static bool setBackgroundData(DataView data, std::string_view key);
    static platform::OSStatus setBackgroundDataWithStatus(DataView data, std::string_view key);

    /// The bytes of either accessibility; absent on any status but 0. `status` may be null.
    [[nodiscard]] static std::optional<Data> dataForKey(std::string_view key, platform::OSStatus* status);
    [[nodiscard]] static std::optional<Data> dataForKey(std::string_view key);

    /// False, or `errSecItemNotFound`, when there was nothing to remove.
    static bool removeDataForKey(std::string_view key);
    static platform::OSStatus removeDataForKeyWithStatus(std::string_view key);

    /// Removes every item of the library's service whose key is not in the whitelist; null keeps none. Keys
    /// are compared byte by byte: one that is not UTF-8, which other versions may have stored, goes like the
    /// others. Failures of single removals are passed over.
    static void removeAllDataExcludingWhitelist(const std::set<std::string, std::less<>>* whitelist);
    static void removeAllData();

  private:
    [[nodiscard]] static const std::string& _keychainServiceName();
};

}  // namespace qlsdk
