/* Gallery: the FFT's log-magnitude spectrum, a round trip through the
   packed spectrum, and a DCT that keeps only the low frequencies. */
#include <stdlib.h>
#include <string.h>

#include "gallery.h"
#include "gallery_images.h"
#include "magnitude.h"

/* The forward transform of the green channel into 32 bits, shown as the
   logarithm of the magnitude with the zero frequency in the middle,
   stretched over 0..255 as the moxpx tool draws it. */
static MoxImage* spectrum(const MoxImage* photo) {
  MoxImage* gray = galleryGray(photo);
  MoxImage* packed = galleryImage(photo, MOX_DEPTH_32S, 1);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 1);
  unsigned char* shown = (unsigned char*)malloc((size_t)photo->width * photo->height);
  int y;
  galleryStart();
  if (gray && packed && dst && shown) {
    moxRealFft2D(gray, packed, MOX_FFT_FORWARD, NULL);
    if (moxGetErrStatus() == MOX_StsNoError &&
        moxcliLogMagnitude(packed->imageData, packed->widthStep, photo->width, photo->height, 1,
                           1, shown) == 0)
      for (y = 0; y < photo->height; ++y)
        memcpy(dst->imageData + (size_t)y * dst->widthStep, shown + (size_t)y * photo->width,
               (size_t)photo->width);
  }
  free(shown);
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
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx realfft2d --flags forward green.bmp out.bmp",
     spectrum},
    {"fft-spectrum-2", "Log-magnitude spectrum of the green channel, zero frequency centred",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx realfft2d --flags forward green.bmp out.bmp",
     spectrum},
    {"fft-spectrum-3", "Log-magnitude spectrum of the green channel, zero frequency centred",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx realfft2d --flags forward green.bmp out.bmp",
     spectrum},
    {"fft-round-trip", "Green channel through the packed spectrum and back",
     "moxRealFft2D(green, packed, MOX_FFT_FORWARD, NULL); moxCcsFft2D(packed, dst, MOX_FFT_INVERSE, NULL)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx realfft2d --flags forward --raw 1 green.bmp packed.npy && "
     "moxpx ccsfft2d --flags inverse packed.npy out.bmp",
     roundTrip},
    {"dct-low-pass", "DCT, all but the lowest eighth of the frequencies cleared, inverse DCT",
     "moxDCT2D(photo, coeffs, MOX_DCT_FORWARD); moxSetROI(&right, 0, {w/8}, 0, {h}, {w-w/8}); "
     "moxSet(coeffs with right, 0, NULL); moxSetROI(&below, 0, 0, {h/8}, {h-h/8}, {w/8}); "
     "moxSet(coeffs with below, 0, NULL); moxDCT2D(coeffs, dst, MOX_DCT_INVERSE)",
     "moxpx dct2d --flags forward --raw 1 photo.bmp coeffs.npy && "
     "moxpx set --fillValue 0 --roi {w/8},0,{w-w/8},{h} coeffs.npy right.npy && "
     "moxpx set --fillValue 0 --roi 0,{h/8},{w/8},{h-h/8} right.npy low.npy && "
     "moxpx dct2d --flags inverse low.npy out.bmp",
     dctLowPass},
    {0, 0, 0, 0, 0},
};
