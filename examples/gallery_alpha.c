/* Alpha work in the gallery: scaled products, premultiplication and
   composition, on the photograph and on a copy of it with an alpha ramp. */
#include <stddef.h>

#include "gallery.h"
#include "gallery_images.h"

/* An 8-bit image of the photograph's size and origin. */
static MoxImage* like(const MoxImage* photo, int channels, int alpha) {
  return galleryNewImage(MOX_DEPTH_8U, channels, alpha, photo->origin, photo->height,
                         photo->width);
}

/* The photograph with a fourth channel, alpha, rising from 0 at the left
   edge to 255 at the right. */
static MoxImage* withAlphaRamp(const MoxImage* photo) {
  MoxImage* im = like(photo, 4, 4);
  int x, y, c;
  if (!im) return NULL;
  for (y = 0; y < photo->height; ++y)
    for (x = 0; x < photo->width; ++x) {
      const unsigned char* s = (const unsigned char*)photo->imageData + y * photo->widthStep + 3 * x;
      unsigned char* d = (unsigned char*)im->imageData + y * im->widthStep + 4 * x;
      for (c = 0; c < 3; ++c) d[c] = s[c];
      d[3] = (unsigned char)(photo->width > 1 ? 255 * x / (photo->width - 1) : 255);
    }
  return im;
}

static MoxImage* scaleS(const MoxImage* photo) {
  MoxImage* dst = like(photo, 3, 0);
  if (dst) moxMultiplySScale(photo, dst, 160, NULL);
  return galleryResult(dst);
}

static MoxImage* scaleSelf(const MoxImage* photo) {
  MoxImage* dst = like(photo, 3, 0);
  if (dst) moxMultiplyScale(photo, photo, dst, NULL);
  return galleryResult(dst);
}

static MoxImage* premultiply(const MoxImage* photo) {
  MoxImage* dst = withAlphaRamp(photo);
  if (dst) moxPreMultiplyAlpha(dst, -1, NULL);
  return galleryResult(dst);
}

static MoxImage* compositeC(const MoxImage* photo) {
  MoxImage* dst = like(photo, 3, 0);
  MoxImage* night = like(photo, 3, 0);
  if (dst && night) {
    moxSet(night, 30, NULL);
    moxAlphaCompositeC(photo, night, dst, MOX_COMPOSITE_OVER, 96, 255, 0, 0);
  }
  if (night) moxDeallocate(night, MOX_FREE_HEADER | MOX_FREE_DATA);
  return galleryResult(dst);
}

static MoxImage* compositeXor(const MoxImage* photo) {
  MoxImage* a = withAlphaRamp(photo);
  MoxImage* dst = like(photo, 4, 4);
  if (a && dst) moxAlphaComposite(a, photo, dst, MOX_COMPOSITE_XOR, NULL, NULL, NULL, 0, 0);
  if (a) moxDeallocate(a, MOX_FREE_HEADER | MOX_FREE_DATA);
  return galleryResult(dst);
}

const GalleryEntry galleryAlpha[] = {
    {"multiplysscale-160", "Every value times 160/255: a darker copy",
     "moxMultiplySScale(photo, dst, 160, NULL)",
     "moxpx multiplysscale --value 160 photo.bmp out.bmp", scaleS},
    {"multiplyscale-self", "The photograph times itself, scaled: deeper shadows",
     "moxMultiplyScale(photo, photo, dst, NULL)", "moxpx multiplyscale photo.bmp photo.bmp out.bmp",
     scaleSelf},
    {"premultiplyalpha-ramp", "Colours times an alpha rising from left to right",
     "moxPreMultiplyAlpha(dst, -1, NULL)",
     "moxpx premultiplyalpha --alphaValue -1 photo-ramp.bmp out.bmp", premultiply},
    {"alphacompositec-over", "The photograph at alpha 96 over a dark grey plate",
     "moxAlphaCompositeC(photo, night, dst, MOX_COMPOSITE_OVER, 96, 255, 0, 0)",
     "moxpx alphacompositec --compositeType over --aA 96 --aB 255 --premulAlpha 0 --divideMode 0 "
     "photo.bmp night.bmp out.bmp",
     compositeC},
    {"alphacomposite-xor-ramp", "The ramped photograph XOR the opaque one: only the left shows",
     "moxAlphaComposite(ramp, photo, dst, MOX_COMPOSITE_XOR, NULL, NULL, NULL, 0, 0)",
     "moxpx alphacomposite --compositeType xor --premulAlpha 0 --divideMode 0 photo-ramp.bmp "
     "photo.bmp out.bmp",
     compositeXor},
    {NULL, NULL, NULL, NULL, NULL},
};
