#include "QLSDKCoreKit/values/KeyedArchive.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>
#include <malloc.h>
#include <plist/plist.h>

#include "QLSDKCoreKit/values/KeyedCoder.h"
#include "QLSDKCoreKit/values/testing/Python.h"
#include "QLSDKCoreKit/values/testing/SampleRecord.h"

namespace {

// What this program has allocated, and the most that was since the last look.
std::atomic<std::size_t> allocated{0};
std::atomic<std::size_t> mostAllocated{0};

void* counted(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    const std::size_t now = allocated += ::malloc_usable_size(memory);
    if (now > mostAllocated) mostAllocated = now;
    return memory;
}

void uncounted(void* memory) noexcept {
    if (memory != nullptr) allocated -= ::malloc_usable_size(memory);
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return counted(size);
}
void operator delete(void* memory) noexcept {
    uncounted(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    uncounted(memory);
}

namespace qlsdk::platform::testing {
namespace {

// Prints every object of an archive on a line of its own, references as #n.
constexpr std::string_view kDump = R"(
import plistlib, sys
def show(value):
    if isinstance(value, plistlib.UID): return '#%d' % value.data
    if isinstance(value, list): return '[' + ' '.join(map(show, value)) + ']'
    if isinstance(value, dict): return '{' + ' '.join('%s=%s' % (k, show(v)) for k, v in value.items()) + '}'
    return ascii(value)
archive = plistlib.loads(sys.stdin.buffer.read())
assert list(archive) == ['$version', '$archiver', '$top', '$objects'], list(archive)
print(archive['$version'], archive['$archiver'], show(archive['$top']))
for number, value in enumerate(archive['$objects']): print(number, show(value))
)";

std::string dump(const Data& archive) {
    return textOf(runPython(kDump, archive));
}

// What the elements of a root array are, each on a line; a class is named in place of its number.
constexpr std::string_view kDumpElements = R"(
import plistlib, sys
objects = plistlib.loads(sys.stdin.buffer.read())['$objects']
for element in objects[1]['NS.objects']:
    value = objects[element.data]
    if isinstance(value, dict): value['$class'] = objects[value['$class'].data]['$classname']
    print(ascii(value))
)";

ArchivedObject sample(std::int64_t number, std::string text, ArchivedObject child = {}) {
    auto record = std::make_shared<SampleRecord>();
    record->number = number;
    record->flag = true;
    record->bytes = Data{1, 2, 3};
    record->text = std::move(text);
    record->child = std::move(child);
    return ArchivedObject(std::shared_ptr<Archivable>(record));
}

// Two records that share one, beside the kinds that a container may hold.
ArchivedObject sampleGraph() {
    const ArchivedObject shared = sample(7, "name");
    const ArchivedObject list(ArchivedObject::List{sample(-1, "name", shared), Value(nullptr), shared});
    return ArchivedObject(ArchivedObject::Entries{{"events", list}, {"max", Value(300)}});
}

std::optional<ArchivedObject> read(const Data& archive) {
    return unarchiveRootObject(archive, sampleClasses());
}

ArchivedObject reread(const ArchivedObject& root) {
    const auto object = read(archiveRootObject(root, RootClass::dictionary));
    EXPECT_TRUE(object.has_value());
    return object.value_or(ArchivedObject());
}

TEST(KeyedArchive, NumbersObjectsDepthFirstAsPythonSeesThem) {
    EXPECT_EQ(dump(archiveRootObject(sampleGraph(), RootClass::dictionary)),
              "100000 NSKeyedArchiver {root=#1}\n"
              "0 '$null'\n"
              "1 {NS.keys=[#2 #3] NS.objects=[#4 #14] $class=#15}\n"
              "2 'events'\n"
              "3 'max'\n"
              "4 {NS.objects=[#5 #11 #6] $class=#13}\n"
              "5 {number=-1 child=#6 flag=True bytes=#10 text=#8 $class=#9}\n"
              "6 {number=7 child=#0 flag=True bytes=#7 text=#8 $class=#9}\n"
              "7 b'\\x01\\x02\\x03'\n"
              "8 'name'\n"
              "9 {$classname='Sample' $classes=['Sample' 'NSObject']}\n"
              "10 b'\\x01\\x02\\x03'\n"
              "11 {$class=#12}\n"
              "12 {$classname='NSNull' $classes=['NSNull' 'NSObject']}\n"
              "13 {$classname='NSArray' $classes=['NSArray' 'NSObject']}\n"
              "14 300\n"
              "15 {$classname='NSDictionary' $classes=['NSDictionary' 'NSObject']}\n");
}

TEST(KeyedArchive, OnlyTheRootIsMutable) {
    const Value root(Dictionary{{"a", Dictionary{}}});
    EXPECT_EQ(
        dump(archiveRootObject(root, RootClass::mutableDictionary)),
        "100000 NSKeyedArchiver {root=#1}\n"
        "0 '$null'\n"
        "1 {NS.keys=[#2] NS.objects=[#3] $class=#5}\n"
        "2 'a'\n"
        "3 {NS.keys=[] NS.objects=[] $class=#4}\n"
        "4 {$classname='NSDictionary' $classes=['NSDictionary' 'NSObject']}\n"
        "5 {$classname='NSMutableDictionary' $classes=['NSMutableDictionary' 'NSDictionary' 'NSObject']}\n");
}

TEST(KeyedArchive, PlainValuesSurviveAndPythonAgrees) {
    struct Case {
        Value value;
        std::string python;
        std::string reread;
    };
    const Case cases[] = {
        {1, "1", "1"},
        {1.0, "1.0", "real 1"},
        {true, "True", "true"},
        {false, "False", "false"},
        {0, "0", "0"},
        {-1, "-1", "-1"},
        {255, "255", "255"},
        {65536, "65536", "65536"},
        {INT64_C(4294967296), "4294967296", "4294967296"},
        {INT64_MIN, "-9223372036854775808", "-9223372036854775808"},
        // Above the signed maximum the same bits are written as a signed integer, which everyone reads.
        {UINT64_MAX, "-1", "-1"},
        {"", "''", "\"\""},
        {"caf\xC3\xA9 \xF0\x9F\x98\x80", "'caf\\xe9 \\U0001f600'", "\"caf\xC3\xA9 \xF0\x9F\x98\x80\""},
        {std::string("a\0b", 3), "'a\\x00b'", std::string("\"a\0b\"", 5)},
        {std::string(300, 'x'), '\'' + std::string(300, 'x') + '\'', '"' + std::string(300, 'x') + '"'},
        {"$null", "{'NS.string': '$null', '$class': 'NSString'}", "\"$null\""},
        {Data{}, "b''", "<>"},
        {Data{0, 255}, "b'\\x00\\xff'", "<00ff>"},
        {Date{978307201.5}, "{'NS.time': 1.5, '$class': 'NSDate'}", "date 978307201.5"},
        {"\xC3(", "{'$class': 'NSNull'}", "nil"},
    };
    Array values;
    std::string python;
    std::string content;
    for (const Case& c : cases) {
        values.push_back(c.value);
        python += c.python + "\n";
        content += content.empty() ? "[" : ", ";
        content += c.reread;
    }
    const Value root(std::move(values));
    EXPECT_EQ(textOf(runPython(kDumpElements, archiveRootObject(root, RootClass::dictionary))), python);
    EXPECT_EQ(render(reread(root)), content + "]");
}

TEST(KeyedArchive, TextThatIsNotUtf8IsNilAndItsDictionaryEntryGoes) {
    EXPECT_EQ(render(reread(sample(1, "\xED\xA0\x80"))), "Sample(1 flag <010203> (null) nil)");
    EXPECT_EQ(render(reread(Value(Dictionary{{"\xFF", 1}, {"b", 2}}))), "{b: 2}");
}

TEST(KeyedArchive, LibplistReadsIt) {
    const Data archive = archiveRootObject(sampleGraph(), RootClass::dictionary);
    plist_t list = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(archive.data()), static_cast<std::uint32_t>(archive.size()),
                   &list);
    ASSERT_NE(list, nullptr);
    const plist_t objects = plist_dict_get_item(list, "$objects");
    EXPECT_EQ(plist_array_get_size(objects), 16U);
    const plist_t record = plist_array_get_item(objects, 5);
    std::uint64_t number = 0;
    plist_get_uint_val(plist_dict_get_item(record, "number"), &number);
    EXPECT_EQ(static_cast<std::int64_t>(number), -1);
    std::uint64_t reference = 0;
    plist_get_uid_val(plist_dict_get_item(record, "bytes"), &reference);
    std::uint64_t length = 0;
    (void)plist_get_data_ptr(plist_array_get_item(objects, static_cast<std::uint32_t>(reference)), &length);
    EXPECT_EQ(length, 3U);
    plist_free(list);
}

TEST(KeyedArchive, SharedObjectsComeBackAsOne) {
    const auto list = reread(sampleGraph()).entries()->front().second.list();
    const auto outer = std::dynamic_pointer_cast<SampleRecord>(list->front().record());
    EXPECT_EQ(outer->child.record(), list->back().record());
}

TEST(KeyedArchive, NestsToTheLimitAndNoFurther) {
    Value nested{Array{}};
    for (int depth = 1; depth < 512; ++depth) nested = Value(Array{nested});
    EXPECT_TRUE(read(archiveRootObject(nested, RootClass::dictionary)).has_value());
    EXPECT_TRUE(archiveRootObject(Value(Array{nested}), RootClass::dictionary).empty());
}

constexpr std::string_view kPrelude = R"(
import plistlib
from plistlib import UID as U
def pack(top): return plistlib.dumps(top, fmt=plistlib.FMT_BINARY, sort_keys=False)
def archive(*objects, **changes):
    top = {'$version': 100000, '$archiver': 'NSKeyedArchiver', '$top': {'root': U(1)}, '$objects': ['$null', *objects]}
    top.update((k.replace('_', '$'), v) for k, v in changes.items())
    return pack(top)
def cls(*names): return {'$classname': names[0], '$classes': [*names, 'NSObject'], '$classhints': []}
def array(count, *more): return archive({'NS.objects': [U(i + 3) for i in range(count)], '$class': U(2)}, cls('NSArray'), *more)
def chain(depth, last, width=1):
    links = [{'NS.objects': [U(i + 3)] * width, '$class': U(2)} for i in range(depth)]
    return archive(links[0], cls('NSArray'), *links[1:], last(depth))
empty = lambda depth: {'NS.objects': [], '$class': U(2)}
mutable = cls('NSMutableDictionary', 'NSDictionary'), cls('NSMutableArray', 'NSArray'), cls('NSMutableString', 'NSString'), cls('NSMutableData', 'NSData')
)";

