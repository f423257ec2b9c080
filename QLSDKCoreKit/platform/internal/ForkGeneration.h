#pragma once

#include <cstdint>

namespace qlsdk::platform {

/// A number that a child of fork() finds changed, for those who must tell what the parent has under way from
/// what they have themselves. A link-time service of the system's folder. Any thread; a load.
[[nodiscard]] std::uint64_t forkGeneration() noexcept;

}  // namespace qlsdk::platform
