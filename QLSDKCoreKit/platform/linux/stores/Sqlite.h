#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <sqlite3.h>

#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Whoever uses SQLite holds one of these. It keeps forks out: SQLite has locks of its own, which a child
/// would find taken for ever by a thread that it does not have. Never while waiting for anybody, nor across a
/// report or a callback. On the stack.
class SqliteSection {
  public:
    SqliteSection();

  private:
    std::unique_lock<std::mutex> lock_;
};

/// One connection to a database. For one thread and one process; closed with the object. No call waits for
/// another connection's lock.
class SqliteConnection {
  public:
    /// To a file that exists already; never follows a link.
    explicit SqliteConnection(const std::string& path) noexcept;
    /// To a database in memory with the content of a file, of which this makes a copy: an empty one for no
    /// bytes. Damage shows when it is used.
    explicit SqliteConnection(DataView image) noexcept;

    /// SQLITE_OK when the connection can be used.
    [[nodiscard]] int status() const noexcept { return status_; }
    /// Runs statements without parameters and results.
    [[nodiscard]] int execute(const char* sql) noexcept;
    /// Rows changed by the last statement.
    [[nodiscard]] int changes() noexcept { return sqlite3_changes(database_.get()); }
    /// What a file of this database holds, as this connection sees it; absent when it cannot be read.
    [[nodiscard]] std::optional<Data> image();

  private:
    friend class SqliteStatement;
    struct Close {
        void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
    };
    void open(const char* path, int flags) noexcept;

    std::unique_ptr<sqlite3, Close> database_;
    int status_ = SQLITE_OK;
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
