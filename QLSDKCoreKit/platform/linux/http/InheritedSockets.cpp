#include "QLSDKCoreKit/platform/linux/http/InheritedSockets.h"

#include <charconv>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace qlsdk::platform {

namespace {

struct Closer {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

bool isInheritedPairEnd(int descriptor) noexcept {
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags == -1 || (flags & FD_CLOEXEC) != 0) return false;
    int domain = 0;
    socklen_t size = sizeof domain;
    return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

/// The first inherited end of a pair among this process's descriptors that `isIt` knows; -1 without one.
template <typename Predicate>
int findPairEnd(Predicate isIt) noexcept {
    const std::unique_ptr<DIR, Closer> directory(opendir("/proc/self/fd"));
    if (directory == nullptr) return -1;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string_view name(entry->d_name);
        int descriptor = -1;
        std::from_chars(name.data(), name.data() + name.size(), descriptor);
        if (descriptor >= 0 && isInheritedPairEnd(descriptor) && isIt(descriptor)) return descriptor;
    }
    return -1;
}

struct Name {
    sockaddr_un address{};
    socklen_t size = sizeof address;

    bool operator==(const Name& other) const noexcept {
        return size == other.size && std::memcmp(&address, &other.address, size) == 0;
    }
};

void closeOnExec(int descriptor) noexcept {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

int waitingBytes(int descriptor) noexcept {
    int count = 0;
    return ioctl(descriptor, FIONREAD, &count) == 0 ? count : 0;
}

}  // namespace

void closePairOnExec(int end) noexcept {
    if (!isInheritedPairEnd(end)) return;
    closeOnExec(end);
    // The system does not tell who the other end of an unnamed pair is. A name, which it chooses itself when
    // it is given none, makes this end one that the other can be asked for.
    sockaddr_un unnamed{};
    unnamed.sun_family = AF_UNIX;
    Name own;
    if (bind(end, reinterpret_cast<const sockaddr*>(&unnamed), sizeof unnamed.sun_family) != 0 ||
        getsockname(end, reinterpret_cast<sockaddr*>(&own.address), &own.size) != 0) {
        return;
    }
    const auto isOther = [&own](int descriptor) {
        Name peer;
        return getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer.address), &peer.size) == 0 &&
               peer == own;
    };
    // As a rule the next number, which saves a look at all of them.
    const int other = isOther(end + 1) ? end + 1 : findPairEnd(isOther);
    if (other != -1) closeOnExec(other);
}

bool closeWakeUpOnExec(void* multi) noexcept {
    if (curl_multi_wakeup(multi) != CURLM_OK) return false;
    // The end that holds the wake-up's byte, and no longer does after the poll that takes it.
    const int end = findPairEnd([multi](int descriptor) {
        if (waitingBytes(descriptor) != 1) return false;
        curl_multi_poll(multi, nullptr, 0, 0, nullptr);
        const bool isTaken = waitingBytes(descriptor) == 0;
        curl_multi_wakeup(multi);
        return isTaken;
    });
    if (end != -1) closePairOnExec(end);
    return true;
}

}  // namespace qlsdk::platform
