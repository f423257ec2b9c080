#pragma once

#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace quillkit {

struct CertificateDeleter {
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
struct KeyDeleter {
    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};

/// A certificate and its private key.
struct Identity {
    std::unique_ptr<X509, CertificateDeleter> certificate;
    std::unique_ptr<EVP_PKEY, KeyDeleter> key;
};

/// A new authority that signs servers' certificates and nothing else, valid for ten years. Throws `Failure`.
[[nodiscard]] Identity issueAuthority();

/// A new certificate of a server that is reached as `host`, "localhost" or 127.0.0.1, valid for 397 days.
/// Throws `Failure`.
[[nodiscard]] Identity issueServer(const Identity& authority, const std::string& host);

}  // namespace quillkit
