#pragma once

#include <string>

#include "tools/collector/RequestLog.h"

namespace quillkit {

/// Everything that the page shows of one request, as JSON on one line: "id", "at", "method", "path",
/// "headers" (pairs in the order received), "token", "status", "body" (hex), "message" (its name; null for
/// none), "fields" (the tree of an encoded message), "isJson" and "line" (what the
/// log file holds).
[[nodiscard]] std::string detailOf(const ServedRequest& request, std::uint64_t id);

}  // namespace quillkit
