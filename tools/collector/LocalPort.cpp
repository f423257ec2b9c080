#include "tools/collector/LocalPort.h"

#include <cerrno>
#include <string>
#include <system_error>

#include "tools/cli/Failure.h"
#include <httplib.h>
#include <sys/socket.h>

namespace quillkit {

namespace {

constexpr const char* kHost = "127.0.0.1";

/// By default the server shares its port with anyone who asks for it; here a taken port is an error.
void setSocketOptions(socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

}  // namespace

int bindLocalPort(httplib::Server& server, int port, std::string_view complaint) {
    server.set_socket_options(setSocketOptions);
    errno = 0;
    const int bound = port == 0 ? server.bind_to_any_port(kHost) : port;
    if (bound >= 0 && (port == 0 || server.bind_to_port(kHost, port))) return bound;
    // The server library passes no reason on; errno still holds that of the call that failed.
    const std::string reason = errno == 0 ? "" : ": " + std::generic_category().message(errno);
    throw Failure(std::string(complaint) + " " + kHost + ":" + std::to_string(port) + reason);
}

}  // namespace quillkit
