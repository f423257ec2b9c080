#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/collector/RequestLog.h"

namespace quillkit {

/// A request that the page can show.
struct RecordedRequest {
    /// 1 for the first, then one more for each.
    std::uint64_t id = 0;
    ServedRequest request;
    /// See RequestSummary.h.
    std::string summary;
};

/// The requests that came last, bounded in number and in memory; the oldest make room. Any thread.
class RequestRing {
  public:
    static constexpr std::size_t kCapacity = 2000;
    /// Of what the requests hold. One that is larger by itself is kept all the same, alone.
    static constexpr std::size_t kByteCeiling = std::size_t{32} << 20;

    void add(const ServedRequest& request);
    /// Forgets all; ids go on.
    void clear();

    /// At most `most` requests with ids above `id`, in their order.
    [[nodiscard]] std::vector<std::shared_ptr<const RecordedRequest>> after(std::uint64_t id,
                                                                            std::size_t most);
    /// Null when it is not there any more, or never was.
    [[nodiscard]] std::shared_ptr<const RecordedRequest> find(std::uint64_t id);
    /// The last id that was given; 0 for none.
    [[nodiscard]] std::uint64_t lastId();
    /// The last id that `clear` forgot; 0 for none.
    [[nodiscard]] std::uint64_t clearedUpTo();

  private:
    std::mutex mutex_;
    std::deque<std::shared_ptr<const RecordedRequest>> requests_;
    std::size_t bytes_ = 0;
    std::uint64_t lastId_ = 0;
    std::uint64_t clearedUpTo_ = 0;
};

}  // namespace quillkit
