#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

namespace qlsdk {

/// True when a structure of the C interface has its size, and a member behind it.
template <typename Structure>
[[nodiscard]] bool hasSize(const Structure& given) noexcept {
    return given.size > sizeof given.size;
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
