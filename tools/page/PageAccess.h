#pragma once

#include <optional>
#include <string>

namespace quillkit {

/// What a request to the page says of where it comes from. Absent: it says nothing, or says it twice.
struct PageCaller {
    std::string method;
    std::string path;
    std::optional<std::string> host;
    std::optional<std::string> origin;
    /// The browser's own word on it, from "Sec-Fetch-Site".
    std::optional<std::string> fetchSite;
    /// The value of "token" in the query.
    std::optional<std::string> queryToken;
};

/// Who may have what of the page. The token is part of every address: in the query of the page itself, and
/// the first piece of the path of all that the page asks for.
class PageAccess {
  public:
    /// 256 bits from the platform's random source, in hex. Throws `Failure` when there are none.
    [[nodiscard]] static std::string newToken();

    PageAccess(int port, std::string token);

    /// The status of a refusal, or 0: 421 for a name that is not this server's, as after a change in the DNS;
    /// 403 for another origin or without the token; 405 for a method that is not served.
    [[nodiscard]] int refusalOf(const PageCaller& caller) const;
    /// What the path names: "" for the page itself, else what stands behind the token, such as "events".
    /// For a caller that is not refused.
    [[nodiscard]] std::string nameIn(const std::string& path) const;

    [[nodiscard]] std::string url() const;
    [[nodiscard]] const std::string& token() const noexcept { return token_; }

  private:
    [[nodiscard]] bool isOwnHost(const std::optional<std::string>& host) const;
    [[nodiscard]] bool isOwnOrigin(const PageCaller& caller) const;
    [[nodiscard]] bool hasToken(const PageCaller& caller) const;

    const std::string port_;
    const std::string token_;
};

}  // namespace quillkit
