#include <array>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/platform/desktop/DesktopAdapters.h"
#include "QLSDKCoreKit/platform/desktop/SecretStore.h"

namespace qlsdk::platform {

namespace {

/// For one call of the keychain, everything included.
constexpr std::chrono::seconds kCallLimit{5};

/// How a value stands in a text attribute of the service.
enum class Form { text, base64, flag };

struct Attribute {
    std::string_view key;
    const char* name;
    Form form;
    bool isIdentity;
};

constexpr std::array kAttributes = {
    Attribute{kSecClass, "class", Form::text, true},
    Attribute{kSecAttrService, "service", Form::text, true},
    Attribute{kSecAttrAccount, "account", Form::base64, true},
    Attribute{kSecAttrGeneric, "generic", Form::base64, true},
    Attribute{kSecAttrSynchronizable, "synchronizable", Form::flag, true},
    Attribute{kSecAttrAccessible, "accessible", Form::text, false},
};

// Absent for a value of another kind than the attribute's, and for a text that the bus cannot carry.
std::optional<std::string> encoded(const Value& value, Form form) {
    if (form == Form::flag) {
        if (value.kind() != Value::Kind::boolean) return std::nullopt;
        return value.boolValue() ? "true" : "false";
    }
    if (form == Form::base64) {
        if (value.data() == nullptr) return std::nullopt;
        const GLibMemory<char> text(g_base64_encode(value.data()->data(), value.data()->size()));
        return text.get();
    }
    const std::string* text = value.string();
    const bool canTravel =
        text != nullptr && g_utf8_validate(text->data(), static_cast<gssize>(text->size()), nullptr);
    return canTravel ? std::optional(*text) : std::nullopt;
}

Value decoded(const std::string& text, Form form) {
    if (form == Form::flag) return text == "true";
    if (form == Form::text) return text;
    gsize length = 0;
    const GLibMemory<guchar> bytes(g_base64_decode(text.c_str(), &length));
    return Data(bytes.get(), bytes.get() + length);
}

// The item attributes that `dictionary` names; absent when one of them has no storable value.
std::optional<SecretAttributes> attributesIn(const Dictionary& dictionary) {
    SecretAttributes attributes;
    for (const Attribute& attribute : kAttributes) {
        const Value* value = dictionary.find(attribute.key);
        if (value == nullptr) continue;
        std::optional<std::string> text = encoded(*value, attribute.form);
        if (!text) return std::nullopt;
        attributes[attribute.name] = std::move(*text);
    }
    return attributes;
}

std::optional<SecretAttributes> identityIn(const SecretAttributes& attributes) {
    SecretAttributes identity;
    for (const Attribute& attribute : kAttributes) {
        if (!attribute.isIdentity) continue;
        const auto found = attributes.find(attribute.name);
        if (found == attributes.end()) return std::nullopt;
        identity.insert(*found);
    }
    return identity;
}

Dictionary dictionaryOf(const SecretAttributes& attributes) {
    Dictionary dictionary;
    for (const Attribute& attribute : kAttributes) {
        const auto found = attributes.find(attribute.name);
        if (found != attributes.end()) dictionary.set(attribute.key, decoded(found->second, attribute.form));
    }
    return dictionary;
}

// The bytes under `kSecValueData`, empty when there are none; absent when something else stands there.
std::optional<Data> secretIn(const Dictionary& dictionary) {
    const Value* value = dictionary.find(kSecValueData);
    if (value == nullptr) return Data();
    return value->data() != nullptr ? std::optional(*value->data()) : std::nullopt;
}

// The service does not know our rule for duplicates, so that looking and adding are two steps. Between two
// processes they may interleave; then both items stay, and the older one answers.
constinit std::timed_mutex additionMutex;

/// Opens the service anew for each call: the calls are few, the service comes and goes with the session, and
/// nothing of a connection is left to look after in between.
class SecretKeychain final : public Keychain {
  public:
    OSStatus itemAdd(const Dictionary& attributes) override;
    OSStatus itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) override;
    OSStatus itemCopyMatching(const Dictionary& query, Value* result) override;
    OSStatus itemDelete(const Dictionary& query) override;

  private:
    using Work = std::function<OSStatus(SecretStore&)>;
    using ItemWork = std::function<OSStatus(SecretStore&, const StoredSecret&)>;

