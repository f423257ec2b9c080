#include "QLSDKCoreKit/platform/linux/stores/Sqlite.h"

#include <algorithm>
#include <string_view>

#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk::platform {

namespace {

// The bytes between `pointer`, which is null for an empty column, and its size.
template <typename Byte>
std::basic_string_view<Byte> columnBytes(const void* pointer, int size) noexcept {
    return {static_cast<const Byte*>(pointer), pointer != nullptr ? static_cast<std::size_t>(size) : 0};
}

// What every section holds, and with it whoever forks.
ForkSafeMutex& sectionMutex() {
    static constinit ForkSafeOnce<ForkSafeMutex> mutex;
    return mutex.get([] { return ForkSafeMutex(); });
}

}  // namespace

SqliteSection::SqliteSection() : lock_(sectionMutex()) {}

SqliteConnection::SqliteConnection(const std::string& path) noexcept {
    open(path.c_str(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
}

SqliteConnection::SqliteConnection(DataView image) noexcept {
    open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
    if (status_ != SQLITE_OK || image.empty()) return;
    auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (copy == nullptr) {
        status_ = SQLITE_NOMEM;
        return;
    }
    std::copy(image.begin(), image.end(), copy);
    const auto size = static_cast<sqlite3_int64>(image.size());
    status_ = sqlite3_deserialize(database_.get(), "main", copy, size, size,
                                  SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
}

void SqliteConnection::open(const char* path, int flags) noexcept {
    sqlite3* database = nullptr;
    status_ =
        sqlite3_open_v2(path, &database, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE, nullptr);
    database_.reset(database);
}

int SqliteConnection::execute(const char* sql) noexcept {
    return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr);
}

std::optional<Data> SqliteConnection::image() {
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
        sqlite3_serialize(database_.get(), "main", &size, 0), &sqlite3_free);
    if (bytes == nullptr) return size == 0 ? std::optional<Data>(Data{}) : std::nullopt;
    return Data(bytes.get(), bytes.get() + size);
}

SqliteStatement::SqliteStatement(SqliteConnection& connection, const std::string& sql) noexcept {
    sqlite3_stmt* statement = nullptr;
    status_ = sqlite3_prepare_v2(connection.database_.get(), sql.data(), static_cast<int>(sql.size()),
                                 &statement, nullptr);
    statement_.reset(statement);
}

void SqliteStatement::bind(const Value& value) noexcept {
    if (status_ != SQLITE_OK) return;
    const int place = ++parameters_;
    if (const std::string* text = value.string()) {
        status_ = sqlite3_bind_text64(statement_.get(), place, text->data(), text->size(), SQLITE_STATIC,
                                      SQLITE_UTF8);
    } else if (const Data* data = value.data()) {
        // A null pointer would bind NULL instead of no bytes.
        status_ = data->empty() ? sqlite3_bind_zeroblob(statement_.get(), place, 0)
                                : sqlite3_bind_blob64(statement_.get(), place, data->data(), data->size(),
                                                      SQLITE_STATIC);
    } else if (value.kind() == Value::Kind::boolean || value.kind() == Value::Kind::integer) {
        status_ = sqlite3_bind_int64(statement_.get(), place, value.longValue());
    } else {
        status_ = SQLITE_MISMATCH;
    }
}

int SqliteStatement::step() noexcept {
    return status_ == SQLITE_OK ? sqlite3_step(statement_.get()) : status_;
}

Value SqliteStatement::column(int index) const {
    sqlite3_stmt* statement = statement_.get();
    switch (sqlite3_column_type(statement, index)) {
        case SQLITE_TEXT: {
            const unsigned char* text = sqlite3_column_text(statement, index);
            return std::string(columnBytes<char>(text, sqlite3_column_bytes(statement, index)));
        }
        case SQLITE_BLOB: {
            const void* blob = sqlite3_column_blob(statement, index);
            const auto bytes = columnBytes<char>(blob, sqlite3_column_bytes(statement, index));
            return dataOf(bytes);
        }
        case SQLITE_INTEGER:
            return static_cast<std::int64_t>(sqlite3_column_int64(statement, index));
        default:
            return {};
    }
}

}  // namespace qlsdk::platform
