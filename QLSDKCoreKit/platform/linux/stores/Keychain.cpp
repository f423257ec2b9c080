#include "QLSDKCoreKit/platform/Keychain.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"
#include "QLSDKCoreKit/platform/linux/stores/KeychainFile.h"

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

// What a keychain can hold and be asked for.
bool isStorable(const Value& value) noexcept {
    return value.string() != nullptr || value.data() != nullptr || value.kind() == Value::Kind::boolean ||
           value.kind() == Value::Kind::integer;
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

// Runs a statement; `onRow` sees each row.
template <typename OnRow>
OSStatus run(SqliteConnection& connection, const Query& query, const OnRow& onRow) {
    SqliteStatement statement(connection, query.sql);
    for (const Value& parameter : query.parameters) statement.bind(parameter);
    int step = statement.step();
    for (; step == SQLITE_ROW; step = statement.step()) onRow(statement);
    return keychainStatusFor(step);
}

// "Not found" before the first item was stored.
OSStatus lookForTable(SqliteConnection& connection) {
    bool found = false;
    const OSStatus status = run(connection, {"SELECT 1 FROM sqlite_master WHERE name = 'items'", {}},
                                [&](const SqliteStatement&) { found = true; });
    return status == errSecSuccess && !found ? errSecItemNotFound : status;
}

bool hasOurColumns(SqliteConnection& connection) {
    return SqliteStatement(connection, "SELECT id, " + columnNames() + " FROM items").status() == SQLITE_OK;
}

// A page that is damaged and not in the way today would be tomorrow, so all are looked at. A table without
// our columns cannot be used either; whoever made it finds it in the file that is set aside.
OSStatus prepare(SqliteConnection& connection) {
    bool isSound = false;
    const OSStatus checked =
        run(connection, {"PRAGMA integrity_check(1)", {}}, [&](const SqliteStatement& row) {
            const Value text = row.column(0);
            isSound = text == Value("ok");
        });
    if (checked != errSecSuccess) return checked;
    if (!isSound) return kKeychainDamaged;
    if (const int made = connection.execute(kSchema); made != SQLITE_OK) return keychainStatusFor(made);
    return hasOurColumns(connection) ? errSecSuccess : kKeychainDamaged;
}

/// No connection outlives a call: the calls are few, and none must be carried over a fork.
class LinuxKeychain final : public Keychain {
  public:
    LinuxKeychain(std::optional<std::string> home, std::shared_ptr<Bundles> bundles)
        : directory_(StateKind::data, std::move(home), std::move(bundles)) {}

    OSStatus itemAdd(const Dictionary& attributes) override;
    OSStatus itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) override;
    OSStatus itemCopyMatching(const Dictionary& query, Value* result) override;
    OSStatus itemDelete(const Dictionary& query) override;

  private:
    template <typename Call>
    OSStatus withFile(const Query& query, const Call& call) noexcept;
    OSStatus change(const Query& query) noexcept;

    StateDirectory directory_;
};

template <typename Call>
OSStatus LinuxKeychain::withFile(const Query& query, const Call& call) noexcept {
    try {
        if (!std::all_of(query.parameters.begin(), query.parameters.end(), isStorable)) return errSecParam;
        const std::optional<std::string> directory = directory_.create();
        // SQLite refuses a link anywhere in a path, but a home directory may well lie behind one.
        std::error_code error;
        const std::filesystem::path resolved =
            std::filesystem::canonical(directory.value_or(std::string()), error);
        if (error) {
            reportDiagnostic({DiagnosticKind::stateDirectory, "there is no directory for the keychain",
                              error.value(), directory.value_or("")});
            return errSecNotAvailable;
        }
        return call(KeychainFile((resolved / "keychain.sqlite").string()));
    } catch (...) {
        // Out of memory.
        return errSecIO;
    }
}

// Runs an insertion, an update or a removal.
OSStatus LinuxKeychain::change(const Query& query) noexcept {
    return withFile(query, [&query](const KeychainFile& file) {
        return file.write(prepare, [&query](SqliteConnection& connection) {
            const OSStatus status = run(connection, query, [](const SqliteStatement&) {});
            return status == errSecSuccess && connection.changes() == 0 ? errSecItemNotFound : status;
        });
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
    return change(insert);
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
    return withFile(select, [&](const KeychainFile& file) {
        return file.read([&](SqliteConnection& connection) {
            Array found;
            Value data;
            if (const OSStatus table = lookForTable(connection); table != errSecSuccess) return table;
            const OSStatus status = run(connection, select, [&](const SqliteStatement& row) {
                data = row.column(static_cast<int>(kColumns.size()) - 1);
                found.emplace_back(attributesOf(row));
            });
            if (status != errSecSuccess) return status;
            if (found.empty()) return errSecItemNotFound;
            if (result != nullptr) *result = one ? data : Value(std::move(found));
            return errSecSuccess;
        });
    });
}

}  // namespace

std::shared_ptr<Keychain> makeLinuxKeychain(std::optional<std::string> home,
                                            std::shared_ptr<Bundles> bundles) {
    return std::make_shared<LinuxKeychain>(std::move(home), std::move(bundles));
}

}  // namespace qlsdk::platform
