#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/KeyedArchive.h"

namespace qlsdk::platform {

/// The keyed archive of a dictionary with two entries, a list that grows at its front and a number, kept as
/// finished bytes: an element is encoded once, when it is added, and the file is then there in a few pieces,
/// whatever the length of the list.
///
/// Elements are numbered in the order in which they were added, the oldest first; otherwise the file is what
/// `archiveRootObject` makes of the same dictionary. An element keeps the bytes of the moment it was added.
/// Not synchronised.
class QLSDK_EXPORT KeyedListArchive {
  public:
    /// Both keys must outlive the archive.
    KeyedListArchive(std::string_view listKey, std::string_view numberKey);
    ~KeyedListArchive();
    KeyedListArchive(const KeyedListArchive&) = delete;
    KeyedListArchive& operator=(const KeyedListArchive&) = delete;

    /// Shares the element until `clear`. Throws only when memory runs out; the element is then not added.
    void pushFront(const ArchivedObject& element);
    void clear();

    /// The file, in order; valid until the next call. Empty when an element nests over 512 levels. Throws
    /// only when memory runs out.
    [[nodiscard]] std::span<const DataView> file(std::uint64_t number);

  private:
    struct State;
    struct Encoding;
    const std::unique_ptr<State> state_;
};

}  // namespace qlsdk::platform
