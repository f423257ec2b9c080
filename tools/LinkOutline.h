#pragma once

#include <string>

#include "Outline.h"

namespace quillkit {

/// True for a text that is a link into the companion app rather than a file's name.
[[nodiscard]] bool isLink(const std::string& text);

/// Adds the link's base and its query parameters, "metadata" and "payload" decoded and a fingerprint opened.
/// What does not decode is shown as it stands and said to be so.
void addLink(Outline& outline, const std::string& link);

}  // namespace quillkit
