#include "QLSDKCoreKit/values/KeyedArchive.h"

#include "fuzz/Require.h"
#include "fuzz/Targets.h"

#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"
#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/values/testing/SampleRecord.h"

namespace qlsdk::fuzz {

namespace {

using namespace platform;

// What the library keeps in its files, and a record with a field of every kind.
constexpr ArchivableClass kClasses[] = {
    {"Sample", testing::SampleRecord::initWithCoder},
    {EventWrapper::kClassName, EventWrapper::initWithCoder},
    {EncodablePicoproto::kClassName, EncodablePicoproto::initWithCoder},
    {QLSDKDynamicConfigEntity::kClassName, QLSDKDynamicConfigEntity::initWithCoder},
};

}  // namespace

bool isArchive(DataView bytes) {
    return unarchiveRootObject(bytes, kClasses).has_value();
}

void keyedArchive(DataView bytes) {
    const auto object = unarchiveRootObject(bytes, kClasses);
    if (!object) return;
    const Data archive = archiveRootObject(*object, RootClass::dictionary);
    const auto again = unarchiveRootObject(archive, kClasses);
    require(again.has_value());
    // Once written by us, an archive no longer changes.
    require(archiveRootObject(*again, RootClass::dictionary) == archive);
}

}  // namespace qlsdk::fuzz
