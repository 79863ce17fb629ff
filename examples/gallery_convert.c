/* Gallery: depth conversion, bit reduction with each dither, bitonal
   expansion and 8-bit bitmaps with each palette choice. */
#include <stdlib.h>

#include "gallery.h"
#include "gallery_images.h"

/* The photograph in 16 signed bits, plane order (shown scaled). */
static MoxImage* toPlanes(const MoxImage* photo) {
  MoxImage* dst = moxCreateImageHeader(3, 0, MOX_DEPTH_16S, "RGB", "BGR", MOX_DATA_ORDER_PLANE,
                                       photo->origin, MOX_ALIGN_8BYTES, photo->height,
                                       photo->width, NULL, NULL, NULL);
  galleryStart();
  if (!dst) return NULL;
  moxAllocateImage(dst, 0);
  if (dst->imageData) moxConvert(photo, dst);
  return galleryResult(dst);
}

/* Any non-zero value sets the bit: only black stays black. */
static MoxImage* toBits(const MoxImage* photo) {
  MoxImage* gray = galleryGray(photo);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_1U, 1);
  galleryStart();
  if (gray && dst) {
    moxRShiftS(gray, gray, 6, NULL);
    moxConvert(gray, dst);
  }
  galleryFree(gray);
  return galleryResult(dst);
}

static MoxImage* reduce(const MoxImage* photo, int dither, int noise, int levels, int channels) {
  MoxImage* src = channels == 1 ? galleryGray(photo) : NULL;
  MoxImage* dst = galleryImage(photo, channels == 1 ? MOX_DEPTH_1U : MOX_DEPTH_8U, channels);
  galleryStart();
  if (dst && (src || channels == 3)) moxReduceBits(src ? src : photo, dst, noise, dither, levels);
  galleryFree(src);
  return galleryResult(dst);
}

static MoxImage* reduceNone(const MoxImage* p) { return reduce(p, MOX_DITHER_NONE, 0, 2, 1); }
static MoxImage* reduceFs(const MoxImage* p) { return reduce(p, MOX_DITHER_FS, 0, 2, 1); }
static MoxImage* reduceJjn(const MoxImage* p) { return reduce(p, MOX_DITHER_JJN, 0, 2, 1); }
static MoxImage* reduceStuckey(const MoxImage* p) { return reduce(p, MOX_DITHER_STUCKEY, 0, 2, 1); }
static MoxImage* reduceBayer(const MoxImage* p) { return reduce(p, MOX_DITHER_BAYER, 0, 2, 1); }
static MoxImage* reduceJitter(const MoxImage* p) { return reduce(p, MOX_DITHER_NONE, 100, 4, 3); }
static MoxImage* reduceColourFs(const MoxImage* p) { return reduce(p, MOX_DITHER_FS, 0, 2, 3); }

/* Dithered bits shown in two chosen grays. */
static MoxImage* bitonal(const MoxImage* photo) {
  MoxImage* bits = reduce(photo, MOX_DITHER_FS, 0, 2, 1);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 1);
  galleryStart();
  if (bits && dst) moxBitonalToGray(bits, dst, 40, 220);
  galleryFree(bits);
  return galleryResult(dst);
}

/* An 8-bit bitmap with a palette, read back into an image. */
static MoxImage* palette(const MoxImage* photo, int dither, int how) {
  const long rowBytes = ((long)photo->width + 3) / 4 * 4;
  MoxBitmapInfoHeader* dib =
      (MoxBitmapInfoHeader*)calloc(1, 40 + 1024 + (size_t)rowBytes * photo->height);
  MoxImage* dst = galleryImage(photo, MOX_DEPTH_8U, 3);
  galleryStart();
  if (dib && dst) {
    dib->biSize = 40;
    dib->biWidth = photo->width;
    dib->biHeight = photo->height;
    dib->biPlanes = 1;
    dib->biBitCount = 8;
    moxConvertToDIB(photo, dib, dither, how);
    moxConvertFromDIB(dib, dst);
  }
  free(dib);
  return galleryResult(dst);
}

static MoxImage* paletteCube(const MoxImage* p) { return palette(p, MOX_DITHER_NONE, MOX_PALCONV_NONE); }
static MoxImage* paletteCubeFs(const MoxImage* p) { return palette(p, MOX_DITHER_FS, MOX_PALCONV_NONE); }
static MoxImage* palettePopulate(const MoxImage* p) { return palette(p, MOX_DITHER_NONE, MOX_PALCONV_POPULATE); }
static MoxImage* paletteMedcut(const MoxImage* p) { return palette(p, MOX_DITHER_FS, MOX_PALCONV_MEDCUT); }

