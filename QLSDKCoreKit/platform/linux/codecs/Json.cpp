#include "QLSDKCoreKit/platform/Json.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/platform/linux/codecs/NumberLocale.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

namespace {

// Builds the value from the parser's events. The parser keeps its own stack on the heap, so nesting is
// limited here alone; an event that returns false ends the parse.
class ValueBuilder final : public nlohmann::json_sax<nlohmann::json> {
  public:
    explicit ValueBuilder(std::size_t depth) : maximumDepth_(depth) {}

    [[nodiscard]] Value takeRoot() { return std::move(root_); }

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override { return add(value); }
    bool number_float(number_float_t value, const string_t&) override { return add(value); }
    bool string(string_t& value) override { return add(std::move(value)); }
    bool binary(binary_t&) override { return false; }
    bool key(string_t& value) override {
        open_.back().key = std::move(value);
        return true;
    }
    bool start_object(std::size_t) override { return open(); }
    bool start_array(std::size_t) override { return open(); }
    bool end_object() override { return close(std::move(open_.back().dictionary)); }
    bool end_array() override { return close(std::move(open_.back().array)); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

  private:
    struct Container {
        std::optional<std::string> key;
        Array array;
        Dictionary dictionary;
    };

    bool open() {
        if (open_.size() >= maximumDepth_) return false;
        open_.emplace_back();
        return true;
    }

    template <typename Content>
    bool close(Content content) {
        open_.pop_back();
        return add(std::move(content));
    }

    bool add(Value value) {
        if (open_.empty()) {
            root_ = std::move(value);
        } else if (Container& parent = open_.back(); parent.key) {
            parent.dictionary.set(*parent.key, std::move(value));
        } else {
            parent.array.push_back(std::move(value));
        }
        return true;
    }

    const std::size_t maximumDepth_;
    std::vector<Container> open_;
    Value root_;
};

}  // namespace

std::optional<Value> parseJson(DataView text, JsonLimits limits) noexcept try {
    if (text.size() > limits.bytes) return std::nullopt;
    // The parser takes a NUL for the end of the text and would not look at what follows.
    if (std::find(text.begin(), text.end(), 0) != text.end()) return std::nullopt;
    const NumberLocale locale;
    ValueBuilder builder(limits.depth);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) return std::nullopt;
    return builder.takeRoot();
} catch (...) {
    // Out of memory: the text is as good as absent.
    return std::nullopt;
}

}  // namespace qlsdk::platform
