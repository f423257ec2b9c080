// Part of quillkit in builds with AddressSanitizer only. fontconfig keeps its configuration for the life of
// the process, and the kit never calls FcFini, because the host may use fontconfig, too.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}
