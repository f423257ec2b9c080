#include "QLSDKCoreKit/platform/Keychain.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/FileLock.h"
#include "QLSDKCoreKit/platform/linux/internal/FileSizeSignalGuard.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/Sqlite.h"
#include "QLSDKCoreKit/platform/linux/internal/StateDirectory.h"

namespace qlsdk::platform {

namespace {

struct Column {
    std::string_view attribute;
    const char* name;
    bool isIdentity;
};

constexpr std::array kColumns = {
    Column{kSecClass, "class", true},
    Column{kSecAttrService, "service", true},
    Column{kSecAttrAccount, "account", true},
    Column{kSecAttrGeneric, "generic", true},
    Column{kSecAttrSynchronizable, "synchronizable", true},
    Column{kSecAttrAccessible, "accessible", false},
    Column{kSecValueData, "data", false},
};

// The columns have no declared types, so that what is stored comes back as the kind it was. Ids are never
// used twice and so tell the order of creation.
constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS items (id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " class NOT NULL, service NOT NULL, account NOT NULL, generic NOT NULL, synchronizable NOT NULL,"
    " accessible, data, UNIQUE (class, service, account, generic, synchronizable))";

OSStatus statusFor(int sqlite) noexcept {
    switch (sqlite & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return errSecSuccess;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return errSecInteractionNotAllowed;
        case SQLITE_CANTOPEN:
            return errSecNotAvailable;
        case SQLITE_CONSTRAINT:
            return errSecDuplicateItem;
        case SQLITE_MISMATCH:
            return errSecParam;
        default:
            return errSecIO;
    }
}

// A statement under construction: its text and the values of its parameters, in order.
struct Query {
    std::string sql;
    std::vector<Value> parameters;

    void add(std::string_view separator, std::string_view name, std::string_view rest, const Value& value) {
        ((sql += separator) += name) += rest;
        parameters.push_back(value);
    }
};

// " WHERE ..." for the attributes that `query` names; the value is no condition.
void appendConditions(Query& statement, const Dictionary& query) {
    std::string_view separator = " WHERE ";
    for (const Column& column : kColumns) {
        const Value* wanted = query.find(column.attribute);
        if (wanted == nullptr || column.attribute == kSecValueData) continue;
        statement.add(std::exchange(separator, " AND "), column.name, " = ?", *wanted);
    }
}

std::string columnNames() {
    std::string names;
    for (const Column& column : kColumns) (names += names.empty() ? "" : ", ") += column.name;
    return names;
}

Dictionary attributesOf(const SqliteStatement& row) {
    Dictionary attributes;
    for (std::size_t i = 0; i < kColumns.size(); ++i) {
        if (kColumns[i].attribute == kSecValueData) continue;
        Value value = row.column(static_cast<int>(i));
        if (kColumns[i].attribute == kSecAttrSynchronizable) value = value.boolValue();
        if (!value.isNull()) attributes.set(kColumns[i].attribute, std::move(value));
    }
    return attributes;
}

bool isOwnRegularFile(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

// SQLite would create the file with the mode that the umask leaves. True when a file of our own is there.
bool prepareFile(const std::string& path) noexcept {
    struct stat status;
    if (::lstat(path.c_str(), &status) == 0) return isOwnRegularFile(status);
    constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;
    const FileDescriptor file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kPrivate));
    // Another process may have been faster.
    if (!file) return errno == EEXIST && ::lstat(path.c_str(), &status) == 0 && isOwnRegularFile(status);
    return ::fchmod(file.get(), kPrivate) == 0;
}

// One connection at a time in this process: closing any descriptor of a file gives up every lock that the
// process holds on it. Waiting for it is bounded like waiting for other processes.
std::timed_mutex& connectionMutex() {
    static std::timed_mutex& mutex = *new std::timed_mutex;
    return mutex;
}

/// Opens the database anew for each call: the calls are few, and a connection must not be carried over a
/// fork.
class LinuxKeychain final : public Keychain {
  public:
    LinuxKeychain(std::optional<std::string> home, std::shared_ptr<Bundles> bundles)
        : directory_(StateKind::data, std::move(home), std::move(bundles)) {}

    OSStatus itemAdd(const Dictionary& attributes) override;
    OSStatus itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) override;
    OSStatus itemCopyMatching(const Dictionary& query, Value* result) override;
    OSStatus itemDelete(const Dictionary& query) override;

  private:
    using Work = std::function<OSStatus(SqliteConnection&, SqliteStatement&)>;

