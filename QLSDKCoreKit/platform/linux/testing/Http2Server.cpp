#include "QLSDKCoreKit/platform/linux/testing/Http2Server.h"

#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qlsdk::platform::testing_support {

namespace {

// The kernel hands out ephemeral ports in turn, so that nobody else gets this one before the server asks for
// it.
std::string freePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(probe, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
    close(probe);
    return std::to_string(ntohs(address.sin_port));
}

pid_t start(std::vector<std::string> command, int output) {
    std::vector<char*> arguments;
    for (std::string& word : command) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t child = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) child = -1;
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

// The server says so when it listens; the end of its output means that it did not start.
bool waitUntilListening(int output) {
    std::string said;
    char buffer[256];
    for (ssize_t count = 0; (count = read(output, buffer, sizeof buffer)) > 0;) {
        said.append(buffer, static_cast<std::size_t>(count));
        if (said.find("listen 127.0.0.1") != std::string::npos) return true;
    }
    return false;
}

}  // namespace

Http2Server::Http2Server(const Certificates& certificates, const std::string& directory) {
    const std::string key = directory + "/key.pem";
    const std::string certificate = directory + "/certificate.pem";
    certificates.writeServerFiles(key, certificate);
    const std::string port = freePort();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    output_ = ends[0];
    server_ = start({"nghttpd", "-v", "-a", "127.0.0.1", "-d", directory, port, key, certificate}, ends[1]);
    close(ends[1]);
    if (server_ != -1 && waitUntilListening(output_)) address_ = "127.0.0.1:" + port;
}

Http2Server::~Http2Server() {
    if (server_ != -1) {
        kill(server_, SIGTERM);
        waitpid(server_, nullptr, 0);
    }
    close(output_);
}

}  // namespace qlsdk::platform::testing_support
