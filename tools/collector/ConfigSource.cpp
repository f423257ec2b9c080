#include "tools/collector/ConfigSource.h"

#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

std::optional<std::string> ConfigSource::text() {
    {
        const std::lock_guard lock(mutex_);
        if (replacement_.has_value()) return replacement_;
    }
    if (!file_.has_value()) return "{}";
    const auto bytes = qlsdk::platform::readFile(*file_, kCeiling);
    return bytes.has_value() ? std::optional(qlsdk::textOf(*bytes)) : std::nullopt;
}

std::optional<std::string> ConfigSource::body() {
    const auto config = text();
    if (!config.has_value() || !nlohmann::json::accept(*config)) return std::nullopt;
    return R"({"data":{"config":)" + *config + "}}";
}

bool ConfigSource::replace(const std::string& text) {
    if (text.size() > kCeiling || !nlohmann::json::accept(text)) return false;
    const std::lock_guard lock(mutex_);
    replacement_ = text;
    return true;
}

void ConfigSource::restore() {
    const std::lock_guard lock(mutex_);
    replacement_.reset();
}

bool ConfigSource::isReplaced() {
    const std::lock_guard lock(mutex_);
    return replacement_.has_value();
}

}  // namespace quillkit
