#pragma once

#include <string>

#include <sys/types.h>

#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"

namespace qlsdk::platform::testing_support {

/// A real HTTP/2 server, the program "nghttpd", that serves the files of a directory over TLS until the end
/// of this object. It speaks nothing but HTTP/2.
class Http2Server {
  public:
    /// Keeps its key and certificate in `directory` as well. `address` is empty when the server did not
    /// start.
    Http2Server(const Certificates& certificates, const std::string& directory);
    ~Http2Server();
    Http2Server(const Http2Server&) = delete;
    Http2Server& operator=(const Http2Server&) = delete;

    /// "127.0.0.1:PORT"
    [[nodiscard]] const std::string& address() const noexcept { return address_; }

  private:
    pid_t server_ = -1;
    int output_ = -1;
    std::string address_;
};

}  // namespace qlsdk::platform::testing_support
