#include "QLSDKCoreKit/platform/PropertyList.h"

#include <limits>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/internal/testsupport/Python.h"

namespace qlsdk::platform::testing {
namespace {

std::optional<Value> parse(std::string_view text) {
    return parsePropertyList(bytesOf(text));
}

std::string xml(std::string_view content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(content) +
           "</plist>";
}

Value everyKind() {
    return Dictionary{
        {"text", "caf\xC3\xA9 <&> \"\xF0\x9F\x98\x80\""},
        {"empty", ""},
        {"numbers", Array{0, -1, INT64_MAX, INT64_MIN, 1.0, 2.5, true, false}},
        {"data", Data{0, 1, 255}},
        {"date", Date{1000000000}},
        {"nested", Dictionary{{"a", Array{Dictionary{}, Array{}}}}},
    };
}

constexpr std::string_view kEveryKindInPython =
    "import plistlib, sys, datetime\n"
    "every = {'text': 'caf\\xe9 <&> \"\\U0001f600\"', 'empty': '',"
    " 'numbers': [0, -1, 2**63 - 1, -2**63, 1.0, 2.5, True, False], 'data': b'\\0\\1\\xff',"
    " 'date': datetime.datetime(2001, 9, 9, 1, 46, 40), 'nested': {'a': [{}, []]}}\n";

TEST(PropertyList, PythonReadsWhatIsWritten) {
    const auto written = serializePropertyList(everyKind());
    ASSERT_TRUE(written.has_value());
    const std::string program = std::string(kEveryKindInPython) +
                                "read = plistlib.loads(sys.stdin.buffer.read(), fmt=plistlib.FMT_XML)\n"
                                "print(read if repr(read) != repr(every) else 'same')";
    EXPECT_EQ(textOf(runPython(program, *written)), "same\n");
    EXPECT_EQ(parsePropertyList(*written), everyKind());
}

TEST(PropertyList, ReadsWhatPythonWrites) {
    const std::vector<Data> files = evaluatePython(
        kEveryKindInPython,
        {"plistlib.dumps(every, sort_keys=False)", "plistlib.dumps(every, fmt=plistlib.FMT_BINARY)"});
    EXPECT_EQ(parsePropertyList(files[0]), everyKind());
    EXPECT_EQ(parsePropertyList(files[1]), everyKind());
}

TEST(PropertyList, RealsKeepEveryBit) {
    Array reals;
    for (const double real :
         {0.1, 1.0 / 3, 1e300, 1e-300, 5e-324, -123456789.123456789, 1e15, 1.7976931348623157e308}) {
        reals.emplace_back(real);
    }
    const auto written = serializePropertyList(reals);
    ASSERT_TRUE(written.has_value());
    EXPECT_EQ(parsePropertyList(*written), Value(reals));
}

TEST(PropertyList, RefusesWhatIsNotSound) {
    std::string nested;
    for (int i = 0; i < 513; ++i) nested += "<array>";
    for (int i = 0; i < 513; ++i) nested += "</array>";
    std::string open;
    for (int i = 0; i < 100000; ++i) open += "<array>";
    const std::string cases[] = {
        "",
        "text",
        "{}",
        "<plist",
        xml(""),
        xml("<dict><true/></dict>"),
        xml("<array><string>a</string>"),
        xml("<string>\xFF</string>"),
        xml("<dict><key>\xFF</key><true/></dict>"),
        xml(std::string("<string>a\0b</string>", 20)),
        xml("<unheard/>"),
        xml(nested),
        xml(open),
        "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>",
        "bplist00",
    };
    for (const std::string& text : cases) EXPECT_EQ(parse(text), std::nullopt) << text.substr(0, 200);
}

TEST(PropertyList, TruncatedOrDamagedXmlIsRefusedOrStillWritable) {
    const Data valid = *serializePropertyList(everyKind());
    for (std::size_t place = 0; place < valid.size(); ++place) {
        Data damaged = valid;
        damaged[place] ^= 0x11;
        for (const DataView bytes : {DataView(valid).first(place), DataView(damaged)}) {
            const auto value = parsePropertyList(bytes);
            const auto again = value ? serializePropertyList(*value) : std::nullopt;
            EXPECT_TRUE(!again || parsePropertyList(*again) == value) << place;
        }
    }
}

TEST(PropertyList, RefusesToWriteWhatItCannotHold) {
    Value nested{Array{}};
    for (int depth = 1; depth < 512; ++depth) nested = Value(Array{nested});
    EXPECT_TRUE(serializePropertyList(nested).has_value());
    Value leaves{Array{}};
    for (int depth = 0; depth < 60; ++depth) leaves = Value(Array{leaves, leaves});
    const Value cases[] = {
        Value(),
        Array{Value()},
        "\xFF",
        std::string("a\0b", 3),
        "\x01",
        Dictionary{{std::string("a\0", 2), 1}},
        UINT64_MAX,
        std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(),
        Date{1e18},
        Array{nested},
        leaves,
    };
    for (const Value& value : cases)
        EXPECT_FALSE(serializePropertyList(value).has_value()) << describe(value);
}

}  // namespace
}  // namespace qlsdk::platform::testing
