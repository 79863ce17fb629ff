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

// Natural logarithm of 1 + m (m >= 0) from + - * / alone, so that every
// build draws the same picture.
double log1pExact(double m);

}  // namespace moxcli
