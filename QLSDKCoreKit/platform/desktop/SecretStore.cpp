#include "QLSDKCoreKit/platform/desktop/internal/SecretStore.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include <stdlib.h>

#include "QLSDKCoreKit/platform/desktop/internal/SilentSecretService.h"

namespace qlsdk::platform {

namespace {

using AttributeTable = std::unique_ptr<GHashTable, DestroyWith<g_hash_table_unref>>;
using SecretBytes =
    std::unique_ptr<SecretValue, DestroyWith<[](SecretValue* value) { secret_value_unref(value); }>>;

constexpr const char* kCreated = "created";

const SecretSchema& schema() {
    constexpr auto kText = SECRET_SCHEMA_ATTRIBUTE_STRING;
    static const SecretSchema fixed = {"com.quillo.quill-kit.keychain",
                                       SECRET_SCHEMA_NONE,
                                       {{"class", kText},
                                        {"service", kText},
                                        {"account", kText},
                                        {"generic", kText},
                                        {"synchronizable", kText},
                                        {"accessible", kText},
                                        {kCreated, kText},
                                        {nullptr, kText}},
                                       0,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr};
    return fixed;
}

OSStatus statusFor(const GError* error) noexcept {
    if (error == nullptr) return errSecSuccess;
    const bool isLocked = g_error_matches(error, SECRET_ERROR, SECRET_ERROR_IS_LOCKED) != FALSE;
    if (isLocked) return errSecInteractionNotAllowed;
    // The bus or the service is away, or answers too late: all that GIO and the bus themselves report.
    const bool isAway = error->domain == G_IO_ERROR || error->domain == G_DBUS_ERROR;
    return isAway ? errSecNotAvailable : errSecIO;
}

AttributeTable tableOf(const SecretAttributes& attributes) {
    AttributeTable table(g_hash_table_new_full(g_str_hash, g_str_equal, &g_free, &g_free));
    for (const auto& [name, value] : attributes) {
        g_hash_table_insert(table.get(), g_strdup(name.c_str()), g_strdup(value.c_str()));
    }
    return table;
}

SecretAttributes attributesOf(SecretItem* item) {
    const AttributeTable table(secret_item_get_attributes(item));
    SecretAttributes attributes;
    GHashTableIter iterator;
    gpointer name = nullptr;
    gpointer value = nullptr;
    g_hash_table_iter_init(&iterator, table.get());
    while (g_hash_table_iter_next(&iterator, &name, &value) != FALSE) {
        attributes.emplace(static_cast<const char*>(name), static_cast<const char*>(value));
    }
    return attributes;
}

SecretBytes secretOf(DataView bytes) {
    const char* start = bytes.empty() ? "" : reinterpret_cast<const char*>(bytes.data());
    return SecretBytes(
        secret_value_new(start, static_cast<gssize>(bytes.size()), "application/octet-stream"));
}

// The service dates items by the second, which does not tell apart what is added in one go. All texts have
// the same length, so that their order is that of time.
std::string newCreationStamp() {
    std::string micros = std::to_string(g_get_real_time());
    return std::string(20 - std::min<std::size_t>(micros.size(), 20), '0') + micros;
}

// Unlike GLib's own look-up this never starts a bus where there is none.
std::optional<std::string> sessionBusAddress() {
    const char* address = ::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr && *address != '\0') return address;
    const char* runtimeDirectory = ::getenv("XDG_RUNTIME_DIR");
    if (runtimeDirectory == nullptr || *runtimeDirectory != '/') return std::nullopt;
    const GLibMemory<char> escaped(g_dbus_address_escape_value(runtimeDirectory));
    return "unix:path=" + std::string(escaped.get()) + "/bus";
}

}  // namespace

std::string_view StoredSecret::creationStamp() const {
    const auto stamp = attributes.find(kCreated);
    return stamp == attributes.end() ? std::string_view() : stamp->second;
}

OSStatus SecretStore::open() {
    const std::optional<std::string> address = sessionBusAddress();
    if (!address) return errSecNotAvailable;
    ErrorPointer error;
    // A connection of its own: the process's shared one may have been told by the host to end the process
    // with the bus.
    const auto connected =
        calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            constexpr auto kFlags =
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
            g_dbus_connection_new_for_address(address->c_str(), kFlags, nullptr, cancellable, done, data);
        });
    bus_.reset(g_dbus_connection_new_for_address_finish(connected.get(), ErrorOut(error)));
    if (!bus_) return errSecNotAvailable;

    const auto opened = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        openSilentSecretService(bus_.get(), cancellable, done, data);
    });
    service_ = openSilentSecretServiceFinish(opened.get(), error);
    return service_ ? errSecSuccess : statusFor(error.get());
}

