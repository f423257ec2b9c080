#include "tools/host/HostPlatform.h"

namespace quillkit {

qlsdk::platform::Platform makeHostPlatform(const qlsdk::platform::LinuxPlatformOptions& options) {
    return qlsdk::platform::makeLinuxPlatform(options);
}

}  // namespace quillkit
