#include <memory>
#include <utility>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/Facade.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

struct QLSDKConfig {
    std::shared_ptr<const qlsdk::QLSDKDynamicConfigEntity> entity;
};

namespace {

using qlsdk::answerOr;
using KeyPath = qlsdk::QLSDKDynamicConfigEntity::KeyPath;

/// Empty, which leads to nothing, when a key is missing.
KeyPath keyPath(const char* const* keys, std::size_t keyCount) {
    KeyPath path;
    if (keys == nullptr) return path;
    for (std::size_t i = 0; i < keyCount; ++i) {
        if (keys[i] == nullptr) return {};
        path.emplace_back(keys[i]);
    }
    return path;
}

}  // namespace

void QLSDKUpdateConfig(void (*callback)(bool success, void* context), void* context) {
    const auto owed = qlsdk::owedTo(callback, context);
    if (owed == nullptr) return;
    qlsdk::runSwallowing([&owed] {
        qlsdk::QLSDKDynamicConfigManager::shared().updateIfNecessary(
            std::make_shared<const qlsdk::DynamicConfigCallback>(
                [owed](bool success) { owed->give(success); }));
    });
}

QLSDKConfig* QLSDKTakeConfig(const char* name) {
    if (name == nullptr) return nullptr;
    return answerOr<QLSDKConfig*>(nullptr, [name]() -> QLSDKConfig* {
        auto config = std::make_unique<QLSDKConfig>();
        config->entity = qlsdk::QLSDKDynamicConfigManager::shared().dynamicConfig(name);
        return config->entity != nullptr ? config.release() : nullptr;
    });
}

void QLSDKReleaseConfig(QLSDKConfig* config) {
    delete config;
}

bool QLSDKConfigBool(const QLSDKConfig* config, const char* const* keys, size_t keyCount, bool defaultValue) {
    if (config == nullptr) return defaultValue;
    return answerOr(defaultValue,
                    [&] { return config->entity->boolValue(keyPath(keys, keyCount), defaultValue); });
}

int64_t QLSDKConfigLong(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                        int64_t defaultValue) {
    if (config == nullptr) return defaultValue;
    return answerOr(defaultValue,
                    [&] { return config->entity->longValue(keyPath(keys, keyCount), defaultValue); });
}

double QLSDKConfigDouble(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                         double defaultValue) {
    if (config == nullptr) return defaultValue;
    return answerOr(defaultValue,
                    [&] { return config->entity->doubleValue(keyPath(keys, keyCount), defaultValue); });
}

size_t QLSDKConfigString(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                         const char* defaultValue, char* buffer, size_t capacity) {
    const auto text = answerOr(std::optional<std::string>(), [&] {
        const std::optional<std::string> otherwise = qlsdk::textOrAbsent(defaultValue);
        return config != nullptr ? config->entity->stringValue(keyPath(keys, keyCount), otherwise)
                                 : otherwise;
    });
    return qlsdk::giveText(text, buffer, capacity);
}
