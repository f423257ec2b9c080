#include "tools/inspect/ArchiveClasses.h"

#include <array>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"

namespace quillkit {

std::optional<qlsdk::platform::ArchivedObject> readArchive(qlsdk::DataView bytes) {
    using qlsdk::EncodablePicoproto;
    using qlsdk::EventWrapper;
    const std::array<qlsdk::platform::ArchivableClass, 3> classes{
        {{EventWrapper::kClassName, EventWrapper::initWithCoder},
         {EncodablePicoproto::kClassName, EncodablePicoproto::initWithCoder},
         {ConfigEntityView::kClassName, ConfigEntityView::initWithCoder}}};
    return qlsdk::platform::unarchiveRootObject(bytes, classes);
}

}  // namespace quillkit
