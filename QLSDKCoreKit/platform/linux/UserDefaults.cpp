#include "QLSDKCoreKit/platform/UserDefaults.h"

#include <mutex>
#include <utility>

#include <stdio.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/linux/internal/FileLock.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/StateDirectory.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kFileBytes = std::size_t{4} << 20;

enum class LoadOutcome { loaded, unreadable, damaged };

// A missing file is an empty store. `unreadable` covers links, files of other users and the like: the file
// may be good, so it is left alone.
LoadOutcome load(const std::string& path, Dictionary& entries) {
    const std::optional<Data> bytes = readFile(path, kFileBytes);
    if (!bytes) return fileExists(path) ? LoadOutcome::unreadable : LoadOutcome::loaded;
    const std::optional<Value> value = parsePropertyList(*bytes);
    if (!value || value->dictionary() == nullptr) return LoadOutcome::damaged;
    entries = *value->dictionary();
    return LoadOutcome::loaded;
}

void change(Dictionary& entries, std::string_view key, const Value& value) {
    value.isNull() ? entries.erase(key) : entries.set(key, value);
}

// Reads, changes and replaces the file as one step towards everyone who takes the same lock.
bool store(const std::string& path, std::string_view key, const Value& value) {
    const FileLock lock(path + ".lock");
    if (!lock) return false;
    Dictionary entries;
    const LoadOutcome outcome = load(path, entries);
    if (outcome == LoadOutcome::unreadable) return false;
    // Set aside for a person to look at; an earlier one gives way.
    if (outcome == LoadOutcome::damaged && ::rename(path.c_str(), (path + ".corrupt").c_str()) != 0)
        return false;
    change(entries, key, value);
    const std::optional<Data> bytes = serializePropertyList(std::move(entries));
    return bytes && bytes->size() <= kFileBytes && replaceFile(path, *bytes);
}

class LinuxUserDefaults final : public UserDefaults {
  public:
    LinuxUserDefaults(std::optional<std::string> home, std::shared_ptr<Bundles> bundles)
        : directory_(StateKind::config, std::move(home), std::move(bundles)) {}

    Value objectForKey(std::string_view key) override {
        {
            const std::lock_guard guard(mutex_);
            if (const Value* unwritten = unwritten_.find(key)) return *unwritten;
        }
        const std::optional<std::string> path = filePath();
        Dictionary entries;
        if (!path || load(*path, entries) != LoadOutcome::loaded) return {};
        const Value* found = entries.find(key);
        return found != nullptr ? *found : Value();
    }

    void setObjectForKey(const Value& value, std::string_view key) override {
        const std::optional<std::string> path = filePath();
        const bool stored = path && store(*path, key, value);
        const std::lock_guard guard(mutex_);
        stored ? unwritten_.erase(key) : unwritten_.set(key, value);
    }

  private:
    std::optional<std::string> filePath() {
        const std::optional<std::string> directory = directory_.create();
        return directory ? std::optional(*directory + "/UserDefaults.plist") : std::nullopt;
    }

    StateDirectory directory_;
    std::mutex mutex_;
    /// What could not be written, null for a removal; answered before the file until a later write of the
    /// same key succeeds. Guarded by `mutex_`.
    Dictionary unwritten_;
};

}  // namespace

std::shared_ptr<UserDefaults> makeLinuxUserDefaults(std::optional<std::string> home,
                                                    std::shared_ptr<Bundles> bundles) {
    return std::make_shared<LinuxUserDefaults>(std::move(home), std::move(bundles));
}

}  // namespace qlsdk::platform
