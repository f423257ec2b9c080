// The entry point that libFuzzer calls; the build names the function to drive.

#include "fuzz/Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    qlsdk::fuzz::QLSDK_FUZZ_TARGET({bytes, count});
    return 0;
}
