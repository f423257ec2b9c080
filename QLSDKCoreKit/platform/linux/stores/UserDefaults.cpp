#include "QLSDKCoreKit/platform/UserDefaults.h"

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <unistd.h>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/FileLock.h"
#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kFileBytes = std::size_t{4} << 20;

enum class LoadOutcome { loaded, unreadable, damaged };

// A missing file is an empty store. `unreadable` covers links, files of other users and the like: the file
// may be good, so it is left alone.
LoadOutcome load(const std::string& path, Dictionary& entries) {
    const FileContent content = readFileContent(path, kFileBytes);
    if (content.outcome == FileOutcome::absent) return LoadOutcome::loaded;
    if (content.outcome != FileOutcome::read) {
        reportDiagnostic(
            {DiagnosticKind::unreadableFile, "user defaults cannot be read", content.errorNumber, path});
        return LoadOutcome::unreadable;
    }
    const std::optional<Value> value = parsePropertyList(content.bytes);
    if (!value || value->dictionary() == nullptr) {
        reportDiagnostic({DiagnosticKind::damagedFile, "user defaults are no dictionary", 0, path});
        return LoadOutcome::damaged;
    }
    entries = *value->dictionary();
    return LoadOutcome::loaded;
}

/// A value that was set, null for a removal, and its number among all of its store.
struct Change {
    Value value;
    std::uint64_t number = 0;
};
using Changes = std::map<std::string, Change, std::less<>>;

void apply(const std::string& key, const Value& value, Dictionary& entries) {
    value.isNull() ? entries.erase(key) : entries.set(key, value);
}

std::optional<Data> serialized(const Dictionary& entries) {
    std::optional<Data> bytes = serializePropertyList(entries);
    if (bytes && bytes->size() > kFileBytes) bytes.reset();
    return bytes;
}

// The file with the changes in it. Those that no file can hold are taken out of `changes`.
std::optional<Data> changed(const Dictionary& entries, Changes& changes) {
    Dictionary whole = entries;
    for (const auto& [key, change] : changes) apply(key, change.value, whole);
    std::optional<Data> bytes = serialized(whole);
    if (bytes) return bytes;
    whole = entries;
    for (auto next = changes.begin(); next != changes.end();) {
        Dictionary with = whole;
        apply(next->first, next->second.value, with);
        std::optional<Data> fitting = serialized(with);
        if (fitting) {
            bytes = std::move(fitting);
            whole = std::move(with);
            ++next;
        } else {
            reportDiagnostic(
                {DiagnosticKind::failedWrite, "a user default fits no property list", 0, {}, next->first});
            next = changes.erase(next);
        }
    }
    return bytes;
}

enum class StoreOutcome { stored, busy, failed };

// Reads, changes and replaces the file as one step towards everyone who takes the same lock. The changes are
// asked for under it, so that whoever comes last writes the latest.
StoreOutcome store(const std::string& path, std::chrono::steady_clock::time_point deadline,
                   const std::function<Changes()>& unwritten, Changes& written) {
    const FileLock lock(path + ".lock", deadline);
    if (lock.outcome() == FileLock::Outcome::busy) return StoreOutcome::busy;
    if (lock.outcome() == FileLock::Outcome::unsupported) {
        reportDiagnostic({DiagnosticKind::failedWrite, "user defaults are written without a lock",
                          lock.errorNumber(), path});
    }
    if (lock.outcome() == FileLock::Outcome::failed) {
        reportDiagnostic(
            {DiagnosticKind::failedWrite, "user defaults cannot be locked", lock.errorNumber(), path});
        return StoreOutcome::failed;
    }
    Dictionary entries;
    const LoadOutcome outcome = load(path, entries);
    if (outcome == LoadOutcome::unreadable) return StoreOutcome::failed;
    if (outcome == LoadOutcome::damaged && !setFileAside(path, kDamagedSuffix)) return StoreOutcome::failed;
    Changes changes = unwritten();
    if (changes.empty()) return StoreOutcome::stored;
    const std::optional<Data> bytes = changed(entries, changes);
    if (!bytes) return StoreOutcome::failed;
    removeAbandonedTemporaries(path);
    if (!replaceFile(path, *bytes)) {
        reportDiagnostic({DiagnosticKind::failedWrite, "user defaults cannot be written", errno, path});
        return StoreOutcome::failed;
    }
    written = std::move(changes);
    return StoreOutcome::stored;
}

/// One thing that one thread of this process does at a time. What a child of fork() inherits taken is free.
class Claim {
  public:
    [[nodiscard]] bool take() noexcept {
        const pid_t process = ::getpid();
        return std::exchange(holder_, process) != process;
    }
    void release() noexcept { holder_ = 0; }

  private:
    pid_t holder_ = 0;
};

