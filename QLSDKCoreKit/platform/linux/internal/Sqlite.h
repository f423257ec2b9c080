#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <sqlite3.h>

#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// One connection to a database file that exists already. For one thread and one process; closed with the
/// object.
class SqliteConnection {
  public:
    /// Never follows a link. A call that meets another connection's lock waits for `busyTimeout` at most.
    SqliteConnection(const std::string& path, std::chrono::milliseconds busyTimeout) noexcept;

    /// SQLITE_OK when the connection can be used.
    [[nodiscard]] int status() const noexcept { return status_; }
    /// Runs a statement without parameters and results.
    [[nodiscard]] int execute(const char* sql) noexcept;
    /// Rows changed by the last statement.
    [[nodiscard]] int changes() noexcept { return sqlite3_changes(database_.get()); }

  private:
    friend class SqliteStatement;
    struct Close {
        void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
    };
    std::unique_ptr<sqlite3, Close> database_;
    int status_;
};

/// One prepared statement of a connection, which it must not outlive.
class SqliteStatement {
  public:
    SqliteStatement(SqliteConnection& connection, const std::string& sql) noexcept;

    /// Gives the next parameter its value: text, data, booleans and integers of up to 64 bits. Any other kind
    /// makes `status` SQLITE_MISMATCH. The value must stay until the last `step`.
    void bind(const Value& value) noexcept;
    /// SQLITE_OK until the preparation or a binding failed.
    [[nodiscard]] int status() const noexcept { return status_; }
    /// SQLITE_ROW, SQLITE_DONE or an error; the status, where that is an error already.
    [[nodiscard]] int step() noexcept;
    /// A column of the current row: text, data, an integer, or null.
    [[nodiscard]] Value column(int index) const;

  private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
    int status_;
    int parameters_ = 0;
};

}  // namespace qlsdk::platform
