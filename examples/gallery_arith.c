/* Gallery: arithmetic, logic and shifts on the photographs. */
#include "gallery.h"
#include "gallery_images.h"

/* The photograph mirrored left to right. */
static MoxImage* mirrored(const MoxImage* photo) {
  MoxImage* im = galleryImage(photo, MOX_DEPTH_8U, 3);
  if (im) moxMirror(photo, im, 1);
  return im;
}

/* Each channel of the photograph below 128 to 0, the rest to 255. */
static MoxImage* bright(const MoxImage* photo) {
  MoxImage* im = galleryImage(photo, MOX_DEPTH_8U, 3);
  if (im) moxThreshold(photo, im, 128);
  return im;
}

/* A two-image operation of the photograph with a second picture made from it. */
static MoxImage* withSecond(const MoxImage* photo, MoxImage* (*second)(const MoxImage*),
                            void (MOX_CALL* op)(const MoxImage*, const MoxImage*, MoxImage*,
                                                const int*)) {
  MoxImage* other;
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  galleryStart();
  other = second(photo);
  if (other && dst) op(photo, other, dst, NULL);
  galleryFree(other);
  return galleryResult(dst);
}

static MoxImage* add(const MoxImage* p) { return withSecond(p, mirrored, moxAdd); }
static MoxImage* and_(const MoxImage* p) { return withSecond(p, bright, moxAnd); }
static MoxImage* or_(const MoxImage* p) { return withSecond(p, bright, moxOr); }
static MoxImage* xor_(const MoxImage* p) { return withSecond(p, bright, moxXor); }

static MoxImage* subtract(const MoxImage* photo) {
  MoxImage* mirror;
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  galleryStart();
  mirror = mirrored(photo);
  if (mirror && dst) moxSubtract(photo, mirror, dst, 0, NULL);
  galleryFree(mirror);
  return galleryResult(dst);
}

/* The threshold picture as a 0/1 mask: the product keeps the bright values. */
static MoxImage* multiply(const MoxImage* photo) {
  MoxImage* mask;
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  galleryStart();
  mask = bright(photo);
  if (mask && dst) {
    moxRShiftS(mask, mask, 7, NULL);
    moxMultiply(photo, mask, dst, NULL);
  }
  galleryFree(mask);
  return galleryResult(dst);
}

/* One-image operations with a scalar or a shift count. */
#define SCALAR(name, call)                                    \
  static MoxImage* name(const MoxImage* photo) {              \
    MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);     \
    galleryStart();                                           \
    if (dst) call;                                            \
    return galleryResult(dst);                                \
  }

SCALAR(addS, moxAddS(photo, dst, 80, NULL))
SCALAR(subtractS, moxSubtractS(photo, dst, 80, 0, NULL))
SCALAR(subtractSReverse, moxSubtractS(photo, dst, 255, 1, NULL))
SCALAR(multiplyS, moxMultiplyS(photo, dst, 2, NULL))
SCALAR(andS, moxAndS(photo, dst, 0xC0, NULL))
SCALAR(orS, moxOrS(photo, dst, 0x3F, NULL))
SCALAR(xorS, moxXorS(photo, dst, 0x80, NULL))
SCALAR(lShiftS, moxLShiftS(photo, dst, 1, NULL))
SCALAR(rShiftS, moxRShiftS(photo, dst, 2, NULL))
SCALAR(square, moxSquare(photo, dst, NULL))
SCALAR(not_, moxNot(photo, dst, NULL))

/* Distance from mid-gray: the photograph less 128 in 16 signed bits, then
   its absolute value. */
static MoxImage* abs_(const MoxImage* photo) {
  MoxImage* wide = galleryImage(photo, MOX_DEPTH_16S, 3);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_16S, 3);
  galleryStart();
  if (wide && dst) {
    moxConvert(photo, wide);
    moxSubtractS(wide, wide, 128, 0, NULL);
    moxAbs(wide, dst, NULL);
  }
  galleryFree(wide);
  return galleryResult(dst);
}

