#include "QLSDKCoreKit/platform/KeyedArchive.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include "QLSDKCoreKit/platform/KeyedCoder.h"
#include "QLSDKCoreKit/platform/internal/testsupport/Python.h"
#include "QLSDKCoreKit/platform/internal/testsupport/SampleRecord.h"

namespace qlsdk::platform::testing {
namespace {

// Prints every object of an archive on a line of its own, references as #n, and checks that no object and no
// string stands in the file twice where it needs to stand once.
constexpr std::string_view kDump = R"(
import plistlib, sys
def show(value):
    if isinstance(value, plistlib.UID): return '#%d' % value.data
    if isinstance(value, list): return '[' + ' '.join(map(show, value)) + ']'
    if isinstance(value, dict): return '{' + ' '.join('%s=%s' % (k, show(v)) for k, v in value.items()) + '}'
    return repr(value)
archive = plistlib.loads(sys.stdin.buffer.read())
assert list(archive) == ['$version', '$archiver', '$top', '$objects'], list(archive)
print(archive['$version'], archive['$archiver'], show(archive['$top']))
for number, value in enumerate(archive['$objects']): print(number, show(value))
)";

std::string dump(const Data& archive) {
    return textOf(runPython(kDump, archive));
}

ArchivedObject sample(std::int64_t number, std::string text, ArchivedObject child = {}) {
    auto record = std::make_shared<SampleRecord>();
    record->number = number;
    record->flag = true;
    record->bytes = Data{1, 2, 3};
    record->text = std::move(text);
    record->child = std::move(child);
    return ArchivedObject(std::shared_ptr<Archivable>(record));
}

ArchivedObject reread(const ArchivedObject& root) {
    const auto object = unarchiveRootObject(archiveRootObject(root, RootClass::dictionary), sampleClasses());
    EXPECT_TRUE(object.has_value());
    return object.value_or(ArchivedObject());
}

TEST(KeyedArchive, NumbersObjectsDepthFirstAsPythonSeesThem) {
    const ArchivedObject event = sample(7, "name");
    const ArchivedObject list(ArchivedObject::List{sample(-1, "name", event), Value(nullptr), event});
    const ArchivedObject root(ArchivedObject::Entries{{"events", list}, {"max", Value(300)}});
    EXPECT_EQ(dump(archiveRootObject(root, RootClass::dictionary)),
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
    EXPECT_EQ(render(reread(root)),
              "{events: [Sample(-1 flag <010203> name Sample(7 flag <010203> name nil)), nil, "
              "Sample(7 flag <010203> name nil)], max: 300}");
}

}  // namespace
}  // namespace qlsdk::platform::testing
