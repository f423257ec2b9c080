#include "tools/page/RequestRing.h"

#include <algorithm>

#include "tools/page/RequestSummary.h"

namespace quillkit {

namespace {

std::size_t weightOf(const RecordedRequest& recorded) {
    std::size_t weight = sizeof recorded + recorded.summary.size() + recorded.request.body.size() +
                         recorded.request.path.size() + recorded.request.method.size();
    for (const auto& [name, value] : recorded.request.headers) weight += name.size() + value.size();
    return weight;
}

}  // namespace

void RequestRing::add(const ServedRequest& request) {
    auto recorded = std::make_shared<RecordedRequest>();
    recorded->request = request;
    recorded->summary = summaryOf(request);
    const std::lock_guard lock(mutex_);
    recorded->id = ++lastId_;
    bytes_ += weightOf(*recorded);
    requests_.push_back(std::move(recorded));
    while (requests_.size() > kCapacity || (bytes_ > kByteCeiling && requests_.size() > 1)) {
        bytes_ -= weightOf(*requests_.front());
        requests_.pop_front();
    }
}

void RequestRing::clear() {
    const std::lock_guard lock(mutex_);
    requests_.clear();
    bytes_ = 0;
    clearedUpTo_ = lastId_;
}

std::vector<std::shared_ptr<const RecordedRequest>> RequestRing::after(std::uint64_t id, std::size_t most) {
    const std::lock_guard lock(mutex_);
    const auto first = std::find_if(requests_.begin(), requests_.end(),
                                    [id](const auto& recorded) { return recorded->id > id; });
    const auto count = std::min(most, static_cast<std::size_t>(requests_.end() - first));
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

std::shared_ptr<const RecordedRequest> RequestRing::find(std::uint64_t id) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(requests_.begin(), requests_.end(),
                                    [id](const auto& recorded) { return recorded->id == id; });
    return found == requests_.end() ? nullptr : *found;
}

std::uint64_t RequestRing::lastId() {
    const std::lock_guard lock(mutex_);
    return lastId_;
}

std::uint64_t RequestRing::clearedUpTo() {
    const std::lock_guard lock(mutex_);
    return clearedUpTo_;
}

}  // namespace quillkit
