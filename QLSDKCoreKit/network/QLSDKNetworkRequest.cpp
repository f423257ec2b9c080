#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"

#include <algorithm>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/core/UrlHelpers.h"
#include "QLSDKCoreKit/core/Uuid.h"
#include "QLSDKCoreKit/platform/Log.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/Url.h"

namespace qlsdk {

namespace {

/// 32 upper-case hexadecimal digits; absent when the random source fails.
std::optional<std::string> newTraceId() {
    std::optional<std::string> id = makeUuidString();
    if (id) std::erase(*id, '-');
    return id;
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
    if (traceId) request.headers.set("X-Cloud-Trace-Context", *traceId + "/0;o=1");
    platform::logLine("[QuillKit] path=" + path_ + " trace_id=" + describe(traceId));
    setBody(request);
    request.headers.set("User-Agent", userAgent());
    setAuthHeader(request);
    if (const auto clientId = _clientId()) request.headers.set("X-Quill-SDK-OAuth-Client-Id", *clientId);
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
    if (method_ != "POST" || !httpBody_) return;
    request.body = httpBody_;
    if (contentType_) request.headers.set("Content-Type", *contentType_);
}

void QLSDKNetworkRequest::setAuthHeader(platform::UrlRequest& request) const {
    if (authHeaderProvider_ == nullptr) return;
    const std::optional<std::string> value = authHeaderProvider_->authHeaderValue();
    const std::string name = authHeaderProvider_->authHeaderName();
    if (value) request.headers.set(name, *value);
}

const std::string& QLSDKNetworkRequest::userAgent() {
    static const std::string& cached = *new std::string(madeUserAgent());
    return cached;
}

std::optional<std::string> QLSDKNetworkRequest::_clientId() {
    return QLSDKClientSetup::sharedInstance().clientIDText();
}

}  // namespace qlsdk
