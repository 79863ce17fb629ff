// Turning a rectangle of pixels on its side: columns become rows.
#pragma once

#include <cstddef>

namespace mox {

// Pixel (i, r) of `from` (cols pixels of `pix` bytes by rows rows, rows
// fromStep bytes apart) becomes pixel (r, i) of `to` (cols rows of `rows`
// pixels, toStep bytes apart). The rectangles must not overlap.
void turnPixels(const char* from, std::ptrdiff_t fromStep, int cols, int rows, int pix, char* to,
                std::ptrdiff_t toStep);

}  // namespace mox
