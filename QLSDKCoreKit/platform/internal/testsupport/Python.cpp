#include "QLSDKCoreKit/platform/internal/testsupport/Python.h"

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

}  // namespace qlsdk::platform::testing
