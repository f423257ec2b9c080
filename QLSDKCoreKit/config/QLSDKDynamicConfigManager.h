#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"
#include "QLSDKCoreKit/platform/ConsentGate.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk {

/// How far a manager has come. It moves forward only; any value outside the table counts as done.
enum QLSDKDynamicConfigState : std::int64_t {
    /// No fetch has started.
    QLSDKDynamicConfigStateIdle = 0,
    /// One fetch is in flight; callbacks wait for it.
    QLSDKDynamicConfigStateFetching = 1,
    /// The fetch has ended, well or not. It is never repeated.
    QLSDKDynamicConfigStateDone = 2,
};

/// Told whether the one fetch succeeded, on the manager's queue. What it throws is swallowed.
using DynamicConfigCallback = std::function<void(bool success)>;

/// Fetches the remote configuration from "/v1/config", at most once in its life, and hands out what was
/// fetched. The client setup starts the shared manager's fetch; feature kits may ask for it, too.
///
/// The fetch and all callbacks belong to the manager's serial queue
/// "com.quill.connect.QLSDKDynamicConfigManager". The fetch succeeds with a response of status 200 whose
/// body, at most 1 MiB, is a JSON object with an object "config" in an object "data", and when the result
/// could be stored. There is no retry and no timeout but the session's.
///
/// While the host's consent (platform/HostControls.h) is undecided the fetch waits for it and the callbacks
/// with it. While it is refused, callbacks hear false and the one fetch is not used up.
class QLSDK_EXPORT QLSDKDynamicConfigManager final
    : public std::enable_shared_from_this<QLSDKDynamicConfigManager> {
  public:
    /// The one instance of the process, made by `create()` on first use and never destroyed. Any thread.
    [[nodiscard]] static QLSDKDynamicConfigManager& shared();

    /// A manager of its own for the version of the library's bundle: the program's own where the library is
    /// linked into it, empty where the bundle names none.
    [[nodiscard]] static std::shared_ptr<QLSDKDynamicConfigManager> create();
    /// `kitVersion` is what the server is told.
    [[nodiscard]] static std::shared_ptr<QLSDKDynamicConfigManager> create(QLSDKDynamicConfigArchive archive,
                                                                           std::string kitVersion);

    ~QLSDKDynamicConfigManager();
    QLSDKDynamicConfigManager(const QLSDKDynamicConfigManager&) = delete;
    QLSDKDynamicConfigManager& operator=(const QLSDKDynamicConfigManager&) = delete;

    /// Asks for the configuration to be fetched, unless it has been, and to be told the outcome. Any thread,
    /// also from inside a callback; returns at once. `callback` is called once with the fetch's outcome;
    /// after that fetch each call of this function calls it once more with the same answer. Callbacks have
    /// identity: the same object given twice while the fetch lasts is called once. In no order. A null
    /// pointer and an empty function are ignored, and start nothing.
    void updateIfNecessary(std::shared_ptr<const DynamicConfigCallback> callback);

    /// The stored configuration called `name`, or null. Reads the archive file on the calling thread, any
    /// thread, and removes it: the first call after a successful fetch, whatever it asks for, consumes the
    /// whole of it, and later calls find nothing.
    [[nodiscard]] std::shared_ptr<const QLSDKDynamicConfigEntity> dynamicConfig(
        const std::string& name) const;

    /// Atomic; any thread. The setters override the manager's own bookkeeping; nothing is fetched or called.
    [[nodiscard]] QLSDKDynamicConfigState state() const noexcept { return state_; }
    void setState(QLSDKDynamicConfigState state) noexcept { state_ = state; }
    /// False until a fetch has succeeded.
    [[nodiscard]] bool wasFetchFromNetworkSuccessful() const noexcept {
        return wasFetchFromNetworkSuccessful_;
    }
    void setWasFetchFromNetworkSuccessful(bool successful) noexcept {
        wasFetchFromNetworkSuccessful_ = successful;
    }

  private:
    /// Hears what was fetched, absent for a failed fetch; exactly once, on any thread.
    using FetchCompletion = std::function<void(const std::optional<DynamicConfigEntities>& entities)>;

    QLSDKDynamicConfigManager(QLSDKDynamicConfigArchive archive, std::string kitVersion);

    void update(std::shared_ptr<const DynamicConfigCallback> callback);
    void awaitConsent();
    void fetchIfConsented();
    void answerCallbacks(bool success);
    void _fetchLatestConfig(FetchCompletion completion) const;
    [[nodiscard]] std::optional<platform::UrlRequest> fetchRequest() const;
    void _handleFetchCompletion(const std::optional<DynamicConfigEntities>& entities);
    [[nodiscard]] static std::optional<DynamicConfigEntities> entitiesIn(const platform::UrlResult& result);
    [[nodiscard]] static DynamicConfigEntities _parseJsonConfig(const Dictionary& config);

    // Set once in the constructor.
    const QLSDKDynamicConfigArchive configArchive_;
    const std::string kitVersion_;
    const std::shared_ptr<platform::SerialQueue> queue_;

    // Written on `queue_` and by the setters.
    std::atomic<QLSDKDynamicConfigState> state_{QLSDKDynamicConfigStateIdle};
    std::atomic<bool> wasFetchFromNetworkSuccessful_{false};

    // Belong to `queue_`.
    std::set<std::shared_ptr<const DynamicConfigCallback>> updateCallbacks_;
    platform::ConsentGate::KeeperId keeper_ = 0;
};

}  // namespace qlsdk
