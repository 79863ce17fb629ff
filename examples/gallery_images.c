/* Helpers the gallery entries share. */
#include "gallery_images.h"

#include <string.h>

MoxImage* galleryNewImage(unsigned int depth, int nChannels, int alphaChannel, int origin,
                          int height, int width) {
  MoxImage* im = moxCreateImageHeader(
      nChannels, alphaChannel, depth,
      nChannels == 1 ? "GRAY" : alphaChannel ? "RGBA" : "RGB",
      nChannels == 1 ? "GRAY" : nChannels == 4 ? "BGRA" : "BGR", MOX_DATA_ORDER_PIXEL, origin,
      MOX_ALIGN_4BYTES, height, width, NULL, NULL, NULL);
  if (!im) return NULL;
  moxAllocateImage(im, 0);
  if (!im->imageData) {
    moxDeallocateHeader(im);
    return NULL;
  }
  return im;
}

MoxImage* galleryImage(const MoxImage* photo, unsigned int depth, int nChannels) {
  return galleryNewImage(depth, nChannels, 0, photo->origin, photo->height, photo->width);
}

MoxImage* galleryGray(const MoxImage* photo) {
  MoxImage* gray = galleryImage(photo, MOX_DEPTH_8U, 1);
  MoxROI green;
  MoxImage view;
  if (!gray) return NULL;
  /* The photograph's header with the green channel as channel of interest. */
  memcpy(&view, photo, sizeof view);
  moxSetROI(&green, 2, 0, 0, photo->height, photo->width);
  view.roi = &green;
  moxCopy(&view, gray, NULL);
  return gray;
}

void galleryFree(MoxImage* image) {
  if (image) moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI);
}

void galleryStart(void) { moxSetErrStatus(MOX_StsNoError); }

MoxImage* galleryResult(MoxImage* result) {
  if (result && moxGetErrStatus() == MOX_StsNoError) return result;
  galleryFree(result);
  return NULL;
}