    static OSStatus withStore(const Work& work) noexcept;
    static OSStatus forEachMatch(const SecretAttributes& wanted, const ItemWork& work) noexcept;
};

OSStatus SecretKeychain::withStore(const Work& work) noexcept {
    try {
        if (!canUseGLib()) return errSecNotAvailable;
        BoundedCalls calls(kCallLimit);
        SecretStore store(calls);
        const OSStatus status = store.open();
        return status == errSecSuccess ? work(store) : status;
    } catch (...) {
        return errSecIO;
    }
}

OSStatus SecretKeychain::forEachMatch(const SecretAttributes& wanted, const ItemWork& work) noexcept {
    return withStore([&](SecretStore& store) {
        std::vector<StoredSecret> found;
        OSStatus status = store.find(wanted, found);
        for (std::size_t i = 0; status == errSecSuccess && i < found.size(); ++i)
            status = work(store, found[i]);
        return status;
    });
}

OSStatus SecretKeychain::itemAdd(const Dictionary& attributes) {
    const std::optional<SecretAttributes> stored = attributesIn(attributes);
    const std::optional<SecretAttributes> identity = stored ? identityIn(*stored) : std::nullopt;
    const std::optional<Data> secret = secretIn(attributes);
    if (!identity || !secret) return errSecParam;
    // First, because a child of fork() may find the mutex taken.
    if (!canUseGLib()) return errSecNotAvailable;
    // By the wall clock: ThreadSanitizer does not know the wait by the steady one.
    const std::unique_lock lock(additionMutex, std::chrono::system_clock::now() + kCallLimit);
    if (!lock) return errSecInteractionNotAllowed;
    return withStore([&](SecretStore& store) {
        std::vector<StoredSecret> found;
        const OSStatus status = store.find(*identity, found);
        if (status == errSecSuccess) return errSecDuplicateItem;
        return status == errSecItemNotFound ? store.create(*stored, *secret) : status;
    });
}

OSStatus SecretKeychain::itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) {
    const std::optional<SecretAttributes> wanted = attributesIn(query);
    const std::optional<SecretAttributes> changes = attributesIn(attributesToUpdate);
    const std::optional<Data> secret = secretIn(attributesToUpdate);
    if (!wanted || !changes || !secret) return errSecParam;
    return forEachMatch(*wanted, [&](SecretStore& store, const StoredSecret& stored) {
        if (attributesToUpdate.contains(kSecValueData)) {
            const OSStatus status = store.writeSecret(stored, *secret);
            if (status != errSecSuccess) return status;
        }
        if (changes->empty()) return errSecSuccess;
        SecretAttributes attributes = *changes;
        attributes.insert(stored.attributes.begin(), stored.attributes.end());
        return store.writeAttributes(stored, attributes);
    });
}

OSStatus SecretKeychain::itemDelete(const Dictionary& query) {
    const std::optional<SecretAttributes> wanted = attributesIn(query);
    if (!wanted) return errSecParam;
    return forEachMatch(*wanted,
                        [](SecretStore& store, const StoredSecret& stored) { return store.remove(stored); });
}

OSStatus SecretKeychain::itemCopyMatching(const Dictionary& query, Value* result) {
    const std::optional<SecretAttributes> wanted = attributesIn(query);
    if (!wanted) return errSecParam;
    const Value* limit = query.find(kSecMatchLimit);
    const Value* wantsAttributes = query.find(kSecReturnAttributes);
    const bool one = limit != nullptr ? *limit == Value(kSecMatchLimitOne)
                                      : wantsAttributes == nullptr || !wantsAttributes->boolValue();
    return withStore([&](SecretStore& store) {
        std::vector<StoredSecret> found;
        const OSStatus status = store.find(*wanted, found);
        if (status != errSecSuccess || result == nullptr) return status;
        if (one) {
            Data secret;
            const OSStatus read = store.readSecret(found.front(), secret);
            if (read == errSecSuccess) *result = std::move(secret);
            return read;
        }
        Array all;
        for (const StoredSecret& stored : found) all.emplace_back(dictionaryOf(stored.attributes));
        *result = std::move(all);
        return errSecSuccess;
    });
}

}  // namespace

std::shared_ptr<Keychain> makeSecretKeychain() {
    return std::make_shared<SecretKeychain>();
}

}  // namespace qlsdk::platform
