/* Gallery: copy, set and exchange of regions. */
#include "gallery.h"
#include "gallery_images.h"

/* The middle half of the photograph copied onto the checks. */
static MoxImage* copy(const MoxImage* photo) {
  MoxImage* dst = galleryChecks(photo);
  MoxImage view = *photo;
  MoxROI from, to;
  galleryStart();
  if (!dst) return NULL;
  moxSetROI(&from, 0, photo->width / 4, photo->height / 4, photo->height / 2, photo->width / 2);
  moxSetROI(&to, 0, photo->width / 4, photo->height / 4, photo->height / 2, photo->width / 2);
  view.roi = &from;
  dst->roi = &to;
  moxCopy(&view, dst, NULL);
  dst->roi = NULL;
  return galleryResult(dst);
}

/* A gray band across the middle, in the red channel only. */
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
    {"copy-roi", "The middle of the photograph copied into the same place of a checkerboard",
     "moxCopy(photo with roi {0, w/4, h/4, h/2, w/2}, checks with the same roi, NULL)",
     "moxpx copy --roi 112,75,225,150 photo.bmp out.bmp", copy},
    {"set-red-band", "The red channel of a band set to 255 (channel of interest 3 of BGR)",
     "moxSet(copy of photo with roi {3, 0, h/3, h/3, w}, 255, NULL)",
     "moxpx set --fillValue 255 --roi 0,100,451,100 --coi 1 photo.bmp out.bmp", set},
    {"exchange-halves", "Left and right halves exchanged",
     "moxExchange(copy with roi {0, 0, 0, h, w/2}, copy with roi {0, w - w/2, 0, h, w/2}, NULL)",
     "moxpx exchange --roi 0,0,225,300 photo.bmp other.bmp out.bmp other-out.bmp", exchange},
    {0, 0, 0, 0, 0},
};