OSStatus SecretStore::defaultCollection(ObjectPointer<SecretCollection>& collection) {
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_collection_for_alias(service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
                                    cancellable, done, data);
    });
    collection.reset(secret_collection_for_alias_finish(result.get(), ErrorOut(error)));
    return statusFor(error.get());
}

OSStatus SecretStore::openCollection(ObjectPointer<SecretCollection>& collection) {
    if (const OSStatus status = defaultCollection(collection); status != errSecSuccess) return status;
    // Without a collection the user would have to be asked for the password of a new one.
    const bool isOpen = collection && secret_collection_get_locked(collection.get()) == FALSE;
    return isOpen ? errSecSuccess : errSecInteractionNotAllowed;
}

OSStatus SecretStore::find(const SecretAttributes& wanted, std::vector<StoredSecret>& found) {
    ErrorPointer error;
    const AttributeTable table = tableOf(wanted);
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_service_search(service_.get(), &schema(), table.get(), SECRET_SEARCH_ALL, cancellable, done,
                              data);
    });
    GList* items = secret_service_search_finish(service_.get(), result.get(), ErrorOut(error));
    bool isLocked = false;
    for (GList* link = items; link != nullptr; link = link->next) {
        ObjectPointer<SecretItem> item(SECRET_ITEM(link->data));
        isLocked = isLocked || secret_item_get_locked(item.get()) != FALSE;
        SecretAttributes attributes = attributesOf(item.get());
        found.push_back({std::move(item), std::move(attributes)});
    }
    g_list_free(items);
    if (error) return statusFor(error.get());
    if (isLocked) return errSecInteractionNotAllowed;
    if (!found.empty()) {
        std::stable_sort(found.begin(), found.end(), [](const StoredSecret& left, const StoredSecret& right) {
            return left.creationStamp() < right.creationStamp();
        });
        return errSecSuccess;
    }
    // A locked collection may hide what it holds; a missing one holds nothing.
    ObjectPointer<SecretCollection> collection;
    if (const OSStatus status = defaultCollection(collection); status != errSecSuccess) return status;
    const bool hides = collection && secret_collection_get_locked(collection.get()) != FALSE;
    return hides ? errSecInteractionNotAllowed : errSecItemNotFound;
}

OSStatus SecretStore::create(const SecretAttributes& attributes, DataView secret) {
    ObjectPointer<SecretCollection> collection;
    if (const OSStatus status = openCollection(collection); status != errSecSuccess) return status;
    SecretAttributes stamped = attributes;
    stamped[kCreated] = newCreationStamp();
    const AttributeTable table = tableOf(stamped);
    const SecretBytes value = secretOf(secret);
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_item_create(collection.get(), &schema(), table.get(), attributes.at("service").c_str(),
                           value.get(), SECRET_ITEM_CREATE_NONE, cancellable, done, data);
    });
    const ObjectPointer<SecretItem> item(secret_item_create_finish(result.get(), ErrorOut(error)));
    return statusFor(error.get());
}

OSStatus SecretStore::readSecret(const StoredSecret& stored, Data& secret) {
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_item_load_secret(stored.item.get(), cancellable, done, data);
    });
    secret_item_load_secret_finish(stored.item.get(), result.get(), ErrorOut(error));
    if (error) return statusFor(error.get());
    const SecretBytes value(secret_item_get_secret(stored.item.get()));
    if (!value) return errSecInteractionNotAllowed;  // Locked since it was found.
    gsize length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(secret_value_get(value.get(), &length));
    secret.assign(bytes, bytes + length);
    return errSecSuccess;
}

OSStatus SecretStore::writeSecret(const StoredSecret& stored, DataView secret) {
    const SecretBytes value = secretOf(secret);
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_item_set_secret(stored.item.get(), value.get(), cancellable, done, data);
    });
    secret_item_set_secret_finish(stored.item.get(), result.get(), ErrorOut(error));
    return statusFor(error.get());
}

OSStatus SecretStore::writeAttributes(const StoredSecret& stored, const SecretAttributes& attributes) {
    const AttributeTable table = tableOf(attributes);
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_item_set_attributes(stored.item.get(), &schema(), table.get(), cancellable, done, data);
    });
    secret_item_set_attributes_finish(stored.item.get(), result.get(), ErrorOut(error));
    return statusFor(error.get());
}

OSStatus SecretStore::remove(const StoredSecret& stored) {
    ErrorPointer error;
    const auto result = calls_.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        secret_item_delete(stored.item.get(), cancellable, done, data);
    });
    secret_item_delete_finish(stored.item.get(), result.get(), ErrorOut(error));
    return statusFor(error.get());
}

}  // namespace qlsdk::platform
