#pragma once

#include "tools/inspect/LinkReader.h"
#include "tools/inspect/Outline.h"

namespace quillkit {

/// Adds the link's base and its query parameters, "metadata" and "payload" decoded and a fingerprint opened.
/// What does not decode is shown as it stands and said to be so.
void addLink(Outline& outline, const LinkParts& link);

}  // namespace quillkit
