/* Colour models and colour twists on the sample photographs. */
#include <stddef.h>
#include <string.h>

#include "gallery.h"

/* A new image of the photo's size. */
static MoxImage* newImage(const MoxImage* photo, unsigned depth, int channels, const char* model,
                          const char* seq) {
  MoxImage* im = moxCreateImageHeader(channels, 0, depth, model, seq, MOX_DATA_ORDER_PIXEL,
                                      photo->origin, MOX_ALIGN_4BYTES, photo->height,
                                      photo->width, NULL, NULL, NULL);
  if (im) moxAllocateImage(im, 0);
  if (im && !im->imageData) {
    moxDeallocateHeader(im);
    im = NULL;
  }
  return im;
}

static void release(MoxImage* im) {
  if (im) moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
}

/* Keeps the result when the library reported nothing, else releases it. */
static MoxImage* checked(MoxImage* im) {
  if (im && moxGetErrStatus() != MOX_StsNoError) {
    release(im);
    return NULL;
  }
  return im;
}

/* Channel k of a three-channel 8-bit image as a grey picture. */
static MoxImage* channelOf(const MoxImage* photo, MoxImage* three, int k) {
  MoxImage* grey = newImage(photo, MOX_DEPTH_8U, 1, "GRAY", "GRAY");
  int x, y;
  if (grey && three)
    for (y = 0; y < grey->height; ++y)
      for (x = 0; x < grey->width; ++x)
        grey->imageData[y * grey->widthStep + x] = three->imageData[y * three->widthStep + 3 * x + k];
  release(three);
  return grey;
}

static MoxImage* grey(const MoxImage* photo) {
  MoxImage* dst = newImage(photo, MOX_DEPTH_8U, 1, "GRAY", "GRAY");
  if (dst) moxColorToGray(photo, dst, NULL);
  return checked(dst);
}

/* A warm tint: the grey picture times fractions. The grey image's sequence
   does not start with 'R', so the result is stored B, G, R like the photo. */
static MoxImage* tinted(const MoxImage* photo) {
  MoxImage* g = grey(photo);
  MoxImage* dst = g ? newImage(photo, MOX_DEPTH_8U, 3, "RGB", "BGR") : NULL;
  if (dst) moxGrayToColor(g, dst, 1.0f, 0.8f, 0.55f, NULL);
  release(g);
  return checked(dst);
}

static MoxImage* toModel(const MoxImage* photo, int hls) {
  MoxImage* dst = newImage(photo, MOX_DEPTH_8U, 3, "RGB", "BGR");
  if (dst && hls) moxRGB2HLS(photo, dst, NULL);
  if (dst && !hls) moxRGB2HSV(photo, dst, NULL);
  return checked(dst);
}

static MoxImage* hue(const MoxImage* photo) { return channelOf(photo, toModel(photo, 0), 0); }
static MoxImage* saturation(const MoxImage* photo) { return channelOf(photo, toModel(photo, 0), 1); }
static MoxImage* lightness(const MoxImage* photo) { return channelOf(photo, toModel(photo, 1), 1); }

/* HSV, the saturation halved, and back. The way back writes the order of
   its source's sequence ("HSV", so B, G, R), which is relabelled for the
   picture. */
static MoxImage* paler(const MoxImage* photo) {
  MoxImage* hsv = toModel(photo, 0);
  MoxImage* dst = hsv ? newImage(photo, MOX_DEPTH_8U, 3, "RGB", "BGR") : NULL;
  MoxROI saturation;
  if (!dst) {
    release(hsv);
    return NULL;
  }
  moxSetROI(&saturation, 2, 0, 0, hsv->height, hsv->width);
  hsv->roi = &saturation;
  moxRShiftS(hsv, hsv, 1, NULL);
  hsv->roi = NULL;
  moxHSV2RGB(hsv, dst, NULL);
  memcpy(dst->channelSeq, "BGR", 3);
  release(hsv);
  return checked(dst);
}

static MoxImage* twisted(const MoxImage* photo, const int* matrix, int scalingValue, int offset) {
  MoxImage* dst = newImage(photo, MOX_DEPTH_8U, 3, "RGB", "BGR");
  MoxColorTwist* twist = moxCreateColorTwist(matrix, scalingValue);
  if (dst && twist) moxApplyColorTwist(photo, dst, twist, offset, NULL);
  moxDeleteColorTwist(twist);
  return checked(dst);
}

