// Turning a rectangle of pixels on its side: columns become rows.
#pragma once

#include <cstddef>

namespace mox {

// Pixel (i, r) of `from` (cols pixels of `pix` bytes by rows rows, rows
// fromStep bytes apart) becomes pixel (r, i) of `to` (cols rows of `rows`
// pixels, toStep bytes apart). The rectangles must not overlap. Either step
// may be negative, with the pointer at the row that comes first: a negative
// fromStep (from at the last row in memory) reverses each row of `to`, a
// negative toStep (to at the last row in memory) reverses the order of its
// rows; together with the turn these make the quarter turns.
void turnPixels(const char* from, std::ptrdiff_t fromStep, int cols, int rows, int pix, char* to,
                std::ptrdiff_t toStep);

}  // namespace mox
