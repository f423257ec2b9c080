#include "QLSDKCoreKit/platform/Log.h"

#include <algorithm>
#include <climits>

#include <syslog.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

// Without openlog, which belongs to the host: its identity and options apply to these lines too.
class SystemLog final : public Log {
  public:
    void write(std::string_view line) noexcept override {
        const int size = static_cast<int>(std::min<std::size_t>(line.size(), INT_MAX));
        ::syslog(LOG_INFO, "%.*s", size, line.data());
    }
};

}  // namespace

std::shared_ptr<Log> makeLinuxLog() {
    return std::make_shared<SystemLog>();
}

}  // namespace qlsdk::platform
