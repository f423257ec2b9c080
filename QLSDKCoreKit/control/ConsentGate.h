#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk::platform {

class ForkSafeMutex;
struct Platform;

/// Where consent is asked, and where those who keep records for sending hear of its changes. Hosts use
/// `consent` and `setConsent` of Consent.h; this is for the library and for kits that keep records of
/// their own. Any thread.
///
/// Who keeps records asks before it takes them out of its file: with `maySend` false they stay there. The
/// library's URL session asks once more, so that no other request leaves either.
class QLSDK_EXPORT ConsentGate {
  public:
    /// Held by everyone who still has something to do for a refusal: it is over when the last one lets go.
    using Refusal = std::shared_ptr<const void>;

    /// One who keeps records. The calls come from any thread and only queue the work. A call for which there
    /// is no memory is lost: a keeper also compares `refusals` before it uses what it keeps.
    struct Keeper {
        /// Drop all that is kept and hold on to the refusal, which may be null, until that is done.
        std::function<void(Refusal)> refused;
        /// What is kept may be sent.
        Task granted;
        /// The file that the records lie in, which may be empty; it is deleted at the end of every refusal,
        /// when the keeper is gone as well.
        std::string archivePath;
        /// Send what is kept without waiting for more. May be null.
        Task flush = nullptr;
    };
    /// Names one keeper; 0 names none.
    using KeeperId = std::uint64_t;

    /// Borrows the platform, whose controls say what holds at first.
    explicit ConsentGate(const Platform& platform);
    ~ConsentGate();
    ConsentGate(const ConsentGate&) = delete;
    ConsentGate& operator=(const ConsentGate&) = delete;

    [[nodiscard]] Consent consent() const noexcept { return consent_.load(); }

    /// How many refusals have begun. Whoever hands records out for a while and may take them back compares:
    /// records from before a refusal are not taken back after it.
    [[nodiscard]] std::uint64_t refusals() const noexcept { return refusals_.load(); }

    /// `refusalsSeen` is what `refusals` said before the keeper read its file: if there was one since, the
    /// keeper hears of it at once.
    KeeperId addKeeper(Keeper keeper, std::uint64_t refusalsSeen);
    /// A call that another thread is just making may still come after this.
    void removeKeeper(KeeperId keeper);

    /// Has everyone who keeps records send them, without waiting for more. Returns at once. Unlike the
    /// notification that the host becomes inactive, it concerns nobody else.
    void flush();

    /// See `setConsent` of Consent.h.
    void setConsent(Consent consent, Task completion) noexcept;

    /// For a refusal that finds no memory to make the gate: the one that is made later begins with it.
    static void refuseBeforehand() noexcept;

    /// Whether a refusal could not delete all that was kept, so that a file may be from before it. Who finds
    /// one then deletes it unread.
    [[nodiscard]] bool owesDeletion() const noexcept { return owesDeletion_; }

    /// The serial queue that refusals end on and dry runs are made on.
    [[nodiscard]] const std::shared_ptr<SerialQueue>& queue() const noexcept { return queue_; }

  private:
    struct Ending;
    class RefusalInProgress;
    /// In the order of their numbers. Shared, so that telling them needs no memory.
    using Keepers = std::vector<std::pair<KeeperId, std::shared_ptr<const Keeper>>>;

    /// A refusal that has not begun, made while there is memory for it.
    struct PreparedRefusal {
        std::shared_ptr<RefusalInProgress> refusal;
        Task sessionIsDone;
    };

    void prepareRefusal() noexcept;
    void refuse(Task completion) noexcept;
    void finishRefusal(const Task& completion) noexcept;
    [[nodiscard]] bool removeArchives() const noexcept;
    /// With the lock held, when no refusal is under way; the last of the keepers that are to hear of it.
    [[nodiscard]] KeeperId applyWanted() noexcept;
    /// Calls that function of every keeper up to the last.
    void tell(Task Keeper::*call, KeeperId last) const noexcept;
    /// The keeper after the one numbered `id`, which becomes its number; null past `last`.
    [[nodiscard]] std::shared_ptr<const Keeper> nextKeeper(KeeperId& id, KeeperId last) const;
    void complete(Task completion) const noexcept;

    const Platform& platform_;
    std::atomic<Consent> consent_;
    std::atomic<std::uint64_t> refusals_{0};
    std::atomic<bool> owesDeletion_{false};
    const std::shared_ptr<SerialQueue> queue_;

    const std::unique_ptr<ForkSafeMutex> mutex_;
    // Guarded by `mutex_`.
    Consent wanted_;
    int refusalsUnderWay_ = 0;
    std::weak_ptr<const void> latestRefusal_;
    PreparedRefusal prepared_;
    std::vector<Task> afterRefusal_;
    Keepers keepers_;
    KeeperId lastKeeper_ = 0;
    std::set<std::string> archivePaths_;
};

/// The gate of the platform in use; settles the platform. Never destroyed. Any thread.
[[nodiscard]] QLSDK_EXPORT ConsentGate& consentGate();

}  // namespace qlsdk::platform
