#include "QLSDKCoreKit/platform/linux/http/HttpDiagnostics.h"

#include <curl/curl.h>

#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk::platform {

namespace {

DiagnosticKind kindOf(int code) noexcept {
    switch (code) {
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return DiagnosticKind::certificate;
        case CURLE_OUT_OF_MEMORY:
        case CURLE_FAILED_INIT:
            return DiagnosticKind::resources;
        case CURLE_WRITE_ERROR:  // A callback of ours refused what arrived.
            return DiagnosticKind::serverAnswer;
        default:
            return DiagnosticKind::requestFailed;
    }
}

bool concernsCaFile(int code) noexcept {
    return code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE;
}

/// An authority of the right name with another key, as when a private one was made anew: OpenSSL's complaint
/// comes from the cipher then and not from TLS, and curl calls it a failed connection.
bool isSignedByAnotherKey(int code, std::string_view detail) noexcept {
    return code == CURLE_SSL_CONNECT_ERROR && detail.find("error:") != std::string_view::npos &&
           detail.find("SSL routines") == std::string_view::npos;
}

}  // namespace

void reportTransferFailure(int code, std::string_view cause, std::string_view detail, int errorNumber,
                           const HttpOptions& options) noexcept {
    if (isSignedByAnotherKey(code, detail)) {
        code = CURLE_PEER_FAILED_VERIFICATION;
        cause = "the server's certificate is signed by another key than the authority's";
    }
    const bool namesFile = concernsCaFile(code) && options.caFile.has_value();
    reportDiagnostic({.kind = kindOf(code),
                      .cause = cause,
                      .errorNumber = errorNumber,
                      .path = namesFile ? std::string_view(*options.caFile) : std::string_view(),
                      .detail = detail});
}

void reportScarcity(std::string_view what, int errorNumber) noexcept {
    reportDiagnostic({.kind = DiagnosticKind::resources, .cause = what, .errorNumber = errorNumber});
}

void reportUnusableConnectTo(std::string_view connectTo) noexcept {
    reportDiagnostic({.kind = DiagnosticKind::invalidOption,
                      .cause = "connectTo is not HOST:PORT; no request is sent",
                      .detail = connectTo});
}

}  // namespace qlsdk::platform
