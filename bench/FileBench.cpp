#include <string>
#include <vector>

#include "BenchHost.h"
#include "Contest.h"
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/RewrittenFile.h"

namespace qlsdk::bench {
namespace {

// The file is read back once, so that every way is known to have written it.
template <typename Write>
void contestFile(const std::string& name, std::size_t size, Write write) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) mutable {
        const std::string path = home() + "/file";
        const Data bytes(size, 'q');
        require(platform::replaceFile(path, Data(size, 'x')) && platform::replaceFile(path + ".spare", bytes),
                "no file");
        require(write(path, bytes) && platform::readFile(path, size) == bytes, "the file was not written");
        for (auto _ : state) benchmark::DoNotOptimize(write(path, bytes));
        platform::removeFile(path);
    });
}

bool writeTo(const std::string& path, int flags, const Data& bytes) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0600);
    const bool done =
        file >= 0 && ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(file);
    return done;
}

bool writeAndExchange(const std::string& path, const Data& bytes) {
    const std::string spare = path + ".spare";
    return writeTo(spare, 0, bytes) &&
           ::renameat2(AT_FDCWD, spare.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0;
}

bool writeAndRename(const std::string& path, const Data& bytes) {
    const std::string temporary = path + ".tmp";
    return writeTo(temporary, O_CREAT | O_TRUNC, bytes) && ::rename(temporary.c_str(), path.c_str()) == 0;
}

bool writeFlushAndRename(const std::string& path, const Data& bytes) {
    const std::string temporary = path + ".tmp";
    const int file = ::open(temporary.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | O_TRUNC, 0600);
    const bool done = file >= 0 &&
                      ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                      ::fdatasync(file) == 0;
    ::close(file);
    const int directory = ::open(home().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isInPlace = done && ::rename(temporary.c_str(), path.c_str()) == 0 && ::fsync(directory) == 0;
    ::close(directory);
    return isInPlace;
}

auto rewriting(platform::Flush flush = platform::Flush::no) {
    return [flush, file = std::shared_ptr<platform::RewrittenFile>()](const std::string& path,
                                                                      const Data& bytes) mutable {
        if (file == nullptr) file = std::make_shared<platform::RewrittenFile>(path);
        const DataView pieces[] = {bytes};
        return file->rewrite(pieces, flush);
    };
}

}  // namespace

void addFileContests() {
    for (const auto& [size, name] :
         {std::pair{std::size_t{1024}, "file/1k/"}, {std::size_t{100} << 10, "file/100k/"}}) {
        contestFile(std::string(name) + "ours", size, rewriting());
        contestFile(std::string(name) + "exchange", size, writeAndExchange);
        contestFile(std::string(name) + "rename", size, writeAndRename);
        contestFile(std::string(name) + "ours-flushed", size, rewriting(platform::Flush::toMedium));
        contestFile(std::string(name) + "rename-flushed", size, writeFlushAndRename);
    }
}

}  // namespace qlsdk::bench
