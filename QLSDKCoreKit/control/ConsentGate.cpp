#include "QLSDKCoreKit/control/ConsentGate.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"

namespace qlsdk::platform {

namespace {

/// What a host or a keeper throws is its own affair; the others still have to be called. False when it threw.
template <typename Work>
bool succeeds(const Work& work) noexcept {
    try {
        work();
        return true;
    } catch (...) {
        return false;
    }
}

template <typename Function, typename... Arguments>
bool callSwallowing(const Function& function, Arguments&&... arguments) noexcept {
    return succeeds([&] {
        if (function) function(std::forward<Arguments>(arguments)...);
    });
}

}  // namespace

/// What is due once at the end of a change of consent: by the task that was given to the gate's queue, or by
/// whoever lost that task for want of memory.
struct ConsentGate::Ending {
    explicit Ending(ConsentGate* refusing) noexcept : gate(refusing) {}
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
    ~Ending() { end(); }

    void begin(Task itsCompletion) noexcept {
        completion = std::move(itsCompletion);
        isDue = true;
    }
    void end() noexcept {
        if (!std::exchange(isDue, false)) return;
        gate != nullptr ? gate->finishRefusal(completion) : (void)callSwallowing(completion);
    }

    /// Null unless it ends a refusal.
    ConsentGate* const gate;
    Task completion;
    bool isDue = false;
};

/// Ends its refusal, on the gate's queue, when the last one who works for it lets go. Needs no memory once it
/// is made.
class ConsentGate::RefusalInProgress {
  public:
    explicit RefusalInProgress(ConsentGate& gate)
        : queue_(gate.queue_), ending_(std::make_shared<Ending>(&gate)), task_(taskFor(ending_)) {}
    ~RefusalInProgress() {
        if (!ending_->isDue) return;
        // Left to the task alone, so that a queue which has no memory for it ends the refusal by losing it.
        ending_ = nullptr;
        (void)succeeds([this] { queue_->async(std::move(task_)); });
    }
    RefusalInProgress(const RefusalInProgress&) = delete;
    RefusalInProgress& operator=(const RefusalInProgress&) = delete;

    void begin(Task completion) noexcept { ending_->begin(std::move(completion)); }

    [[nodiscard]] static Task taskFor(std::shared_ptr<Ending> ending) {
        return [ending = std::move(ending)] { ending->end(); };
    }

