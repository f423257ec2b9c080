#include "QLSDKCoreKit/platform/Random.h"

#include <cerrno>

#include <sys/random.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

class LinuxRandom final : public Random {
  public:
    int copyBytes(std::span<std::uint8_t> bytes) noexcept override {
        while (!bytes.empty()) {
            const ssize_t count = ::getrandom(bytes.data(), bytes.size(), 0);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return -1;
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        }
        return 0;
    }
};

}  // namespace

std::shared_ptr<Random> makeLinuxRandom() {
    return std::make_shared<LinuxRandom>();
}

}  // namespace qlsdk::platform
