#pragma once

#include <cstddef>

namespace qlsdk::platform {

/// How deep containers may stand in each other, in every decoder and encoder here. What nests deeper is
/// refused, because walking it (and later destroying it) costs stack.
inline constexpr std::size_t kMaximumNesting = 512;

/// Counts one level for as long as it lives.
class NestingScope {
  public:
    explicit NestingScope(std::size_t& depth) noexcept : depth_(depth) { ++depth_; }
    ~NestingScope() { --depth_; }
    NestingScope(const NestingScope&) = delete;
    NestingScope& operator=(const NestingScope&) = delete;

    [[nodiscard]] bool tooDeep() const noexcept { return depth_ > kMaximumNesting; }

  private:
    std::size_t& depth_;
};

}  // namespace qlsdk::platform
