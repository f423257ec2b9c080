#pragma once

#include <string>

#include "QLSDKCoreKit/values/Data.h"

/// One function for each decoder that reads files, answers or tokens of others. Each takes any bytes at all,
/// and aborts when what it read cannot be written and read again as it was.
namespace qlsdk::fuzz {

void keyedArchive(DataView bytes);
void propertyList(DataView bytes);
void json(DataView bytes);
/// Judges the bytes as a token, and a token that is sealed around them.
void token(DataView bytes);

/// Whether `keyedArchive` gets past the reading.
[[nodiscard]] bool isArchive(DataView bytes);
/// Whether `token` opens the one or the other.
[[nodiscard]] bool isToken(DataView bytes);
/// A token around padded text, under the key of `token`. Empty for a text that no token can hold.
[[nodiscard]] std::string sealedToken(DataView padded);

}  // namespace qlsdk::fuzz
