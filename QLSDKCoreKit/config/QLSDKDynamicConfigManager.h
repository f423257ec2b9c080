#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"

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

class QLSDKDynamicConfigArchive;

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
class QLSDK_EXPORT QLSDKDynamicConfigManager final {
  public:
    /// The one instance of the process, made by `create()` on first use and never destroyed. Any thread.
    [[nodiscard]] static QLSDKDynamicConfigManager& shared();

    /// A manager of its own for the version of the library's bundle: the program's own where the library is
    /// linked into it, empty where the bundle names none.
    [[nodiscard]] static std::shared_ptr<QLSDKDynamicConfigManager> create();
    /// `kitVersion` is what the server is told. For the library's own tests: the archive's type is not
    /// installed.
    [[nodiscard]] static std::shared_ptr<QLSDKDynamicConfigManager> create(QLSDKDynamicConfigArchive archive,
                                                                           std::string kitVersion);

    ~QLSDKDynamicConfigManager();
    QLSDKDynamicConfigManager(const QLSDKDynamicConfigManager&) = delete;
    QLSDKDynamicConfigManager& operator=(const QLSDKDynamicConfigManager&) = delete;

    /// Asks for the configuration to be fetched, unless it has been, and to be told the outcome. Any thread,
    /// also from inside a callback; returns at once. `callback` is called once with the fetch's outcome;
    /// after that fetch each call of this function calls it once more with the same answer. Callbacks have
    /// identity: the same object given twice while the fetch lasts is called once. In no order. A null
    /// pointer and an empty function are ignored, and start nothing. Without the memory for it, `callback`
    /// hears false, perhaps on the calling thread or with the next call of this function.
    void updateIfNecessary(std::shared_ptr<const DynamicConfigCallback> callback);

    /// The stored configuration called `name`, or null. Reads the archive file on the calling thread, any
    /// thread, and removes it: the first call after a successful fetch, whatever it asks for, consumes the
    /// whole of it, and later calls find nothing.
    [[nodiscard]] std::shared_ptr<const QLSDKDynamicConfigEntity> dynamicConfig(
        const std::string& name) const;

    /// Atomic; any thread. The setters override the manager's own bookkeeping; nothing is fetched or called.
    [[nodiscard]] QLSDKDynamicConfigState state() const noexcept;
    void setState(QLSDKDynamicConfigState state) noexcept;
    /// False until a fetch has succeeded.
    [[nodiscard]] bool wasFetchFromNetworkSuccessful() const noexcept;
    void setWasFetchFromNetworkSuccessful(bool successful) noexcept;

  private:
    class Core;

    explicit QLSDKDynamicConfigManager(std::shared_ptr<Core> core) noexcept;

    /// Shared with the fetch under way, whose callbacks are called whatever becomes of this.
    const std::shared_ptr<Core> core_;
};

}  // namespace qlsdk