    OSStatus withDatabase(const Query& query, const Work& work) noexcept;
    OSStatus change(const Query& query) noexcept;
    std::optional<std::string> filePath();

    StateDirectory directory_;
};

std::optional<std::string> LinuxKeychain::filePath() {
    const std::optional<std::string> directory = directory_.create();
    if (!directory) return std::nullopt;
    // SQLite refuses a link anywhere in a path, but a home directory may well lie behind one.
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(*directory, error);
    return error ? std::nullopt : std::optional((resolved / "keychain.sqlite").string());
}

OSStatus LinuxKeychain::withDatabase(const Query& query, const Work& work) noexcept {
    try {
        // By the wall clock: ThreadSanitizer does not know the wait by the steady one.
        const std::unique_lock lock(connectionMutex(), std::chrono::system_clock::now() + kStoreTimeout);
        if (!lock) return errSecInteractionNotAllowed;
        const FileSizeSignalGuard guard;
        const std::optional<std::string> path = filePath();
        if (!path || !prepareFile(*path)) return errSecNotAvailable;
        SqliteConnection connection(*path, kStoreTimeout);
        if (connection.status() != SQLITE_OK) return statusFor(connection.status());
        if (const int created = connection.execute(kSchema); created != SQLITE_OK) return statusFor(created);
        SqliteStatement statement(connection, query.sql);
        for (const Value& parameter : query.parameters) statement.bind(parameter);
        if (statement.status() != SQLITE_OK) return statusFor(statement.status());
        return work(connection, statement);
    } catch (...) {
        return errSecIO;
    }
}

// Runs an update or a removal.
OSStatus LinuxKeychain::change(const Query& query) noexcept {
    return withDatabase(query, [](SqliteConnection& connection, SqliteStatement& statement) {
        const OSStatus status = statusFor(statement.step());
        return status == errSecSuccess && connection.changes() == 0 ? errSecItemNotFound : status;
    });
}

OSStatus LinuxKeychain::itemAdd(const Dictionary& attributes) {
    Query insert{"INSERT INTO items (", {}};
    std::string places;
    for (const Column& column : kColumns) {
        const Value* value = attributes.find(column.attribute);
        if (value == nullptr && column.isIdentity) return errSecParam;
        if (value == nullptr) continue;
        insert.add(places.empty() ? "" : ", ", column.name, "", *value);
        places += places.empty() ? "?" : ", ?";
    }
    insert.sql += ") VALUES (" + places + ")";
    return withDatabase(
        insert, [](SqliteConnection&, SqliteStatement& statement) { return statusFor(statement.step()); });
}

OSStatus LinuxKeychain::itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) {
    // Names the id so that an update without attributes still matches.
    Query update{"UPDATE items SET id = id", {}};
    for (const Column& column : kColumns) {
        const Value* value = attributesToUpdate.find(column.attribute);
        if (value != nullptr) update.add(", ", column.name, " = ?", *value);
    }
    appendConditions(update, query);
    return change(update);
}

OSStatus LinuxKeychain::itemDelete(const Dictionary& query) {
    Query removal{"DELETE FROM items", {}};
    appendConditions(removal, query);
    return change(removal);
}

OSStatus LinuxKeychain::itemCopyMatching(const Dictionary& query, Value* result) {
    const Value* limit = query.find(kSecMatchLimit);
    const Value* wantsAttributes = query.find(kSecReturnAttributes);
    const bool one = limit != nullptr ? *limit == Value(kSecMatchLimitOne)
                                      : wantsAttributes == nullptr || !wantsAttributes->boolValue();
    Query select{"SELECT " + columnNames() + " FROM items", {}};
    appendConditions(select, query);
    select.sql += one ? " ORDER BY id LIMIT 1" : " ORDER BY id";
    return withDatabase(select, [&](SqliteConnection&, SqliteStatement& statement) {
        Array found;
        Value data;
        int step = statement.step();
        for (; step == SQLITE_ROW; step = statement.step()) {
            data = statement.column(static_cast<int>(kColumns.size()) - 1);
            found.emplace_back(attributesOf(statement));
        }
        if (step != SQLITE_DONE) return statusFor(step);
        if (found.empty()) return errSecItemNotFound;
        if (result != nullptr) *result = one ? data : Value(std::move(found));
        return errSecSuccess;
    });
}

}  // namespace

std::shared_ptr<Keychain> makeLinuxKeychain(std::optional<std::string> home,
                                            std::shared_ptr<Bundles> bundles) {
    return std::make_shared<LinuxKeychain>(std::move(home), std::move(bundles));
}

}  // namespace qlsdk::platform
