#include "QLSDKCoreKit/platform/KeyedArchive.h"

#include "fuzz/Require.h"
#include "fuzz/Targets.h"

#include "QLSDKCoreKit/platform/internal/testsupport/SampleRecord.h"

namespace qlsdk::fuzz {

void keyedArchive(DataView bytes) {
    using namespace platform;
    const auto object = unarchiveRootObject(bytes, testing::sampleClasses());
    if (!object) return;
    const Data archive = archiveRootObject(*object, RootClass::dictionary);
    const auto again = unarchiveRootObject(archive, testing::sampleClasses());
    require(again.has_value());
    // Once written by us, an archive no longer changes.
    require(archiveRootObject(*again, RootClass::dictionary) == archive);
}

}  // namespace qlsdk::fuzz
