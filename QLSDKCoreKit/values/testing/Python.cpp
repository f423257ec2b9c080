#include "QLSDKCoreKit/values/testing/Python.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>

namespace qlsdk::platform::testing {

namespace {

void writeFile(const std::filesystem::path& path, DataView bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.flush().good()) << path;
}

}  // namespace

Data runPython(std::string_view program, DataView input) {
    std::string name = (std::filesystem::temp_directory_path() / "qlsdk-python-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        ADD_FAILURE() << "no directory " << name;
        return {};
    }
    const std::filesystem::path directory = name;
    writeFile(directory / "program.py", bytesOf(program));
    writeFile(directory / "input", input);
    const std::string command =
        "cd '" + name + "' && PYTHONDONTWRITEBYTECODE=1 python3 program.py < input > output";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream output(directory / "output", std::ios::binary);
    Data bytes{std::istreambuf_iterator<char>(output), std::istreambuf_iterator<char>()};
    std::filesystem::remove_all(directory);
    return bytes;
}

std::vector<Data> evaluatePython(std::string_view prelude, const std::vector<std::string>& expressions) {
    std::string program =
        "import sys\n"
        "def emit(b): sys.stdout.buffer.write(len(b).to_bytes(8, 'little') + b)\n";
    program += prelude;
    program += '\n';
    for (const std::string& expression : expressions) program += "emit(" + expression + ")\n";
    const Data output = runPython(program);
    std::vector<Data> results;
    DataView rest = output;
    while (rest.size() >= 8) {
        std::uint64_t size = 0;
        for (int i = 7; i >= 0; --i) size = size << 8 | rest[static_cast<std::size_t>(i)];
        rest = rest.subspan(8);
        results.emplace_back(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(size));
        rest = rest.subspan(size);
    }
    EXPECT_EQ(results.size(), expressions.size());
    results.resize(expressions.size());
    return results;
}

}  // namespace qlsdk::platform::testing
