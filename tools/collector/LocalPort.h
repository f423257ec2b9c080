#pragma once

#include <string_view>

namespace httplib {
class Server;
}

namespace quillkit {

/// Binds the server to the port of 127.0.0.1, or to any free one for 0, and returns it. Throws `Failure` with
/// `complaint`, the address and the system's reason when that is impossible.
[[nodiscard]] int bindLocalPort(httplib::Server& server, int port, std::string_view complaint);

}  // namespace quillkit
