/* The public header compiles as plain C. */
#include "moxpx.h"

int moxpx_header_check(void) { return (int)sizeof(MoxImage) + MOX_StsBadArgument; }

/* On 32-bit targets the records have their fixed sizes (C89: an array of
   negative size fails to compile). */
typedef char moxpx_image_is_112_bytes[sizeof(void*) != 4 || sizeof(MoxImage) == 112 ? 1 : -1];
typedef char moxpx_context_is_1652_bytes[sizeof(void*) != 4 || sizeof(MoxContext) == 1652 ? 1 : -1];
