#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace qlsdk::platform {

/// Receives the fields of one record. Valid only inside `Archivable::encodeWithCoder`. Keys must outlive the
/// process (string literals); bytes and text are borrowed until the archive is finished, so they must belong
/// to the record itself.
class QLSDK_EXPORT KeyedEncoder {
  public:
    void encodeInt64(std::int64_t number, std::string_view key);
    void encodeBool(bool boolean, std::string_view key);
    /// A data object of its own.
    void encodeBytes(DataView bytes, std::string_view key);
    /// A string object of its own; nil when absent or not valid UTF-8.
    void encodeText(std::optional<std::string_view> text, std::string_view key);
    /// Any object; nil is written as such.
    void encodeObject(const ArchivedObject& object, std::string_view key);

  private:
    friend class KeyedArchiver;
    explicit KeyedEncoder(class KeyedArchiver& archiver) noexcept : archiver_(archiver) {}
    KeyedArchiver& archiver_;
};

/// Hands out the fields of one record. Valid only inside `ArchivableClass::initWithCoder`. A missing key, nil
/// and a value of another kind read as 0, false or absent.
class QLSDK_EXPORT KeyedDecoder {
  public:
    [[nodiscard]] std::int64_t decodeInt64(std::string_view key);
    [[nodiscard]] bool decodeBool(std::string_view key);
    /// Borrowed from the archive that is being read.
    [[nodiscard]] std::optional<DataView> decodeBytes(std::string_view key);
    [[nodiscard]] std::optional<std::string> decodeText(std::string_view key);
    [[nodiscard]] ArchivedObject decodeObject(std::string_view key);

  private:
    friend class KeyedUnarchiver;
    KeyedDecoder(class KeyedUnarchiver& unarchiver, std::uint64_t record) noexcept
        : unarchiver_(unarchiver), record_(record) {}
    KeyedUnarchiver& unarchiver_;
    std::uint64_t record_;
};

}  // namespace qlsdk::platform
