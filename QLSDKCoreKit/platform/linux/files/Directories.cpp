#include "QLSDKCoreKit/platform/Directories.h"

#include <utility>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"

namespace qlsdk::platform {

namespace {

class LinuxDirectories final : public Directories {
  public:
    LinuxDirectories(std::optional<std::string> home, std::shared_ptr<Bundles> bundles)
        : caches_(StateKind::cache, std::move(home), std::move(bundles)) {}

    std::optional<std::string> cachesDirectory() override { return caches_.create(); }

  private:
    StateDirectory caches_;
};

}  // namespace

std::shared_ptr<Directories> makeLinuxDirectories(std::optional<std::string> home,
                                                  std::shared_ptr<Bundles> bundles) {
    return std::make_shared<LinuxDirectories>(std::move(home), std::move(bundles));
}

}  // namespace qlsdk::platform
