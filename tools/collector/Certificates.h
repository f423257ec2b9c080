#pragma once

#include <memory>
#include <string>

#include "tools/collector/CertificateIssuer.h"

namespace quillkit {

/// What a local HTTPS server needs.
struct ServerIdentity {
    Identity server;
    /// PEM file of the authority that a client has to trust; an absolute path.
    std::string authorityFile;
};

/// The server's identity for `host`, "localhost" and 127.0.0.1, kept in `directory` (made with mode 0700):
/// the authority in "ca.pem" and "ca-key.pem", the server's own in "server.pem", every file with mode 0600.
/// Kept ones are used again; one that is missing, damaged, about to expire or for another host is made anew,
/// and with a new authority also the server's. Throws `Failure` when that is impossible.
[[nodiscard]] ServerIdentity serverIdentity(const std::string& directory, const std::string& host);

}  // namespace quillkit
