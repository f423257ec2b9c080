#include "tools/page/PageAccess.h"

#include <array>

#include "tools/cli/Failure.h"
#include "tools/inspect/Hex.h"
#include <openssl/crypto.h>

#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::size_t kTokenBytes = 32;

/// Takes as long for a wrong token as for the right one.
bool sameToken(const std::string& left, const std::string& right) {
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace

std::string PageAccess::newToken() {
    std::array<std::uint8_t, kTokenBytes> bytes{};
    if (qlsdk::platform::current().random->copyBytes(bytes) != 0) throw Failure("no random bytes");
    return hexOf(bytes);
}

PageAccess::PageAccess(int port, std::string token) : port_(std::to_string(port)), token_(std::move(token)) {}

int PageAccess::refusalOf(const PageCaller& caller) const {
    if (!isOwnHost(caller.host)) return 421;
    if (!isOwnOrigin(caller) || !hasToken(caller)) return 403;
    return caller.method == "GET" || caller.method == "POST" ? 0 : 405;
}

std::string PageAccess::nameIn(const std::string& path) const {
    const std::size_t behindToken = token_.size() + 2;
    return path.size() < behindToken ? "" : path.substr(behindToken);
}

std::string PageAccess::url() const {
    return "http://127.0.0.1:" + port_ + "/?token=" + token_;
}

bool PageAccess::isOwnHost(const std::optional<std::string>& host) const {
    return host == "127.0.0.1:" + port_ || host == "localhost:" + port_;
}

bool PageAccess::isOwnOrigin(const PageCaller& caller) const {
    // A link in another page may lead to the page itself, which is of no use to that page.
    const bool isPage = caller.path == "/" && caller.method == "GET";
    if (!isPage && caller.fetchSite.has_value() && caller.fetchSite != "same-origin" &&
        caller.fetchSite != "none") {
        return false;
    }
    // Browsers send an origin with whatever changes something; all else has to be another program.
    if (!caller.origin.has_value()) return caller.method != "POST";
    return caller.origin == "http://" + *caller.host;
}

bool PageAccess::hasToken(const PageCaller& caller) const {
    if (caller.path == "/") return caller.queryToken.has_value() && sameToken(*caller.queryToken, token_);
    const std::size_t slash = caller.path.find('/', 1);
    return slash != std::string::npos && sameToken(caller.path.substr(1, slash - 1), token_);
}

}  // namespace quillkit
