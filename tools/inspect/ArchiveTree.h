#pragma once

#include "tools/inspect/Outline.h"

#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace quillkit {

/// Adds a plain value: one line, or for a container its elements below each other. `label` stands before it.
void addValue(Outline& outline, const std::string& label, const qlsdk::Value& value);

/// Adds any node of an archive; queued records with their decoded message.
void addObject(Outline& outline, const std::string& label, const qlsdk::platform::ArchivedObject& object);

}  // namespace quillkit
