// A shared object of a kit, whose bundle the tests look up.
extern "C" __attribute__((visibility("default"))) int qlsdkBundleProbe() {
    return 4711;
}
