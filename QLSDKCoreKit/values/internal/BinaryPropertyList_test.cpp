#include "QLSDKCoreKit/values/internal/BinaryPropertyList.h"

#include <gtest/gtest.h>

#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListWriter.h"
#include "QLSDKCoreKit/values/testing/Python.h"

namespace qlsdk::platform::testing {
namespace {

// A writer that is free in what the format leaves free. Objects are given as bytes, references as r(numbers).
constexpr std::string_view kPrelude = R"(
def bplist(objects, offset=1, ref=1, top=0, count=None, table=None, magic=b'bplist00', tail=b''):
    body, offsets = bytearray(magic), []
    for o in objects:
        offsets.append(len(body))
        body += o if isinstance(o, bytes) else o(ref)
    start = len(body) if table is None else table
    body += b''.join(o.to_bytes(offset, 'big') for o in offsets) + tail
    return bytes(body) + bytes(6) + bytes([offset, ref]) + b''.join(
        n.to_bytes(8, 'big') for n in (len(offsets) if count is None else count, top, start))
def r(marker, *numbers): return lambda ref: bytes(marker) + b''.join(n.to_bytes(ref, 'big') for n in numbers)
def same_place(copies):
    # Three levels of arrays that all table entries share, so that every level multiplies the work.
    leaf, inner, outer = b'\x09', b'\xaf\x11' + copies.to_bytes(2, 'big') + b'\0\0' * copies, None
    inner = b'\xaf\x11' + copies.to_bytes(2, 'big') + (1).to_bytes(2, 'big') * copies
    outer = b'\xaf\x11' + copies.to_bytes(2, 'big') + b''.join((2 + i).to_bytes(2, 'big') for i in range(copies))
    body = b'bplist00' + outer + leaf + inner
    at = [8, 8 + len(outer)] + [8 + len(outer) + 1] * copies
    return body + b''.join(o.to_bytes(4, 'big') for o in at) + bytes(6) + bytes([4, 2]) + b''.join(
        n.to_bytes(8, 'big') for n in (len(at), 0, len(body)))
)";

std::vector<Data> lists(const std::vector<std::string>& expressions) {
    return evaluatePython(kPrelude, expressions);
}

TEST(BinaryPropertyList, ReadsEveryWidth) {
    std::vector<std::string> expressions;
    for (int width = 1; width <= 8; ++width) {
        const std::string widths =
            ", offset=" + std::to_string(width) + ", ref=" + std::to_string(9 - width) + ")";
        expressions.push_back("bplist([r(b'\\xd1', 1, 2), b'\\x51k', r(b'\\xa2', 3, 3), b'\\x10\\x07']" +
                              widths);
    }
    for (const Data& list : lists(expressions)) {
        EXPECT_EQ(parseBinaryPropertyList(list), Value(Dictionary{{"k", Array{7, 7}}}));
    }
}

TEST(BinaryPropertyList, ReadsEveryKindOfObject) {
    struct Case {
        std::string object;
        std::optional<Value> value;
    };
    const std::vector<Case> cases = {
        {"b'\\x08'", false},
        {"b'\\x09'", true},
        {"b'\\x10\\xff'", 255},
        {"b'\\x11\\xff\\xff'", 65535},
        {"b'\\x12' + b'\\xff' * 4", UINT32_MAX},
        {"b'\\x13' + b'\\xff' * 8", -1},
        {"b'\\x14' + bytes(8) + b'\\xff' * 8", UINT64_MAX},
        {"b'\\x14' + b'\\xff' * 16", -1},
        {"b'\\x22' + b'\\x3f\\xc0\\0\\0'", 1.5},
        {"b'\\x23' + b'\\x3f\\xf8' + bytes(6)", 1.5},
        {"b'\\x33' + b'\\x3f\\xf8' + bytes(6)", Date{978307201.5}},
        {"b'\\x42\\0\\1'", Data{0, 1}},
        {"b'\\x4f\\x10\\x02\\0\\1'", Data{0, 1}},
        {"b'\\x5f\\x13' + bytes(7) + b'\\x02ab'", "ab"},
        {"b'\\x53a\\0b'", std::string("a\0b", 3)},
        {"b'\\x62' + '\\U0001f600'.encode('utf-16-be')", "\xF0\x9F\x98\x80"},
        {"b'\\x52\\xc3\\xa9'", "\xC3\xA9"},
        {"b'\\xa0'", Array{}},
        {"b'\\xd0'", Dictionary{}},
        // What no property list holds, and what is no object at all.
        {"b'\\x00'", std::nullopt},
        {"b'\\x0f'", std::nullopt},
        {"b'\\x15' + bytes(32)", std::nullopt},
        {"b'\\x21' + bytes(8)", std::nullopt},
        {"b'\\x52\\xff\\xff'", std::nullopt},
        {"b'\\x80\\x01'", std::nullopt},
        {"b'\\xc0'", std::nullopt},
        {"b'\\xf0'", std::nullopt},
        // Lengths beyond the file.
        {"b'\\x13\\0'", std::nullopt},
        {"b'\\x43\\0'", std::nullopt},
        {"b'\\x4f\\x13' + b'\\xff' * 8", std::nullopt},
        {"b'\\x6f\\x13\\x80' + bytes(7)", std::nullopt},
        {"b'\\xaf\\x13\\x7f' + b'\\xff' * 7", std::nullopt},
        {"b'\\xdf\\x13\\x40' + bytes(7)", std::nullopt},
        {"b'\\x4f\\x14' + bytes(16)", std::nullopt},
        {"b'\\x4f'", std::nullopt},
    };
    std::vector<std::string> expressions;
    for (const Case& c : cases) expressions.push_back("bplist([" + c.object + "])");
    const std::vector<Data> files = lists(expressions);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(parseBinaryPropertyList(files[i]), cases[i].value) << cases[i].object;
    }
}

