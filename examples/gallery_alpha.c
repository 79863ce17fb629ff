/* Alpha work in the gallery: scaled products, premultiplication and
   composition, on the photograph and on a copy of it whose alpha is its grey. */
#include <stddef.h>

#include "gallery.h"
#include "gallery_images.h"

/* An 8-bit image of the photograph's size and origin. */
static MoxImage* like(const MoxImage* photo, int channels, int alpha) {
  return galleryNewImage(MOX_DEPTH_8U, channels, alpha, photo->origin, photo->height,
                         photo->width);
}

/* The photograph with a fourth channel, alpha: its grey picture. */
static MoxImage* withGrayAlpha(const MoxImage* photo) {
  MoxImage* im = like(photo, 4, 4);
  MoxImage* gray = like(photo, 1, 0);
  int x, y, c;
  if (im && gray) moxColorToGray(photo, gray, NULL);
  if (!im || !gray || moxGetErrStatus() != MOX_StsNoError) {
    galleryFree(gray);
    galleryFree(im);
    return NULL;
  }
  for (y = 0; y < photo->height; ++y)
    for (x = 0; x < photo->width; ++x) {
      const unsigned char* s = (const unsigned char*)photo->imageData + y * photo->widthStep + 3 * x;
      unsigned char* d = (unsigned char*)im->imageData + y * im->widthStep + 4 * x;
      for (c = 0; c < 3; ++c) d[c] = s[c];
      d[3] = (unsigned char)gray->imageData[y * gray->widthStep + x];
    }
  galleryFree(gray);
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
  MoxImage* dst = withGrayAlpha(photo);
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
  MoxImage* a = withGrayAlpha(photo);
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
    {"premultiplyalpha-gray", "Colours times an alpha that is their own grey: shadows deepen",
     "moxColorToGray(photo, gray, NULL); dst = photo with gray as alpha; "
     "moxPreMultiplyAlpha(dst, -1, NULL)",
     "moxpx colortogray photo.bmp gray.bmp && "
     "moxpx premultiplyalpha --alphaValue -1 --alpha gray.bmp photo.bmp out.bmp",
     premultiply},
    {"alphacompositec-over", "The photograph at alpha 96 over a dark grey plate",
     "moxSet(night, 30, NULL); "
     "moxAlphaCompositeC(photo, night, dst, MOX_COMPOSITE_OVER, 96, 255, 0, 0)",
     "moxpx set --fillValue 30 photo.bmp night.bmp && moxpx alphacompositec "
     "--compositeType over --aA 96 --aB 255 --premulAlpha 0 --divideMode 0 "
     "photo.bmp night.bmp out.bmp",
     compositeC},
    {"alphacomposite-xor-gray",
     "The photograph with its grey as alpha XOR the opaque one: the shadows show",
     "moxColorToGray(photo, gray, NULL); a = photo with gray as alpha; "
     "moxAlphaComposite(a, photo, dst, MOX_COMPOSITE_XOR, NULL, NULL, NULL, 0, 0)",
     "moxpx colortogray photo.bmp gray.bmp && moxpx alphacomposite --compositeType xor "
     "--premulAlpha 0 --divideMode 0 --alpha gray.bmp photo.bmp photo.bmp out.bmp",
     compositeXor},
    {NULL, NULL, NULL, NULL, NULL},
};
