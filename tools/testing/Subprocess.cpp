#include "tools/testing/Subprocess.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillkit::testing {

namespace {

std::string newErrorFile() {
    std::string path = (std::filesystem::temp_directory_path() / "quillkit-errors-XXXXXX").string();
    const int file = ::mkstemp(path.data());
    if (file < 0) throw std::runtime_error("no temporary file");
    ::close(file);
    return path;
}

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

}  // namespace

Subprocess::Subprocess(const std::vector<std::string>& words) : errorFile_(newErrorFile()) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile_.c_str(), O_WRONLY, 0);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int error = ::posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    output_ = pipe[0];
    if (error != 0) throw std::runtime_error("cannot start " + words[0]);
}

Subprocess::~Subprocess() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ::close(output_);
    ::unlink(errorFile_.c_str());
}

bool Subprocess::readMore() {
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(output_, bytes.data(), bytes.size());
    if (count <= 0) return false;
    unread_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> Subprocess::nextLine() {
    while (unread_.find('\n') == std::string::npos) {
        if (!readMore()) return std::nullopt;
    }
    const std::size_t end = unread_.find('\n');
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
}

void Subprocess::sendSignal(int signal) const {
    ::kill(process_, signal);
}

Finished Subprocess::finish() {
    while (readMore()) {
    }
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, unread_, contentOf(errorFile_)};
}

Finished runToEnd(const std::vector<std::string>& words) {
    return Subprocess(words).finish();
}

}  // namespace quillkit::testing
