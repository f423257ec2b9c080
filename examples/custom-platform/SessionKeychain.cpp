#include "SessionKeychain.h"

#include <algorithm>
#include <utility>

using namespace qlsdk;
using namespace qlsdk::platform;

namespace {

// What makes an item the same item. The accessibility only narrows queries down.
constexpr std::string_view kIdentity[] = {kSecClass, kSecAttrService, kSecAttrAccount, kSecAttrGeneric,
                                          kSecAttrSynchronizable};

bool agree(const Dictionary& item, const Dictionary& query, std::string_view attribute) {
    const Value* wanted = query.find(attribute);
    const Value* stored = item.find(attribute);
    return wanted == nullptr || (stored != nullptr && *stored == *wanted);
}

bool sameIdentity(const Dictionary& item, const Dictionary& query) {
    return std::ranges::all_of(kIdentity, [&](auto attribute) { return agree(item, query, attribute); });
}

bool matches(const Dictionary& item, const Dictionary& query) {
    return sameIdentity(item, query) && agree(item, query, kSecAttrAccessible);
}

Value attributesOf(Dictionary item) {
    item.erase(kSecValueData);
    return item;
}

}  // namespace

OSStatus SessionKeychain::itemAdd(const Dictionary& attributes) {
    const auto isNamed = [&](std::string_view attribute) { return attributes.contains(attribute); };
    if (!std::ranges::all_of(kIdentity, isNamed)) return errSecParam;
    const std::lock_guard lock(mutex_);
    const auto isTheSame = [&](const Dictionary& item) { return sameIdentity(item, attributes); };
    if (std::ranges::any_of(items_, isTheSame)) return errSecDuplicateItem;
    items_.push_back(attributes);
    return errSecSuccess;
}

OSStatus SessionKeychain::itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) {
    const std::lock_guard lock(mutex_);
    OSStatus status = errSecItemNotFound;
    for (Dictionary& item : items_) {
        if (!matches(item, query)) continue;
        for (const auto& [attribute, value] : attributesToUpdate) item.set(attribute, value);
        status = errSecSuccess;
    }
    return status;
}

OSStatus SessionKeychain::itemCopyMatching(const Dictionary& query, Value* result) {
    const bool wantsAttributes = query.contains(kSecReturnAttributes);
    const std::lock_guard lock(mutex_);
    Array found;
    for (const Dictionary& item : items_) {
        if (!matches(item, query)) continue;
        found.push_back(wantsAttributes ? attributesOf(item) : Value(item)[kSecValueData]);
    }
    if (found.empty()) return errSecItemNotFound;
    if (result != nullptr) *result = wantsAttributes ? Value(std::move(found)) : found.front();
    return errSecSuccess;
}

OSStatus SessionKeychain::itemDelete(const Dictionary& query) {
    const std::lock_guard lock(mutex_);
    const auto removed = std::erase_if(items_, [&](const Dictionary& item) { return matches(item, query); });
    return removed > 0 ? errSecSuccess : errSecItemNotFound;
}
