#include "QLSDKCoreKit/platform/desktop/SecretStore.h"

#include <algorithm>
#include <memory>

#include <stdlib.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/desktop/SilentSecretService.h"

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

// Where there is no bus GLib would start one.
bool hasSessionBus() noexcept {
    const char* address = ::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr && *address != '\0') return true;
    const GLibMemory<char> socket(g_build_filename(g_get_user_runtime_dir(), "bus", nullptr));
    return ::access(socket.get(), F_OK) == 0;
}

}  // namespace

std::string_view StoredSecret::creationStamp() const {
    const auto stamp = attributes.find(kCreated);
    return stamp == attributes.end() ? std::string_view() : stamp->second;
}

template <typename Start, typename Finish>
OSStatus SecretStore::call(const Start& start, const Finish& finish) {
    const ObjectPointer<GAsyncResult> result = calls_.wait(start);
    if (!result) return errSecNotAvailable;
    ErrorPointer error;
    finish(result.get(), ErrorOut(error));
    return statusFor(error.get());
}

OSStatus SecretStore::open() {
    if (!hasSessionBus()) return errSecNotAvailable;
    return call(
        [](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_service_open(silentSecretServiceType(), nullptr, SECRET_SERVICE_NONE, cancellable, done,
                                data);
        },
        [this](GAsyncResult* result, GError** error) {
            service_.reset(secret_service_open_finish(result, error));
        });
}

OSStatus SecretStore::defaultCollection(ObjectPointer<SecretCollection>& collection) {
    return call(
        [this](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_collection_for_alias(service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
                                        cancellable, done, data);
        },
        [&](GAsyncResult* result, GError** error) {
            collection.reset(secret_collection_for_alias_finish(result, error));
        });
}

OSStatus SecretStore::openCollection(ObjectPointer<SecretCollection>& collection) {
    if (const OSStatus status = defaultCollection(collection); status != errSecSuccess) return status;
    // Without a collection the user would have to be asked for the password of a new one.
    const bool isOpen = collection && secret_collection_get_locked(collection.get()) == FALSE;
    return isOpen ? errSecSuccess : errSecInteractionNotAllowed;
}

OSStatus SecretStore::search(const SecretAttributes& wanted, std::vector<StoredSecret>& found) {
    const AttributeTable table = tableOf(wanted);
    GList* items = nullptr;
    const OSStatus status = call(
        [&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_service_search(service_.get(), &schema(), table.get(), SECRET_SEARCH_ALL, cancellable,
                                  done, data);
        },
        [&](GAsyncResult* result, GError** error) {
            items = secret_service_search_finish(service_.get(), result, error);
        });
    for (GList* link = items; link != nullptr; link = link->next) {
        ObjectPointer<SecretItem> item(SECRET_ITEM(link->data));
        SecretAttributes attributes = attributesOf(item.get());
        found.push_back({std::move(item), std::move(attributes)});
    }
    g_list_free(items);
    return status;
}

OSStatus SecretStore::find(const SecretAttributes& wanted, std::vector<StoredSecret>& found) {
    if (const OSStatus status = search(wanted, found); status != errSecSuccess) return status;
    if (found.empty()) {
        // A locked collection may hide what it holds; a missing one holds nothing.
        ObjectPointer<SecretCollection> collection;
        if (const OSStatus status = defaultCollection(collection); status != errSecSuccess) return status;
        const bool hides = collection && secret_collection_get_locked(collection.get()) != FALSE;
        return hides ? errSecInteractionNotAllowed : errSecItemNotFound;
    }
    for (const StoredSecret& stored : found) {
        if (secret_item_get_locked(stored.item.get()) != FALSE) return errSecInteractionNotAllowed;
    }
    std::stable_sort(found.begin(), found.end(), [](const StoredSecret& left, const StoredSecret& right) {
        return left.creationStamp() < right.creationStamp();
    });
    return errSecSuccess;
}

OSStatus SecretStore::create(const SecretAttributes& attributes, DataView secret) {
    ObjectPointer<SecretCollection> collection;
    if (const OSStatus status = openCollection(collection); status != errSecSuccess) return status;
    SecretAttributes stamped = attributes;
    stamped[kCreated] = newCreationStamp();
    const AttributeTable table = tableOf(stamped);
    const SecretBytes value = secretOf(secret);
    const char* label = attributes.at("service").c_str();
    return call(
        [&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_item_create(collection.get(), &schema(), table.get(), label, value.get(),
                               SECRET_ITEM_CREATE_NONE, cancellable, done, data);
        },
        [](GAsyncResult* result, GError** error) {
            const ObjectPointer<SecretItem> item(secret_item_create_finish(result, error));
        });
}

OSStatus SecretStore::readSecret(const StoredSecret& stored, Data& secret) {
    const OSStatus status =
        call([&](GCancellable* cancellable, GAsyncReadyCallback done,
                 gpointer data) { secret_item_load_secret(stored.item.get(), cancellable, done, data); },
             [&](GAsyncResult* result, GError** error) {
                 secret_item_load_secret_finish(stored.item.get(), result, error);
             });
    if (status != errSecSuccess) return status;
    const SecretBytes value(secret_item_get_secret(stored.item.get()));
    if (!value) return errSecInteractionNotAllowed;  // Locked since it was found.
    gsize length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(secret_value_get(value.get(), &length));
    secret.assign(bytes, bytes + length);
    return errSecSuccess;
}

OSStatus SecretStore::writeSecret(const StoredSecret& stored, DataView secret) {
    const SecretBytes value = secretOf(secret);
    return call(
        [&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_item_set_secret(stored.item.get(), value.get(), cancellable, done, data);
        },
        [&](GAsyncResult* result, GError** error) {
            secret_item_set_secret_finish(stored.item.get(), result, error);
        });
}

OSStatus SecretStore::writeAttributes(const StoredSecret& stored, const SecretAttributes& attributes) {
    const AttributeTable table = tableOf(attributes);
    return call(
        [&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
            secret_item_set_attributes(stored.item.get(), &schema(), table.get(), cancellable, done, data);
        },
        [&](GAsyncResult* result, GError** error) {
            secret_item_set_attributes_finish(stored.item.get(), result, error);
        });
}

OSStatus SecretStore::remove(const StoredSecret& stored) {
    return call([&](GCancellable* cancellable, GAsyncReadyCallback done,
                    gpointer data) { secret_item_delete(stored.item.get(), cancellable, done, data); },
                [&](GAsyncResult* result, GError** error) {
                    secret_item_delete_finish(stored.item.get(), result, error);
                });
}

}  // namespace qlsdk::platform
