#include "Contest.h"
#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    qlsdk::bench::addWireContests();
    qlsdk::bench::addArchiveContests();
    qlsdk::bench::addCodecContests();
    qlsdk::bench::addFileContests();
    qlsdk::bench::addPushContests();
    qlsdk::bench::addBurstContests();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
