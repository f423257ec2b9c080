// Part of the shared library only, which knows itself by it (see LibraryAddresses.cpp).
extern "C" {
extern const char qlsdkSharedLibrary[] __attribute__((visibility("hidden")));
const char qlsdkSharedLibrary[] = "shared";
}
