#include "QLSDKCoreKit/platform/linux/internal/Sqlite.h"

#include <string_view>

namespace qlsdk::platform {

namespace {

// The bytes between `pointer`, which is null for an empty column, and its size.
template <typename Byte>
std::basic_string_view<Byte> columnBytes(const void* pointer, int size) noexcept {
    return {static_cast<const Byte*>(pointer), pointer != nullptr ? static_cast<std::size_t>(size) : 0};
}

}  // namespace

SqliteConnection::SqliteConnection(const std::string& path, std::chrono::milliseconds busyTimeout) noexcept {
    constexpr int kFlags =
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    sqlite3* database = nullptr;
    status_ = sqlite3_open_v2(path.c_str(), &database, kFlags, nullptr);
    // A failed open leaves a connection to close, too.
    database_.reset(database);
    if (status_ == SQLITE_OK) {
        status_ = sqlite3_busy_timeout(database, static_cast<int>(busyTimeout.count()));
    }
}

int SqliteConnection::execute(const char* sql) noexcept {
    return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr);
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
