#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/inspect/TokenCheck.h"

#include "QLSDKCoreKit/values/Value.h"

namespace quillkit {

/// One parameter of a link's query.
struct LinkParameter {
    std::string name;
    /// As it stands there, percent escapes undone.
    std::string value;
    /// True for those that hold JSON in base64.
    bool isEncoded = false;
    /// The JSON of such a one; absent when it is none.
    std::optional<qlsdk::Value> decoded;
    /// Of the fingerprint in it.
    std::optional<TokenReport> token;
};

/// A link into the companion app, taken apart.
struct LinkParts {
    /// All before the query.
    std::string base;
    std::vector<LinkParameter> parameters;
};

/// True for an address of the companion app, as opposed to a file's name.
[[nodiscard]] bool isLink(const std::string& text);

[[nodiscard]] LinkParts readLink(const std::string& link);

}  // namespace quillkit
