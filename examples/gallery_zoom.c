/* Gallery: zoom and decimation of the whole photograph at each
   interpolation. */
#include <stddef.h>

#include "gallery.h"

/* A new 8U image shaped like the photograph, scaled by u / l per axis
   (rounded down, as the moxpx tool makes it). */
static MoxImage* scaled(const MoxImage* photo, int u, int l) {
  MoxImage* dst = moxCreateImageHeader(photo->nChannels, 0, photo->depth, "RGB", "BGR",
                                       photo->dataOrder, photo->origin, 4,
                                       (int)((long long)photo->height * u / l),
                                       (int)((long long)photo->width * u / l), NULL,
                                       NULL, NULL);
  if (dst) moxAllocateImage(dst, 0);
  if (dst && !dst->imageData) {
    moxDeallocate(dst, MOX_FREE_HEADER);
    dst = NULL;
  }
  return dst;
}

/* Runs op into a new image; null after a failure. */
static MoxImage* resample(const MoxImage* photo, int u, int l, int interpolate, int zoom) {
  MoxImage* dst = scaled(photo, u, l);
  if (!dst) return NULL;
  moxSetErrStatus(MOX_StsNoError);
  if (zoom)
    moxZoom(photo, dst, u, l, u, l, interpolate, NULL);
  else
    moxDecimate(photo, dst, u, l, u, l, interpolate, NULL);
  if (moxGetErrStatus() < 0) {
    moxDeallocate(dst, MOX_FREE_HEADER | MOX_FREE_DATA);
    return NULL;
  }
  return dst;
}

static MoxImage* zoomNearest(const MoxImage* photo) {
  return resample(photo, 3, 1, MOX_INTER_NN, 1);
}
static MoxImage* zoomLinear(const MoxImage* photo) {
  return resample(photo, 5, 2, MOX_INTER_LINEAR, 1);
}
static MoxImage* zoomCubic(const MoxImage* photo) {
  return resample(photo, 5, 2, MOX_INTER_CUBIC, 1);
}
static MoxImage* decimateNearest(const MoxImage* photo) {
  return resample(photo, 3, 8, MOX_INTER_NN, 0);
}
static MoxImage* decimateLinear(const MoxImage* photo) {
  return resample(photo, 3, 8, MOX_INTER_LINEAR, 0);
}
static MoxImage* decimateCubic(const MoxImage* photo) {
  return resample(photo, 3, 8, MOX_INTER_CUBIC, 0);
}

const GalleryEntry galleryZoom[] = {
    {"zoom-nn-3x1", "Zoom by 3 with nearest neighbour: every pixel becomes a 3x3 block",
     "moxZoom(photo, dst, 3, 1, 3, 1, MOX_INTER_NN, NULL)",
     "moxpx zoom --xU 3 --xL 1 --yU 3 --yL 1 --interpolate nn photo.bmp out.bmp", zoomNearest},
    {"zoom-linear-5x2", "Zoom by 5/2 with linear interpolation",
     "moxZoom(photo, dst, 5, 2, 5, 2, MOX_INTER_LINEAR, NULL)",
     "moxpx zoom --xU 5 --xL 2 --yU 5 --yL 2 --interpolate linear photo.bmp out.bmp", zoomLinear},
    {"zoom-cubic-5x2", "Zoom by 5/2 with cubic interpolation: sharper edges than linear",
     "moxZoom(photo, dst, 5, 2, 5, 2, MOX_INTER_CUBIC, NULL)",
     "moxpx zoom --xU 5 --xL 2 --yU 5 --yL 2 --interpolate cubic photo.bmp out.bmp", zoomCubic},
    {"decimate-nn-3x8", "Decimation to 3/8 with nearest neighbour: fine detail aliases",
     "moxDecimate(photo, dst, 3, 8, 3, 8, MOX_INTER_NN, NULL)",
     "moxpx decimate --xU 3 --xL 8 --yU 3 --yL 8 --interpolate nn photo.bmp out.bmp",
     decimateNearest},
    {"decimate-linear-3x8", "Decimation to 3/8 with linear interpolation in 8-bit fixed point",
     "moxDecimate(photo, dst, 3, 8, 3, 8, MOX_INTER_LINEAR, NULL)",
     "moxpx decimate --xU 3 --xL 8 --yU 3 --yL 8 --interpolate linear photo.bmp out.bmp",
     decimateLinear},
    {"decimate-cubic-3x8", "Decimation to 3/8 with cubic interpolation in 8-bit fixed point",
     "moxDecimate(photo, dst, 3, 8, 3, 8, MOX_INTER_CUBIC, NULL)",
     "moxpx decimate --xU 3 --xL 8 --yU 3 --yL 8 --interpolate cubic photo.bmp out.bmp",
     decimateCubic},
    {NULL, NULL, NULL, NULL, NULL},
};
