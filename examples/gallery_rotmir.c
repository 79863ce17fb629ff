/* Mirroring and rotation in the demo gallery: the three mirror axes, and
   turns about the photograph's centre at each interpolation. */
#include <stddef.h>

#include "gallery.h"

/* An image shaped like the photograph, filled with 0. */
static MoxImage* blankLike(const MoxImage* photo) {
  MoxImage* dst = moxCreateImageHeader(photo->nChannels, 0, photo->depth, "RGB", "BGR",
                                       photo->dataOrder, photo->origin, photo->align,
                                       photo->height, photo->width, NULL, NULL, NULL);
  if (!dst) return NULL;
  moxAllocateImage(dst, 0);
  if (!dst->imageData) {
    moxDeallocate(dst, MOX_FREE_HEADER);
    return NULL;
  }
  return dst;
}

/* Returns dst, or null (and releases it) when the call reported a failure. */
static MoxImage* keep(MoxImage* dst) {
  if (dst && moxGetErrStatus() < 0) {
    moxDeallocate(dst, MOX_FREE_HEADER | MOX_FREE_DATA);
    return NULL;
  }
  return dst;
}

static MoxImage* mirror(const MoxImage* photo, int flipAxis) {
  MoxImage* dst = blankLike(photo);
  if (!dst) return NULL;
  moxSetErrStatus(MOX_StsNoError);
  moxMirror(photo, dst, flipAxis);
  return keep(dst);
}

/* Turned about the photograph's centre, onto a copy of it. */
static MoxImage* rotate(const MoxImage* photo, int angle, int interpolate) {
  MoxImage* dst = blankLike(photo);
  if (!dst) return NULL;
  moxSetErrStatus(MOX_StsNoError);
  moxCopy(photo, dst, NULL);
  moxRotate(photo, dst, angle, photo->width / 2, photo->height / 2, interpolate, NULL);
  return keep(dst);
}

static MoxImage* mirrorHorizontal(const MoxImage* photo) { return mirror(photo, 0); }
static MoxImage* mirrorVertical(const MoxImage* photo) { return mirror(photo, 1); }
static MoxImage* mirrorBoth(const MoxImage* photo) { return mirror(photo, -1); }
static MoxImage* rotate30Nearest(const MoxImage* photo) {
  return rotate(photo, 3000, MOX_INTER_NN);
}
static MoxImage* rotate30Linear(const MoxImage* photo) {
  return rotate(photo, 3000, MOX_INTER_LINEAR);
}
static MoxImage* rotate30Cubic(const MoxImage* photo) {
  return rotate(photo, 3000, MOX_INTER_CUBIC);
}
static MoxImage* rotateQuarter(const MoxImage* photo) {
  return rotate(photo, 9000, MOX_INTER_NN);
}
static MoxImage* rotateBackEighth(const MoxImage* photo) {
  return rotate(photo, -4500, MOX_INTER_LINEAR);
}

const GalleryEntry galleryRotmir[] = {
    {"mirror-horizontal-axis", "Mirrored about the horizontal axis: top and bottom exchanged",
     "moxMirror(photo, dst, 0)", "moxpx mirror --flipAxis 0 photo.bmp out.bmp",
     mirrorHorizontal},
    {"mirror-vertical-axis", "Mirrored about the vertical axis: left and right exchanged",
     "moxMirror(photo, dst, 1)", "moxpx mirror --flipAxis 1 photo.bmp out.bmp", mirrorVertical},
    {"mirror-both-axes", "Mirrored about both axes: a half turn",
     "moxMirror(photo, dst, -1)", "moxpx mirror --flipAxis -1 photo.bmp out.bmp", mirrorBoth},
    {"rotate-30-nearest", "Turned by 30 degrees about the centre, nearest neighbour",
     "moxCopy(photo, dst, NULL); moxRotate(photo, dst, 3000, {w/2}, {h/2}, MOX_INTER_NN, NULL)",
     "moxpx rotate --angle 3000 --xCenter {w/2} --yCenter {h/2} --interpolate nn photo.bmp out.bmp",
     rotate30Nearest},
    {"rotate-30-linear", "Turned by 30 degrees about the centre, linear interpolation",
     "moxCopy(photo, dst, NULL); moxRotate(photo, dst, 3000, {w/2}, {h/2}, MOX_INTER_LINEAR, NULL)",
     "moxpx rotate --angle 3000 --xCenter {w/2} --yCenter {h/2} --interpolate linear photo.bmp "
     "out.bmp",
     rotate30Linear},
    {"rotate-30-cubic", "Turned by 30 degrees about the centre, cubic interpolation",
     "moxCopy(photo, dst, NULL); moxRotate(photo, dst, 3000, {w/2}, {h/2}, MOX_INTER_CUBIC, NULL)",
     "moxpx rotate --angle 3000 --xCenter {w/2} --yCenter {h/2} --interpolate cubic photo.bmp "
     "out.bmp",
     rotate30Cubic},
    {"rotate-90", "A quarter turn about the centre: exact, uncovered pixels left as they were",
     "moxCopy(photo, dst, NULL); moxRotate(photo, dst, 9000, {w/2}, {h/2}, MOX_INTER_NN, NULL)",
     "moxpx rotate --angle 9000 --xCenter {w/2} --yCenter {h/2} --interpolate nn photo.bmp out.bmp",
     rotateQuarter},
    {"rotate-minus-45-linear", "Turned back by 45 degrees about the centre, linear interpolation",
     "moxCopy(photo, dst, NULL); moxRotate(photo, dst, -4500, {w/2}, {h/2}, MOX_INTER_LINEAR, NULL)",
     "moxpx rotate --angle -4500 --xCenter {w/2} --yCenter {h/2} --interpolate linear photo.bmp "
     "out.bmp",
     rotateBackEighth},
    {NULL, NULL, NULL, NULL, NULL},
};
