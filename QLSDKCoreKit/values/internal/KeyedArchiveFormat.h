#pragma once

#include <cstdint>
#include <string_view>

#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"

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

/// What decoding costs in bytes of memory, or in work that counts as such. The reader spends it from its
/// `DecodingBudget`; the writer adds it up for the reader to come, so that it writes nothing that cannot be
/// read.
namespace cost {

/// The place of an object among "$objects", and what the writer adds for the rounding of its reading.
inline constexpr std::uint64_t kNumber = 40;
inline constexpr std::uint64_t kRounding = 8;
/// An element of a list, in all the lists that it passes through on its way to the one who has asked.
inline constexpr std::uint64_t kElement = 192;
/// A record: two of them, with a message's first kilobyte, are an event that waits.
inline constexpr std::uint64_t kRecord = 640;
/// A byte of the dictionary of an object, which is searched for each field.
inline constexpr std::uint64_t kSearchedByte = 16;
/// A text or data beside its bytes.
inline constexpr std::uint64_t kContent = 128;

}  // namespace cost

}  // namespace qlsdk::platform::keyed
