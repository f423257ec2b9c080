#include "QLSDKCoreKit/platform/testing/FakeStores.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include <stdlib.h>

namespace qlsdk::platform::testing {

namespace {

constexpr std::array kIdentity = {kSecClass, kSecAttrService, kSecAttrAccount, kSecAttrGeneric,
                                  kSecAttrSynchronizable};

bool agrees(const Dictionary& item, const Dictionary& query, std::string_view attribute) {
    const Value* wanted = query.find(attribute);
    if (wanted == nullptr) return true;
    const Value* stored = item.find(attribute);
    return stored != nullptr && *stored == *wanted;
}

bool matches(const Dictionary& item, const Dictionary& query) {
    return agrees(item, query, kSecAttrAccessible) &&
           std::all_of(kIdentity.begin(), kIdentity.end(),
                       [&](std::string_view attribute) { return agrees(item, query, attribute); });
}

Dictionary withoutData(Dictionary item) {
    item.erase(kSecValueData);
    return item;
}

}  // namespace

OSStatus FakeKeychain::itemAdd(const Dictionary& attributes) {
    const std::lock_guard lock(mutex_);
    if (failure_) return *failure_;
    const bool complete = std::all_of(kIdentity.begin(), kIdentity.end(), [&](std::string_view attribute) {
        return attributes.contains(attribute);
    });
    if (!complete) return errSecParam;
    Dictionary identity = attributes;
    identity.erase(kSecAttrAccessible);
    for (const Dictionary& item : items_) {
        if (matches(item, identity)) return errSecDuplicateItem;
    }
    items_.push_back(attributes);
    return errSecSuccess;
}

OSStatus FakeKeychain::itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) {
    const std::lock_guard lock(mutex_);
    if (failure_) return *failure_;
    OSStatus status = errSecItemNotFound;
    for (Dictionary& item : items_) {
        if (!matches(item, query)) continue;
        for (const auto& [attribute, value] : attributesToUpdate) item.set(attribute, value);
        status = errSecSuccess;
    }
    return status;
}

OSStatus FakeKeychain::itemCopyMatching(const Dictionary& query, Value* result) {
    const std::lock_guard lock(mutex_);
    if (failure_) return *failure_;
    const Value* limit = query.find(kSecMatchLimit);
    const bool all =
        limit != nullptr ? *limit == Value(kSecMatchLimitAll) : query.contains(kSecReturnAttributes);
    Array found;
    for (const Dictionary& item : items_) {
        if (!matches(item, query)) continue;
        found.emplace_back(item);
        if (!all) break;
    }
    if (found.empty()) return errSecItemNotFound;
    if (result == nullptr) return errSecSuccess;
    if (!all) {
        *result = found.front()[kSecValueData];
        return errSecSuccess;
    }
    for (Value& item : found) item = withoutData(*item.dictionary());
    *result = std::move(found);
    return errSecSuccess;
}

OSStatus FakeKeychain::itemDelete(const Dictionary& query) {
    const std::lock_guard lock(mutex_);
    if (failure_) return *failure_;
    const auto removed = std::erase_if(items_, [&](const Dictionary& item) { return matches(item, query); });
    return removed > 0 ? errSecSuccess : errSecItemNotFound;
}

void FakeKeychain::failWith(std::optional<OSStatus> status) {
    const std::lock_guard lock(mutex_);
    failure_ = status;
}

std::vector<Dictionary> FakeKeychain::items() const {
    const std::lock_guard lock(mutex_);
    return items_;
}

TemporaryDirectories::TemporaryDirectories()
    : path_((std::filesystem::temp_directory_path() / "qlsdk-test-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) path_.clear();
}

TemporaryDirectories::~TemporaryDirectories() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace qlsdk::platform::testing
