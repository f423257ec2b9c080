#include "QLSDKCoreKit/platform/ConsentGate.h"

#include <optional>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk::platform {

namespace {

/// What a host or a keeper throws is its own affair; the others still have to be called.
template <typename Function, typename... Arguments>
void callSwallowing(const Function& function, Arguments&&... arguments) noexcept {
    try {
        if (function) function(std::forward<Arguments>(arguments)...);
    } catch (...) {
    }
}

}  // namespace

/// Ends its refusal, on the gate's queue, when the last one who works for it lets go.
class ConsentGate::RefusalInProgress {
  public:
    RefusalInProgress(ConsentGate& gate, Task completion)
        : gate_(gate), queue_(gate.queue()), completion_(std::move(completion)) {}
    ~RefusalInProgress() {
        try {
            queue_->async(
                [&gate = gate_, completion = std::move(completion_)] { gate.finishRefusal(completion); });
        } catch (...) {
            // Without the memory for a task the refusal stays under way: nothing is sent or kept.
        }
    }
    RefusalInProgress(const RefusalInProgress&) = delete;
    RefusalInProgress& operator=(const RefusalInProgress&) = delete;

  private:
    ConsentGate& gate_;
    const std::shared_ptr<SerialQueue> queue_;
    Task completion_;
};

ConsentGate::ConsentGate(const Platform& platform)
    : platform_(platform), consent_(platform.controls.consent), wanted_(platform.controls.consent) {}

std::shared_ptr<SerialQueue> ConsentGate::queue() {
    const std::lock_guard lock(mutex_);
    if (queue_ == nullptr) queue_ = platform_.queues->makeSerialQueue("com.quillo.quill-kit.consent");
    return queue_;
}

ConsentGate::KeeperId ConsentGate::addKeeper(Keeper keeper, std::uint64_t refusalsSeen) {
    std::function<void(Refusal)> missed;
    Refusal refusal;
    KeeperId id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = ++lastKeeper_;
        if (!keeper.archivePath.empty()) archivePaths_.insert(keeper.archivePath);
        if (refusals_ != refusalsSeen) {
            missed = keeper.refused;
            refusal = latestRefusal_.lock();
        }
        keepers_.emplace_back(id, std::move(keeper));
    }
    callSwallowing(missed, std::move(refusal));
    return id;
}

void ConsentGate::removeKeeper(KeeperId keeper) {
    const std::lock_guard lock(mutex_);
    std::erase_if(keepers_, [keeper](const auto& entry) { return entry.first == keeper; });
}

void ConsentGate::setConsent(Consent consent, Task completion) {
    if (!mayKeep(consent)) return refuse(std::move(completion));
    const std::shared_ptr<SerialQueue> completions = queue();
    Keepers keepers;
    {
        const std::lock_guard lock(mutex_);
        wanted_ = consent;
        if (refusalsUnderWay_ > 0) {
            afterRefusal_.push_back(std::move(completion));
            return;
        }
        keepers = applyWanted();
    }
    for (const auto& [id, keeper] : keepers) callSwallowing(keeper.granted);
    completions->async(std::move(completion));
}

ConsentGate::Keepers ConsentGate::applyWanted() {
    // Open before it is said to be, so that nothing which asks is turned away all the same.
    if (!mayKeep(consent_)) platform_.urlSession->acceptTasks();
    const bool grants = maySend(wanted_) && !maySend(consent_);
    consent_ = wanted_;
    return grants ? keepers_ : Keepers();
}

void ConsentGate::refuse(Task completion) {
    const auto refusal = std::make_shared<RefusalInProgress>(*this, std::move(completion));
    Keepers keepers;
    {
        const std::lock_guard lock(mutex_);
        wanted_ = Consent::refused;
        consent_ = Consent::refused;
        ++refusals_;
        ++refusalsUnderWay_;
        latestRefusal_ = refusal;
        keepers = keepers_;
    }
    platform_.urlSession->refuseTasks([refusal] {});
    for (const auto& [id, keeper] : keepers) callSwallowing(keeper.refused, refusal);
}

void ConsentGate::finishRefusal(const Task& completion) {
    removeArchives();
    Keepers keepers;
    std::vector<Task> overtaken;
    {
        const std::lock_guard lock(mutex_);
        if (--refusalsUnderWay_ == 0) {
            if (mayKeep(wanted_)) keepers = applyWanted();
            overtaken.swap(afterRefusal_);
        }
    }
    callSwallowing(completion);
    for (const auto& [id, keeper] : keepers) callSwallowing(keeper.granted);
    for (const Task& task : overtaken) callSwallowing(task);
}

void ConsentGate::removeArchives() const {
    std::set<std::string> paths;
    {
        const std::lock_guard lock(mutex_);
        paths = archivePaths_;
    }
    if (const std::optional<std::string> caches = platform_.directories->cachesDirectory()) {
        for (const std::string& name : platform_.controls.archives) paths.insert(*caches + "/" + name);
    }
    for (const std::string& path : paths) removeFile(path);
}

Consent consent() {
    return consentGate().consent();
}

void setConsent(Consent consent, Task completion) {
    consentGate().setConsent(consent, std::move(completion));
}

}  // namespace qlsdk::platform
