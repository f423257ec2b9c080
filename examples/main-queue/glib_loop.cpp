// A host with a GLib main loop, as every GTK program has one: the main queue is one more source in it.
#include "ExampleHost.h"
#include <glib-unix.h>

#include <QLSDKCoreKit/core/QLSDKClientSetup.h>

int main(int argc, char** argv) {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    if (!installExamplePlatform(argc, argv, [loop] { g_main_loop_quit(loop); })) return 1;

    const GUnixFDSourceFunc drain = [](gint, GIOCondition, gpointer queue) -> gboolean {
        static_cast<qlsdk::platform::MainQueue*>(queue)->drain();
        return G_SOURCE_CONTINUE;
    };
    qlsdk::platform::MainQueue& mainQueue = *qlsdk::platform::current().queues->mainQueue();
    g_unix_fd_add(mainQueue.fileDescriptor(), G_IO_IN, drain, &mainQueue);

    qlsdk::QLSDKClientSetup::sharedInstance();  // Queues the first update of the configuration.
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}
