#pragma once

#include <string>

#include "BenchHost.h"
#include "Contest.h"
#include <sqlite3.h>

namespace qlsdk::bench {

/// A table with one row for each event, as other clients keep them, in a database with a write-ahead log.
class EventTable {
  public:
    enum class Flush { never, atCheckpoints };

    explicit EventTable(Flush flush) {
        const std::string path = home() + "/events.sqlite";
        require(sqlite3_open(path.c_str(), &database_) == SQLITE_OK, "sqlite");
        run("PRAGMA journal_mode=WAL");
        run(flush == Flush::never ? "PRAGMA synchronous=OFF" : "PRAGMA synchronous=NORMAL");
        run("CREATE TABLE IF NOT EXISTS events (id INTEGER PRIMARY KEY, event BLOB)");
        run("DELETE FROM events");
        require(sqlite3_prepare_v2(database_, "INSERT INTO events (event) VALUES (?)", -1, &insert_,
                                   nullptr) == SQLITE_OK,
                "sqlite");
    }
    ~EventTable() {
        sqlite3_finalize(insert_);
        sqlite3_close(database_);
    }
    EventTable(const EventTable&) = delete;
    EventTable& operator=(const EventTable&) = delete;

    /// One commit, unless a transaction is open.
    void insert(Bytes bytes) {
        sqlite3_bind_blob(insert_, 1, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
        require(sqlite3_step(insert_) == SQLITE_DONE, "sqlite");
        sqlite3_reset(insert_);
    }
    void run(const char* statement) {
        require(sqlite3_exec(database_, statement, nullptr, nullptr, nullptr) == SQLITE_OK, statement);
    }

  private:
    sqlite3* database_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
};

}  // namespace qlsdk::bench
