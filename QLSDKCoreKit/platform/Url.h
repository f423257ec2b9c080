#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// A URL that parsed (RFC 3986). Immutable.
class QLSDK_EXPORT Url {
  public:
    /// Absent when `text` is empty or no URL or relative reference.
    [[nodiscard]] static std::optional<Url> parse(std::string_view text) noexcept;

    /// The text it was parsed from.
    [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }

    /// The same URL with `query`, already percent-encoded, in place of its own; an empty one leaves the "?".
    /// A fragment stays behind it.
    [[nodiscard]] Url withQuery(std::string_view query) const;

    friend bool operator==(const Url&, const Url&) = default;

  private:
    explicit Url(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

}  // namespace qlsdk::platform
