#include "QLSDKCoreKit/picoproto/picoproto.h"

#include <bit>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <google/protobuf/unknown_field_set.h>
#include <malloc.h>

#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"

namespace qlsdk {
namespace {

using google::protobuf::UnknownFieldSet;

std::string bytesOfMessage(const MessageContext& message) {
    return textOf(encodedBytes(*message));
}

/// A message of `length` bytes: one string field that is filled up.
MessageContext filledTo(std::uint64_t length) {
    const std::vector<std::uint8_t> bytes(length, 'x');
    return MessageContext(picoproto_new_from_bytes("Filled", bytes.data(), bytes.size()));
}

TEST(Picoproto, WritesEveryFieldKindAsProtobufDoes) {
    UnknownFieldSet judge;
    MessageContext message(picoproto_new("All"));
    MessageContext child(picoproto_new(nullptr));
    picoproto_write_varint_field(child.get(), 6, 3);
    for (const std::uint64_t field : {1ULL, 15ULL, 16ULL, 100ULL, (1ULL << 29) - 1}) {
        const auto number = static_cast<int>(field);
        for (const std::uint64_t value :
             {0ULL, 1ULL, 127ULL, 128ULL, 300ULL, 1ULL << 35, ~0ULL, static_cast<unsigned long long>(-1LL)}) {
            picoproto_write_varint_field(message.get(), field, value);
            judge.AddVarint(number, value);
        }
        picoproto_write_fixed32_field(message.get(), field, 0x01020304);
        judge.AddFixed32(number, 0x01020304);
        for (const double real : {0.0, -1.5, 3.25e300, std::numeric_limits<double>::infinity()}) {
            picoproto_write_double_field(message.get(), field, real);
            judge.AddFixed64(number, std::bit_cast<std::uint64_t>(real));
        }
        picoproto_write_string_field(message.get(), field, "na\xC3\xAFve");
        *judge.AddLengthDelimited(number) = "na\xC3\xAFve";
        picoproto_write_embedded_message_field(message.get(), field, child.get(), 0);
        *judge.AddLengthDelimited(number) = std::string("\x30\x03", 2);
    }
    std::string expected;
    ASSERT_TRUE(judge.SerializeToString(&expected));
    EXPECT_EQ(bytesOfMessage(message), expected);
}

TEST(Picoproto, StopsATextAtItsNulAndTakesNullForEmpty) {
    MessageContext message(picoproto_new("M"));
    EXPECT_EQ(picoproto_write_string_field(message.get(), 1, "ab\0cd"), 0);
    EXPECT_EQ(picoproto_write_string_field(message.get(), 1, ""), 0);
    EXPECT_EQ(picoproto_write_string_field(message.get(), 1, nullptr), 0);
    EXPECT_EQ(bytesOfMessage(message), std::string("\x0A\x02"
                                                   "ab\x0A\x00\x0A\x00",
                                                   8));
}

TEST(Picoproto, GrowsByExactNeedPlusASpare) {
    MessageContext message(picoproto_new("M"));
    EXPECT_EQ(message->capacity, 1024u);
    EXPECT_EQ(message->length, 0u);
    const std::string body(1021, 'x');
    picoproto_write_string_field(message.get(), 1, body.c_str());
    EXPECT_EQ(message->length, 1024u);
    EXPECT_EQ(message->capacity, 1024u);
    picoproto_write_varint_field(message.get(), 1, 0);
    EXPECT_EQ(message->length, 1026u);
    EXPECT_EQ(message->capacity, 2049u) << "one byte at a time: 1024 + 1 + 1024";

    const MessageContext exact = filledTo(1024);
    EXPECT_EQ(exact->capacity, 1024u);
    const MessageContext over = filledTo(1025);
    EXPECT_EQ(over->capacity, 2049u);
    const MessageContext nearCeiling = filledTo(131000);
    EXPECT_EQ(nearCeiling->capacity, 131072u);
}

TEST(Picoproto, HoldsExactlyTheCeilingAndNotOneByteMore) {
    EXPECT_EQ(filledTo(131072)->length, 131072u);
    const MessageContext tooLong = filledTo(131073);
    EXPECT_EQ(tooLong->length, 0u);
    EXPECT_EQ(tooLong->capacity, 131072u) << "the buffer has grown before the refusal";

    MessageContext message = filledTo(131072 - 5);
    EXPECT_EQ(picoproto_write_string_field(message.get(), 1, "abc"), 0);
    EXPECT_EQ(message->length, 131072u);
    EXPECT_EQ(picoproto_write_varint_field(message.get(), 1, 1), 40);
    EXPECT_EQ(message->length, 131072u);
}

TEST(Picoproto, KeepsThePartOfAFieldThatStillFits) {
    struct Case {
        const char* what;
        std::uint64_t room;
        std::int32_t (*write)(picoproto_ctx_s*);
        std::int32_t status;
        std::uint64_t written;
    };
    const Case cases[] = {
        {"varint cut after one byte", 2, [](auto* m) { return picoproto_write_varint_field(m, 1, 300); }, 40,
         2},
        {"key cut", 1, [](auto* m) { return picoproto_write_varint_field(m, 100, 1); }, 40, 1},
        {"no room for the key", 0, [](auto* m) { return picoproto_write_string_field(m, 1, "a"); }, 40, 0},
        {"text refused whole", 4, [](auto* m) { return picoproto_write_string_field(m, 1, "abc"); }, 40, 2},
        {"fixed32 body refused in silence", 4, [](auto* m) { return picoproto_write_fixed32_field(m, 1, 7); },
         0, 1},
        {"fixed64 body refused in silence", 8, [](auto* m) { return picoproto_write_fixed64_field(m, 1, 7); },
         0, 1},
        {"fixed32 key refused", 0, [](auto* m) { return picoproto_write_fixed32_field(m, 1, 7); }, 40, 0},
        {"double key refused", 0, [](auto* m) { return picoproto_write_double_field(m, 1, 7); }, 40, 0},
    };
    for (const Case& c : cases) {
        MessageContext message = filledTo(131072 - c.room);
        EXPECT_EQ(c.write(message.get()), c.status) << c.what;
        EXPECT_EQ(message->length, 131072 - c.room + c.written) << c.what;
    }
}

TEST(Picoproto, EmbeddingIgnoresTheStatusOfTheLength) {
    // One byte of room behind the key: the first byte of a two-byte length still fits, the second does not,
    // and the empty rest of the child is not what is refused.
    MessageContext message = filledTo(131072 - 2);
    picoproto_ctx_s* child = picoproto_new_from_bytes(nullptr, std::vector<std::uint8_t>(200).data(), 200);
    EXPECT_EQ(picoproto_write_embedded_message_field(message.get(), 1, child, 1), 40);
    EXPECT_EQ(message->length, 131072u);

    MessageContext full = filledTo(131072 - 1);
    picoproto_ctx_s* empty = picoproto_new(nullptr);
    EXPECT_EQ(picoproto_write_embedded_message_field(full.get(), 1, empty, 1), 0)
        << "the length was refused, the child's no bytes were not";
    EXPECT_EQ(full->length, 131072u);
}

TEST(Picoproto, RepeatedFieldsStopAtTheFirstRefusalAndFreeEveryChild) {
    // Leaks and double frees show under the address sanitizer.
    MessageContext message = filledTo(131072 - 3);
    picoproto_ctx_s* children[] = {picoproto_new("a"), picoproto_new("b"), picoproto_new("c")};
    EXPECT_EQ(picoproto_write_repeated_embedded_message_field(message.get(), 1, children, 3, 1), 40);
    EXPECT_EQ(message->length, 131072u);

    MessageContext kept(picoproto_new("M"));
    MessageContext child(picoproto_new("a"));
    picoproto_ctx_s* same[] = {child.get(), child.get()};
    EXPECT_EQ(picoproto_write_repeated_embedded_message_field(kept.get(), 1, same, 2, 0), 0);
    EXPECT_EQ(picoproto_write_repeated_embedded_message_field(kept.get(), 1, same, 0, 1), 0);
    const char* const texts[] = {"x", "y"};
    EXPECT_EQ(picoproto_write_repeated_string_field(kept.get(), 2, texts, 2), 0);
    EXPECT_EQ(picoproto_write_repeated_string_field(kept.get(), 2, texts, 0), 0);
    EXPECT_EQ(bytesOfMessage(kept), std::string("\x0A\x00\x0A\x00\x12\x01x\x12\x01y", 10));
}

TEST(Picoproto, NullArgumentsHaveTheirStatedOutcome) {
    picoproto_free(nullptr);
    const char* const texts[] = {"a", nullptr};
    EXPECT_EQ(picoproto_write_varint_field(nullptr, 1, 1), 40);
    EXPECT_EQ(picoproto_write_fixed32_field(nullptr, 1, 1), 40);
    EXPECT_EQ(picoproto_write_fixed64_field(nullptr, 1, 1), 40);
    EXPECT_EQ(picoproto_write_double_field(nullptr, 1, 1), 40);
    EXPECT_EQ(picoproto_write_string_field(nullptr, 1, "a"), 40);
    EXPECT_EQ(picoproto_write_repeated_string_field(nullptr, 1, texts, 2), 40);
    EXPECT_EQ(picoproto_write_repeated_string_field(nullptr, 1, nullptr, 2), 0);
    EXPECT_EQ(picoproto_write_embedded_message_field(nullptr, 1, picoproto_new("freed"), 1), 40);
    EXPECT_EQ(picoproto_write_embedded_message_field(nullptr, 1, nullptr, 1), 40);
    picoproto_ctx_s* const freed[] = {picoproto_new("a"), nullptr, picoproto_new("b")};
    EXPECT_EQ(picoproto_write_repeated_embedded_message_field(nullptr, 1, freed, 3, 1), 40);
    MessageContext message(picoproto_new_from_bytes(nullptr, nullptr, 7));
    EXPECT_EQ(message->name, nullptr);
    EXPECT_EQ(picoproto_write_repeated_string_field(message.get(), 1, nullptr, 3), 0);
    EXPECT_EQ(picoproto_write_repeated_embedded_message_field(message.get(), 1, nullptr, 3, 1), 0);
    EXPECT_EQ(message->length, 0u);
    EXPECT_EQ(picoproto_write_repeated_string_field(message.get(), 1, texts, 2), 0);
    EXPECT_EQ(picoproto_write_embedded_message_field(message.get(), 1, nullptr, 1), 0);
    EXPECT_EQ(bytesOfMessage(message), std::string("\x0A\x01"
                                                   "a\x0A\x00\x0A\x00",
                                                   7));
}

TEST(Picoproto, ANullChildAnywhereIsAnEmptyMessage) {
    constexpr std::uint64_t kCount = 21;
    const std::size_t before = ::mallinfo2().uordblks;
    for (std::uint64_t absent = 0; absent <= kCount; ++absent) {
        for (const bool freeing : {false, true}) {
            std::vector<MessageContext> owned;
            std::vector<picoproto_ctx_s*> children;
            std::string expected;
            for (std::uint64_t i = 0; i < kCount; ++i) {
                // The last round has none at all.
                const bool present = i != absent && absent < kCount;
                owned.push_back(present ? filledTo(i) : nullptr);
                children.push_back(owned.back().get());
                expected += std::string("\x0A") + static_cast<char>(present ? i : 0);
                expected += std::string(present ? i : 0, 'x');
                if (freeing) (void)owned.back().release();
            }
            const MessageContext message(picoproto_new("M"));
            EXPECT_EQ(picoproto_write_repeated_embedded_message_field(message.get(), 1, children.data(),
                                                                      kCount, freeing ? 1 : 0),
                      0);
            EXPECT_EQ(bytesOfMessage(message), expected) << absent;
        }
    }
    EXPECT_LT(::mallinfo2().uordblks, before + 200'000) << "each is freed that shall be";
}

using testing::FailingAllocations;

/// `size` bytes at `place` lie in the allocator's block at `block`, or begin a block of their own.
void expectAllocated(void* block, void* place, std::uint64_t size) {
    const auto distance = static_cast<std::uint64_t>(static_cast<char*>(place) - static_cast<char*>(block));
    const std::uint64_t blockSize = ::malloc_usable_size(block);
    EXPECT_LE(size, distance < blockSize ? blockSize - distance : ::malloc_usable_size(place));
}

void expectAllocated(const MessageContext& message) {
    expectAllocated(message.get(), message->buffer, message->capacity);
    if (message->name != nullptr) {
        expectAllocated(message.get(), message->name, std::strlen(message->name) + 1);
    }
}

struct Write {
    const char* what;
    std::int32_t (*into)(picoproto_ctx_s*);
};

const std::string kText(300, 't');
constexpr Write kWrites[] = {
    {"varint", [](auto* m) { return picoproto_write_varint_field(m, 1, 1ULL << 60); }},
    {"fixed32", [](auto* m) { return picoproto_write_fixed32_field(m, 1, 7); }},
    {"fixed64", [](auto* m) { return picoproto_write_fixed64_field(m, 1, 7); }},
    {"double", [](auto* m) { return picoproto_write_double_field(m, 300, 7); }},
    {"text", [](auto* m) { return picoproto_write_string_field(m, 1, kText.c_str()); }},
    {"texts",
     [](auto* m) {
         const char* const texts[] = {"one", "two", "three"};
         return picoproto_write_repeated_string_field(m, 1, texts, std::size(texts));
     }},
    {"child",
     [](auto* m) {
         static const MessageContext child = filledTo(200);
         return picoproto_write_embedded_message_field(m, 1, child.get(), 0);
     }},
    {"children",
     [](auto* m) {
         static const MessageContext child = filledTo(20);
         static const std::vector<picoproto_ctx_s*> children(12, child.get());
         return picoproto_write_repeated_embedded_message_field(m, 1, children.data(), children.size(), 0);
     }},
};

TEST(Picoproto, ARefusalForWantOfMemoryLeavesTheBytesAndSaysSo) {
    for (const Write& write : kWrites) {
        const MessageContext whole(picoproto_new(nullptr));
        ASSERT_EQ(write.into(whole.get()), 0);
        const std::string field = bytesOfMessage(whole);
        for (std::uint64_t length = 1024 - field.size(); length <= 1024; ++length) {
            MessageContext message = filledTo(length);
            const std::string before = bytesOfMessage(message);
            std::int32_t status = 0;
            {
                const FailingAllocations failing;
                status = write.into(message.get());
            }
            const std::string after = bytesOfMessage(message);
            EXPECT_EQ(status == 0, after == before + field) << write.what << " after " << length;
            EXPECT_EQ(status == 0, isComplete(message));
            EXPECT_TRUE((before + field).starts_with(after)) << write.what << " after " << length;
            EXPECT_EQ(message->capacity, 1024u);
            // The memory is back.
            EXPECT_EQ(write.into(message.get()), 0);
            EXPECT_EQ(bytesOfMessage(message), after + field);
            EXPECT_EQ(isComplete(message), status == 0);
            expectAllocated(message);
        }
    }
}

TEST(Picoproto, AContextThatCannotBeMadeIsNullAndNothingLeaks) {
    const std::vector<std::uint8_t> bytes(5000, 'x');
    const std::string longName(96, 'n');
    for (int succeeding = 0; succeeding < 3; ++succeeding) {
        for (const char* name : {"short", longName.c_str()}) {
            // More than all threads together keep of freed ones, so that the next must be allocated.
            std::vector<MessageContext> kept(100);
            for (MessageContext& message : kept) message.reset(picoproto_new(nullptr));
            FailingAllocations failing(FailingAllocations::Which::all, succeeding);
            const MessageContext empty(picoproto_new(name));
            const bool made = empty != nullptr;
            const MessageContext filled(picoproto_new_from_bytes(name, bytes.data(), bytes.size()));
            failing.stop();
            EXPECT_EQ(made, succeeding > (name == longName ? 1 : 0));
            EXPECT_EQ(filled, nullptr) << succeeding;

            FailingAllocations compacting(FailingAllocations::Which::all, succeeding);
            const MessageContext message = compacted(std::move(kept.front()));
            compacting.stop();
            EXPECT_EQ(message->capacity, succeeding > 0 ? 48u : 1024u);
        }
    }
    // The block of a message whose name finds no memory is the next one's. (Sanitizers count no bytes here.)
    std::vector<MessageContext> kept(100);
    for (MessageContext& message : kept) message.reset(picoproto_new(nullptr));
    const std::size_t before = ::mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) {
        const FailingAllocations failing(FailingAllocations::Which::all, 1);
        const MessageContext message(picoproto_new(longName.c_str()));
    }
    EXPECT_LT(::mallinfo2().uordblks, before + 10'000);
}

#if defined(__SANITIZE_ADDRESS__)
TEST(PicoprotoDeathTest, TheSanitizerSeesWhatHappensToAFreedContext) {
    picoproto_ctx_s* freed = picoproto_new("freed");
    picoproto_free(freed);
    EXPECT_DEATH((void)picoproto_write_varint_field(freed, 1, 1), "heap-use-after-free");
    EXPECT_DEATH(picoproto_free(freed), "heap-use-after-free|double-free");
}
#endif

/// The writer as it is described, one append at a time and nothing clever.
struct PlainWriter {
    std::string bytes;
    std::uint64_t capacity;

    bool append(std::string_view more) {
        const std::uint64_t needed = bytes.size() + more.size();
        if (needed > capacity) capacity = std::min<std::uint64_t>(needed + 1024, PICOPROTO_MAX_LENGTH);
        if (needed > PICOPROTO_MAX_LENGTH) return false;
        bytes += more;
        return true;
    }
    bool varint(std::uint64_t value) {
        for (; value >= 0x80; value >>= 7) {
            if (!append(std::string(1, static_cast<char>((value & 0x7F) | 0x80)))) return false;
        }
        return append(std::string(1, static_cast<char>(value)));
    }
    bool text(std::uint64_t field, std::string_view value) {
        return varint(field * 8 + 2) && varint(value.size()) && append(value);
    }
    bool child(std::uint64_t field, std::string_view value) {
        if (!varint(field * 8 + 2)) return false;
        (void)varint(value.size());
        return append(value);
    }
};

TEST(Picoproto, GrowsAndFillsAsIfByPlainAppends) {
    std::mt19937_64 random(20);
    const auto below = [&random](std::uint64_t limit) { return random() % limit; };
    const std::uint64_t fields[] = {1, 15, 16, 5000, UINT64_MAX / 8};
    for (int round = 0; round < 200; ++round) {
        MessageContext message = round % 2 == 0 ? MessageContext(picoproto_new("M")) : filledTo(below(1000));
        if (round % 4 == 1) message = compacted(std::move(message));
        PlainWriter plain{bytesOfMessage(message), message->capacity};
        for (int step = 0; step < 60; ++step) {
            const std::uint64_t field = fields[below(std::size(fields))];
            const std::size_t size = below(10) == 0 ? below(9000) : below(60);
            bool fits = true;
            std::int32_t status = 0;
            if (below(3) == 0) {
                const std::string value(size, 'a');
                fits = plain.text(field, value);
                status = picoproto_write_string_field(message.get(), field, value.c_str());
            } else {
                std::vector<MessageContext> owned;
                std::vector<picoproto_ctx_s*> children;
                for (std::uint64_t count = below(70); count > 0; --count) {
                    MessageContext child = filledTo(below(8) == 0 ? size : below(50));
                    owned.push_back(below(2) == 0 ? compacted(std::move(child)) : std::move(child));
                    children.push_back(owned.back().get());
                    fits = fits && plain.child(field, bytesOfMessage(owned.back()));
                }
                status = picoproto_write_repeated_embedded_message_field(message.get(), field,
                                                                         children.data(), children.size(), 0);
            }
            ASSERT_EQ(status, fits ? 0 : PICOPROTO_MESSAGE_TOO_LONG);
            ASSERT_EQ(message->capacity, plain.capacity);
            ASSERT_TRUE(bytesOfMessage(message) == plain.bytes);
        }
    }
}

TEST(Picoproto, CompactedMessageKeepsItsBytesMayGrowAndLeavesNoSmallBlockBehind) {
    const std::size_t nameLengths[] = {0, 1, 31, 32, 33, 96};
    for (const std::uint64_t length : {0, 1, 47, 48, 49, 1023, 1024, 1025, 5000}) {
        for (const std::size_t firstName : nameLengths) {
            for (const std::size_t nextName : nameLengths) {
                const std::string bytes(length, 'x');
                const std::string name(firstName, 'n');
                MessageContext message(picoproto_new_from_bytes(
                    name.c_str(), reinterpret_cast<const std::uint8_t*>(bytes.data()), length));
                message = compacted(std::move(message));
                ASSERT_EQ(message->name, name);
                ASSERT_EQ(bytesOfMessage(message), bytes);
                ASSERT_EQ(message->capacity,
                          length > 1024 ? length + 1024 : std::max<std::uint64_t>(length, 48));
                expectAllocated(message);
                if (nextName == 1) {
                    EXPECT_EQ(picoproto_write_string_field(message.get(), 2, std::string(2000, 'y').c_str()),
                              0);
                    EXPECT_EQ(message->length, length + 2003);
                }
                // Whatever is kept of it must hold any message.
                message.reset();
                const MessageContext next(picoproto_new(std::string(nextName, 'm').c_str()));
                EXPECT_EQ(next->capacity, 1024u);
                expectAllocated(next);
            }
        }
    }
    EXPECT_EQ(compacted(nullptr), nullptr);
    MessageContext grown = filledTo(5000);
    const picoproto_ctx_s* before = grown.get();
    EXPECT_EQ(compacted(std::move(grown)).get(), before);
}

TEST(Picoproto, ContextsMayMoveBetweenThreads) {
    const std::string longName(100, 'n');
    std::vector<MessageContext> made(64);
    std::thread maker([&] {
        for (MessageContext& message : made) {
            message.reset(picoproto_new(longName.c_str()));
            picoproto_write_varint_field(message.get(), 1, 300);
        }
    });
    maker.join();
    for (MessageContext& message : made) {
        EXPECT_EQ(message->name, longName);
        EXPECT_EQ(message->length, 3u);
        message.reset();
    }
    const MessageContext reused(picoproto_new("fresh"));
    EXPECT_EQ(reused->length, 0u);
    EXPECT_STREQ(reused->name, "fresh");
}

}  // namespace
}  // namespace qlsdk
