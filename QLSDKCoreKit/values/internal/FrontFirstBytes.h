#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Bytes that grow at their front, in constant time on the average.
class FrontFirstBytes {
  public:
    [[nodiscard]] DataView view() const noexcept { return DataView(bytes_).subspan(begin_); }

    /// Room for `count` bytes more in front of the others; returns where they begin.
    std::uint8_t* extendFront(std::size_t count) {
        if (begin_ < count) grow(count);
        begin_ -= count;
        return bytes_.data() + begin_;
    }

    void clear() noexcept { begin_ = bytes_.size(); }

  private:
    void grow(std::size_t count) {
        const DataView old = view();
        Data wider(2 * (bytes_.size() + count) + 64);
        const std::size_t begin = wider.size() - old.size();
        if (!old.empty()) std::memcpy(wider.data() + begin, old.data(), old.size());
        bytes_ = std::move(wider);
        begin_ = begin;
    }

    Data bytes_;
    std::size_t begin_ = 0;
};

}  // namespace qlsdk::platform
