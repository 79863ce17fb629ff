/* The public header compiles as plain C. */
#include "moxpx.h"

int moxpx_header_check(void) { return (int)sizeof(MoxImage) + MOX_StsBadArgument; }
