#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"

#include <cstdio>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace qlsdk::platform::testing_support {

namespace {

constexpr long kDay = 24L * 60 * 60;

void setName(X509* certificate, const char* commonName) {
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName),
                               -1, -1, 0);
}

void addExtension(X509* certificate, int id, const char* value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, id, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

std::shared_ptr<X509> unsignedCertificate(EVP_PKEY* key, const char* commonName, long serial, long lastDay) {
    std::shared_ptr<X509> certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3 * kDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), lastDay * kDay);
    X509_set_pubkey(certificate.get(), key);
    setName(certificate.get(), commonName);
    return certificate;
}

std::shared_ptr<X509> serverCertificate(EVP_PKEY* key, X509* authority, CertificateFlaw flaw) {
    const bool isWrongName = flaw == CertificateFlaw::wrongName;
    auto certificate = unsignedCertificate(key, "server", 2, flaw == CertificateFlaw::expired ? -1 : 30);
    addExtension(certificate.get(), NID_subject_alt_name,
                 isWrongName ? "DNS:other.example" : "DNS:localhost,DNS:api.quillo.example");
    X509* issuer = flaw == CertificateFlaw::selfSigned ? certificate.get() : authority;
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
    X509_sign(certificate.get(), key, EVP_sha256());
    return certificate;
}

}  // namespace

// One key serves for all: the tests are about certificates.
Certificates::Certificates(const std::string& directory)
    : key_(EVP_EC_gen("P-256"), EVP_PKEY_free), caFile_(directory + "/ca.pem") {
    authority_ = unsignedCertificate(key_.get(), "test authority", 1, 30);
    addExtension(authority_.get(), NID_basic_constraints, "critical,CA:TRUE");
    X509_set_issuer_name(authority_.get(), X509_get_subject_name(authority_.get()));
    X509_sign(authority_.get(), key_.get(), EVP_sha256());
    std::FILE* file = std::fopen(caFile_.c_str(), "we");
    PEM_write_X509(file, authority_.get());
    std::fclose(file);
}

std::shared_ptr<SSL_CTX> Certificates::serverContext(CertificateFlaw flaw) const {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), serverCertificate(key_.get(), authority_.get(), flaw).get());
    SSL_CTX_use_PrivateKey(context.get(), key_.get());
    return context;
}

std::shared_ptr<SSL_CTX> Certificates::http2ServerContext() const {
    std::shared_ptr<SSL_CTX> context = serverContext();
    const auto chooseHttp2 = [](SSL*, const unsigned char** out, unsigned char* size, const unsigned char*,
                                unsigned int, void*) {
        *out = reinterpret_cast<const unsigned char*>("h2");
        *size = 2;
        return SSL_TLSEXT_ERR_OK;
    };
    SSL_CTX_set_alpn_select_cb(context.get(), chooseHttp2, nullptr);
    return context;
}

void Certificates::writeServerFiles(const std::string& keyFile, const std::string& certificateFile) const {
    std::FILE* file = std::fopen(keyFile.c_str(), "we");
    PEM_write_PrivateKey(file, key_.get(), nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(file);
    file = std::fopen(certificateFile.c_str(), "we");
    PEM_write_X509(file, serverCertificate(key_.get(), authority_.get(), CertificateFlaw::none).get());
    std::fclose(file);
}

}  // namespace qlsdk::platform::testing_support
