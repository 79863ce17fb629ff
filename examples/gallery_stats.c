/* Statistics and point maps in the gallery: threshold, histogram, contrast
   stretch, equalization and a map of local norms. */
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

/* The three channels' histograms as bars, blue, green and red. */
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
      for (y = 0; y < 200 && (long)(200 - y) * top <= 200L * counts[c][v] * 3 / 2; ++y)
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

/* Each 16 x 16 block: the C norm of the photograph against its threshold
   picture, i.e. how far the block's values lie from black or white. */
static MoxImage* norms(const MoxImage* photo) {
  MoxImage* two = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 1);
  MoxROI a, b;
  MoxImage pa, pb;
  int x, y, i, j;
  if (two) moxThreshold(photo, two, 128);
  if (!two || !dst || moxGetErrStatus() != MOX_StsNoError) {
    if (two) moxDeallocate(two, MOX_FREE_HEADER | MOX_FREE_DATA);
    return galleryResult(dst);
  }
  pa = *photo, pb = *two;
  pa.roi = &a, pb.roi = &b;
  for (y = 0; y < photo->height; y += 16)
    for (x = 0; x < photo->width; x += 16) {
      double n;
      moxSetROI(&a, 0, x, y, 16, 16);
      moxSetROI(&b, 0, x, y, 16, 16);
      n = moxNorm(&pa, &pb, MOX_NORM_L1) / (16.0 * 16.0 * 3.0);
      for (j = y; j < y + 16 && j < photo->height; ++j)
        for (i = x; i < x + 16 && i < photo->width; ++i)
          ((unsigned char*)dst->imageData)[j * dst->widthStep + i] = (unsigned char)(2 * n > 255 ? 255 : 2 * n);
    }
  moxDeallocate(two, MOX_FREE_HEADER | MOX_FREE_DATA);
  return galleryResult(dst);
}

const GalleryEntry galleryStats[] = {
    {"threshold-128", "Each channel below 128 to 0, the others to 255",
     "moxThreshold(photo, dst, 128)", "moxpx threshold --threshold 128 photo.bmp out.bmp",
     threshold},
    {"computehisto-256", "Histograms of blue, green and red, 256 bins each",
     "moxComputeHisto(photo, luts)",
     "moxpx computehisto --key 0:256 photo.bmp", histogram},
    {"contraststretch-inter", "Shadows lifted by a map interpolated between keys 0, 64, 192, 256",
     "moxContrastStretch(photo, dst, luts)",
     "moxpx contraststretch --key 0,64,192,256 --value 0,128,224 --factor 131072,49152,32768 "
     "--interpolateType inter photo.bmp out.bmp",
     stretch},
    {"histoequalize-256", "Each channel's histogram spread over 0..255",
     "moxHistoEqualize(photo, dst, luts)", "moxpx histoequalize --key 0:256 photo.bmp out.bmp",
     equalize},
    {"norm-l1-blocks", "Mean distance of each 16x16 block from its threshold picture (L1 norm)",
     "moxNorm(block, thresholdBlock, MOX_NORM_L1)",
     "moxpx norm --normType l1 photo.bmp threshold.bmp", norms},
    {NULL, NULL, NULL, NULL, NULL},
};