const GalleryEntry galleryConvert[] = {
    {"convert-16s-planes", "Converted to 16 signed bits in plane order (values kept)",
     "moxConvert(photo, dst16sPlanes)", "moxpx convert --depth 16s --dataOrder plane photo.bmp out.bmp",
     toPlanes},
    {"convert-1u", "Green channel over 4 levels into one bit: any non-zero value sets it",
     "moxRShiftS(green, green, 6, NULL); moxConvert(green, dst1u)",
     "moxpx rshifts --nShift 6 --channel 2 photo.bmp green4.bmp && "
     "moxpx convert --depth 1u green4.bmp out.bmp",
     toBits},
    {"reducebits-none", "Green channel to one bit, no dither",
     "moxReduceBits(green, dst1u, 0, MOX_DITHER_NONE, 2)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType none --levels 2 green.bmp out.bmp", reduceNone},
    {"reducebits-fs", "Green channel to one bit, FS error diffusion (four neighbours)",
     "moxReduceBits(green, dst1u, 0, MOX_DITHER_FS, 2)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType fs --levels 2 green.bmp out.bmp", reduceFs},
    {"reducebits-jjn", "Green channel to one bit, JJN error diffusion (twelve neighbours)",
     "moxReduceBits(green, dst1u, 0, MOX_DITHER_JJN, 2)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType jjn --levels 2 green.bmp out.bmp", reduceJjn},
    {"reducebits-stuckey", "Green channel to one bit, STUCKEY error diffusion (twelve neighbours)",
     "moxReduceBits(green, dst1u, 0, MOX_DITHER_STUCKEY, 2)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType stuckey --levels 2 green.bmp out.bmp", reduceStuckey},
    {"reducebits-bayer", "Green channel to one bit, ordered 4x4 dither",
     "moxReduceBits(green, dst1u, 0, MOX_DITHER_BAYER, 2)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType bayer --levels 2 green.bmp out.bmp", reduceBayer},
    {"reducebits-jitter", "Four levels per channel with full jitter and no dither",
     "moxReduceBits(photo, dst, 100, MOX_DITHER_NONE, 4)",
     "moxpx reducebits --noise 100 --ditherType none --levels 4 photo.bmp out.bmp", reduceJitter},
    {"reducebits-colour-fs", "Two levels per channel (eight colours), FS error diffusion",
     "moxReduceBits(photo, dst, 0, MOX_DITHER_FS, 2)",
     "moxpx reducebits --noise 0 --ditherType fs --levels 2 photo.bmp out.bmp", reduceColourFs},
    {"bitonal-grays", "Dithered bits shown as the grays 40 and 220",
     "moxReduceBits(green, bits, 0, MOX_DITHER_FS, 2); moxBitonalToGray(bits, dst, 40, 220)",
     "moxpx copy --channel 2 photo.bmp green.bmp && "
     "moxpx reducebits --noise 0 --ditherType fs --levels 2 green.bmp bits.bmp && "
     "moxpx bitonaltogray --ZeroScale 40 --OneScale 220 bits.bmp out.bmp",
     bitonal},
    {"todib-cube", "8-bit bitmap with the fixed 3-3-2 palette, no dither",
     "moxConvertToDIB(photo, dib8, MOX_DITHER_NONE, MOX_PALCONV_NONE)",
     "moxpx converttodib --dither none --paletteConversion none photo.bmp out.bmp", paletteCube},
    {"todib-cube-fs", "8-bit bitmap with the fixed 3-3-2 palette, FS error diffusion",
     "moxConvertToDIB(photo, dib8, MOX_DITHER_FS, MOX_PALCONV_NONE)",
     "moxpx converttodib --dither fs --paletteConversion none photo.bmp out.bmp", paletteCubeFs},
    {"todib-populate", "8-bit bitmap with the 256 most frequent colours",
     "moxConvertToDIB(photo, dib8, MOX_DITHER_NONE, MOX_PALCONV_POPULATE)",
     "moxpx converttodib --dither none --paletteConversion populate photo.bmp out.bmp",
     palettePopulate},
    {"todib-medcut-fs", "8-bit bitmap with a median-cut palette, FS error diffusion",
     "moxConvertToDIB(photo, dib8, MOX_DITHER_FS, MOX_PALCONV_MEDCUT)",
     "moxpx converttodib --dither fs --paletteConversion medcut photo.bmp out.bmp", paletteMedcut},
    {0, 0, 0, 0, 0},
};
