#pragma once

#include <string>

namespace qlsdk::platform {

/// True when the user's desktop has a default handler for the scheme of `url`. Reads files, waits for
/// nothing else. Any thread.
[[nodiscard]] bool hasUrlHandler(const std::string& url);

/// Starts that handler with `url`; true when it was started or, where it runs already, has taken the URL. The
/// handler starts with no signal blocked, whatever the calling thread blocks. Waits for the session bus, for
/// at most `kLaunchLimit`, so it does not belong on the main queue. Any thread.
[[nodiscard]] bool launchUrlHandler(const std::string& url);

}  // namespace qlsdk::platform
