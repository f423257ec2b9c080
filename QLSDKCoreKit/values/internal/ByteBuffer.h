#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Bytes that grow at their end. Unlike `Data` it leaves new room as it is, because all of it is written at
/// once.
class ByteBuffer {
  public:
    explicit ByteBuffer(std::size_t capacity = 0) : bytes_(new std::uint8_t[capacity]), capacity_(capacity) {}

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] DataView view() const noexcept { return {bytes_.get(), size_}; }
    [[nodiscard]] std::uint8_t* data() noexcept { return bytes_.get(); }
    void clear() noexcept { size_ = 0; }
    /// Drops the bytes from `size` on, of which there are at least so many.
    void truncate(std::size_t size) noexcept { size_ = size; }

    /// Room for `count` bytes more; returns where they begin.
    std::uint8_t* extend(std::size_t count) {
        if (count > capacity_ - size_) grow(count);
        std::uint8_t* const begin = bytes_.get() + size_;
        size_ += count;
        return begin;
    }

    void append(std::uint8_t byte) { *extend(1) = byte; }
    void append(DataView bytes) {
        if (!bytes.empty()) std::memcpy(extend(bytes.size()), bytes.data(), bytes.size());
    }

  private:
    void grow(std::size_t count) {
        const std::size_t capacity = std::max(size_ + count, 2 * capacity_);
        std::unique_ptr<std::uint8_t[]> wider(new std::uint8_t[capacity]);
        if (size_ != 0) std::memcpy(wider.get(), bytes_.get(), size_);
        bytes_ = std::move(wider);
        capacity_ = capacity;
    }

    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_;
};

}  // namespace qlsdk::platform
