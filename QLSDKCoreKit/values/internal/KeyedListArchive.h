#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace qlsdk::platform {

/// A list that grows at its front, and the keyed archive of a dictionary with two entries, the list and a
/// number, kept as finished bytes: an element is encoded once, for the first file that holds it, and the file
/// is then there in a few pieces, whatever the length of the list.
///
/// Elements are numbered in the order in which they were added, the oldest first; otherwise the file is what
/// `archiveRootObject` makes of the same dictionary. An element keeps the bytes of the moment it was encoded.
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
    void clear() noexcept;
    /// Another list, given oldest first, all of which is encoded anew.
    void assign(std::vector<ArchivedObject> elements) noexcept;
    /// The list, oldest first; valid until the next change.
    [[nodiscard]] std::span<const ArchivedObject> elements() const noexcept;

    /// The file, in order; valid until the next call. Empty when it nests over 512 levels, or when reading it
    /// would take more than `unarchiveRootObject` allows. Throws only when memory runs out.
    [[nodiscard]] std::span<const DataView> file(std::uint64_t number);

  private:
    struct State;
    struct Encoding;
    const std::unique_ptr<State> state_;
};

}  // namespace qlsdk::platform
