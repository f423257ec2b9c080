#include "ProcessSize.h"

#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace qlsdk::soak {

namespace {

std::int64_t entriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return std::distance(begin(entries), end(entries));
}

std::int64_t residentKiB() {
    std::ifstream file("/proc/self/statm");
    std::int64_t total = 0;
    std::int64_t resident = 0;
    file >> total >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

ProcessSize processSize() {
    return {.residentKiB = residentKiB(),
            .descriptors = entriesOf("/proc/self/fd"),
            .threads = entriesOf("/proc/self/task")};
}

}  // namespace qlsdk::soak
