/* The families shown in the demo gallery, in the order of the page. Add one
   line per family: declare its array and name it in the list. */
#include "gallery.h"

extern const GalleryEntry galleryAlpha[];
extern const GalleryEntry galleryStats[];

const GalleryEntry* const galleryFamilies[] = {
    galleryAlpha,
    galleryStats,
    0,
};
