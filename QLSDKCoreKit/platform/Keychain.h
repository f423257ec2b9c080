#pragma once

#include <cstdint>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// The outcome of a keychain call; 0 is success. The numbers are the keychain's established ones.
using OSStatus = std::int32_t;

inline constexpr OSStatus errSecSuccess = 0;
inline constexpr OSStatus errSecIO = -36;
inline constexpr OSStatus errSecParam = -50;
inline constexpr OSStatus errSecNotAvailable = -25291;
inline constexpr OSStatus errSecDuplicateItem = -25299;
inline constexpr OSStatus errSecItemNotFound = -25300;
inline constexpr OSStatus errSecInteractionNotAllowed = -25308;

/// Attribute names and fixed values of keychain items.
inline constexpr std::string_view kSecClass = "class";
inline constexpr std::string_view kSecClassGenericPassword = "genp";
inline constexpr std::string_view kSecAttrGeneric = "gena";
inline constexpr std::string_view kSecAttrAccount = "acct";
inline constexpr std::string_view kSecAttrService = "svce";
inline constexpr std::string_view kSecAttrSynchronizable = "sync";
inline constexpr std::string_view kSecAttrAccessible = "pdmn";
inline constexpr std::string_view kSecAttrAccessibleWhenUnlockedThisDeviceOnly = "aku";
inline constexpr std::string_view kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly = "cku";
inline constexpr std::string_view kSecValueData = "v_Data";
inline constexpr std::string_view kSecMatchLimit = "m_Limit";
inline constexpr std::string_view kSecMatchLimitOne = "m_LimitOne";
inline constexpr std::string_view kSecMatchLimitAll = "m_LimitAll";
inline constexpr std::string_view kSecReturnData = "r_Data";
inline constexpr std::string_view kSecReturnAttributes = "r_Attributes";

/// Port: a store of generic-password items.
///
/// An item is identified by its service, account, generic and synchronizable attributes: a second item equal
/// in these four is a duplicate, whatever its accessibility. A query matches the items that agree with every
/// item attribute it names (class, service, account, generic, synchronizable, accessibility), so a query that
/// names another accessibility than the stored one finds nothing. `kSecAttrGeneric` and `kSecAttrAccount` are
/// data, `kSecAttrService` is a string, `kSecAttrSynchronizable` a boolean.
///
/// Synchronous, any thread, any process. Nothing is thrown and nothing blocks for ever: a store that is
/// locked or away answers a status. Looking waits for no writer of another thread or process; a change waits
/// for two seconds at most in all, and then answers `errSecInteractionNotAllowed`. "Not found" is only ever
/// said after looking and finding nothing; a store that could not be looked at answers
/// `errSecInteractionNotAllowed`, `errSecNotAvailable` or `errSecIO`.
class QLSDK_EXPORT Keychain {
  public:
    virtual ~Keychain() = default;

    /// Adds one item with the given attributes and its `kSecValueData`. `errSecDuplicateItem` when an item of
    /// the same identity exists, which is then left alone. `errSecParam` when the class or an identity
    /// attribute is missing.
    virtual OSStatus itemAdd(const Dictionary& attributes) = 0;

    /// Changes the attributes named in `attributesToUpdate` of every item that matches. `kSecValueData` in
    /// `query` is no match condition. `errSecItemNotFound` when nothing matches.
    virtual OSStatus itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) = 0;

    /// Finds items. With `kSecReturnData` and a limit of one `result` becomes the data; with
    /// `kSecReturnAttributes` and no limit of one it becomes an array of attribute dictionaries in the order
    /// of their creation. `result` may be null and is only set on success.
    virtual OSStatus itemCopyMatching(const Dictionary& query, Value* result) = 0;

    /// Removes every item that matches. `errSecItemNotFound` when nothing does.
    virtual OSStatus itemDelete(const Dictionary& query) = 0;
};

}  // namespace qlsdk::platform
