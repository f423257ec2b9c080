// A shared object of a kit, whose bundle the tests look up.
struct QLSDKHiddenClass {
    virtual ~QLSDKHiddenClass() = default;
    [[nodiscard]] virtual int answer() const { return 4711; }
};

// An optimising compiler leaves out the type information of a class that only lives in a function.
[[gnu::used]] static const QLSDKHiddenClass theInstance;

extern "C" __attribute__((visibility("default"))) int qlsdkBundleProbe() {
    return theInstance.answer();
}
