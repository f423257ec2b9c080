#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"

#include <algorithm>
#include <utility>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/core/Uuid.h"
#include "QLSDKCoreKit/platform/Log.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/Url.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

namespace {

/// 32 upper-case hexadecimal digits; absent when the random source fails.
std::optional<std::string> newTraceId() {
    std::optional<std::string> id = makeUuidString();
    if (id) std::erase(*id, '-');
    return id;
}

/// Sets a field of the library's own. Without a value it is left out, and the caller's of that name goes,
/// too.
void setOwnField(platform::HeaderFields& headers, std::string_view name,
                 const std::optional<std::string>& value) {
    value ? headers.set(name, *value) : headers.erase(name);
}

std::string madeUserAgent() {
    platform::Device& device = *platform::current().device;
    return "QLSDK/(" + device.model() + ";" + device.systemName() + ";" + device.systemVersion() + ")";
}

}  // namespace

QLSDKNetworkRequest::QLSDKNetworkRequest(std::string path, std::string method,
                                         std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider)
    : path_(std::move(path)),
      method_(std::move(method)),
      authHeaderProvider_(std::move(authHeaderProvider)) {}

std::optional<std::string> QLSDKNetworkRequest::identifier() const {
    return std::nullopt;
}

void QLSDKNetworkRequest::setHeaders(std::optional<platform::HeaderFields> headers) {
    headers_ = std::move(headers);
}

void QLSDKNetworkRequest::setQueryParams(std::optional<Dictionary> queryParams) {
    queryParams_ = std::move(queryParams);
}

void QLSDKNetworkRequest::setHttpBody(std::optional<Data> httpBody) {
    httpBody_ = std::move(httpBody);
}

void QLSDKNetworkRequest::setContentType(std::optional<std::string> contentType) {
    contentType_ = std::move(contentType);
}

void QLSDKNetworkRequest::setAuthHeaderProvider(std::shared_ptr<QLAuthHeaderProvider> provider) {
    authHeaderProvider_ = std::move(provider);
}

std::optional<platform::UrlRequest> QLSDKNetworkRequest::toUrlRequest() const {
    return toUrlRequestWithBaseUrl(QLSDKTweaks::shared().quillKitApiBaseUrl());
}

std::optional<platform::UrlRequest> QLSDKNetworkRequest::toUrlRequestWithBaseUrl(
    std::string_view baseUrl) const {
    std::optional<std::string> url = urlText(baseUrl);
    if (!url) return std::nullopt;

    platform::UrlRequest request;
    request.url = std::move(*url);
    request.method = method_;
    if (headers_) request.headers = *headers_;

    // The library's own fields come after the caller's, so that they replace them.
    const std::optional<std::string> traceId = newTraceId();
    setOwnField(request.headers, "X-Cloud-Trace-Context",
                traceId ? std::optional(*traceId + "/0;o=1") : std::nullopt);
    platform::logLine("[QuillKit] path=" + path_ + " trace_id=" + describe(traceId));
    setBody(request);
    request.headers.set("User-Agent", userAgent());
    setAuthHeader(request);
    setOwnField(request.headers, "X-Quill-SDK-OAuth-Client-Id", _clientId());
    return request;
}

std::optional<std::string> QLSDKNetworkRequest::urlText(std::string_view baseUrl) const {
    const std::string text = std::string(baseUrl) + path_;
    const std::optional<platform::Url> url = queryParams_ && !queryParams_->empty()
                                                 ? buildWithBaseUrlString(text, queryParams_)
                                                 : platform::Url::parse(text);
    if (!url) return std::nullopt;
    return url->absoluteString();
}

void QLSDKNetworkRequest::setBody(platform::UrlRequest& request) const {
    if (method_ == "POST") request.body = httpBody_;
    setOwnField(request.headers, "Content-Type", request.body ? contentType_ : std::nullopt);
}

void QLSDKNetworkRequest::setAuthHeader(platform::UrlRequest& request) const {
    if (authHeaderProvider_ == nullptr) return;
    const std::optional<std::string> value = authHeaderProvider_->authHeaderValue();
    setOwnField(request.headers, authHeaderProvider_->authHeaderName(), value);
}

const std::string& QLSDKNetworkRequest::userAgent() {
    static constinit platform::ForkSafeOnce<std::string> cached;
    return cached.get(madeUserAgent);
}

std::optional<std::string> QLSDKNetworkRequest::_clientId() {
    return QLSDKClientSetup::sharedInstance().clientIDText();
}

}  // namespace qlsdk
