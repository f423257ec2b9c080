#include "QLSDKCoreKit/platform/linux/http/CurlTransfer.h"

#include <algorithm>
#include <utility>

#include <curl/curl.h>
#include <sys/socket.h>

#include "QLSDKCoreKit/platform/linux/http/HttpDiagnostics.h"

namespace qlsdk::platform {

namespace {

using Next = ResponseCollector::Next;

// Sockets must not leak into programs that the host starts.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

template <typename... Results>
bool allOk(Results... results) noexcept {
    return ((results == CURLE_OK) && ...);
}

// The transport frames the message itself; a caller's idea of its length could only contradict it.
bool framesMessage(std::string_view name) {
    const std::string canonical = canonicalHeaderName(name);
    return canonical == "Content-Length" || canonical == "Transfer-Encoding";
}

bool hasLengthWithoutBody(std::string_view method) noexcept {
    return method == "POST" || method == "PUT" || method == "PATCH";
}

}  // namespace

/// curl's callbacks. Nothing they throw may cross curl's C code; running out of memory fails the transfer.
struct CurlTransfer::Callbacks {
    template <typename Add>
    static std::size_t feed(CurlTransfer& transfer, std::size_t size, Add add) noexcept {
        try {
            transfer.outcome_ = add(transfer.collector_);
        } catch (...) {
            transfer.outcome_ = Next::tooMuch;
        }
        // Any other count than the one given makes curl end the transfer.
        return transfer.outcome_ == Next::goOn ? size : size + 1;
    }

    static std::size_t header(char* bytes, std::size_t, std::size_t size, void* self) noexcept {
        return feed(*static_cast<CurlTransfer*>(self), size, [&](ResponseCollector& collector) {
            return collector.addHeaderLine({bytes, size}, std::chrono::steady_clock::now());
        });
    }

    static std::size_t body(char* bytes, std::size_t, std::size_t size, void* self) noexcept {
        return feed(*static_cast<CurlTransfer*>(self), size, [&](ResponseCollector& collector) {
            return collector.addBody(bytesOf({bytes, size}), std::chrono::steady_clock::now());
        });
    }

    // Called before each beginning of the request. There is a second one when a kept connection ended without
    // an answer or the server refused the stream, and curl cannot know what became of the first.
    static int begin(void* self, char*, char*, int, int) noexcept {
        auto& transfer = *static_cast<CurlTransfer*>(self);
        transfer.isRepeated_ = std::exchange(transfer.hasBegun_, true);
        return transfer.isRepeated_ ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }

    static int beginLookup(void*, void*, void* self) noexcept {
        static_cast<CurlTransfer*>(self)->hasBegunLookup_ = true;
        return 0;
    }
};

struct CurlTransfer::HeaderList {
    curl_slist* first = nullptr;
    ~HeaderList() { curl_slist_free_all(first); }

    [[nodiscard]] bool add(const std::string& line) noexcept {
        curl_slist* longer = curl_slist_append(first, line.c_str());
        if (longer == nullptr) return false;
        first = longer;
        return true;
    }
};

CurlTransfer::CurlTransfer(std::unique_ptr<HttpTask> task, const HttpSettings& settings)
    : task_(std::move(task)),
      settings_(settings),
      headerList_(std::make_unique<HeaderList>()),
      connectTo_(std::make_unique<HeaderList>()),
      collector_(task_->ceiling),
      errorText_(CURL_ERROR_SIZE, '\0') {}

CurlTransfer::~CurlTransfer() = default;

bool CurlTransfer::prepare(void* handle, TimePoint now) noexcept {
    handle_ = handle;
    idleDeadline_ = now + settings_.options.idleTimeout;
    totalDeadline_ = now + settings_.options.totalTimeout;
    try {
        return setTransport() && setRequest() && setHeaders() && setCallbacks();
    } catch (...) {
        return false;
    }
}

bool CurlTransfer::hasBegunLookup() noexcept {
    return std::exchange(hasBegunLookup_, false);
}

bool CurlTransfer::setTransport() noexcept {
    const HttpOptions& options = settings_.options;
    const long connectMillis = static_cast<long>(options.connectTimeout.count());
    bool ok = allOk(curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYPEER, 1L),
                    curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYHOST, 2L),
                    curl_easy_setopt(handle_, CURLOPT_PROTOCOLS_STR, "https"),
                    curl_easy_setopt(handle_, CURLOPT_FOLLOWLOCATION, 0L),
                    curl_easy_setopt(handle_, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L),
                    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L),
                    // A look-up that hangs ends by itself, on its own thread, and nobody waits for it.
                    curl_easy_setopt(handle_, CURLOPT_QUICK_EXIT, 1L),
                    curl_easy_setopt(handle_, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS}),
                    curl_easy_setopt(handle_, CURLOPT_PIPEWAIT, 1L),
                    curl_easy_setopt(handle_, CURLOPT_CONNECTTIMEOUT_MS, connectMillis),
                    curl_easy_setopt(handle_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L),
                    curl_easy_setopt(handle_, CURLOPT_PROXY, settings_.proxy.c_str()),
                    curl_easy_setopt(handle_, CURLOPT_NOPROXY, settings_.noProxy.c_str()));
    if (options.caFile) {
        ok = ok && allOk(curl_easy_setopt(handle_, CURLOPT_CAINFO, options.caFile->c_str()),
                         curl_easy_setopt(handle_, CURLOPT_CAPATH, nullptr));
    }
    return ok;
}

