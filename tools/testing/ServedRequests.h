#pragma once

#include "tools/collector/RequestLog.h"

namespace quillkit::testing {

/// A request that was answered 200 and had no token.
inline ServedRequest served(const std::string& path, const std::string& body) {
    ServedRequest request;
    request.method = "POST";
    request.path = path;
    request.body = qlsdk::dataOf(body);
    request.answer = "200";
    request.receivedMillis = 1'700'000'000'000;
    return request;
}

}  // namespace quillkit::testing
