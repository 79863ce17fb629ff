/* The families shown in the demo gallery, in the order of the page. Add one
   line per family: declare its array and name it in the list. */
#include "gallery.h"

extern const GalleryEntry galleryRotmir[];

const GalleryEntry* const galleryFamilies[] = {
    galleryRotmir,
    0,
};
