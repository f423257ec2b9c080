#pragma once

#include <memory>
#include <string>

#include <openssl/ssl.h>

namespace qlsdk::platform::testing_support {

/// What is wrong with a server's certificate, if anything.
enum class CertificateFlaw { none, wrongName, expired, selfSigned };

/// Certificates made on the spot: an authority and, signed by it, servers for "localhost" and
/// the API's own host.
class Certificates {
  public:
    /// Writes the authority to a file below `directory`.
    explicit Certificates(const std::string& directory);

    /// PEM file of the authority.
    [[nodiscard]] const std::string& caFile() const noexcept { return caFile_; }

    /// A server's side of TLS with a new certificate of that kind.
    [[nodiscard]] std::shared_ptr<SSL_CTX> serverContext(CertificateFlaw flaw = CertificateFlaw::none) const;

    /// The same for a server that speaks nothing but HTTP/2.
    [[nodiscard]] std::shared_ptr<SSL_CTX> http2ServerContext() const;

    /// The same as files for servers that are programs: key and certificate in PEM.
    void writeServerFiles(const std::string& keyFile, const std::string& certificateFile) const;

  private:
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> authority_;
    std::string caFile_;
};

}  // namespace qlsdk::platform::testing_support
