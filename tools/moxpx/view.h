// Pictures made from results that are not pictures themselves: spectra and
// cosine coefficients as log-magnitude images.
#pragma once

#include <string>

#include "picture.h"

namespace moxcli {

// An 8U picture of log(1 + |value|), stretched so that the smallest is 0 and
// the largest 255. A
// packed Fourier spectrum is unpacked first and its zero frequency moved to
// the centre; cosine coefficients are shown where they are. The alpha
// channel of a two- or four-channel picture is made opaque.
Picture logMagnitude(const Picture& values, bool packedSpectrum);

// The result as it is, for a file that must hold its values exactly.
// Throws UsageError when the file's format does not.
Picture rawView(const Picture& values, const std::string& path);

// Channel n (1-based) of a picture as a one-channel picture. Throws
// UsageError when the picture has fewer channels.
Picture channelOf(const Picture& picture, int n);

// A grey or RGB picture with the first channel of `alpha` (of the same size
// and depth) added as its alpha channel. Throws UsageError when they do not fit.
Picture withAlpha(const Picture& picture, const Picture& alpha);

// The numbers of a text as bars 200 rows high: a column per number of a
// line, a channel per line (1 to 4), the heights as the square roots of the
// numbers, the largest as high as the picture. Throws UsageError when the text holds no such numbers.
Picture bars(const std::string& text);

}  // namespace moxcli
