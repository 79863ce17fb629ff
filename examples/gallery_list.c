/* The families shown in the demo gallery, in the order of the page. Add one
   line per family: declare its array and name it in the list. */
#include "gallery.h"

extern const GalleryEntry galleryFilter[];

const GalleryEntry* const galleryFamilies[] = {
    galleryFilter,
    0,
};
