#pragma once

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Port: the wall clock.
///
/// Adapters answer from any thread and never fail. The clock may jump in both directions when the user or the
/// network sets it; callers allow for that.
class QLSDK_EXPORT Clock {
  public:
    virtual ~Clock() = default;

    /// Seconds since 1970-01-01 UTC, with the finest fraction the system offers.
    [[nodiscard]] virtual double secondsSince1970() noexcept = 0;
};

}  // namespace qlsdk::platform
