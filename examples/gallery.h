/* The demo gallery: every operation shown on the sample photographs. Each
   family lists its pictures in examples/gallery_<family>.c as an array of
   entries ended by an entry with a null name, and names that array once in
   gallery_list.c. */
#ifndef MOXPX_GALLERY_H
#define MOXPX_GALLERY_H

#include "moxpx.h"

typedef struct GalleryEntry {
  const char* name;    /* file name stem, unique in the gallery: "zoom-cubic-3x2" */
  const char* caption; /* one line shown under the picture */
  /* The exact library call that made it, as C, with `photo` and `dst`:
     "moxZoom(photo, dst, 3, 2, 3, 2, MOX_INTER_CUBIC, NULL)". Numbers that
     follow the photograph's size are written in braces with w and h, the
     photograph's width and height, and + - * / (integer division), as the
     entry's run computes them: "{w/2}", "{w-w/4}"; the page shows their
     values for the photograph the entry runs on. */
  const char* call;
  /* The same with the command-line tool: the function's name without "mox"
     in lower case as the sub-command, each scalar argument as --name value
     with its interface name, constants by their short name in lower case,
     then the input files and the output file:
     "moxpx zoom --xU 3 --xL 2 --yU 3 --yL 2 --interpolate cubic photo.bmp out.bmp".
     The input is photo.bmp (the photograph) and the picture is out.bmp; a
     short chain of commands joined by " && " makes its own intermediate
     files from photo.bmp (the demo's own second pictures, such as a mirror
     image or a threshold picture, are made the same way). Numbers in braces
     as in the call. */
  const char* command;
  /* Makes the picture from a sample photograph (8U, 3 channels, sequence
     "BGR", pixel order, top-left origin, as read from its BMP file).
     Returns a new image made with moxCreateImageHeader and moxAllocateImage
     (any depth, 1, 3 or 4 channels; the demo converts it for display and
     releases it), or null after the library reported a failure. */
  MoxImage* (*run)(const MoxImage* photo);
} GalleryEntry;

/* Every family's entries, ended by a null pointer. */
extern const GalleryEntry* const galleryFamilies[];

#endif