struct ForeignCase {
    std::string archive;
    /// Empty when the archive must not be readable.
    std::string content;
};

void check(const std::vector<ForeignCase>& cases) {
    std::vector<std::string> expressions;
    for (const ForeignCase& c : cases) expressions.push_back(c.archive);
    const std::vector<Data> archives = evaluatePython(kPrelude, expressions);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto object = read(archives[i]);
        EXPECT_EQ(object ? render(*object) : "", cases[i].content) << cases[i].archive;
    }
}

TEST(KeyedArchive, ReadsWhatOthersWrite) {
    check({
        // Mutable classes, texts and data in their containers, inline and by reference, as keys too.
        {"archive({'NS.keys': [U(6), U(10)], 'NS.objects': [U(7), U(8)], '$class': U(2)}, *mutable,"
         "{'NS.string': 'k', '$class': U(4)}, {'NS.objects': [U(6), U(9)], '$class': U(3)},"
         "{'NS.data': b'1', '$class': U(5)}, {'NS.data': U(11), '$class': U(5)}, 'l', b'2')",
         "{k: [\"k\", <32>], l: <31>}"},
        // A record with every field in its container, an unknown key of an unknown class, another key order.
        {"archive({'$class': U(2), 'text': U(3), 'later': U(4), 'bytes': U(5), 'flag': 1, 'number': 2.5, "
         "'child': U(1000 - 992)},"
         "cls('Sample'), {'NS.string': 't', '$class': U(6)}, {'$class': U(7)}, {'NS.data': b'1', '$class': "
         "U(9)},"
         "cls('NSMutableString', 'NSString'), cls('Unheard'), 'c', cls('NSMutableData', 'NSData'))",
         "Sample(2 flag <31> t \"c\")"},
        // Missing fields, and fields of another kind.
        {"archive({'$class': U(2)}, cls('Sample'))", "Sample(0 nil (null) nil)"},
        {"archive({'$class': U(2), 'number': U(3), 'flag': U(3), 'bytes': U(3), 'text': b'1', 'child': "
         "'$null'}, cls('Sample'), 'x')",
         "Sample(0 nil (null) nil)"},
        {"array(2, '$null', {'$class': U(5)}, cls('NSNull'))", "[nil, nil]"},
        {"array(4, 1, True, 1, 1.0)", "[1, true, 1, real 1]"},
        {"array(1, {'NS.time': 1.0, '$class': U(4)}, cls('NSDate'))", "[date 978307201]"},
        {"array(4, 2**63 - 1, -2**63, 2**64 - 1, 1.5)",
         "[9223372036854775807, -9223372036854775808, 18446744073709551615, real 1.5]"},
        // Unreferenced objects, unknown keys on top, the root behind everything else.
        {"archive({'$class': U(99)}, cls('NSArray'), 'x', {'NS.objects': [U(3)], '$class': U(2)},"
         " _top={'other': U(1), 'root': U(4)}, extra=[1, [2]])",
         "[\"x\"]"},
        {"archive('text')", "\"text\""},
        {"archive(_top={'root': U(0)})", "nil"},
        {"chain(511, empty)", std::string(512, '[') + std::string(512, ']')},
    });
}

