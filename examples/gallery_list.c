/* The families shown in the demo gallery, in the order of the page. Add one
   line per family: declare its array and name it in the list. */
#include "gallery.h"

extern const GalleryEntry galleryArith[];
extern const GalleryEntry galleryData[];
extern const GalleryEntry galleryTransform[];
extern const GalleryEntry galleryConvert[];

const GalleryEntry* const galleryFamilies[] = {
    galleryArith,
    galleryData,
    galleryTransform,
    galleryConvert,
    0,
};
