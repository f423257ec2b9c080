#pragma once

#include <functional>

namespace qlsdk {

/// Asks the shared configuration manager to update and calls `completion` exactly once, on any thread. Main
/// queue. Declared here and defined beside that manager: the one arrow between folders that runs upwards,
/// because the library starts itself with the first use of the client setup.
void requestConfigUpdate(std::function<void(bool success)> completion);

}  // namespace qlsdk
