#pragma once

#include <string>

#include "tools/collector/RequestLog.h"

namespace quillkit {

/// The metrics of one request that its summary names; the count of all is there besides.
inline constexpr std::size_t kSummaryMetricsCeiling = 200;

/// What the page's list shows of a request, as JSON on one line, bounded in length: "at" (ms since 1970),
/// "method", "path", "kind" ("heartbeat", "metrics", "config" or "other"), "decoded", "kits", "records" (how
/// many heartbeats or metrics), "metrics" (of each "counter" or "timer", name and number), "status", "bytes",
/// "token" with its "app" and "age", and "text", the line that the terminal shows.
[[nodiscard]] std::string summaryOf(const ServedRequest& request);

}  // namespace quillkit