TEST(KeyedArchive, RefusesWhatIsNotSound) {
    check({
        {"archive('x', _archiver='NSArchiver')", ""},
        {"archive('x', _version=100001)", ""},
        {"archive('x', _top={})", ""},
        {"archive('x', _top={'root': 'x'})", ""},
        {"archive('x', _objects=[])", ""},
        {"archive('x', _objects={})", ""},
        {"archive('x', _top={'root': U(2)})", ""},
        {"pack([])", ""},
        {"archive({'NS.objects': [], '$class': U(2)}, cls('NSSet'))", ""},
        {"archive({'NS.objects': []})", ""},
        {"archive({'NS.objects': [], '$class': U(1)})", ""},
        {"array(1, {'$class': U(4)}, cls('Unheard'))", ""},
        {"array(1)", ""},
        {"array(1, ['bare'])", ""},
        {"archive({'NS.objects': ['x'], '$class': U(2)}, cls('NSArray'))", ""},
        {"archive({'NS.keys': [U(3)], 'NS.objects': [], '$class': U(2)}, cls('NSDictionary'), 'k')", ""},
        {"archive({'NS.keys': [U(3)], 'NS.objects': [U(3)], '$class': U(2)}, cls('NSDictionary'), 7)", ""},
        // Cycles: through an array, and through the field of a record.
        {"archive({'NS.objects': [U(1)], '$class': U(2)}, cls('NSArray'))", ""},
        {"archive({'child': U(1), '$class': U(2)}, cls('Sample'))", ""},
        {"chain(512, empty)", ""},
        {"chain(5000, empty)", ""},
    });
}

