#include "QLSDKCoreKit/values/internal/Unicode.h"

#include <gtest/gtest.h>

#include "QLSDKCoreKit/values/testing/Python.h"

namespace qlsdk::platform::testing {
namespace {

TEST(Unicode, AgreesWithPythonOnEveryPairAndEdgeOfUtf8) {
    // Every two bytes, then each edge of the longer forms, with one byte more or less than they need.
    std::vector<std::string> texts;
    for (int first = 0x7F; first < 0x100; ++first) {
        for (int second = 0x70; second < 0xD0; ++second) {
            texts.push_back({static_cast<char>(first), static_cast<char>(second)});
            texts.push_back({static_cast<char>(first), static_cast<char>(second), '\x80'});
            texts.push_back({static_cast<char>(first), static_cast<char>(second), '\xBF', '\x80'});
            texts.push_back({static_cast<char>(first), static_cast<char>(second), '\x80', '\x7F'});
        }
    }
    std::string joined;
    for (const std::string& text : texts) joined += static_cast<char>(text.size()) + text;
    const std::string repaired = textOf(runPython(R"(
import sys
data, place, out = sys.stdin.buffer.read(), 0, bytearray()
while place < len(data):
    size = data[place]
    text = data[place + 1:place + 1 + size].decode('utf-8', 'replace').encode()
    out.append(len(text))
    out += text
    place += 1 + size
sys.stdout.buffer.write(out)
)",
                                                  dataOf(joined)));
    std::size_t place = 0;
    for (const std::string& text : texts) {
        ASSERT_LT(place, repaired.size());
        const std::string expected = repaired.substr(place + 1, static_cast<std::uint8_t>(repaired[place]));
        EXPECT_EQ(repairedUtf8(text), expected) << ::testing::PrintToString(text);
        EXPECT_EQ(isValidUtf8(text), text == expected) << ::testing::PrintToString(text);
        place += 1 + expected.size();
    }
}

TEST(Unicode, CrossesToUtf16AndBackAsPythonDoes) {
    // Every kind of character, with the edges of each length.
    const std::string text =
        textOf(runPython("import sys\nsys.stdout.buffer.write(''.join(map(chr, [0, 1, 0x7f, 0x80, 0x7ff, "
                         "0x800, 0xd7ff, 0xe000, 0xffff,"
                         " 0x10000, 0x1f600, 0x10ffff])).encode())"));
    Data units(2 * utf16Length(text));
    ASSERT_EQ(writeUtf16(text, units.data()), units.data() + units.size());
    EXPECT_EQ(textOf(runPython(
                  "import sys\nsys.stdout.buffer.write(sys.stdin.buffer.read().decode('utf-16-be').encode())",
                  units)),
              text);
    EXPECT_EQ(utf8FromUtf16(units), text);
}

TEST(Unicode, ReplacesHalfACharacter) {
    EXPECT_EQ(utf8FromUtf16(Data{0xD8, 0x3D}), "\xEF\xBF\xBD");
    EXPECT_EQ(utf8FromUtf16(Data{0xDE, 0x00, 0x00, 'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(utf8FromUtf16(Data{0xD8, 0x3D, 0xD8, 0x3D, 0xDE, 0x00}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(Unicode, FindsTheOneByteThatIsNotAscii) {
    for (std::size_t size = 1; size < 20; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
            std::string text(size, '\x7F');
            EXPECT_TRUE(isAscii(text));
            text[place] = '\x80';
            EXPECT_FALSE(isAscii(text)) << size << " " << place;
        }
    }
}

}  // namespace
}  // namespace qlsdk::platform::testing
