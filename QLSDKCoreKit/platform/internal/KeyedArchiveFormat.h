#pragma once

#include <cstdint>
#include <string_view>

#include "QLSDKCoreKit/platform/internal/BinaryPropertyListReader.h"

/// The fixed words of a keyed archive.
namespace qlsdk::platform::keyed {

inline constexpr std::int64_t kVersion = 100000;
inline constexpr std::string_view kArchiver = "NSKeyedArchiver";
/// The first object of every archive, and what reads as nil wherever it stands inline.
inline constexpr std::string_view kNullText = "$null";

inline constexpr std::string_view kVersionKey = "$version";
inline constexpr std::string_view kArchiverKey = "$archiver";
inline constexpr std::string_view kTopKey = "$top";
inline constexpr std::string_view kRootKey = "root";
inline constexpr std::string_view kObjectsKey = "$objects";

inline constexpr std::string_view kClassKey = "$class";
inline constexpr std::string_view kClassNameKey = "$classname";
inline constexpr std::string_view kClassesKey = "$classes";

inline constexpr std::string_view kKeysListKey = "NS.keys";
inline constexpr std::string_view kObjectsListKey = "NS.objects";
inline constexpr std::string_view kStringKey = "NS.string";
inline constexpr std::string_view kDataKey = "NS.data";
inline constexpr std::string_view kTimeKey = "NS.time";

inline constexpr std::string_view kRootObject = "NSObject";
inline constexpr std::string_view kArray = "NSArray";
inline constexpr std::string_view kMutableArray = "NSMutableArray";
inline constexpr std::string_view kDictionary = "NSDictionary";
inline constexpr std::string_view kMutableDictionary = "NSMutableDictionary";
inline constexpr std::string_view kString = "NSString";
inline constexpr std::string_view kMutableString = "NSMutableString";
inline constexpr std::string_view kData = "NSData";
inline constexpr std::string_view kMutableData = "NSMutableData";
inline constexpr std::string_view kDate = "NSDate";
inline constexpr std::string_view kNull = "NSNull";

}  // namespace qlsdk::platform::keyed
