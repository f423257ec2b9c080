// Part of every program of a ThreadSanitizer build that is a test or is run by one.
//
// die_after_fork: children of fork() start the kit's threads afresh, which the sanitizer refuses otherwise.
// ignore_noninstrumented_modules: GLib, libcurl and the other libraries are not instrumented; what they do
// among themselves would be reported as races of theirs.
// report_thread_leaks: the kit joins nothing at exit, so a finished resolver thread of libcurl may be left.
#ifndef QLSDK_MORE_TSAN_OPTIONS
#define QLSDK_MORE_TSAN_OPTIONS ""  // ":OPTION=VALUE...", for a program that needs more.
#endif

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "die_after_fork=0:ignore_noninstrumented_modules=1:report_thread_leaks=0" QLSDK_MORE_TSAN_OPTIONS;
}
