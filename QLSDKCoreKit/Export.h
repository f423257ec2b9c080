#ifndef QLSDKCOREKIT_PLATFORM_EXPORT_H
#define QLSDKCOREKIT_PLATFORM_EXPORT_H

/* Everything is hidden by default; what hosts and kits may link to carries QLSDK_EXPORT. Usable from C. */
#define QLSDK_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define QLSDK_EXTERN_C extern "C" QLSDK_EXPORT
#else
#define QLSDK_EXTERN_C extern QLSDK_EXPORT
#endif

#endif
