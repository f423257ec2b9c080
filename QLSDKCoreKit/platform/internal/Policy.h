#pragma once

#include <memory>

namespace qlsdk::platform {

struct Platform;

/// What stands between the kit and the ports: the host's decisions. The room above the ports defines it, so
/// that these need not know what can be decided.
class Policy {
  public:
    virtual ~Policy() = default;

    /// Called once, when the platform has been settled and `current` has it.
    virtual void begin() = 0;
};

/// Replaces those members of `platform` that are to obey the host. Borrows it; it lives for ever. Defined by
/// the room above.
[[nodiscard]] std::unique_ptr<Policy> makePolicy(Platform& platform);

/// That of the platform in use; settles the platform. Never destroyed. Any thread.
[[nodiscard]] Policy& policy();

}  // namespace qlsdk::platform
