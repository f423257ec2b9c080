#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk::platform {

struct Platform;

/// Where consent is asked, and where those who keep records for sending hear of its changes. Hosts use
/// `consent` and `setConsent` of HostControls.h; this is for the library and for kits that keep records of
/// their own. Any thread.
///
/// Who keeps records asks before it takes them out of its file: with `maySend` false they stay there. The
/// library's URL session asks once more, so that no other request leaves either.
class QLSDK_EXPORT ConsentGate {
  public:
    /// Held by everyone who still has something to do for a refusal: it is over when the last one lets go.
    using Refusal = std::shared_ptr<const void>;

    /// One who keeps records. Both calls come from any thread and only queue the work.
    struct Keeper {
        /// Drop all that is kept and hold on to the refusal until that is done.
        std::function<void(Refusal)> refused;
        /// What is kept may be sent.
        Task granted;
        /// The file that the records lie in, which may be empty; it is deleted at the end of every refusal,
        /// when the keeper is gone as well.
        std::string archivePath;
    };
    /// Names one keeper; 0 names none.
    using KeeperId = std::uint64_t;

    /// Borrows the platform, whose controls say what holds at first.
    explicit ConsentGate(const Platform& platform);
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

    /// See `setConsent` of HostControls.h.
    void setConsent(Consent consent, Task completion);

    /// The serial queue that refusals end on and dry runs are made on.
    [[nodiscard]] std::shared_ptr<SerialQueue> queue();

  private:
    class RefusalInProgress;
    using Keepers = std::vector<std::pair<KeeperId, Keeper>>;

    void refuse(Task completion);
    void finishRefusal(const Task& completion);
    void removeArchives() const;
    /// With the lock held, when no refusal is under way; the keepers that are to hear of it.
    [[nodiscard]] Keepers applyWanted();

    const Platform& platform_;
    std::atomic<Consent> consent_;
    std::atomic<std::uint64_t> refusals_{0};

    mutable std::mutex mutex_;
    // Guarded by `mutex_`.
    Consent wanted_;
    int refusalsUnderWay_ = 0;
    std::weak_ptr<const void> latestRefusal_;
    std::vector<Task> afterRefusal_;
    Keepers keepers_;
    KeeperId lastKeeper_ = 0;
    std::set<std::string> archivePaths_;
    std::shared_ptr<SerialQueue> queue_;
};

/// The gate of the platform in use; settles the platform. Never destroyed. Any thread.
[[nodiscard]] QLSDK_EXPORT ConsentGate& consentGate();

}  // namespace qlsdk::platform
