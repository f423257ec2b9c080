#include "QLSDKCoreKit/platform/KeyedListArchive.h"

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/internal/testsupport/Python.h"
#include "QLSDKCoreKit/platform/internal/testsupport/SampleRecord.h"

namespace qlsdk::platform::testing {
namespace {

// The list's numbers and texts as plistlib resolves them, and the root's number.
constexpr std::string_view kSummary = R"(
import plistlib, sys
archive = plistlib.loads(sys.stdin.buffer.read())
objects = archive['$objects']
at = lambda uid: objects[uid.data]
name = lambda record: at(record['$class'])['$classname']
root = at(archive['$top']['root'])
entries = {at(k): at(v) for k, v in zip(root['NS.keys'], root['NS.objects'])}
elements = [at(e) for e in entries['list']['NS.objects']]
assert name(root) == 'NSDictionary' and name(entries['list']) == 'NSArray'
assert all(name(e) == 'Sample' and e['flag'] for e in elements)
numbers = [e['number'] for e in elements]
texts = {at(e['text']) for e in elements}
assert numbers == sorted(numbers, reverse=True), numbers
print(len(numbers), numbers[0] if numbers else None, sorted(texts), entries['number'])
)";

ArchivedObject record(std::int64_t number) {
    auto made = std::make_shared<SampleRecord>();
    made->number = number;
    made->flag = true;
    made->bytes = Data(40, static_cast<std::uint8_t>(number));
    made->text = number % 2 == 0 ? "even" : "odd";
    return ArchivedObject(std::shared_ptr<Archivable>(made));
}

Data joined(std::span<const DataView> pieces) {
    Data file;
    for (const DataView piece : pieces) file.insert(file.end(), piece.begin(), piece.end());
    return file;
}

ArchivedObject dictionaryOf(ArchivedObject::List list, std::uint64_t number) {
    return ArchivedObject(
        ArchivedObject::Entries{{"list", ArchivedObject(std::move(list))}, {"number", Value(number)}});
}

TEST(KeyedListArchive, IsTheArchiveOfItsDictionaryWhereNumbersAgree) {
    KeyedListArchive archive("list", "number");
    EXPECT_EQ(unarchiveRootObject(joined(archive.file(7)), {})->entries()->size(), 2U);
    const auto sameSize = [&](const ArchivedObject::List& list) {
        return joined(archive.file(7)).size() ==
               archiveRootObject(dictionaryOf(list, 7), RootClass::dictionary).size();
    };
    EXPECT_TRUE(sameSize({}));
    archive.pushFront(record(1));
    EXPECT_TRUE(sameSize({record(1)}));
    archive.pushFront(record(2));
    EXPECT_TRUE(sameSize({record(2), record(1)}));
}

// Through every widening of references and offsets, and again after lists of every width; each file as
// another program reads it.
TEST(KeyedListArchive, GrowsAtItsFrontThroughAllWidths) {
    const std::vector<std::int64_t> rounds[] = {
        {0, 1, 2, 23, 24, 25, 26, 27, 28, 29, 30, 300, 400}, {1, 40}, {40, 300, 7300, 9000}, {2, 50}, {30}};
    KeyedListArchive archive("list", "number");
    for (const auto& lengths : rounds) {
        std::int64_t length = 0;
        for (const std::int64_t wanted : lengths) {
            while (length < wanted) archive.pushFront(record(++length));
            const std::string texts = wanted == 0 ? "[]" : wanted == 1 ? "['odd']" : "['even', 'odd']";
            EXPECT_EQ(textOf(runPython(kSummary, joined(archive.file(static_cast<std::uint64_t>(wanted))))),
                      std::to_string(wanted) + " " + (wanted == 0 ? "None" : std::to_string(wanted)) + " " +
                          texts + " " + std::to_string(wanted) + "\n");
        }
        archive.clear();
    }
}

TEST(KeyedListArchive, ComesBackAsWhatWentIn) {
    const ArchivedObject shared = record(5);
    KeyedListArchive archive("list", "number");
    for (const ArchivedObject& element : {shared, ArchivedObject(), ArchivedObject(Value("text")), shared,
                                          ArchivedObject(Value(Array{1, 2}))}) {
        archive.pushFront(element);
    }
    const auto read = unarchiveRootObject(joined(archive.file(UINT64_MAX)), sampleClasses());
    ASSERT_TRUE(read.has_value());
    const auto list = read->entries()->front().second.list();
    ASSERT_EQ(list->size(), 5U);
    EXPECT_EQ((*list)[0].value(), Value(Array{1, 2}));
    EXPECT_EQ((*list)[1].record(), (*list)[4].record());
    EXPECT_EQ((*list)[2].value(), Value("text"));
    EXPECT_TRUE((*list)[3].value().isNull());
    EXPECT_EQ(read->entries()->back().second.value().longValue(), -1);
}

TEST(KeyedListArchive, HasNoFileForWhatNestsTooDeep) {
    Value value(1);
    for (int level = 0; level < 600; ++level) value = Value(Array{value});
    KeyedListArchive archive("list", "number");
    archive.pushFront(ArchivedObject(value));
    EXPECT_TRUE(archive.file(1).empty());
    archive.clear();
    EXPECT_FALSE(archive.file(1).empty());
}

}  // namespace
}  // namespace qlsdk::platform::testing
