#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"

#include <utility>

#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk {

namespace {

constexpr std::string_view kNameKey = "name";
constexpr std::string_view kConfigKey = "config";

}  // namespace

QLSDKDynamicConfigEntity::QLSDKDynamicConfigEntity(std::optional<std::string> name, Value config)
    : name_(std::move(name)), config_(std::move(config)) {}

std::shared_ptr<platform::Archivable> QLSDKDynamicConfigEntity::initWithCoder(
    platform::KeyedDecoder& decoder) {
    std::optional<std::string> name = decoder.decodeText(kNameKey);
    return std::make_shared<QLSDKDynamicConfigEntity>(std::move(name),
                                                      decoder.decodeObject(kConfigKey).value());
}

bool QLSDKDynamicConfigEntity::boolValue(const KeyPath& path, bool defaultValue) const {
    const Value value = _configValue(path, ValueClass::number);
    return value.isNull() ? defaultValue : value.boolValue();
}

std::int64_t QLSDKDynamicConfigEntity::longValue(const KeyPath& path, std::int64_t defaultValue) const {
    const Value value = _configValue(path, ValueClass::number);
    return value.isNull() ? defaultValue : value.longValue();
}

double QLSDKDynamicConfigEntity::doubleValue(const KeyPath& path, double defaultValue) const {
    const Value value = _configValue(path, ValueClass::number);
    return value.isNull() ? defaultValue : value.doubleValue();
}

std::optional<std::string> QLSDKDynamicConfigEntity::stringValue(
    const KeyPath& path, std::optional<std::string> defaultValue) const {
    const Value value = _configValue(path, ValueClass::string);
    return value.isNull() ? std::move(defaultValue) : *value.string();
}

Value QLSDKDynamicConfigEntity::_configValue(const KeyPath& path, ValueClass valueClass) const {
    if (path.empty()) return {};
    Value node = config_;
    for (const std::string& key : path) {
        // An object may well hold the empty key, but no path leads there.
        if (key.empty()) return {};
        node = node[key];
    }
    const bool fits = valueClass == ValueClass::number ? node.isNumber() : node.string() != nullptr;
    return fits ? node : Value();
}

void QLSDKDynamicConfigEntity::encodeWithCoder(platform::KeyedEncoder& encoder) const {
    encoder.encodeText(name_, kNameKey);
    encoder.encodeObject(config_, kConfigKey);
}

}  // namespace qlsdk