class LinuxUserDefaults final : public UserDefaults, public std::enable_shared_from_this<LinuxUserDefaults> {
  public:
    LinuxUserDefaults(std::optional<std::string> home, std::shared_ptr<Bundles> bundles,
                      std::shared_ptr<Queues> queues)
        : directory_(StateKind::config, std::move(home), std::move(bundles)), queues_(std::move(queues)) {}

    Value objectForKey(std::string_view key) override {
        {
            const std::lock_guard guard(mutex_);
            const auto unwritten = unwritten_.find(key);
            if (unwritten != unwritten_.end()) return unwritten->second.value;
        }
        const std::optional<std::string> path = filePath();
        Dictionary entries;
        if (!path || load(*path, entries) != LoadOutcome::loaded) return {};
        const Value* found = entries.find(key);
        return found != nullptr ? *found : Value();
    }

    void setObjectForKey(const Value& value, std::string_view key) override {
        {
            const std::lock_guard guard(mutex_);
            unwritten_.insert_or_assign(std::string(key), Change{value, ++changes_});
        }
        if (write(std::chrono::steady_clock::now()) == StoreOutcome::busy) writeLater();
    }

  private:
    std::optional<std::string> filePath() {
        const std::optional<std::string> directory = directory_.create();
        return directory ? std::optional(*directory + "/UserDefaults.plist") : std::nullopt;
    }

    // Brings all that is unwritten to the file. `stored`, too, when another thread is at it already and will.
    StoreOutcome write(std::chrono::steady_clock::time_point deadline) {
        const std::optional<std::string> path = filePath();
        if (!path) return StoreOutcome::failed;
        {
            const std::lock_guard guard(mutex_);
            if (!writing_.take()) return StoreOutcome::stored;
        }
        for (;;) {
            Changes written;
            StoreOutcome outcome = StoreOutcome::failed;
            try {
                outcome = store(
                    *path, deadline, [this] { return unwritten(); }, written);
            } catch (...) {
                // Without memory for it, the values stay unwritten.
            }
            const std::lock_guard guard(mutex_);
            forget(written);
            const bool more = outcome == StoreOutcome::stored && changes_ != lastSeen_;
            if (more) continue;
            writing_.release();
            return outcome;
        }
    }

    [[nodiscard]] Changes unwritten() {
        const std::lock_guard guard(mutex_);
        lastSeen_ = changes_;
        return unwritten_;
    }

    // Under the mutex. What was set anew meanwhile stays.
    void forget(const Changes& written) noexcept {
        for (const auto& [key, change] : written) {
            const auto found = unwritten_.find(key);
            if (found != unwritten_.end() && found->second.number == change.number) unwritten_.erase(found);
        }
    }

    void writeLater() {
        std::shared_ptr<SerialQueue> queue;
        {
            const std::lock_guard guard(mutex_);
            if (!waiting_.take()) return;
            queue = queue_;
        }
        try {
            if (queue == nullptr) queue = madeQueue();
            // Keeps this store: a value must not be lost because its setter has let go of it.
            queue->async([self = shared_from_this()] { self->writePatiently(); });
        } catch (...) {
            // Without memory for it, the next write tries.
            const std::lock_guard guard(mutex_);
            waiting_.release();
        }
    }

    std::shared_ptr<SerialQueue> madeQueue() {
        auto queue = queues_->makeSerialQueue("com.quillo.quill-kit.user-defaults.queue");
        const std::lock_guard guard(mutex_);
        return queue_ = std::move(queue);
    }

    void writePatiently() {
        {
            const std::lock_guard guard(mutex_);
            waiting_.release();
        }
        if (write(std::chrono::steady_clock::now() + kStoreTimeout) != StoreOutcome::busy) return;
        reportDiagnostic({DiagnosticKind::failedWrite,
                          "user defaults are locked by another process; the next write tries again",
                          EWOULDBLOCK, filePath().value_or("")});
    }

    StateDirectory directory_;
    const std::shared_ptr<Queues> queues_;
    ForkSafeMutex mutex_;
    /// What is not in the file yet, or could not be brought there. Answered before the file; each write takes
    /// all of it along. Guarded by `mutex_`, and so is what follows.
    Changes unwritten_;
    std::uint64_t changes_ = 0;
    /// `changes_` when the writer in progress took the changes.
    std::uint64_t lastSeen_ = 0;
    Claim writing_;
    Claim waiting_;
    /// Made by the first write that has to wait.
    std::shared_ptr<SerialQueue> queue_;
};

}  // namespace

std::shared_ptr<UserDefaults> makeLinuxUserDefaults(std::optional<std::string> home,
                                                    std::shared_ptr<Bundles> bundles,
                                                    std::shared_ptr<Queues> queues) {
    return std::make_shared<LinuxUserDefaults>(std::move(home), std::move(bundles), std::move(queues));
}

}  // namespace qlsdk::platform