/* Sepia on a B, G, R photo: each output row weighs B, G, R (scale 1/256). */
static const int kSepia[16] = {34, 137, 70, 0, 43, 176, 89, 0, 48, 197, 101, 0, 0, 0, 0, 0};
static const int kSwap[16] = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
static const int kNegative[16] = {-1, 0, 0, 255, 0, -1, 0, 255, 0, 0, -1, 255, 0, 0, 0, 0};

static MoxImage* sepia(const MoxImage* photo) { return twisted(photo, kSepia, 8, 0); }
static MoxImage* swapped(const MoxImage* photo) { return twisted(photo, kSwap, 0, 0); }
static MoxImage* negative(const MoxImage* photo) { return twisted(photo, kNegative, 0, 40); }

const GalleryEntry galleryColour[] = {
    {"color-to-gray", "Grey from colour (weights 54, 183, 18 over 256)",
     "moxColorToGray(photo, dst, NULL)", "moxpx colortogray photo.bmp out.bmp", grey},
    {"gray-to-color-warm", "Grey tinted warm: R, G, B = grey times 1.0, 0.8, 0.55",
     "moxGrayToColor(gray, dst, 1.0f, 0.8f, 0.55f, NULL)",
     "moxpx colortogray photo.bmp gray.bmp && "
     "moxpx graytocolor --fractR 1.0 --fractG 0.8 --fractB 0.55 gray.bmp out.bmp",
     tinted},
    {"rgb2hsv-hue", "Hue of HSV (0..179, half degrees)", "moxRGB2HSV(photo, dst, NULL)",
     "moxpx rgb2hsv --channel 1 photo.bmp out.bmp", hue},
    {"rgb2hsv-saturation", "Saturation of HSV", "moxRGB2HSV(photo, dst, NULL)",
     "moxpx rgb2hsv --channel 2 photo.bmp out.bmp", saturation},
    {"hsv2rgb-paler", "Saturation halved in HSV and back",
     "moxRGB2HSV(photo, hsv, NULL); moxRShiftS(hsv with channel of interest 2, same, 1, NULL); "
     "moxHSV2RGB(hsv, dst, NULL)",
     "moxpx rgb2hsv photo.bmp hsv.bmp && moxpx rshifts --nShift 1 --coi 2 hsv.bmp pale.bmp && "
     "moxpx hsv2rgb pale.bmp out.bmp",
     paler},
    {"rgb2hls-lightness", "Lightness of HLS", "moxRGB2HLS(photo, dst, NULL)",
     "moxpx rgb2hls --channel 2 photo.bmp out.bmp", lightness},
    {"twist-sepia", "Colour twist: sepia (the photograph holds B, G, R, the tool's files R, G, B)",
     "moxApplyColorTwist(photo, dst, moxCreateColorTwist(sepia, 8), 0, NULL) with sepia = "
     "34, 137, 70, 0, 43, 176, 89, 0, 48, 197, 101, 0, 0, 0, 0, 0",
     "moxpx applycolortwist --cTwist 101,197,48,0,89,176,43,0,70,137,34,0,0,0,0,0 "
     "--scalingValue 8 --offset 0 photo.bmp out.bmp",
     sepia},
    {"twist-swap", "Colour twist: first and third channels exchanged",
     "moxApplyColorTwist(photo, dst, swap, 0, NULL)",
     "moxpx applycolortwist --cTwist 0,0,1,0,0,1,0,0,1,0,0,0,0,0,0,0 --scalingValue 0 --offset 0 "
     "photo.bmp out.bmp",
     swapped},
    {"twist-negative-offset", "Colour twist: negative in the band 40..255",
     "moxApplyColorTwist(photo, dst, negative, 40, NULL)",
     "moxpx applycolortwist --cTwist -1,0,0,255,0,-1,0,255,0,0,-1,255,0,0,0,0 --scalingValue 0 "
     "--offset 40 photo.bmp out.bmp",
     negative},
    {NULL, NULL, NULL, NULL, NULL},
};
