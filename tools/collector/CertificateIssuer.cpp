#include "tools/collector/CertificateIssuer.h"

#include <utility>
#include <vector>

#include "tools/cli/Failure.h"
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace quillkit {

namespace {

using Extensions = std::vector<std::pair<int, std::string>>;

constexpr long kSecondsPerDay = 86400;
constexpr long kAuthorityDays = 3650;
// The longest that clients accept of a server's certificate.
constexpr long kServerDays = 397;

void require(bool done, const char* what) {
    if (done) return;
    ERR_clear_error();
    throw Failure(std::string("cannot make a certificate: ") + what);
}

void addExtensions(X509* certificate, X509* issuer, const Extensions& extensions) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    for (const auto& [nid, text] : extensions) {
        X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str());
        const bool added = extension != nullptr && X509_add_ext(certificate, extension, -1) == 1;
        X509_EXTENSION_free(extension);
        require(added, text.c_str());
    }
}

void setSerialNumber(X509* certificate) {
    std::uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "no random number");
    // Positive and never zero.
    serial = (serial >> 1) | 1;
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial) == 1, "serial number");
}

/// A new key with a certificate; signed by `issuer`, or by itself where that is null.
Identity issue(const std::string& commonName, long days, const Identity* issuer,
               const Extensions& extensions) {
    Identity made{std::unique_ptr<X509, CertificateDeleter>(X509_new()),
                  std::unique_ptr<EVP_PKEY, KeyDeleter>(EVP_EC_gen("P-256"))};
    X509* certificate = made.certificate.get();
    require(certificate != nullptr && made.key != nullptr, "no key");
    X509* signer = issuer == nullptr ? certificate : issuer->certificate.get();
    require(X509_set_version(certificate, X509_VERSION_3) == 1, "version");
    setSerialNumber(certificate);
    // An hour back, for clients whose clock is a little slow.
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), days * kSecondsPerDay);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
    require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1, "issuer");
    require(X509_set_pubkey(certificate, made.key.get()) == 1, "public key");
    addExtensions(certificate, signer, extensions);
    EVP_PKEY* signingKey = issuer == nullptr ? made.key.get() : issuer->key.get();
    require(X509_sign(certificate, signingKey, EVP_sha256()) > 0, "signature");
    return made;
}

}  // namespace

Identity issueAuthority() {
    return issue("quillkit collect", kAuthorityDays, nullptr,
                 {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                  {NID_key_usage, "critical,keyCertSign,cRLSign"},
                  {NID_subject_key_identifier, "hash"}});
}

Identity issueServer(const Identity& authority, const std::string& host) {
    return issue(host, kServerDays, &authority,
                 {{NID_basic_constraints, "critical,CA:FALSE"},
                  {NID_key_usage, "critical,digitalSignature"},
                  {NID_ext_key_usage, "serverAuth"},
                  {NID_subject_key_identifier, "hash"},
                  {NID_authority_key_identifier, "keyid"},
                  {NID_subject_alt_name, "DNS:" + host + ",DNS:localhost,IP:127.0.0.1"}});
}

}  // namespace quillkit
