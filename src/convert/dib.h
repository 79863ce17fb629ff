// Packed bitmaps in memory: the info header, the palette (or bit-field
// masks) and the rows. Reading checks everything the header claims before a
// byte of the rows is touched; writing builds the palette of 8-bit bitmaps.
#pragma once

#include <cstdint>

#include "convert/convert.h"

namespace mox::dib {

constexpr unsigned kRgb = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3;

// What the header of a bitmap says, after the checks.
struct Layout {
  int width, height;  // height > 0
  bool topDown;
  int bits;
  unsigned compression;
  int colours;                       // palette entries
  const std::uint8_t* palette;       // BGRX entries
  const std::uint8_t* pixels;        // the rows, or the run-length data
  long long rowBytes;                // of uncompressed rows
  unsigned dataBytes;                // run-length data
  std::uint32_t mask[4];             // red, green, blue, alpha (bit fields, 16 and 32 bits)
  bool gray;                         // a palette whose entries are all gray
};

// Reads the header; reports the first failing check at line `base` + its
// number under `func` and returns false.
bool readLayout(const MoxBitmapInfoHeader* dib, const char* func, int base, Layout& l);

// The image a bitmap becomes: 8U, 1 channel for gray palettes, 4 for 32-bit
// rows and alpha masks, else 3 ("BGR" order), rows in the bitmap's order.
// Shares the rows where they already have that layout unless `copy` is
// set. Returns null after a report (line `base` + 16 and on).
MoxImage* translate(const Layout& l, const char* func, int base, bool copy, bool* cloned);

// The palette of an 8-bit bitmap for pixels of 3 values (blue, green, red)
// each: `count` entries (BGRX) chosen by `how` (MOX_PALCONV_*), written to
// out (unused entries black). Returns the entries used, -1 when out of
// memory.
int buildPalette(const std::uint8_t* bgr, long long pixels, int count, int how,
                  std::uint8_t* out);

// How pixels find their palette entry: a gray ramp of `count` levels (one
// value per pixel), the 3-3-2 cube, or the nearest entry of any palette.
enum class Palette { Ramp, Cube, Any };

// The entries of a ramp or of the cube.
void fixedPalette(Palette kind, int count, std::uint8_t* out);

// Maps rows of pixels (1 value for a ramp, else blue, green, red), `width`
// pixels per row and rows one after the other, to palette indexes with the
// dither of moxReduceBits; output rows `outStep` bytes apart. Returns false
// when out of memory.
bool mapToPalette(const std::uint8_t* pixels, int width, int rows, Palette kind,
                  const std::uint8_t* palette, int count, int dither, std::uint8_t* out,
                  long long outStep);

}  // namespace mox::dib
