#ifndef QLSDKCOREKIT_C_QLSDKTEXT_H
#define QLSDKCOREKIT_C_QLSDKTEXT_H

#include <stddef.h>

/* How the functions of this folder take and give text. All text is UTF-8 and ends in NUL; what is passed in
   is borrowed for the call.

   A text that is answered goes into the caller's buffer of `capacity` bytes, and the function returns its
   length without the NUL. It is there exactly if that length is less than `capacity`; it is never cut. A
   buffer that is too small gets an empty text. NULL with a capacity of 0 only asks for the length. */

/** Returned in place of a length when there is no such text, which is not the same as an empty one. The
    buffer gets an empty text. */
#define QLSDK_NO_TEXT ((size_t)-1)

#endif
