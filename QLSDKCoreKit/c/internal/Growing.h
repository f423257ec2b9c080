#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

namespace qlsdk {

/// Far above what any version will have: what says more was never initialised.
inline constexpr std::size_t kMostBytesOfStructure = 4096;

/// True when a structure of the C interface has the size of some version, with a member behind the size and
/// none that is cut. A member that is added has to begin behind all of the older structure, its padding
/// included, which a host leaves as it is.
template <typename Structure>
[[nodiscard]] bool hasSize(const Structure& given) noexcept {
    return given.size > sizeof given.size && given.size <= kMostBytesOfStructure &&
           given.size % alignof(Structure) == 0;
}

/// What a host of any version has given, as this version has it. Absent without a size.
template <typename Structure>
[[nodiscard]] std::optional<Structure> fromHost(const Structure* given) noexcept {
    if (given == nullptr || !hasSize(*given)) return std::nullopt;
    Structure known{};
    std::memcpy(&known, given, std::min(given->size, sizeof known));
    return known;
}

/// Writes what a host of any version has room for; what only that version has becomes zero.
template <typename Structure>
void toHost(const Structure& known, Structure* wanted) noexcept {
    const std::size_t size = wanted->size;
    std::memset(static_cast<void*>(wanted), 0, size);
    std::memcpy(static_cast<void*>(wanted), &known, std::min(size, sizeof known));
    wanted->size = size;
}

}  // namespace qlsdk