  private:
    const std::shared_ptr<SerialQueue> queue_;
    std::shared_ptr<Ending> ending_;
    Task task_;
};

namespace {

// Set by a refusal that finds no memory to settle the platform, which then begins with it.
constinit std::atomic<bool> isRefusedBeforehand{false};

Consent consentAtFirst(const Platform& platform) noexcept {
    return isRefusedBeforehand ? Consent::refused : platform.controls.consent;
}

}  // namespace

ConsentGate::ConsentGate(const Platform& platform)
    : platform_(platform),
      consent_(consentAtFirst(platform)),
      queue_(platform.queues->makeSerialQueue("com.quillo.quill-kit.consent")),
      mutex_(std::make_unique<ForkSafeMutex>()),
      wanted_(consent_) {
    prepareRefusal();
}

ConsentGate::~ConsentGate() = default;

void ConsentGate::refuseBeforehand() noexcept {
    isRefusedBeforehand = true;
}

ConsentGate::KeeperId ConsentGate::addKeeper(Keeper keeper, std::uint64_t refusalsSeen) {
    const auto kept = std::make_shared<const Keeper>(std::move(keeper));
    Refusal refusal;
    KeeperId id = 0;
    bool missedOne = false;
    {
        const std::lock_guard lock(*mutex_);
        id = lastKeeper_ + 1;
        if (!kept->archivePath.empty()) archivePaths_.insert(kept->archivePath);
        keepers_.emplace_back(id, kept);
        lastKeeper_ = id;
        missedOne = refusals_ != refusalsSeen;
        if (missedOne) refusal = latestRefusal_.lock();
    }
    if (missedOne) callSwallowing(kept->refused, std::move(refusal));
    return id;
}

void ConsentGate::removeKeeper(KeeperId keeper) {
    // Outlives the lock: what its functions hold may do anything when it goes.
    std::shared_ptr<const Keeper> removed;
    const std::lock_guard lock(*mutex_);
    const auto found = std::ranges::find(keepers_, keeper, &Keepers::value_type::first);
    if (found == keepers_.end()) return;
    removed = std::move(found->second);
    keepers_.erase(found);
}

std::shared_ptr<const ConsentGate::Keeper> ConsentGate::nextKeeper(KeeperId& id, KeeperId last) const {
    const std::lock_guard lock(*mutex_);
    const auto found = std::ranges::upper_bound(keepers_, id, {}, &Keepers::value_type::first);
    if (found == keepers_.end() || found->first > last) return nullptr;
    id = found->first;
    return found->second;
}

void ConsentGate::flush() {
    KeeperId last = 0;
    {
        const std::lock_guard lock(*mutex_);
        last = lastKeeper_;
    }
    tell(&Keeper::flush, last);
}

void ConsentGate::setConsent(Consent consent, Task completion) noexcept {
    if (!mayKeep(consent)) return refuse(std::move(completion));
    // What was left to delete goes before anything new is collected.
    if (owesDeletion_ && !mayKeep(consent_)) refuse(nullptr);
    KeeperId last = 0;
    {
        const std::lock_guard lock(*mutex_);
        wanted_ = consent;
        if (refusalsUnderWay_ == 0) {
            last = applyWanted();
        } else if (succeeds([&] { afterRefusal_.push_back(std::move(completion)); })) {
            return;
        }
    }
    tell(&Keeper::granted, last);
    complete(std::move(completion));
}

ConsentGate::KeeperId ConsentGate::applyWanted() noexcept {
    // Open before it is said to be, so that nothing which asks is turned away all the same. With the lock, so
    // that a refusal does not come in between.
    if (!mayKeep(consent_)) platform_.urlSession->acceptTasks();
    const bool grants = maySend(wanted_) && !maySend(consent_);
    consent_ = wanted_;
    return grants ? lastKeeper_ : 0;
}

void ConsentGate::tell(Task Keeper::*call, KeeperId last) const noexcept {
    for (KeeperId id = 0; const auto keeper = nextKeeper(id, last);) callSwallowing((*keeper).*call);
}

void ConsentGate::complete(Task completion) const noexcept {
    try {
        const auto ending = std::make_shared<Ending>(nullptr);
        Task task = RefusalInProgress::taskFor(ending);
        ending->begin(std::exchange(completion, nullptr));
        queue_->async(std::move(task));
    } catch (...) {
        // Without memory for a task it is called here: by the end of what was made for it, or else by this.
        callSwallowing(completion);
    }
}

void ConsentGate::prepareRefusal() noexcept {
    try {
        PreparedRefusal made{std::make_shared<RefusalInProgress>(*this), nullptr};
        made.sessionIsDone = [refusal = made.refusal] {};
        const std::lock_guard lock(*mutex_);
        if (prepared_.refusal == nullptr) std::swap(prepared_, made);
    } catch (...) {
        // The next one tries again, or does without.
    }
}

void ConsentGate::refuse(Task completion) noexcept {
    PreparedRefusal prepared;
    // For a refusal that there is no memory to share: it ends with this call and waits for nobody.
    Ending endsHere(this);
    KeeperId last = 0;
    {
        const std::lock_guard lock(*mutex_);
        wanted_ = Consent::refused;
        consent_ = Consent::refused;
        ++refusals_;
        ++refusalsUnderWay_;
        std::swap(prepared, prepared_);
        latestRefusal_ = prepared.refusal;
        last = lastKeeper_;
        owesDeletion_ = prepared.refusal == nullptr;
    }
    prepared.refusal != nullptr ? prepared.refusal->begin(std::move(completion))
                                : endsHere.begin(std::move(completion));
    const auto refuseTasks = [&] { platform_.urlSession->refuseTasks(std::move(prepared.sessionIsDone)); };
    if (!succeeds(refuseTasks)) owesDeletion_ = true;
    for (KeeperId id = 0; const auto keeper = nextKeeper(id, last);) {
        if (!callSwallowing(keeper->refused, prepared.refusal)) owesDeletion_ = true;
    }
    prepareRefusal();
}

void ConsentGate::finishRefusal(const Task& completion) noexcept {
    if (!removeArchives()) owesDeletion_ = true;
    KeeperId last = 0;
    std::vector<Task> overtaken;
    {
        const std::lock_guard lock(*mutex_);
        if (--refusalsUnderWay_ == 0) {
            overtaken.swap(afterRefusal_);
            if (mayKeep(wanted_)) last = applyWanted();
        }
    }
    callSwallowing(completion);
    tell(&Keeper::granted, last);
    for (const Task& task : overtaken) callSwallowing(task);
}

bool ConsentGate::removeArchives() const noexcept try {
    std::set<std::string> paths;
    {
        const std::lock_guard lock(*mutex_);
        paths = archivePaths_;
    }
    if (const std::optional<std::string> caches = platform_.directories->cachesDirectory()) {
        for (const std::string& name : platform_.controls.archives) paths.insert(*caches + "/" + name);
    }
    bool allAreGone = true;
    for (const std::string& path : paths) {
        if (eraseFile(path)) continue;
        allAreGone = false;
        reportDiagnostic({.kind = DiagnosticKind::failedWrite,
                          .cause = "a refusal of consent could not delete what is kept",
                          .errorNumber = errno,
                          .path = path});
    }
    return allAreGone;
} catch (...) {
    // The refusal still has to end, or consent could never be given again.
    reportDiagnostic({.kind = DiagnosticKind::resources,
                      .cause = "no memory to delete what was kept before consent was refused"});
    return false;
}

}  // namespace qlsdk::platform
