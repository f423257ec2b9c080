#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/values/internal/Utf8.h"

namespace qlsdk {

const char* const kQLSDKKeychainServiceNameSuffix = ".QLSDK";

namespace {

using platform::OSStatus;

platform::Keychain& keychain() {
    return *platform::current().keychain;
}

OSStatus store(DataView data, std::string_view key, std::string_view access) {
    if (!platform::isValidUtf8(key)) return platform::errSecParam;
    Dictionary query = QLSDKKeychainManager::queryForKey(key, access);
    const Value bytes = Data(data.begin(), data.end());
    query.set(platform::kSecValueData, bytes);
    const OSStatus status = keychain().itemAdd(query);
    if (status != platform::errSecDuplicateItem) return status;
    // On purpose: the query still names its accessibility, so an item of the other one is not matched.
    return keychain().itemUpdate(query, {{std::string(platform::kSecValueData), bytes}});
}

std::string madeServiceName() {
    const auto bundle = platform::current().bundles->mainBundle();
    // On purpose: the suffix has a dot of its own, so two dots stand between. Existing items live there.
    return describe(bundle->textForInfoDictionaryKey(platform::kBundleIdentifierKey)) + "." +
           kQLSDKKeychainServiceNameSuffix;
}

}  // namespace

Dictionary QLSDKKeychainManager::queryForKey(std::string_view key) {
    Dictionary query;
    query.set(platform::kSecClass, platform::kSecClassGenericPassword);
    query.set(platform::kSecAttrGeneric, dataOf(key));
    query.set(platform::kSecAttrAccount, dataOf(key));
    query.set(platform::kSecAttrService, _keychainServiceName());
    query.set(platform::kSecAttrSynchronizable, false);
    return query;
}

Dictionary QLSDKKeychainManager::queryForKey(std::string_view key, std::string_view access) {
    Dictionary query = queryForKey(key);
    query.set(platform::kSecAttrAccessible, access);
    return query;
}

bool QLSDKKeychainManager::setData(DataView data, std::string_view key) {
    return setDataWithStatus(data, key) == platform::errSecSuccess;
}

OSStatus QLSDKKeychainManager::setDataWithStatus(DataView data, std::string_view key) {
    return store(data, key, platform::kSecAttrAccessibleWhenUnlockedThisDeviceOnly);
}

bool QLSDKKeychainManager::setBackgroundData(DataView data, std::string_view key) {
    return setBackgroundDataWithStatus(data, key) == platform::errSecSuccess;
}

OSStatus QLSDKKeychainManager::setBackgroundDataWithStatus(DataView data, std::string_view key) {
    return store(data, key, platform::kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly);
}

std::optional<Data> QLSDKKeychainManager::dataForKey(std::string_view key, OSStatus* status) {
    Dictionary query = queryForKey(key);
    query.set(platform::kSecMatchLimit, platform::kSecMatchLimitOne);
    query.set(platform::kSecReturnData, true);
    Value found;
    const OSStatus outcome = keychain().itemCopyMatching(query, &found);
    if (status != nullptr) *status = outcome;
    if (outcome != platform::errSecSuccess || found.data() == nullptr) return std::nullopt;
    return *found.data();
}

std::optional<Data> QLSDKKeychainManager::dataForKey(std::string_view key) {
    return dataForKey(key, nullptr);
}

bool QLSDKKeychainManager::removeDataForKey(std::string_view key) {
    return removeDataForKeyWithStatus(key) == platform::errSecSuccess;
}

OSStatus QLSDKKeychainManager::removeDataForKeyWithStatus(std::string_view key) {
    return keychain().itemDelete(queryForKey(key));
}

void QLSDKKeychainManager::removeAllDataExcludingWhitelist(
    const std::set<std::string, std::less<>>* whitelist) {
    Dictionary query;
    query.set(platform::kSecClass, platform::kSecClassGenericPassword);
    query.set(platform::kSecAttrService, _keychainServiceName());
    query.set(platform::kSecAttrSynchronizable, false);
    query.set(platform::kSecMatchLimit, platform::kSecMatchLimitAll);
    query.set(platform::kSecReturnAttributes, true);
    Value items;
    if (keychain().itemCopyMatching(query, &items) != platform::errSecSuccess) return;
    if (items.array() == nullptr) return;
    for (const Value& item : *items.array()) {
        const Value generic = item[platform::kSecAttrGeneric];
        if (generic.data() == nullptr) continue;
        const std::string key = textOf(*generic.data());
        if (whitelist == nullptr || !whitelist->contains(key)) removeDataForKey(key);
    }
}

void QLSDKKeychainManager::removeAllData() {
    removeAllDataExcludingWhitelist(nullptr);
}

const std::string& QLSDKKeychainManager::_keychainServiceName() {
    static constinit platform::ForkSafeOnce<std::string> name;
    return name.get(madeServiceName);
}

}  // namespace qlsdk
