#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

#include <deque>
#include <random>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/values/testing/Python.h"
#include "QLSDKCoreKit/values/testing/SampleRecord.h"

namespace qlsdk::platform::testing {
namespace {

Data joined(std::span<const DataView> pieces) {
    Data file;
    for (const DataView piece : pieces) file.insert(file.end(), piece.begin(), piece.end());
    return file;
}

using Elements = std::deque<ArchivedObject>;

Data plainArchive(const Elements& elements, std::uint64_t number) {
    return archiveRootObject(
        ArchivedObject(ArchivedObject::Entries{
            {"list", ArchivedObject(ArchivedObject::List(elements.begin(), elements.end()))},
            {"number", Value(number)}}),
        RootClass::dictionary);
}

/// The content as text, and for each element the first one that is the same object.
std::string content(const Data& file) {
    const auto root = unarchiveRootObject(file, sampleClasses());
    if (!root) return "unreadable";
    std::string text = render(*root);
    const ArchivedObject::List list = root->entries()->front().second.list().value();
    std::vector<const Archivable*> records;
    for (const ArchivedObject& element : list) {
        records.push_back(element.record().get());
        const auto first = std::find(records.begin(), records.end(), records.back());
        text += " " + std::to_string(records.back() != nullptr ? first - records.begin() : -1);
        // A child may be an element, too.
        const auto sample = std::dynamic_pointer_cast<SampleRecord>(element.record());
        const std::shared_ptr<Archivable> child = sample != nullptr ? sample->child.record() : nullptr;
        for (const ArchivedObject& other : list) {
            if (child != nullptr && other.record() == child) text += "+";
            if (&other - list.data() > 50) break;
        }
        if (records.size() > 50) break;
    }
    return text;
}

/// Elements of every kind, with texts at the edges of what is shared, and objects that several of them share.
class Source {
  public:
    explicit Source(std::uint32_t seed) : random_(seed) {}

    std::size_t below(std::size_t bound) { return random_() % bound; }

    ArchivedObject element(const Elements& earlier) {
        switch (below(8)) {
            case 0:
                return ArchivedObject(value());
            case 1:
                // Once more, as a record that comes back for its retry.
                return earlier.empty() ? ArchivedObject() : earlier[below(earlier.size())];
            default:
                return record(earlier);
        }
    }

    ArchivedObject record(const Elements& earlier) {
        auto made = std::make_shared<SampleRecord>();
        made->number = static_cast<std::int64_t>(random_()) - (below(3) == 0 ? INT64_MAX : 0);
        made->flag = below(2) == 0;
        if (below(4) != 0) made->bytes = Data(below(2) == 0 ? below(20) : below(400), 7);
        if (below(5) != 0) made->text = text();
        if (below(3) == 0) made->child = ArchivedObject(value());
        if (below(6) == 0 && !earlier.empty()) made->child = earlier[below(earlier.size())];
        return ArchivedObject(std::shared_ptr<Archivable>(made));
    }

  private:
    std::string text() {
        static const std::string kTexts[] = {"",
                                             "Event",
                                             "$null",
                                             "NSArray",
                                             "caf\xC3\xA9",
                                             "\xF0\x9F\x98\x80",
                                             "not \xFF text",
                                             std::string("a\0b", 3),
                                             std::string(255, 'x'),
                                             std::string(256, 'x'),
                                             std::string(257, 'x'),
                                             std::string(5000, 'y').append("\xC3\xA9")};
        return kTexts[below(std::size(kTexts))];
    }
    Value value() {
        static const Value kShared(Array{1, Dictionary{{"k", Data{1, 2}}}, nullptr, "$null"});
        switch (below(7)) {
            case 0:
                return {};
            case 1:
                return Value(text());
            case 2:
                return Value(static_cast<std::int64_t>(below(70)));
            case 3:
                return Value(Data(below(17), 3));
            case 4:
                return Value(Date{978307201.5});
            case 5:
                return Value(Array{text(), Dictionary{{text(), true}}, 1.0});
            default:
                return kShared;
        }
    }

