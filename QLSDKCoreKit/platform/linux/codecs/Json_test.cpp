#include "QLSDKCoreKit/platform/Json.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/values/Value.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"
#include "QLSDKCoreKit/values/testing/Python.h"

namespace qlsdk::platform::testing {
namespace {

std::optional<Value> parse(std::string_view text, JsonLimits limits = {}) {
    return parseJson(bytesOf(text), limits);
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(Json, ParsesEveryKind) {
    struct Case {
        std::string_view text;
        Value value;
    };
    const Case cases[] = {
        {"null", {}},
        {" true ", true},
        {"1", 1},
        {"1.0", 1.0},
        {"1e2", 100.0},
        {"-9223372036854775808", INT64_MIN},
        {"18446744073709551615", UINT64_MAX},
        {"18446744073709551616", 18446744073709551616.0},
        {"-9223372036854775809", -9223372036854775809.0},
        {"1e-400", 0.0},
        {R"("a\u0000\ud83d\ude00\/")", std::string("a\0\xF0\x9F\x98\x80/", 7)},
        {R"({"a":[],"b":{"c":[1,{"d":null}]}})",
         Dictionary{{"a", Array{}}, {"b", Dictionary{{"c", Array{1, Dictionary{{"d", {}}}}}}}}},
        {R"({"a":1,"a":[2]})", Dictionary{{"a", Array{2}}}},
    };
    for (const Case& c : cases) EXPECT_EQ(parse(c.text), c.value) << c.text;
}

TEST(Json, RefusesWhatIsNotJson) {
    const std::string cases[] = {
        "",
        " ",
        "nul",
        "[1,]",
        "{\"a\"}",
        "{a:1}",
        "{1:2}",
        "[1] 2",
        "'a'",
        "01",
        "+1",
        ".5",
        "1.",
        "NaN",
        "-Infinity",
        "1e999",
        "-1e999",
        "\"\xFF\"",
        "\"\xC0\x80\"",
        "\"\xED\xA0\x80\"",
        "\"\\ud800\"",
        "\"\\ud800\\u0041\"",
        "\"a\nb\"",
        "\"\\x41\"",
        "[1 2]",
        "]",
        "// a\n1",
        std::string("1\0", 2),
        std::string("\"a\0b\"", 5),
    };
    for (const std::string& text : cases) EXPECT_EQ(parse(text), std::nullopt) << text;
}

TEST(Json, KeepsItsLimits) {
    EXPECT_TRUE(parse(nested(512)).has_value());
    EXPECT_FALSE(parse(nested(513)).has_value());
    EXPECT_FALSE(parse(std::string(1000000, '[')).has_value());
    EXPECT_TRUE(parse("[[]]", {.depth = 2}).has_value());
    EXPECT_FALSE(parse("[[{}]]", {.depth = 2}).has_value());
    EXPECT_TRUE(parse("1234", {.bytes = 4}).has_value());
    EXPECT_FALSE(parse("12345", {.bytes = 4}).has_value());
}

TEST(Json, WritesCompactTextInOrder) {
    const Value value = Dictionary{
        {"z/\"\\", Array{{}, true, false, 1, -1, UINT64_MAX, 2.0, 0.1, 1e300, -0.0}},
        {"a", "\b\f\n\r\t\x01\x1F\x7F caf\xC3\xA9 \xF0\x9F\x98\x80"},
        {"", Array{Dictionary{}, Array{}}},
    };
    EXPECT_EQ(serializeJson(value),
              "{\"z/\\\"\\\\\":[null,true,false,1,-1,18446744073709551615,2.0,0.1,1e+300,-0.0],"
              "\"a\":\"\\b\\f\\n\\r\\t\\u0001\\u001f\x7F caf\xC3\xA9 \xF0\x9F\x98\x80\",\"\":[{},[]]}");
}

TEST(Json, PythonReadsTheSameTextAndNumbers) {
    std::string everyCharacter;
    for (char character = 0; character < 0x7F; ++character) everyCharacter += character;
    Array values{everyCharacter};
    for (const double real : {5e-324, 1.7976931348623157e308, 1.0 / 3, 123456789012345680.0, 1e21, 1e-7}) {
        values.emplace_back(real);
    }
    const std::string text = serializeJson(values).value_or("");
    const Data judged = runPython(
        "import json, sys\n"
        "value = json.loads(sys.stdin.buffer.read())\n"
        "assert value == [''.join(map(chr, range(127))), 5e-324, 1.7976931348623157e308, 1 / 3, "
        "123456789012345680.0,"
        " 1e21, 1e-7], value\n"
        "assert all(isinstance(v, float) for v in value[1:])\n"
        "sys.stdout.write(json.dumps(value))",
        bytesOf(text));
    EXPECT_EQ(parseJson(judged), Value(values));
}

TEST(Json, RefusesToWriteWhatItCannotHold) {
    const Value deep = *parse(nested(512));
    EXPECT_EQ(serializeJson(deep), nested(512));
    Value leaves{Array{}};
    for (int depth = 0; depth < 60; ++depth) leaves = Value(Array{leaves, leaves});
    const Value cases[] = {
        "\xFF",
        Dictionary{{"\xC3", 1}},
        std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(),
        Data{1},
        Date{1},
        Array{Data{}},
        Array{deep},
        leaves,
    };
    for (const Value& value : cases) EXPECT_FALSE(serializeJson(value).has_value()) << describe(value);
}

}  // namespace
}  // namespace qlsdk::platform::testing
