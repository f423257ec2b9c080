#pragma once

#include <cstdint>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// What the events that wait on disk outlive.
enum class Durability : std::uint8_t {
    /// The end of the process, however it comes: what a host gets that never mentions durability. After a
    /// power cut the last changes may be missing, or all of it; what is read is a list that once was.
    processEnd,
    /// A power cut as well. A queue's file and its name are flushed to the medium with each write, on the
    /// queue's own thread: one flush for all that waits, hundreds of times a write's own cost, and no caller
    /// waits for it. What is on disk when `waitUntilIdle` returns is there after a cut, if the medium keeps
    /// what it has confirmed.
    powerCut,
};

/// Holds from the next write of each queue on; a file that is only waiting is not flushed by the call itself.
/// At best before the first use. Any thread; never fails.
QLSDK_EXPORT void setDurability(Durability durability) noexcept;
[[nodiscard]] QLSDK_EXPORT Durability durability() noexcept;

}  // namespace qlsdk::platform
