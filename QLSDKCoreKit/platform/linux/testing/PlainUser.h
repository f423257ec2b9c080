#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qlsdk::platform::testing_support {

/// Gives up root's right to do what a file's mode forbids, for this process and for good: the system then
/// refuses what it refuses anybody else. Unlike another user, who may not even come as far as the files when
/// they lie below a private home.
[[nodiscard]] inline bool becomePlainUser() noexcept {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    return ::syscall(SYS_capset, &header, none) == 0;
}

}  // namespace qlsdk::platform::testing_support