TEST(KeyedArchive, ReadsWideReferences) {
    const std::vector<Data> archives = evaluatePython(
        kPrelude,
        {"array(300, *['t%d' % i for i in range(300)])", "array(66000, *['t%d' % i for i in range(66000)])"});
    EXPECT_EQ(read(archives[0])->list()->back().value(), Value("t299"));
    EXPECT_EQ(read(archives[1])->list()->back().value(), Value("t65999"));
}

TEST(KeyedArchive, SharingMakesNoWorkBeyondTheFile) {
    const Data small = evaluatePython(kPrelude, {"chain(60, lambda depth: 'leaf', width=2)"})[0];
    const auto leaves = read(small);
    ASSERT_TRUE(leaves.has_value());
    const Data again = archiveRootObject(*leaves, RootClass::dictionary);
    EXPECT_LT(again.size(), 2 * small.size());
    EXPECT_TRUE(read(again).has_value());
}

// Files that describe much with few bytes, and honest ones with the least in each object: none takes more
// memory than is promised, whether it is read or refused.
TEST(KeyedArchive, TakesNoMoreThanTheStatedMultipleOfAFile) {
    struct Case {
        const char* archive;
        bool isRead;
    };
    const Case cases[] = {
        {"archive({'NS.objects': [U(3)] * 200000, '$class': U(2)}, cls('NSArray'), 'x')", false},
        {"archive({'NS.objects': [U(3)] * 4000, '$class': U(2)}, cls('NSArray'), 'x')", true},
        {"archive({'NS.objects': [U(3)], '$class': U(2)}, cls('NSArray'), *[1] * 100000)", true},
        {"array(9000, *[{'number': 0, '$class': U(9003)} for _ in range(9000)], cls('Sample'))", true},
        {"array(3000, *[{'text': U(3004), '$class': U(3003)} for _ in range(3000)], cls('Sample'), 'x' * 30)",
         true},
        {"array(20000, *['\\u20ac%d' % i for i in range(20000)])", true},
        {"array(20000, *[bytes([i % 256, i // 256]) for i in range(20000)])", true},
        // 20,000 records that each copy the same 100,000 bytes would take 2 GB for a file of 1 MB.
        {"array(20000, *[{'bytes': U(20003), '$class': U(20004)} for _ in range(20000)],"
         " b'x' * 100000, cls('Sample'))",
         false},
        {"chain(400, lambda depth: 'leaf', width=300)", false},
        {"archive({'NS.keys': [U(3)] * 60000, 'NS.objects': [U(3)] * 60000, '$class': U(2)},"
         " cls('NSDictionary'), 'k' * 100)",
         false},
    };
    std::vector<std::string> expressions;
    for (const Case& c : cases) expressions.emplace_back(c.archive);
    const std::vector<Data> archives = evaluatePython(kPrelude, expressions);
    for (std::size_t i = 0; i < archives.size(); ++i) {
        const std::size_t before = allocated;
        mostAllocated = before;
        EXPECT_EQ(read(archives[i]).has_value(), cases[i].isRead) << cases[i].archive;
        EXPECT_LE(mostAllocated - before, (std::size_t{1} << 20) + 32 * archives[i].size())
            << cases[i].archive;
        EXPECT_TRUE(!cases[i].isRead || mostAllocated - before > archives[i].size()) << "nothing was counted";
    }
}

TEST(KeyedArchive, DamageIsRefusedOrStillSound) {
    const Data valid = archiveRootObject(sampleGraph(), RootClass::dictionary);
    for (std::size_t size = 0; size < valid.size(); ++size) {
        EXPECT_FALSE(read(Data(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
    }
    for (std::size_t place = 0; place < valid.size(); ++place) {
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            Data damaged = valid;
            damaged[place] ^= static_cast<std::uint8_t>(flip);
            // What still reads must be a graph that can be written and read once more.
            const auto object = read(damaged);
            EXPECT_TRUE(!object || render(reread(*object)) == render(*object)) << place;
        }
    }
}

}  // namespace
}  // namespace qlsdk::platform::testing
