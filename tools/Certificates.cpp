#include "Certificates.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "Failure.h"
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

namespace {

using Extensions = std::vector<std::pair<int, std::string>>;

constexpr std::size_t kPemCeiling = 64 * 1024;
constexpr long kSecondsPerDay = 86400;
constexpr long kAuthorityDays = 3650;
// The longest that clients accept of a server's certificate.
constexpr int kServerDays = 397;

struct BioDeleter {
    void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioDeleter>;

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

Bio openPem(const std::string& path) {
    const auto bytes = qlsdk::platform::readFile(path, kPemCeiling);
    Bio bio(BIO_new(BIO_s_mem()));
    if (bytes.has_value()) BIO_write(bio.get(), bytes->data(), static_cast<int>(bytes->size()));
    return bio;
}

/// Absent unless both files hold what they should, fit together and stay valid for another day.
std::optional<Identity> load(const std::string& certificateFile, const std::string& keyFile) {
    Identity kept;
    kept.certificate.reset(PEM_read_bio_X509(openPem(certificateFile).get(), nullptr, nullptr, nullptr));
    kept.key.reset(PEM_read_bio_PrivateKey(openPem(keyFile).get(), nullptr, nullptr, nullptr));
    std::time_t tomorrow = std::time(nullptr) + kSecondsPerDay;
    const bool usable = kept.certificate != nullptr && kept.key != nullptr &&
                        X509_check_private_key(kept.certificate.get(), kept.key.get()) == 1 &&
                        X509_cmp_time(X509_get0_notAfter(kept.certificate.get()), &tomorrow) > 0;
    ERR_clear_error();
    return usable ? std::optional(std::move(kept)) : std::nullopt;
}

void save(const std::string& path, BIO* pem) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(pem, &text);
    const std::string_view content(text, static_cast<std::size_t>(size));
    if (!qlsdk::platform::replaceFile(path, qlsdk::bytesOf(content))) throw Failure("cannot write " + path);
}

/// Both parts in one file where the two names are the same.
void save(const Identity& identity, const std::string& certificateFile, const std::string& keyFile) {
    const Bio certificate(BIO_new(BIO_s_mem()));
    const Bio key(BIO_new(BIO_s_mem()));
    BIO* keyPem = certificateFile == keyFile ? certificate.get() : key.get();
    require(
        PEM_write_bio_PKCS8PrivateKey(keyPem, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
        "key as PEM");
    require(PEM_write_bio_X509(certificate.get(), identity.certificate.get()) == 1, "certificate as PEM");
    if (keyPem == key.get()) save(keyFile, key.get());
    save(certificateFile, certificate.get());
}

bool serves(const Identity& server, const Identity& authority, const std::string& host) {
    return X509_verify(server.certificate.get(), authority.key.get()) == 1 &&
           X509_check_host(server.certificate.get(), host.c_str(), host.size(), 0, nullptr) == 1;
}

}  // namespace

ServerIdentity serverIdentity(const std::string& directory, const std::string& host) {
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) throw Failure("cannot make " + directory);
    const std::string authorityFile = directory + "/ca.pem";
    const std::string authorityKeyFile = directory + "/ca-key.pem";
    const std::string serverFile = directory + "/server.pem";

    std::optional<Identity> authority = load(authorityFile, authorityKeyFile);
    if (!authority.has_value()) {
        authority = issueAuthority();
        save(*authority, authorityFile, authorityKeyFile);
    }
    std::optional<Identity> server = load(serverFile, serverFile);
    if (!server.has_value() || !serves(*server, *authority, host)) {
        server = issueServer(*authority, host);
        save(*server, serverFile, serverFile);
    }
    ERR_clear_error();
    return {std::move(*server), std::filesystem::absolute(authorityFile).string()};
}

}  // namespace quillkit
