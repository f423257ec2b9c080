#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/platform/linux/stores/Sqlite.h"

namespace qlsdk::platform {

/// The status of an SQLite result code.
[[nodiscard]] OSStatus keychainStatusFor(int sqlite) noexcept;

/// The file of the keychain, which is replaced as a whole with every change: readers take its bytes and
/// query these in memory, so that no writer, not even one that was stopped or killed in the middle, is ever
/// waited for. Writers take turns by a lock file beside it, and stay out of the way of programs that open the
/// database itself.
///
/// A file that such a program has left in the middle of a change, or in write-ahead mode, is opened by SQLite
/// until the next change, which ends that.
///
/// Any thread; any number of them and of processes may use one file. Nothing is thrown but for want of
/// memory.
class KeychainFile {
  public:
    /// Works on a copy of the database in memory, which may have no table yet, or (reading only) on the file.
    /// Called with SQLite held (see `SqliteSection`): it must not report, wait or call out.
    using Work = std::function<OSStatus(SqliteConnection&)>;

    explicit KeychainFile(std::string path) : path_(std::move(path)) {}

    /// The outcome of `work` on what the file holds; `errSecItemNotFound` where there is none. `work` may be
    /// called again when it answers that it cannot look; it changes nothing.
    [[nodiscard]] OSStatus read(const Work& work) const;

    /// Puts what `work` has made of the content in the file's place when it answers success. Before that
    /// `prepare` makes the database ready for it, and tells one that cannot be used. A damaged one is set
    /// aside. Waits for others for `kStoreTimeout` in all, then `errSecInteractionNotAllowed`.
    [[nodiscard]] OSStatus write(const Work& prepare, const Work& work) const;

  private:
    using Deadline = std::chrono::steady_clock::time_point;

    [[nodiscard]] OSStatus readThroughSqlite(const Work& work) const;
    [[nodiscard]] OSStatus changed(const Work& prepare, const Work& work) const;
    [[nodiscard]] OSStatus replace(DataView image) const;
    [[nodiscard]] bool setAside() const;
    [[nodiscard]] bool hasCompanion() const;
    [[nodiscard]] OSStatus refused(OSStatus status, const char* cause, int errorNumber = 0) const;

    const std::string path_;
};

/// What `prepare` and `work` answer about a database that is damaged. Callers of the keychain never see it.
inline constexpr OSStatus kKeychainDamaged = -26275;

}  // namespace qlsdk::platform