const GalleryEntry galleryArith[] = {
    {"add-mirror", "Sum with its own mirror image, saturated at 255",
     "moxMirror(photo, mirror, 1); moxAdd(photo, mirror, dst, NULL)",
     "moxpx mirror --flipAxis 1 photo.bmp mirror.bmp && moxpx add photo.bmp mirror.bmp out.bmp",
     add},
    {"subtract-mirror", "The mirror image taken from the photograph, saturated at 0",
     "moxMirror(photo, mirror, 1); moxSubtract(photo, mirror, dst, 0, NULL)",
     "moxpx mirror --flipAxis 1 photo.bmp mirror.bmp && "
     "moxpx subtract --reverse 0 photo.bmp mirror.bmp out.bmp",
     subtract},
    {"multiply-mask", "Product with the 0/1 mask of its threshold picture: only bright values stay",
     "moxThreshold(photo, bright, 128); moxRShiftS(bright, mask, 7, NULL); "
     "moxMultiply(photo, mask, dst, NULL)",
     "moxpx threshold --threshold 128 photo.bmp bright.bmp && "
     "moxpx rshifts --nShift 7 bright.bmp mask.bmp && moxpx multiply photo.bmp mask.bmp out.bmp",
     multiply},
    {"and-threshold", "Bitwise and with its threshold picture: values below 128 become 0",
     "moxThreshold(photo, bright, 128); moxAnd(photo, bright, dst, NULL)",
     "moxpx threshold --threshold 128 photo.bmp bright.bmp && "
     "moxpx and photo.bmp bright.bmp out.bmp",
     and_},
    {"or-threshold", "Bitwise or with its threshold picture: values of 128 and up become 255",
     "moxThreshold(photo, bright, 128); moxOr(photo, bright, dst, NULL)",
     "moxpx threshold --threshold 128 photo.bmp bright.bmp && "
     "moxpx or photo.bmp bright.bmp out.bmp",
     or_},
    {"xor-threshold", "Bitwise exclusive or with its threshold picture: bright values inverted",
     "moxThreshold(photo, bright, 128); moxXor(photo, bright, dst, NULL)",
     "moxpx threshold --threshold 128 photo.bmp bright.bmp && "
     "moxpx xor photo.bmp bright.bmp out.bmp",
     xor_},
    {"adds-80", "Plus 80, saturated", "moxAddS(photo, dst, 80, NULL)",
     "moxpx adds --value 80 photo.bmp out.bmp", addS},
    {"subtracts-80", "Minus 80, saturated", "moxSubtractS(photo, dst, 80, 0, NULL)",
     "moxpx subtracts --value 80 --reverse 0 photo.bmp out.bmp", subtractS},
    {"subtracts-reverse-255", "255 minus the photograph: the negative",
     "moxSubtractS(photo, dst, 255, 1, NULL)",
     "moxpx subtracts --value 255 --reverse 1 photo.bmp out.bmp", subtractSReverse},
    {"multiplys-2", "Twice as bright, saturated", "moxMultiplyS(photo, dst, 2, NULL)",
     "moxpx multiplys --value 2 photo.bmp out.bmp", multiplyS},
    {"ands-c0", "The top two bits of every value: four levels",
     "moxAndS(photo, dst, 0xC0, NULL)", "moxpx ands --value 192 photo.bmp out.bmp", andS},
    {"ors-3f", "The low six bits set", "moxOrS(photo, dst, 0x3F, NULL)",
     "moxpx ors --value 63 photo.bmp out.bmp", orS},
    {"xors-80", "The top bit flipped", "moxXorS(photo, dst, 0x80, NULL)",
     "moxpx xors --value 128 photo.bmp out.bmp", xorS},
    {"lshifts-1", "Shifted left by one bit (the top bit falls off)",
     "moxLShiftS(photo, dst, 1, NULL)", "moxpx lshifts --nShift 1 photo.bmp out.bmp", lShiftS},
    {"rshifts-2", "Shifted right by two bits: a quarter as bright",
     "moxRShiftS(photo, dst, 2, NULL)", "moxpx rshifts --nShift 2 photo.bmp out.bmp", rShiftS},
    {"square", "Squares, saturated at 255", "moxSquare(photo, dst, NULL)",
     "moxpx square photo.bmp out.bmp", square},
    {"abs-from-gray", "Distance of every value from 128 (16 bits, scaled for display)",
     "moxConvert(photo, wide); moxSubtractS(wide, wide, 128, 0, NULL); moxAbs(wide, dst, NULL)",
     "moxpx subtracts --value 128 --reverse 0 --depth 16s photo.bmp wide.npy && "
     "moxpx abs wide.npy out.bmp",
     abs_},
    {"not", "Every bit flipped", "moxNot(photo, dst, NULL)", "moxpx not photo.bmp out.bmp", not_},
    {0, 0, 0, 0, 0},
};
