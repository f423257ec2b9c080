#pragma once

#include <cstddef>

#include <nlohmann/json_fwd.hpp>

#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace quillkit {

/// Turns the library's values into JSON, all in one bound: a small file may describe an endless tree.
class JsonText {
  public:
    static constexpr std::size_t kCeiling = 100'000;

    /// Data is {"data": HEX}, a date {"date": SECONDS_SINCE_1970}. Throws `Failure` past the ceiling.
    [[nodiscard]] nlohmann::ordered_json of(const qlsdk::Value& value);
    /// A queued record is {"sequenceId", "retries", "notBeforeMillis", "event"}, an event {"message",
    /// "bytes", "fields"}, a configuration entity {"entity", "config"}; text of a message that the schema
    /// does not know stands in "rawFields". Throws `Failure` past the ceiling.
    [[nodiscard]] nlohmann::ordered_json of(const qlsdk::platform::ArchivedObject& object);

  private:
    void count();
    [[nodiscard]] nlohmann::ordered_json ofArchivable(const qlsdk::platform::ArchivedObject& object);

    std::size_t count_ = 0;
};

/// Prints it on one line. Text that is not UTF-8 gets replacement characters.
void printJson(const nlohmann::ordered_json& json);

}  // namespace quillkit
