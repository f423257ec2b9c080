#pragma once

#include <cstdint>

namespace qlsdk::soak {

/// What this process holds of the system at one moment.
struct ProcessSize {
    std::int64_t residentKiB = 0;
    std::int64_t descriptors = 0;
    std::int64_t threads = 0;
};

[[nodiscard]] ProcessSize processSize();

}  // namespace qlsdk::soak
