#include "QLSDKCoreKit/platform/PropertyList.h"

#include <limits>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/values/testing/Python.h"

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
    Dictionary values = *everyKind().dictionary();
    values.set("exact", Date{1000000000.0625});
    values.set("controls", std::string("\0\1", 2));
    const auto written = serializePropertyList(values);
    ASSERT_TRUE(written.has_value());
    std::string program(kEveryKindInPython);
    program +=
        "every['exact'] = datetime.datetime(2001, 9, 9, 1, 46, 40, 62500)\n"
        "every['controls'] = '\\0\\1'\n"
        "read = plistlib.loads(sys.stdin.buffer.read(), fmt=plistlib.FMT_BINARY)\n"
        "print(read if repr(read) != repr(every) else 'same')";
    EXPECT_EQ(textOf(runPython(program, *written)), "same\n");
    EXPECT_EQ(parsePropertyList(*written), Value(values));
}

TEST(PropertyList, ReadsWhatPythonWrites) {
    const std::vector<Data> files = evaluatePython(
        kEveryKindInPython,
        {"plistlib.dumps(every, sort_keys=False)", "plistlib.dumps(every, fmt=plistlib.FMT_BINARY)"});
    EXPECT_EQ(parsePropertyList(files[0]), everyKind());
    EXPECT_EQ(parsePropertyList(files[1]), everyKind());
}

TEST(PropertyList, NumbersAndDatesKeepEveryBit) {
    Array reals;
    for (const double now : {1'795'500'000.8, 1'795'500'000.000001, 1'795'586'399.9999998, 978'307'200.5})
        reals.emplace_back(Date{now});
    for (const double real :
         {0.1, 1.0 / 3, 1e300, 1e-300, 5e-324, -123456789.123456789, 1e15, 1.7976931348623157e308}) {
        reals.emplace_back(real);
    }
    // The last whole number of each width, and the first of the next.
    for (const std::int64_t last : {INT64_C(0xFF), INT64_C(0xFFFF), INT64_C(0xFFFFFFFF)}) {
        reals.insert(reals.end(), {Value(last), Value(last + 1)});
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

TEST(PropertyList, CountsOnlyTheElementsOfXmlThatAreOpen) {
    std::string deepest = "<string>a</string>";
    for (int i = 0; i < 512; ++i) deepest = "<array>" + deepest + "</array>";
    EXPECT_TRUE(parse(xml(deepest)));
    std::string wide;
    for (int i = 0; i < 600; ++i) {
        wide += "<true/><!-- <array> --><array/><string><![CDATA[<array>]]></string><array></array>";
    }
    const auto list = parse(xml("<array>" + wide + "</array>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->array()->size(), 2400U);
    EXPECT_EQ(list->array()->at(2), Value("<array>"));
}

TEST(PropertyList, ReadsXmlOfSixteenMebibytesAndNotOneByteMore) {
    std::string xml = "<plist version=\"1.0\"><integer>7</integer></plist>";
    xml.resize(std::size_t{16} << 20, ' ');
    EXPECT_TRUE(parsePropertyList(bytesOf(xml)) == Value(7));
    EXPECT_FALSE(parsePropertyList(bytesOf(xml + ' ')));
}

TEST(PropertyList, TruncatedOrDamagedXmlIsRefusedOrStillWritable) {
    const Data valid = evaluatePython(kEveryKindInPython, {"plistlib.dumps(every)"}).front();
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
    for (const std::size_t elements : {std::size_t{250}, std::size_t{300}, std::size_t{70'000}}) {
        const Value wide(Array(elements, Value(7)));
        const auto written = serializePropertyList(wide);
        EXPECT_TRUE(written && parsePropertyList(*written) == wide) << elements << " need wider numbers";
    }
    Value nested{Array{}};
    for (int depth = 1; depth < 512; ++depth) nested = Value(Array{nested});
    EXPECT_TRUE(serializePropertyList(nested).has_value());
    Value leaves{Array{}};
    for (int depth = 0; depth < 60; ++depth) leaves = Value(Array{leaves, leaves});
    const Value cases[] = {
        Value(),
        Array{Value()},
        "\xFF",
        Dictionary{{"\xFF", 1}},
        UINT64_MAX,
        std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(),
        Date{std::numeric_limits<double>::quiet_NaN()},
        Array{nested},
        leaves,
    };
    for (const Value& value : cases)
        EXPECT_FALSE(serializePropertyList(value).has_value()) << describe(value);
}

}  // namespace
}  // namespace qlsdk::platform::testing
