/* Helpers the gallery entries share: images shaped like the photograph,
   the second pictures of the two-image operations, and the end of a run. */
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

/* A left-to-right ramp from 0 to 255 in every channel (8U, 3 channels). */
MoxImage* galleryRamp(const MoxImage* photo);

/* Squares of 32 pixels, 0 and 255 by turns (8U, 3 channels). */
MoxImage* galleryChecks(const MoxImage* photo);

/* The photograph's green channel alone (8U, 1 channel). */
MoxImage* galleryGray(const MoxImage* photo);

/* Releases an image made by the helpers (null is ignored). */
void galleryFree(MoxImage* image);

/* Returns result when the calls since the last galleryStart reported
   nothing, else releases it and returns null. */
void galleryStart(void);
MoxImage* galleryResult(MoxImage* result);

#endif