bool CurlTransfer::setRequest() {
    const UrlRequest& request = task_->request;
    bool ok = allOk(curl_easy_setopt(handle_, CURLOPT_URL, request.url.c_str()));
    if (request.method == "HEAD") return ok && allOk(curl_easy_setopt(handle_, CURLOPT_NOBODY, 1L));
    if (request.body || hasLengthWithoutBody(request.method)) {
        static constexpr char kEmpty[] = "";
        const bool hasBytes = request.body && !request.body->empty();
        const void* bytes = hasBytes ? static_cast<const void*>(request.body->data()) : kEmpty;
        const auto size = static_cast<curl_off_t>(hasBytes ? request.body->size() : 0);
        ok = ok && allOk(curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE_LARGE, size),
                         curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, bytes));
    }
    return ok && allOk(curl_easy_setopt(handle_, CURLOPT_CUSTOMREQUEST, request.method.c_str()));
}

bool CurlTransfer::setHeaders() {
    const HeaderFields& headers = task_->request.headers;
    bool ok = true;
    for (const auto& [name, value] : headers) {
        if (framesMessage(name)) continue;
        // curl's spelling for a field that is sent without a value; a colon alone would remove the field.
        ok = ok && headerList_->add(value.empty() ? name + ";" : name + ": " + value);
    }
    for (const char* made : {"Accept", "Expect", "Content-Type"}) {
        if (headers.find(made) == nullptr) ok = ok && headerList_->add(std::string(made) + ":");
    }
    if (settings_.options.connectTo) {
        ok = ok && connectTo_->add("::" + *settings_.options.connectTo) &&
             allOk(curl_easy_setopt(handle_, CURLOPT_CONNECT_TO, connectTo_->first));
    }
    return ok && allOk(curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headerList_->first));
}

bool CurlTransfer::setCallbacks() noexcept {
    return allOk(curl_easy_setopt(handle_, CURLOPT_PRIVATE, this),
                 curl_easy_setopt(handle_, CURLOPT_PREREQFUNCTION, &Callbacks::begin),
                 curl_easy_setopt(handle_, CURLOPT_PREREQDATA, this),
                 curl_easy_setopt(handle_, CURLOPT_RESOLVER_START_FUNCTION, &Callbacks::beginLookup),
                 curl_easy_setopt(handle_, CURLOPT_RESOLVER_START_DATA, this),
                 curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &Callbacks::header),
                 curl_easy_setopt(handle_, CURLOPT_HEADERDATA, this),
                 curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &Callbacks::body),
                 curl_easy_setopt(handle_, CURLOPT_WRITEDATA, this),
                 curl_easy_setopt(handle_, CURLOPT_OPENSOCKETFUNCTION, &openSocket),
                 curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, errorText_.data()));
}

CurlTransfer::TimePoint CurlTransfer::deadline() const noexcept {
    const TimePoint first = std::min(idleDeadline_, totalDeadline_);
    const auto discard = collector_.discardDeadline();
    return discard ? std::min(*discard, first) : first;
}

std::int64_t CurlTransfer::bytesMoved() const noexcept {
    curl_off_t up = 0;
    curl_off_t down = 0;
    long head = 0;
    curl_easy_getinfo(handle_, CURLINFO_SIZE_UPLOAD_T, &up);
    curl_easy_getinfo(handle_, CURLINFO_SIZE_DOWNLOAD_T, &down);
    curl_easy_getinfo(handle_, CURLINFO_HEADER_SIZE, &head);
    return up + down + head;
}

bool CurlTransfer::isOverdue(TimePoint now) noexcept {
    if (now < deadline()) return false;
    const auto discard = collector_.discardDeadline();
    if (discard && now >= *discard) return true;
    isOutOfTime_ = now >= totalDeadline_;
    if (isOutOfTime_) return true;
    const std::int64_t moved = bytesMoved();
    idleDeadline_ = now + settings_.options.idleTimeout;
    return std::exchange(bytesSeen_, moved) == moved;
}

UrlResult CurlTransfer::result(int code) {
    // An answer whose body nobody wants stands, however that body ends.
    if (code == CURLE_OK || collector_.discardDeadline()) return collector_.take();
    const char* own = ownReason();
    const char* cause = own != nullptr ? own : curl_easy_strerror(static_cast<CURLcode>(code));
    std::string detail = own != nullptr ? std::string() : curlsReason();
    // Only a refusal of consent aborts a transfer, which is no failure.
    if (code != CURLE_ABORTED_BY_CALLBACK) {
        reportTransferFailure(code, cause, detail, connectErrorNumber(code), settings_.options);
    }
    return {.error = UrlError{code, detail.empty() ? cause : std::move(detail)},
            .response = std::nullopt,
            .body = {}};
}

const char* CurlTransfer::ownReason() const noexcept {
    if (outcome_ == Next::tooMuch) return "response over its ceiling";
    if (isRepeated_) return "the connection ended without an answer; the request is not sent again";
    if (isOutOfTime_) return "not over within the total time limit";
    return nullptr;
}

std::string CurlTransfer::curlsReason() const {
    std::string text = errorText_.c_str();
    // curl quotes a proxy URL that it cannot use, which may hold a password.
    const bool mayHoldPassword =
        settings_.proxy.find('@') != std::string::npos && text.find("roxy") != std::string::npos;
    return mayHoldPassword ? std::string() : text;
}

int CurlTransfer::connectErrorNumber(int code) const noexcept {
    long number = 0;
    if (code == CURLE_COULDNT_CONNECT) curl_easy_getinfo(handle_, CURLINFO_OS_ERRNO, &number);
    return static_cast<int>(number);
}

void CurlTransfer::complete(int code) noexcept {
    if (isRepeated_) code = CURLE_GOT_NOTHING;
    try {
        task_->complete(result(code));
    } catch (...) {
        task_->fail(code, {});  // No memory for the text of the error.
    }
}

}  // namespace qlsdk::platform
