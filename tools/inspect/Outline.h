#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillkit {

/// Indented lines, bounded: long lines are cut and nothing follows the last line that there is room for, so
/// that a small file that describes an endless tree prints like any other. Control characters are escaped.
class Outline {
  public:
    static constexpr std::size_t kLineCeiling = 5000;
    static constexpr std::size_t kWidthCeiling = 400;

    /// Adds one line, indented by the current depth.
    void line(std::string_view text);
    /// Adds each line of `text`.
    void lines(std::string_view text);

    /// True when nothing more is printed, so that a walk can end.
    [[nodiscard]] bool isFull() const noexcept { return count_ >= kLineCeiling; }
    /// The lines so far; says at the end when the ceiling cut some.
    [[nodiscard]] std::string text() const;

    /// Indents what is added while it lives.
    class Indent {
      public:
        explicit Indent(Outline& outline) : outline_(outline) { ++outline_.depth_; }
        ~Indent() { --outline_.depth_; }
        Indent(const Indent&) = delete;
        Indent& operator=(const Indent&) = delete;

      private:
        Outline& outline_;
    };

  private:
    std::string text_;
    std::size_t depth_ = 0;
    std::size_t count_ = 0;
};

}  // namespace quillkit
