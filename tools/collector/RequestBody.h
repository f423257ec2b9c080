#pragma once

#include <cstddef>

#include "QLSDKCoreKit/values/Data.h"

namespace httplib {
class ContentReader;
struct Request;
}  // namespace httplib

namespace quillkit {

/// Takes the body up to the ceiling, whatever length the client announced, if any. 0, or the status of a
/// refusal.
[[nodiscard]] int readRequestBody(const httplib::Request& request, const httplib::ContentReader& reader,
                                  std::size_t ceiling, qlsdk::Data& body);

}  // namespace quillkit