    std::mt19937 random_;
};

// Each pair of files must say the same to another program.
constexpr std::string_view kCompare = R"(
import plistlib, sys
def resolve(archive):
    objects = archive['$objects']
    def of(uid, depth=0):
        value = objects[uid.data]
        if value == '$null' and isinstance(value, str): return None
        if not isinstance(value, dict): return (type(value).__name__, value)
        fields = sorted((k, tuple(of(e) for e in v) if isinstance(v, list) else of(v) if isinstance(v, plistlib.UID) else v)
                        for k, v in value.items() if k != '$class')
        return (tuple(objects[value['$class'].data]['$classes']), tuple(fields))
    return of(archive['$top']['root'])
data, count = sys.stdin.buffer.read(), 0
files, raw = [], []
while data:
    size = int.from_bytes(data[:8], 'little')
    raw.append(data[8:8 + size])
    files.append(plistlib.loads(raw[-1]))
    data = data[8 + size:]
def checksum(data):
    sum = 0xFFFFFFFF
    for byte in data:
        sum ^= byte
        for bit in range(8): sum = sum >> 1 ^ (0x82F63B78 if sum & 1 else 0)
    return (sum ^ 0xFFFFFFFF).to_bytes(4, 'big')
assert checksum(b'123456789') == bytes.fromhex('e3069283')
for ours, plain in zip(raw[::2], raw[1::2]):
    assert ours[:13] == b'bplist00\x48C32C' and ours[13:17] == checksum(ours[17:]), count
    assert plain[8:13] != ours[8:13]
for ours, plain in zip(files[::2], files[1::2]):
    assert resolve(ours) == resolve(plain), count
    count += 1
print(count)
)";

void append(Data& all, const Data& file) {
    for (int i = 0; i < 8; ++i) all.push_back(static_cast<std::uint8_t>(file.size() >> (8 * i)));
    all.insert(all.end(), file.begin(), file.end());
}

// Pushes and clears at random, with lists that reach every width of references and offsets: after each step
// the file is the archive of the same dictionary, to our reader and to another program.
TEST(KeyedListArchive, IsTheArchiveOfItsDictionaryAtEveryStep) {
    constexpr int kSteps = 162;
    Source source(20'151);
    Elements elements;
    KeyedListArchive archive("list", "number");
    Data judged;
    int pairs = 0;
    for (int step = 0; step < kSteps; ++step) {
        std::size_t pushes = source.below(12) == 0 ? source.below(80) : 1;
        if (step == kSteps / 2) pushes = 9000;
        if (source.below(20) == 0 || elements.size() > 1000) {
            archive.clear();
            elements.clear();
        }
        for (; pushes > 0; --pushes) {
            // Elements within elements are kept few, or a record of records of records fills the memory.
            elements.push_front(source.element(elements.size() < 10 ? elements : Elements()));
            archive.pushFront(elements.front());
        }
        const std::uint64_t number = step % 7 == 0 ? UINT64_MAX : static_cast<std::uint64_t>(step);
        const Data ours = joined(archive.file(number));
        const Data plain = plainArchive(elements, number);
        ASSERT_EQ(content(ours), content(plain)) << "step " << step << ", " << elements.size() << " elements";
        if (step % 10 != 0) continue;
        append(judged, ours);
        append(judged, plain);
        ++pairs;
    }
    EXPECT_EQ(textOf(runPython(kCompare, judged)), std::to_string(pairs) + "\n");
}

// Whatever is nested, the file is there exactly if that of the same dictionary is, and then it can be read.
TEST(KeyedListArchive, HasAFileUpToTheSameDepthAsItsReader) {
    for (const Value& innermost : {Value(1), Value(), Value("$null"), Value(Date{0}), Value(Array{})}) {
        for (int levels = 505; levels <= 515; ++levels) {
            Value value = innermost;
            for (int level = 0; level < levels; ++level) value = Value(Array{value});
            KeyedListArchive archive("list", "number");
            archive.pushFront(ArchivedObject(value));
            const Data ours = joined(archive.file(1));
            EXPECT_EQ(ours.empty(), plainArchive({ArchivedObject(value)}, 1).empty()) << levels;
            EXPECT_EQ(ours.empty(), levels + 2 + (innermost.array() != nullptr ? 1 : 0) > 512) << levels;
            EXPECT_TRUE(ours.empty() || unarchiveRootObject(ours, {})) << levels;
            archive.clear();
            EXPECT_FALSE(archive.file(1).empty());
        }
    }
}

// What could not be read again has no file. Shared objects reach the limit with few bytes.
TEST(KeyedListArchive, HasNoFileThatItsReaderRefuses) {
    Source source(7);
    const ArchivedObject shared = source.record({});
    KeyedListArchive archive("list", "number");
    std::size_t length = 0;
    std::size_t refusedAt = 0;
    for (; refusedAt == 0 && length < 100'000; length += 500) {
        for (int i = 0; i < 500; ++i) archive.pushFront(shared);
        const Data file = joined(archive.file(1));
        if (file.empty()) refusedAt = length;
        EXPECT_TRUE(file.empty() || unarchiveRootObject(file, sampleClasses())) << length;
    }
    EXPECT_GT(refusedAt, 3000U);
    EXPECT_LT(refusedAt, 30'000U);
    // Records of their own have one at any number, however short they are and whatever they share.
    for (const std::string& text : {std::string(), std::string(256, 'x'), std::string(65536, 'x')}) {
        archive.clear();
        for (int i = 0; i < (text.size() > 1000 ? 100 : 20'000); ++i) {
            auto record = std::make_shared<SampleRecord>();
            record->bytes = Data();
            record->text = text;
            archive.pushFront(ArchivedObject(std::shared_ptr<Archivable>(record)));
        }
        EXPECT_TRUE(unarchiveRootObject(joined(archive.file(1)), sampleClasses())) << text.size();
    }
}

}  // namespace
}  // namespace qlsdk::platform::testing
