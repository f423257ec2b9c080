#include "tools/collector/RequestBody.h"

#include <httplib.h>

namespace quillkit {

int readRequestBody(const httplib::Request& request, const httplib::ContentReader& reader,
                    std::size_t ceiling, qlsdk::Data& body) {
    // The server's parser of such bodies would hand the parts elsewhere.
    if (request.is_multipart_form_data()) return 415;
    bool tooLarge = false;
    const bool complete = reader([&](const char* bytes, std::size_t count) {
        tooLarge = count > ceiling - body.size();
        if (!tooLarge) body.insert(body.end(), bytes, bytes + count);
        return !tooLarge;
    });
    if (tooLarge) return 413;
    return complete ? 0 : 400;
}

}  // namespace quillkit
