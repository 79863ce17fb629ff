/* Gallery: convolution, box filters and morphology on the sample photograph.
   Pixels outside the photograph come from its border modes (as loaded: a
   constant 0, so the edges darken where a window reaches past them). */
#include <stddef.h>

#include "gallery.h"

/* A new image of the photograph's shape, or null. */
static MoxImage* likePhoto(const MoxImage* photo) {
  MoxImage* dst = moxCreateImageHeader(photo->nChannels, 0, photo->depth, "RGB", "BGR",
                                       photo->dataOrder, photo->origin, photo->align,
                                       photo->height, photo->width, NULL, NULL, NULL);
  if (dst) moxAllocateImage(dst, 0);
  return dst;
}

/* Runs a kernel set on the photograph and releases the kernels. */
static MoxImage* convolveWith(const MoxImage* photo, MoxConvKernel** k, int n, int method) {
  MoxImage* dst = likePhoto(photo);
  int i;
  if (dst) moxConvolve2D(photo, dst, k, n, method);
  for (i = 0; i < n; ++i) moxDeleteConvKernel(k[i]);
  return dst;
}

static MoxImage* sharpen(const MoxImage* photo) {
  static const int v[9] = {0, -1, 0, -1, 5, -1, 0, -1, 0};
  MoxConvKernel* k[1];
  k[0] = moxCreateConvKernel(3, 3, 1, 1, v, 0);
  return convolveWith(photo, k, 1, MOX_SUM);
}

static MoxImage* edges(const MoxImage* photo) {
  static const int gx[9] = {-1, 0, 1, -2, 0, 2, -1, 0, 1};
  static const int gy[9] = {-1, -2, -1, 0, 0, 0, 1, 2, 1};
  MoxConvKernel* k[2];
  k[0] = moxCreateConvKernel(3, 3, 1, 1, gx, 0);
  k[1] = moxCreateConvKernel(3, 3, 1, 1, gy, 0);
  return convolveWith(photo, k, 2, MOX_SUMSQROOT);
}

static MoxImage* gaussian(const MoxImage* photo) {
  static const int v[7] = {1, 6, 15, 20, 15, 6, 1};
  MoxConvKernel* x = moxCreateConvKernel(7, 1, 3, 0, v, 6);
  MoxConvKernel* y = moxCreateConvKernel(1, 7, 0, 3, v, 6);
  MoxImage* dst = likePhoto(photo);
  if (dst) moxConvolveSep2D(photo, dst, x, y);
  moxDeleteConvKernel(x);
  moxDeleteConvKernel(y);
  return dst;
}

#define BOX(fn, n, a)                                   \
  static MoxImage* fn##Box(const MoxImage* photo) {     \
    MoxImage* dst = likePhoto(photo);                   \
    if (dst) mox##fn(photo, dst, n, n, a, a);           \
    return dst;                                         \
  }
BOX(Blur, 15, 7)
BOX(MinFilter, 9, 4)
BOX(MaxFilter, 9, 4)
BOX(MedianFilter, 11, 5)
#undef BOX

#define MORPH(fn, n)                                    \
  static MoxImage* fn##Times(const MoxImage* photo) {   \
    MoxImage* dst = likePhoto(photo);                   \
    if (dst) mox##fn(photo, dst, n);                    \
    return dst;                                         \
  }
MORPH(Erode, 3)
MORPH(Dilate, 3)
MORPH(Open, 4)
MORPH(Close, 4)
#undef MORPH

const GalleryEntry galleryFilter[] = {
    {"convolve-sharpen", "3x3 sharpening kernel",
     "moxConvolve2D(photo, dst, k, 1, MOX_SUM) with k[0] = moxCreateConvKernel(3, 3, 1, 1, "
     "{0, -1, 0, -1, 5, -1, 0, -1, 0}, 0)",
     "moxpx convolve2d --kernel 3,3,1,1,0:0,-1,0,-1,5,-1,0,-1,0 --combineMethod sum photo.bmp out.bmp",
     sharpen},
    {"convolve-sobel-magnitude", "Sobel gradients in x and y combined by the root of their squares",
     "moxConvolve2D(photo, dst, k, 2, MOX_SUMSQROOT) with k[0] = moxCreateConvKernel(3, 3, 1, 1, "
     "{-1, 0, 1, -2, 0, 2, -1, 0, 1}, 0), k[1] = moxCreateConvKernel(3, 3, 1, 1, "
     "{-1, -2, -1, 0, 0, 0, 1, 2, 1}, 0)",
     "moxpx convolve2d --kernel 3,3,1,1,0:-1,0,1,-2,0,2,-1,0,1 --kernel 3,3,1,1,0:-1,-2,-1,0,0,0,1,2,1 "
     "--combineMethod sumsqroot photo.bmp out.bmp",
     edges},
    {"convolvesep-binomial-7", "7-tap binomial smoothing, rows then columns",
     "moxConvolveSep2D(photo, dst, moxCreateConvKernel(7, 1, 3, 0, {1, 6, 15, 20, 15, 6, 1}, 6), "
     "moxCreateConvKernel(1, 7, 0, 3, {1, 6, 15, 20, 15, 6, 1}, 6))",
     "moxpx convolvesep2d --xKernel 7,1,3,0,6:1,6,15,20,15,6,1 --yKernel 1,7,0,3,6:1,6,15,20,15,6,1 "
     "photo.bmp out.bmp",
     gaussian},
    {"blur-15", "mean of a 15x15 box", "moxBlur(photo, dst, 15, 15, 7, 7)",
     "moxpx blur --nCols 15 --nRows 15 --anchorX 7 --anchorY 7 photo.bmp out.bmp", BlurBox},
    {"minfilter-9", "minimum of a 9x9 box", "moxMinFilter(photo, dst, 9, 9, 4, 4)",
     "moxpx minfilter --nCols 9 --nRows 9 --anchorX 4 --anchorY 4 photo.bmp out.bmp", MinFilterBox},
    {"maxfilter-9", "maximum of a 9x9 box", "moxMaxFilter(photo, dst, 9, 9, 4, 4)",
     "moxpx maxfilter --nCols 9 --nRows 9 --anchorX 4 --anchorY 4 photo.bmp out.bmp", MaxFilterBox},
    {"medianfilter-11", "median of an 11x11 box", "moxMedianFilter(photo, dst, 11, 11, 5, 5)",
     "moxpx medianfilter --nCols 11 --nRows 11 --anchorX 5 --anchorY 5 photo.bmp out.bmp",
     MedianFilterBox},
    {"erode-3", "three erosions by the 3x3 square", "moxErode(photo, dst, 3)",
     "moxpx erode --nIterations 3 photo.bmp out.bmp", ErodeTimes},
    {"dilate-3", "three dilations by the 3x3 square", "moxDilate(photo, dst, 3)",
     "moxpx dilate --nIterations 3 photo.bmp out.bmp", DilateTimes},
    {"open-4", "opening: four erosions, then four dilations", "moxOpen(photo, dst, 4)",
     "moxpx open --nIterations 4 photo.bmp out.bmp", OpenTimes},
    {"close-4", "closing: four dilations, then four erosions", "moxClose(photo, dst, 4)",
     "moxpx close --nIterations 4 photo.bmp out.bmp", CloseTimes},
    {NULL, NULL, NULL, NULL, NULL},
};
