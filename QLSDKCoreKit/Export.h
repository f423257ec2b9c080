#ifndef QLSDKCOREKIT_EXPORT_H
#define QLSDKCOREKIT_EXPORT_H

/* The version of the library that a host is compiled against, by semantic versioning: 10000 * major +
   100 * minor + patch, and as a text. The build, the packages and the property list of the library's own
   bundle take it from here; what runs says its own with `QLSDKCoreKitVersionString`. */
#define QLSDK_VERSION 10304
#define QLSDK_VERSION_TEXT "1.3.4"

/* Everything is hidden by default; what hosts and kits may link to carries QLSDK_EXPORT. Usable from C. */
#define QLSDK_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define QLSDK_EXTERN_C extern "C" QLSDK_EXPORT
#else
#define QLSDK_EXTERN_C extern QLSDK_EXPORT
#endif

#endif
