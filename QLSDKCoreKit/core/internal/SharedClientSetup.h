#pragma once

#include <optional>
#include <string>

namespace qlsdk {

/// The client identifier as an assertion report shows it; absent when there is none. Makes the shared client
/// setup when nobody has asked for it yet, but never waits for one under construction: the report may come
/// from inside that construction, or from a thread it depends on. Absent in that case, too. Any thread.
[[nodiscard]] std::optional<std::string> clientIDForReports();

}  // namespace qlsdk
