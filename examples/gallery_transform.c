/* Gallery: the FFT's log-magnitude spectrum, a round trip through the
   packed spectrum, and a DCT that keeps only the low frequencies. */
#include <math.h>
#include <string.h>

#include "gallery.h"
#include "gallery_images.h"

static int value32(const MoxImage* im, int x, int y) {
  int v;
  memcpy(&v, im->imageData + (size_t)y * im->widthStep + 4 * (size_t)x, 4);
  return v;
}

/* |F(v, k)| of the packed spectrum: rows are packed as Re(0), Re(1), Im(1),
   ..., Re(N/2); the first and (for an even width) the last column are then
   packed the same way along y, the others hold complex columns. */
static double magnitude(const MoxImage* s, int k, int v) {
  const int w = s->width, h = s->height;
  int col, re, im;
  if (k == 0 || (w % 2 == 0 && k == w / 2)) {
    col = k == 0 ? 0 : w - 1;
    if (v == 0) return fabs((double)value32(s, col, 0));
    if (h % 2 == 0 && v == h / 2) return fabs((double)value32(s, col, h - 1));
    if (v > h / 2) v = h - v;
    re = value32(s, col, 2 * v - 1);
    im = value32(s, col, 2 * v);
  } else {
    re = value32(s, 2 * k - 1, v);
    im = value32(s, 2 * k, v);
  }
  return sqrt((double)re * re + (double)im * im);
}

/* The forward transform of the green channel into 32 bits, shown as the
   logarithm of the magnitude with the zero frequency in the middle. */
static MoxImage* spectrum(const MoxImage* photo) {
  MoxImage* gray = galleryGray(photo);
  MoxImage* packed = galleryImage(photo, MOX_DEPTH_32S, 1);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 1);
  int x, y;
  galleryStart();
  if (gray && packed && dst) moxRealFft2D(gray, packed, MOX_FFT_FORWARD, NULL);
  if (dst && moxGetErrStatus() == MOX_StsNoError) {
    const int w = photo->width, h = photo->height;
    for (y = 0; y < h; ++y)
      for (x = 0; x < w; ++x) {
        /* Shifted by half the size; the right half mirrors the left. */
        int k = (x + w / 2) % w, v = (y + h / 2) % h;
        if (k > w / 2) k = w - k, v = (h - v) % h;
        {
          /* ln of the largest magnitude of a 600 x 400 photograph is below 18. */
          const double m = log(1 + magnitude(packed, k, v)) * 14;
          dst->imageData[(size_t)y * dst->widthStep + x] = (char)(int)(m > 255 ? 255 : m);
        }
      }
  }
  galleryFree(gray);
  galleryFree(packed);
  return galleryResult(dst);
}

/* Forward into the packed spectrum and back: the green channel again. */
static MoxImage* roundTrip(const MoxImage* photo) {
  MoxImage* gray = galleryImage(photo, MOX_DEPTH_8U, 1);
  MoxImage* packed = galleryImage(photo, MOX_DEPTH_32S, 1);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 1);
  MoxImage* green = galleryGray(photo);
  galleryStart();
  if (gray && packed && dst && green) {
    moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL);
    moxCcsFft2D(packed, dst, MOX_FFT_INVERSE, NULL);
  }
  galleryFree(gray);
  galleryFree(green);
  galleryFree(packed);
  return galleryResult(dst);
}

/* Forward DCT into 32 bits, every coefficient outside the lowest eighth of
   each axis set to 0, inverse: a smooth version of the picture. */
static MoxImage* dctLowPass(const MoxImage* photo) {
  MoxImage* coeffs = galleryImage(photo, MOX_DEPTH_32S, 3);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxROI right, below;
  const int w = photo->width, h = photo->height;
  galleryStart();
  if (coeffs && dst) {
    moxDCT2D(photo, coeffs, MOX_DCT_FORWARD);
    moxSetROI(&right, 0, w / 8, 0, h, w - w / 8);
    moxSetROI(&below, 0, 0, h / 8, h - h / 8, w / 8);
    coeffs->roi = &right;
    moxSet(coeffs, 0, NULL);
    coeffs->roi = &below;
    moxSet(coeffs, 0, NULL);
    coeffs->roi = NULL;
    moxDCT2D(coeffs, dst, MOX_DCT_INVERSE);
  }
  galleryFree(coeffs);
  return galleryResult(dst);
}

const GalleryEntry galleryTransform[] = {
    {"fft-spectrum-1", "Log-magnitude spectrum of the green channel, zero frequency centred",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL)",
     "moxpx realfft2d --flags forward green.bmp packed.bmp", spectrum},
    {"fft-spectrum-2", "Log-magnitude spectrum of the green channel, zero frequency centred",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL)",
     "moxpx realfft2d --flags forward green.bmp packed.bmp", spectrum},
    {"fft-spectrum-3", "Log-magnitude spectrum of the green channel, zero frequency centred",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL)",
     "moxpx realfft2d --flags forward green.bmp packed.bmp", spectrum},
    {"fft-round-trip", "Green channel through the packed spectrum and back",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL); moxCcsFft2D(packed, dst, MOX_FFT_INVERSE, NULL)",
     "moxpx ccsfft2d --flags inverse packed.bmp out.bmp", roundTrip},
    {"dct-low-pass", "DCT, all but the lowest eighth of the frequencies cleared, inverse DCT",
     "moxDCT2D(photo, coeffs, MOX_DCT_FORWARD); moxSet(coeffs outside the low block, 0, NULL); "
     "moxDCT2D(coeffs, dst, MOX_DCT_INVERSE)",
     "moxpx dct2d --flags forward photo.bmp coeffs.bmp", dctLowPass},
    {0, 0, 0, 0, 0},
};
