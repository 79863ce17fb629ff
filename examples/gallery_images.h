/* Helpers the gallery entries share: images shaped like the photograph,
   the photograph's green channel, and the end of a run. */
#ifndef MOXPX_GALLERY_IMAGES_H
#define MOXPX_GALLERY_IMAGES_H

#include "moxpx.h"

/* A new image filled with 0: depth, channels ("BGR" sequence for 3 and 4
   channels), the alpha channel's number (0: none; the model is then "RGBA"),
   origin and size; null when out of memory. */
MoxImage* galleryNewImage(unsigned int depth, int nChannels, int alphaChannel, int origin,
                          int height, int width);

/* The same, of the photograph's size and origin, without alpha. */
MoxImage* galleryImage(const MoxImage* photo, unsigned int depth, int nChannels);

/* The photograph's green channel alone (8U, 1 channel). */
MoxImage* galleryGray(const MoxImage* photo);

/* Releases an image made by the helpers (null is ignored). */
void galleryFree(MoxImage* image);

/* Returns result when the calls since the last galleryStart reported
   nothing, else releases it and returns null. */
void galleryStart(void);
MoxImage* galleryResult(MoxImage* result);

#endif
