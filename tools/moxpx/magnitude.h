/* Log-magnitude pictures of spectra and cosine coefficients, in C so that
   the tool and the demo gallery draw the very same picture. */
#ifndef MOXCLI_MAGNITUDE_H
#define MOXCLI_MAGNITUDE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Natural logarithm of 1 + m (m >= 0) from + - * / alone, so that every
   build draws the same picture. */
double moxcliLog1p(double m);

/* Writes into `out` (width * height * channels bytes, no padding) a picture
   of log(1 + |value|) of the 32-bit values of `values` (rows `rowStep`
   bytes apart, channels interleaved), stretched so that the smallest is 0
   and the largest 255. A packed Fourier spectrum (packed != 0) is unpacked
   first and its zero frequency moved to the centre; cosine coefficients are
   shown where they are. The alpha channel of a two- or four-channel picture
   is made opaque. Returns 0, or -1 when out of memory. */
int moxcliLogMagnitude(const void* values, long rowStep, int width, int height, int channels,
                       int packed, unsigned char* out);

#ifdef __cplusplus
}
#endif

#endif
