#include "tools/collector/Certificates.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>

#include "tools/cli/Failure.h"
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

namespace {

constexpr std::size_t kPemCeiling = 64 * 1024;
constexpr std::time_t kSecondsPerDay = 86400;

struct BioDeleter {
    void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioDeleter>;

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
    // The empty password keeps a key that is encrypted from asking for one at the terminal.
    char noPassword[] = "";
    kept.key.reset(PEM_read_bio_PrivateKey(openPem(keyFile).get(), nullptr, nullptr, noPassword));
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
    const bool written = PEM_write_bio_PKCS8PrivateKey(keyPem, identity.key.get(), nullptr, nullptr, 0,
                                                       nullptr, nullptr) == 1 &&
                         PEM_write_bio_X509(certificate.get(), identity.certificate.get()) == 1;
    if (!written) throw Failure("cannot write a certificate as PEM");
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
