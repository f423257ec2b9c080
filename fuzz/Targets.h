#pragma once

#include "QLSDKCoreKit/values/Data.h"

/// One function for each decoder that reads files or answers of others. Each takes any bytes at all, and
/// aborts when what it read cannot be written and read again as it was.
namespace qlsdk::fuzz {

void keyedArchive(DataView bytes);
void propertyList(DataView bytes);
void json(DataView bytes);

/// Whether `keyedArchive` gets past the reading.
[[nodiscard]] bool isArchive(DataView bytes);

}  // namespace qlsdk::fuzz
