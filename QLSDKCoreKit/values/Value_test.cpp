#include "QLSDKCoreKit/values/Value.h"

#include <functional>
#include <map>
#include <random>

#include <gtest/gtest.h>
#include <pthread.h>

#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"
#include "QLSDKCoreKit/values/testing/SampleRecord.h"

namespace qlsdk {
namespace {

// A dictionary, and what it should hold: values by their keys, and the keys in order.
struct Model {
    Dictionary actual;
    std::map<std::string, std::int64_t> values;
    std::vector<std::string> order;

    void set(const std::string& key, std::int64_t value) {
        if (!values.contains(key)) order.push_back(key);
        values.insert_or_assign(key, value);
        actual.set(key, value);
    }
    void erase(const std::string& key) {
        if (values.erase(key) != 0) std::erase(order, key);
        actual.erase(key);
    }
    void check() const {
        ASSERT_EQ(actual.size(), order.size());
        ASSERT_EQ(actual.empty(), order.empty());
        std::size_t place = 0;
        for (const auto& [key, value] : actual) {
            ASSERT_EQ(key, order[place++]);
            ASSERT_EQ(value, Value(values.at(key)));
            ASSERT_EQ(actual.find(key), &value);
        }
    }
};

TEST(Dictionary, IsAMapInInsertionOrderUnderAnySteps) {
    std::mt19937 random(1);
    // Few keys stay small, many pass the size from which there is an index, some waver around it.
    for (const unsigned keys : {4U, 33U, 34U, 40U, 70U, 300U}) {
        Model model;
        Model copy;
        for (int step = 0; step < 1500; ++step) {
            const std::string key = "a key that no short text holds " + std::to_string(random() % keys);
            // Phases in which it grows, and phases in which it shrinks.
            const bool grows = random() % 4 != 0;
            const bool growing = step / 150 % 2 == 0;
            if (grows == growing) {
                model.set(key, static_cast<std::int64_t>(random()));
            } else {
                model.erase(key);
            }
            const std::string other =
                "a key that no short text holds " + std::to_string(random() % (2 * keys));
            ASSERT_EQ(model.actual.contains(other), model.values.contains(other));
            ASSERT_NO_FATAL_FAILURE(model.check());
            const bool isSame = copy.values == model.values;
            ASSERT_EQ(copy.actual == model.actual, isSame);
            if (step % 97 == 0) copy = model;
            if (step % 331 == 0) {
                Model moved = std::move(model);
                model = std::move(moved);
            }
            ASSERT_NO_FATAL_FAILURE(copy.check());
        }
    }
}

using Nest = Value (*)(Value);
constexpr Nest kInArray = [](Value inner) -> Value { return Array{std::move(inner)}; };
constexpr Nest kInDictionary = [](Value inner) -> Value { return Dictionary{{"k", std::move(inner)}}; };

Value nested(Nest nest, int levels, Value value = 1) {
    for (int level = 0; level < levels; ++level) value = nest(std::move(value));
    return value;
}

// The frames of the sanitizers are several times larger, and so are the stacks of our threads with them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStackFactor = 8;
#else
constexpr std::size_t kStackFactor = 1;
#endif
constexpr std::size_t kHttpStackBytes = kStackFactor * (std::size_t{512} << 10);
constexpr std::size_t kPoolStackBytes = kStackFactor * (std::size_t{1} << 20);

void onStackOf(std::size_t bytes, const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    pthread_t thread;
    const auto enter = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, enter, const_cast<std::function<void()>*>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(Value, OfAnyDepthIsCopiedComparedDescribedRefusedAndDestroyedOnASmallStack) {
    for (const Nest nest : {kInArray, kInDictionary}) {
        onStackOf(kHttpStackBytes, [nest] {
            Value deep = nested(nest, 100'000);
            const Value twin = nested(nest, 100'000);
            const Value other = nested(nest, 100'000, 2);
            EXPECT_TRUE(deep == twin);
            EXPECT_FALSE(deep == other);
            EXPECT_GT(describe(deep).size(), 65536U);
            EXPECT_FALSE(platform::serializeJson(deep));
            EXPECT_FALSE(platform::serializePropertyList(deep));
            EXPECT_TRUE(archiveRootObject(deep, platform::RootClass::dictionary).empty());
            // Half of it has another owner, and goes with that one.
            Value half = deep;
            for (int level = 0; level < 50'000; ++level) {
                half = half.array() != nullptr ? half.array()->front() : half["k"];
            }
            deep = nullptr;
            EXPECT_TRUE(half == nested(nest, 50'000));
        });
    }
}

TEST(Value, OfTheDeepestNestingThatIsReadPassesEveryCodecOnASmallStack) {
    for (const Nest nest : {kInArray, kInDictionary}) {
        onStackOf(kHttpStackBytes, [nest] {
            using namespace platform;
            const Value deepest = nested(nest, 512);
            const auto text = serializeJson(deepest);
            ASSERT_TRUE(text);
            EXPECT_EQ(parseJson(bytesOf(*text)), deepest);
            const auto list = serializePropertyList(deepest);
            ASSERT_TRUE(list);
            EXPECT_EQ(parsePropertyList(*list), deepest);
            const Data archive = archiveRootObject(deepest, RootClass::dictionary);
            const auto object = unarchiveRootObject(archive, {});
            ASSERT_TRUE(object);
            EXPECT_EQ(object->value(), deepest);
        });
    }
}

// Archives are written and read on the queues' threads.
TEST(Value, RecordsOfTheDeepestNestingThatIsReadFitTheStackOfAQueue) {
    onStackOf(kPoolStackBytes, [] {
        using namespace platform;
        ArchivedObject chain = Value(1);
        for (int level = 0; level < 512; level += 2) {
            auto record = std::make_shared<testing::SampleRecord>();
            record->child = ArchivedObject::List{std::move(chain)};
            chain = std::shared_ptr<Archivable>(std::move(record));
        }
        const Data archive = archiveRootObject(chain, RootClass::dictionary);
        EXPECT_FALSE(archive.empty());
        EXPECT_TRUE(unarchiveRootObject(archive, testing::sampleClasses()));
    });
}

}  // namespace
}  // namespace qlsdk
