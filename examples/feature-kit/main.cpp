// A host that uses the kit. It knows nothing of events, uploads or the kit's property list.
#include <chrono>
#include <cstdio>

#include "StickerKit.h"

int main() {
    using namespace std::chrono_literals;
    std::printf("StickerKit %s\n", StickerKit::version().c_str());
    for (const char* pack : {"cats", "cats", "weather"}) StickerKit::shared().stickerSent(pack);
    return qlsdk::platform::waitUntilIdle(5s) ? 0 : 1;
}
