/* The families shown in the demo gallery, in the order of the page. Add one
   line per family: declare its array and name it in the list. */
#include "gallery.h"

extern const GalleryEntry galleryArith[];
extern const GalleryEntry galleryData[];
extern const GalleryEntry galleryTransform[];
extern const GalleryEntry galleryConvert[];
extern const GalleryEntry galleryColour[];
extern const GalleryEntry galleryZoom[];
extern const GalleryEntry galleryAlpha[];
extern const GalleryEntry galleryStats[];
extern const GalleryEntry galleryRotmir[];

const GalleryEntry* const galleryFamilies[] = {
    galleryArith,
    galleryData,
    galleryTransform,
    galleryConvert,
    galleryColour,
    galleryZoom,
    galleryAlpha,
    galleryStats,
    galleryRotmir,
    0,
};
