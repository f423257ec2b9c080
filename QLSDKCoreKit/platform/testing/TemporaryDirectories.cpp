#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

#include <filesystem>

#include <stdlib.h>

namespace qlsdk::platform::testing {

TemporaryDirectories::TemporaryDirectories()
    : path_((std::filesystem::temp_directory_path() / "qlsdk-test-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) path_.clear();
}

TemporaryDirectories::~TemporaryDirectories() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace qlsdk::platform::testing