TEST(BinaryPropertyList, RefusesWhatIsNotSound) {
    const std::vector<std::string> expressions = {
        "b''",
        "b'bplist00'",
        "b'bplist00' + bytes(32)",
        "bplist([b'\\x09'], magic=b'bplist15')",
        "bplist([b'\\x09'], top=1)",
        "bplist([b'\\x09'], count=0)",
        "bplist([b'\\x09'], count=2)",
        "bplist([b'\\x09'], count=2**63)",
        "bplist([b'\\x09'], table=7)",
        "bplist([b'\\x09'], table=2**64 - 1)",
        "bplist([b'\\x09'], offset=9)",
        "bplist([b'\\x09'], ref=0)",
        // References out of range, a key that is no text, and cycles.
        "bplist([r(b'\\xa1', 1)])",
        "bplist([r(b'\\xd1', 1, 1), b'\\x09'])",
        "bplist([r(b'\\xa1', 0)])",
        "bplist([r(b'\\xa1', 1), r(b'\\xa1', 0)])",
        "bplist([r(b'\\xa1', i + 1) for i in range(512)] + [b'\\xa0'], offset=2, ref=2)",
        // 65,000 objects that are one array of 65,000 elements.
        "same_place(65000)",
    };
    const std::vector<Data> files = lists(expressions);
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(parseBinaryPropertyList(files[i]), std::nullopt) << expressions[i];
    }
}

TEST(BinaryPropertyList, KeepsSharedObjectsShared) {
    const std::vector<Data> files =
        lists({"bplist([r(b'\\xa2', i + 1, i + 1) for i in range(60)] + [b'\\xa0'])",
               "bplist([r(b'\\xa1', i + 1) for i in range(511)] + [b'\\xa0'], offset=2, ref=2)"});
    const auto leaves = parseBinaryPropertyList(files[0]);
    ASSERT_TRUE(leaves.has_value());
    EXPECT_EQ(leaves->array()->front().array(), leaves->array()->back().array());
    EXPECT_TRUE(parseBinaryPropertyList(files[1]).has_value());
}

TEST(BinaryPropertyListWriter, FitsAsManyObjectsAsItsWidthCounts) {
    struct Case {
        std::size_t objects;
        BinaryPropertyListWriter::Widths widths;
        bool fits;
    };
    // Node 0 is the top, 1 its key, the last one the array.
    for (const Case& c : {Case{255, {1, 2}, true}, Case{256, {1, 2}, false}, Case{256, {2, 4}, true},
                          Case{65535, {2, 4}, true}, Case{65536, {2, 4}, false}, Case{65536, {4, 4}, true}}) {
        BinaryPropertyListWriter writer(c.widths);
        const auto key = writer.addText("k");
        std::vector<BinaryPropertyListWriter::Node> elements;
        for (std::size_t i = 3; i < c.objects; ++i)
            elements.push_back(writer.addUid(static_cast<std::uint32_t>(i)));
        const BinaryPropertyListWriter::Field top{key, writer.addArray(elements)};
        writer.setTop({&top, 1});
        const Data file = writer.finish();
        EXPECT_EQ(file.empty(), !c.fits) << c.objects;
        if (!c.fits) continue;
        EXPECT_EQ(textOf(runPython("import plistlib, sys\n"
                                   "print(sum(u.data for u in plistlib.loads(sys.stdin.buffer.read())['k']))",
                                   file)),
                  std::to_string((c.objects - 3) * (c.objects + 2) / 2) + "\n");
    }
}

TEST(BinaryPropertyListWriter, FitsAsManyBytesAsItsOffsetsReach) {
    for (const auto& [size, fits] : {std::pair{0U, true}, {65500U, true}, {65510U, true}, {65520U, false}}) {
        BinaryPropertyListWriter writer({1, 2});
        const Data bytes(size, 1);
        const BinaryPropertyListWriter::Field top{writer.addText("k"), writer.addData(bytes)};
        writer.setTop({&top, 1});
        const Data file = writer.finish();
        EXPECT_EQ(!file.empty(), fits) << size;
        if (!fits) continue;
        EXPECT_EQ(
            textOf(runPython("import plistlib, sys\nprint(len(plistlib.loads(sys.stdin.buffer.read())['k']))",
                             file)),
            std::to_string(size) + "\n");
    }
}

}  // namespace
}  // namespace qlsdk::platform::testing
