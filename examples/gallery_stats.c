/* Statistics and point maps in the gallery: threshold, histogram, contrast
   stretch, equalization and what a norm adds up. */
#include <stddef.h>

#include "gallery.h"
#include "gallery_images.h"


static MoxImage* threshold(const MoxImage* photo) {
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  if (dst) moxThreshold(photo, dst, 128);
  return galleryResult(dst);
}

/* 256 bins of one value per channel. */
static int kKeys[257];
static void fillKeys(void) {
  int i;
  for (i = 0; i <= 256; ++i) kKeys[i] = i;
}

/* The three channels' histograms as bars, blue, green and red, of the
   square roots of the counts, the largest as high as the picture. */
static MoxImage* histogram(const MoxImage* photo) {
  static int counts[3][256];
  MoxLUT luts[3];
  MoxLUT* all[3];
  MoxImage* dst = galleryNewImage(MOX_DEPTH_8U, 3, 0, MOX_ORIGIN_TL, 200, 256);
  int c, v, y, top = 1;
  fillKeys();
  for (c = 0; c < 3; ++c) {
    luts[c].num = 256, luts[c].key = kKeys, luts[c].value = counts[c], luts[c].factor = NULL;
    luts[c].interpolateType = MOX_LUT_LOOKUP;
    all[c] = &luts[c];
  }
  if (!dst) return NULL;
  moxComputeHisto(photo, all);
  for (c = 0; c < 3; ++c)
    for (v = 0; v < 256; ++v)
      if (counts[c][v] > top) top = counts[c][v];
  for (c = 0; c < 3; ++c)
    for (v = 0; v < 256; ++v)
      for (y = 0; y < 200 && (double)y * y * top < 200.0 * 200 * counts[c][v]; ++y)
        ((unsigned char*)dst->imageData)[(199 - y) * dst->widthStep + 3 * v + c] = 255;
  return galleryResult(dst);
}

/* Shadows lifted, highlights kept: slopes of 16 fraction bits. */
static MoxImage* stretch(const MoxImage* photo) {
  static int key[4] = {0, 64, 192, 256}, value[3] = {0, 128, 224};
  static int factor[3] = {2 * 65536, 49152, 32768};
  MoxLUT lut;
  MoxLUT* all[3];
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  lut.num = 3, lut.key = key, lut.value = value, lut.factor = factor;
  lut.interpolateType = MOX_LUT_INTER;
  all[0] = all[1] = all[2] = &lut;
  if (dst) moxContrastStretch(photo, dst, all);
  return galleryResult(dst);
}

static MoxImage* equalize(const MoxImage* photo) {
  static int counts[3][256];
  MoxLUT luts[3];
  MoxLUT* all[3];
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  int c;
  fillKeys();
  for (c = 0; c < 3; ++c) {
    luts[c].num = 256, luts[c].key = kKeys, luts[c].value = counts[c], luts[c].factor = NULL;
    luts[c].interpolateType = MOX_LUT_LOOKUP;
    all[c] = &luts[c];
  }
  if (dst) moxHistoEqualize(photo, dst, all);
  return galleryResult(dst);
}

/* What the L1 norm of the photograph against its mirror image adds up:
   |photo - mirror| of every value, from the two saturated differences (one
   of them is 0). */
static MoxImage* norms(const MoxImage* photo) {
  MoxImage* mirror = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage* below = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage* above = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  if (mirror && below && above && dst) {
    moxMirror(photo, mirror, 1);
    moxSubtract(photo, mirror, below, 0, NULL);
    moxSubtract(photo, mirror, above, 1, NULL);
    moxAdd(below, above, dst, NULL);
    moxNorm(photo, mirror, MOX_NORM_L1);
  }
  galleryFree(mirror);
  galleryFree(below);
  galleryFree(above);
  return galleryResult(dst);
}

const GalleryEntry galleryStats[] = {
    {"threshold-128", "Each channel below 128 to 0, the others to 255",
     "moxThreshold(photo, dst, 128)", "moxpx threshold --threshold 128 photo.bmp out.bmp",
     threshold},
    {"computehisto-256", "Histograms of blue, green and red, 256 bins each (bars of the square roots)",
     "moxComputeHisto(photo, luts)",
     "moxpx computehisto --key 0:256 --plot out.bmp photo.bmp", histogram},
    {"contraststretch-inter", "Shadows lifted by a map interpolated between keys 0, 64, 192, 256",
     "moxContrastStretch(photo, dst, luts)",
     "moxpx contraststretch --key 0,64,192,256 --value 0,128,224 --factor 131072,49152,32768 "
     "--interpolateType inter photo.bmp out.bmp",
     stretch},
    {"histoequalize-256", "Each channel's histogram spread over 0..255",
     "moxHistoEqualize(photo, dst, luts)", "moxpx histoequalize --key 0:256 photo.bmp out.bmp",
     equalize},
    {"norm-l1-mirror",
     "What the L1 norm against the mirror image adds up: |photo - mirror| of every value",
     "moxMirror(photo, mirror, 1); moxSubtract(photo, mirror, below, 0, NULL); "
     "moxSubtract(photo, mirror, above, 1, NULL); moxAdd(below, above, dst, NULL); "
     "moxNorm(photo, mirror, MOX_NORM_L1)",
     "moxpx mirror --flipAxis 1 photo.bmp mirror.bmp && "
     "moxpx subtract --reverse 0 photo.bmp mirror.bmp below.bmp && "
     "moxpx subtract --reverse 1 photo.bmp mirror.bmp above.bmp && "
     "moxpx add below.bmp above.bmp out.bmp && moxpx norm --normType l1 photo.bmp mirror.bmp",
     norms},
    {NULL, NULL, NULL, NULL, NULL},
};
