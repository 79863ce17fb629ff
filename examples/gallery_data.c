/* Gallery: copy, set and exchange of regions. */
#include "gallery.h"
#include "gallery_images.h"

/* The middle half of the photograph copied onto its negative. */
static MoxImage* copy(const MoxImage* photo) {
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage view = *photo;
  MoxROI from, to;
  galleryStart();
  if (!dst) return NULL;
  moxSubtractS(photo, dst, 255, 1, NULL);
  moxSetROI(&from, 0, photo->width / 4, photo->height / 4, photo->height / 2, photo->width / 2);
  moxSetROI(&to, 0, photo->width / 4, photo->height / 4, photo->height / 2, photo->width / 2);
  view.roi = &from;
  dst->roi = &to;
  moxCopy(&view, dst, NULL);
  dst->roi = NULL;
  return galleryResult(dst);
}

/* A band across the middle, in the red channel only. */
static MoxImage* set(const MoxImage* photo) {
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxROI band;
  galleryStart();
  if (!dst) return NULL;
  moxCopy(photo, dst, NULL);
  moxSetROI(&band, 3, 0, photo->height / 3, photo->height / 3, photo->width);
  dst->roi = &band;
  moxSet(dst, 255, NULL);
  dst->roi = NULL;
  return galleryResult(dst);
}

/* The left and right halves swapped. */
static MoxImage* exchange(const MoxImage* photo) {
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  MoxImage right;
  MoxROI left, rightRoi;
  const int half = photo->width / 2;
  galleryStart();
  if (!dst) return NULL;
  moxCopy(photo, dst, NULL);
  right = *dst;
  moxSetROI(&left, 0, 0, 0, photo->height, half);
  moxSetROI(&rightRoi, 0, photo->width - half, 0, photo->height, half);
  dst->roi = &left;
  right.roi = &rightRoi;
  moxExchange(dst, &right, NULL);
  dst->roi = NULL;
  return galleryResult(dst);
}

const GalleryEntry galleryData[] = {
    {"copy-roi", "The middle of the photograph copied into the same place of its negative",
     "moxSubtractS(photo, dst, 255, 1, NULL); moxSetROI(&roi, 0, {w/4}, {h/4}, {h/2}, {w/2}); "
     "moxCopy(photo with roi, dst with roi, NULL)",
     "moxpx subtracts --value 255 --reverse 1 photo.bmp negative.bmp && "
     "moxpx copy --roi {w/4},{h/4},{w/2},{h/2} --into negative.bmp photo.bmp out.bmp",
     copy},
    {"set-red-band", "The red channel of a band set to 255 (channel of interest 3 of BGR)",
     "moxCopy(photo, dst, NULL); moxSetROI(&band, 3, 0, {h/3}, {h/3}, {w}); "
     "moxSet(dst with band, 255, NULL)",
     "moxpx set --fillValue 255 --roi 0,{h/3},{w},{h/3} --coi 1 photo.bmp out.bmp", set},
    {"exchange-halves", "Left and right halves exchanged",
     "moxCopy(photo, dst, NULL); moxSetROI(&left, 0, 0, 0, {h}, {w/2}); "
     "moxSetROI(&right, 0, {w-w/2}, 0, {h}, {w/2}); "
     "moxExchange(dst with left, dst with right, NULL)",
     "moxpx exchange --roi 0,0,{w/2},{h} --roi2 {w-w/2},0,{w/2},{h} photo.bmp photo.bmp "
     "left.bmp right.bmp && moxpx copy --roi {w-w/2},0,{w/2},{h} --into left.bmp right.bmp out.bmp",
     exchange},
    {0, 0, 0, 0, 0},
};
