#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/network/QLAuthHeaderProvider.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

/// Describes one call to the web service. It may be turned into HTTP requests any number of times; sending
/// them is the caller's business. One thread at a time.
class QLSDK_EXPORT QLSDKNetworkRequest {
  public:
    /// `path` is appended to the base URL as it stands, such as "/v1/config". `method` has no default and is
    /// used verbatim. The provider may be null.
    QLSDKNetworkRequest(std::string path, std::string method,
                        std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider);

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const std::string& method() const noexcept { return method_; }
    /// Never set: 0.
    [[nodiscard]] std::int64_t expectedStatusCode() const noexcept { return 0; }
    /// Never set: absent.
    [[nodiscard]] std::optional<std::string> identifier() const;

    /// Extra header fields. Those with the names of the library's own are not sent, whether or not the
    /// library has a value for its own: trace, content type (also of a request without a body), user agent,
    /// client identifier and the provider's.
    [[nodiscard]] const std::optional<platform::HeaderFields>& headers() const noexcept { return headers_; }
    void setHeaders(std::optional<platform::HeaderFields> headers);

    /// Query parameters, in this order; values that are no text are rendered as one.
    [[nodiscard]] const std::optional<Dictionary>& queryParams() const noexcept { return queryParams_; }
    void setQueryParams(std::optional<Dictionary> queryParams);

    /// Sent only with the method "POST".
    [[nodiscard]] const std::optional<Data>& httpBody() const noexcept { return httpBody_; }
    void setHttpBody(std::optional<Data> httpBody);

    /// The value of "Content-Type" where a body is sent; absent leaves the field out.
    [[nodiscard]] const std::optional<std::string>& contentType() const noexcept { return contentType_; }
    void setContentType(std::optional<std::string> contentType);

    [[nodiscard]] const std::shared_ptr<QLAuthHeaderProvider>& authHeaderProvider() const noexcept {
        return authHeaderProvider_;
    }
    void setAuthHeaderProvider(std::shared_ptr<QLAuthHeaderProvider> provider);

    /// The request against the API base URL of `QLSDKTweaks`. Each conversion draws a new trace id, logs one
    /// line with it and asks the provider for a fresh value. Absent when base URL and path form no URL.
    [[nodiscard]] std::optional<platform::UrlRequest> toUrlRequest() const;
    [[nodiscard]] std::optional<platform::UrlRequest> toUrlRequestWithBaseUrl(std::string_view baseUrl) const;

    /// "QLSDK/(model;system name;system version)", fixed for the process by its first use. Any thread.
    [[nodiscard]] static const std::string& userAgent();

  private:
    [[nodiscard]] static std::optional<std::string> _clientId();
    [[nodiscard]] std::optional<std::string> urlText(std::string_view baseUrl) const;
    void setBody(platform::UrlRequest& request) const;
    void setAuthHeader(platform::UrlRequest& request) const;

    std::string path_;
    std::string method_;
    std::optional<platform::HeaderFields> headers_;
    std::optional<Dictionary> queryParams_;
    std::optional<Data> httpBody_;
    std::optional<std::string> contentType_;
    std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider_;
};

}  // namespace qlsdk
