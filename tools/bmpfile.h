/* .bmp files for the demo, the command-line tool and the tests: a file is a
   14-byte file header followed by a packed bitmap (info header, palette,
   rows), which the library reads and writes. */
#ifndef MOXPX_BMPFILE_H
#define MOXPX_BMPFILE_H

#include "moxpx.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads a .bmp file into a new image with its own pixels (8U; 1 channel for
   gray palettes, 4 for 32-bit files, else 3 in "BGR" order; rows as the file
   holds them, origin bottom-left unless the file is top-down). Release it
   with moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA). Returns null
   with a reason in why (the library also reports bitmaps it refuses). */
MoxImage* bmpRead(const char* path, char* why, int whySize);

/* The packed bitmap of a file in memory: the bytes after the file header,
   with the rows moved up behind the palette when the file leaves a gap.
   Returns a block to free() or null with a reason in why. */
MoxBitmapInfoHeader* bmpUnpack(const unsigned char* file, size_t size, char* why, int whySize);

/* Writes the ROI of an image as an 8- (palette), 24- or 32-bit bottom-up
   file through moxConvertToDIB. Returns 0, or -1 with a reason in why. */
int bmpWrite(const char* path, const MoxImage* image, int bitCount, int dither,
             int paletteConversion, char* why, int whySize);

#ifdef __cplusplus
}
#endif

#endif
