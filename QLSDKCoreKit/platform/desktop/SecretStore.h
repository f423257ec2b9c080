#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <libsecret/secret.h>

#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/platform/desktop/BoundedCalls.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// What the service files an item under: names from `SecretStore::kAttributeNames` to texts.
using SecretAttributes = std::map<std::string, std::string>;

struct StoredSecret {
    ObjectPointer<SecretItem> item;
    SecretAttributes attributes;

    /// Sorts by the time of creation; empty for an item that somebody else made.
    [[nodiscard]] std::string_view creationStamp() const;
};

/// The user's Secret Service as opened for one call of the keychain. Every wait ends before the
/// deadline of `calls`, which the object must not outlive. Never asks the user for anything: what could not
/// be done without a prompt answers `errSecInteractionNotAllowed`.
class SecretStore {
  public:
    explicit SecretStore(BoundedCalls& calls) noexcept : calls_(calls) {}

    /// Connects, without starting a bus. Everything below needs its success.
    [[nodiscard]] OSStatus open();

    /// Every item of this library that agrees with `wanted`, the oldest first. `errSecItemNotFound` only when
    /// the default collection could be looked into; `errSecInteractionNotAllowed` when it, or an item that
    /// agrees, is locked. Success means at least one.
    [[nodiscard]] OSStatus find(const SecretAttributes& wanted, std::vector<StoredSecret>& found);

    /// Puts a new item into the default collection.
    [[nodiscard]] OSStatus create(const SecretAttributes& attributes, DataView secret);
    [[nodiscard]] OSStatus readSecret(const StoredSecret& stored, Data& secret);
    [[nodiscard]] OSStatus writeSecret(const StoredSecret& stored, DataView secret);
    [[nodiscard]] OSStatus writeAttributes(const StoredSecret& stored, const SecretAttributes& attributes);
    [[nodiscard]] OSStatus remove(const StoredSecret& stored);

  private:
    /// Carries one call of libsecret to its end: `finish(result, error)` takes its outcome.
    template <typename Start, typename Finish>
    [[nodiscard]] OSStatus call(const Start& start, const Finish& finish);
    /// The default collection, unlocked.
    [[nodiscard]] OSStatus openCollection(ObjectPointer<SecretCollection>& collection);
    /// Null on success when the user has none yet.
    [[nodiscard]] OSStatus defaultCollection(ObjectPointer<SecretCollection>& collection);
    /// `find` without the look at what the default collection may hide.
    [[nodiscard]] OSStatus search(const SecretAttributes& wanted, std::vector<StoredSecret>& found);

    BoundedCalls& calls_;
    ObjectPointer<SecretService> service_;
};

}  // namespace qlsdk::platform
