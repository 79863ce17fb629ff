/* The demo gallery: every entry of every family run on the sample
   photographs, each result written as a .bmp file beside the photograph it
   came from, and a page (index.html) that shows them side by side with the
   library call and the command line that made them.

   usage: moxpx_demo [output folder]   (default: gallery) */
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#if defined(_WIN32)
#include <direct.h>
#endif

#include "bmpfile.h"
#include "gallery.h"
#include "moxpx.h"

#ifndef MOXPX_SAMPLES_DIR
#define MOXPX_SAMPLES_DIR "samples"
#endif

#define MAX_PHOTOS 16
#define PATH_SIZE 1024

static int MOX_CALL printReport(int status, const char* funcName, const char* message,
                                const char* file, int line) {
  fprintf(stderr, "  %s reported %s (%s:%d): %s\n", funcName, moxErrorStr(status), file, line,
          message);
  return status;
}

static void makeFolder(const char* path) {
#if defined(_WIN32)
  _mkdir(path);
#else
  mkdir(path, 0777);
#endif
}

static int byName(const void* a, const void* b) {
  return strcmp(*(const char* const*)a, *(const char* const*)b);
}

/* The .bmp files of the samples folder, sorted; returns their count. */
static int listPhotos(const char* folder, char** names) {
  DIR* dir = opendir(folder);
  struct dirent* e;
  int n = 0;
  if (!dir) return 0;
  while ((e = readdir(dir)) != NULL && n < MAX_PHOTOS) {
    const size_t length = strlen(e->d_name);
    if (length > 4 && strcmp(e->d_name + length - 4, ".bmp") == 0) {
      names[n] = (char*)malloc(length + 1);
      if (names[n]) strcpy(names[n++], e->d_name);
    }
  }
  closedir(dir);
  qsort(names, (size_t)n, sizeof *names, byName);
  return n;
}

/* The smallest and largest values of an image of 8S, 16 or 32 bits. */
static void valueRange(const MoxImage* im, long* lo, long* hi) {
  const int bits = (int)(im->depth & ~MOX_DEPTH_SIGN) / 8;
  const int isSigned = (im->depth & MOX_DEPTH_SIGN) != 0;
  const long values = (long)im->imageSize / bits;
  long i;
  *lo = 0x7fffffffL, *hi = -0x7fffffffL - 1;
  for (i = 0; i < values; ++i) {
    const char* p = im->imageData + i * bits;
    long v;
    if (bits == 1) v = *(const signed char*)p;
    else if (bits == 2) v = isSigned ? (long)*(const short*)p : (long)*(const unsigned short*)p;
    else v = *(const int*)p;
    if (v < *lo) *lo = v;
    if (v > *hi) *hi = v;
  }
}

/* A result as 8U in pixel order, 1 or 3 channels (4 keep theirs: the bitmap
   drops the alpha): 1-bit values become 0 and 255, wider ones are moved to
   start at 0 and shifted right until they fit in 8 bits. Returns null when
   the result can be shown as it is. */
static MoxImage* forDisplay(const MoxImage* im) {
  MoxImage* shown;
  MoxImage* wide;
  long lo, hi;
  unsigned shift = 0;
  if (im->depth == MOX_DEPTH_8U && im->dataOrder == MOX_DATA_ORDER_PIXEL) return NULL;
  shown = moxCreateImageHeader(im->nChannels, 0, MOX_DEPTH_8U, im->colorModel, im->channelSeq,
                               MOX_DATA_ORDER_PIXEL, im->origin, MOX_ALIGN_4BYTES, im->height,
                               im->width, NULL, NULL, NULL);
  if (!shown) return NULL;
  moxAllocateImage(shown, 0);
  if (im->depth == MOX_DEPTH_1U || im->depth == MOX_DEPTH_8U) {
    moxConvert(im, shown);
    return shown;
  }
  wide = moxCreateImageHeader(im->nChannels, 0, MOX_DEPTH_32S, im->colorModel, im->channelSeq,
                              MOX_DATA_ORDER_PIXEL, im->origin, MOX_ALIGN_4BYTES, im->height,
                              im->width, NULL, NULL, NULL);
  if (!wide) return shown;
  moxAllocateImage(wide, 0);
  moxConvert(im, wide);
  valueRange(wide, &lo, &hi);
  while (((hi - lo) >> shift) > 255) ++shift;
  moxSubtractS(wide, wide, (int)lo, 0, NULL);
  moxRShiftS(wide, wide, shift, NULL);
  moxConvert(wide, shown);
  moxDeallocate(wide, MOX_FREE_HEADER | MOX_FREE_DATA);
  return shown;
}

/* The photograph's rows top first (a bitmap is usually stored bottom up),
   as the moxpx tool reads its files. */
static void topFirst(MoxImage* photo) {
  char* row = (char*)malloc((size_t)photo->widthStep);
  int y;
  if (!row || photo->origin != MOX_ORIGIN_BL) {
    free(row);
    return;
  }
  for (y = 0; y < photo->height / 2; ++y) {
    char* a = photo->imageData + (size_t)y * photo->widthStep;
    char* b = photo->imageData + (size_t)(photo->height - 1 - y) * photo->widthStep;
    memcpy(row, a, (size_t)photo->widthStep);
    memcpy(a, b, (size_t)photo->widthStep);
    memcpy(b, row, (size_t)photo->widthStep);
  }
  photo->origin = MOX_ORIGIN_TL;
  free(row);
}

/* A number of an entry's text: w or h (the photograph's width or height)
   or digits. */
static long atom(const char** s, const MoxImage* photo) {
  long v = 0;
  if (**s == 'w' || **s == 'h') return *(*s)++ == 'w' ? photo->width : photo->height;
  while (**s >= '0' && **s <= '9') v = v * 10 + *(*s)++ - '0';
  return v;
}

/* The value of "{w-w/2}" and the like: + - * / on atoms, * and / first. */
static long expression(const char** s, const MoxImage* photo) {
  long sum = 0, sign = 1;
  for (;;) {
    long product = atom(s, photo);
    while (**s == '*' || **s == '/') {
      const char op = *(*s)++;
      const long b = atom(s, photo);
      product = op == '*' ? product * b : b ? product / b : 0;
    }
    sum += sign * product;
    if (**s != '+' && **s != '-') return sum;
    sign = *(*s)++ == '+' ? 1 : -1;
  }
}

/* An entry's text with every {expression} replaced by its value for the
   photograph it runs on; other braces stay as they are. */
static void fill(const char* text, const MoxImage* photo, char* out, size_t size) {
  size_t n = 0;
  while (*text && n + 24 < size) {
    const size_t length = *text == '{' ? strspn(text + 1, "wh0123456789+-*/") : 0;
    if (length && text[1 + length] == '}') {
      ++text;
      n += (size_t)sprintf(out + n, "%ld", expression(&text, photo));
      ++text;
    } else {
      out[n++] = *text++;
    }
  }
  out[n] = 0;
}

/* Text for the page with &, <, > and " escaped. */
static void html(FILE* f, const char* text) {
  for (; *text; ++text) {
    switch (*text) {
      case '&': fputs("&amp;", f); break;
      case '<': fputs("&lt;", f); break;
      case '>': fputs("&gt;", f); break;
      case '"': fputs("&quot;", f); break;
      default: fputc(*text, f);
    }
  }
}

static const char* kHead =
    "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>moxpx gallery</title>\n"
    "<style>body{font-family:sans-serif;margin:1em 2em;background:#f4f4f4}"
    "figure{display:inline-block;vertical-align:top;margin:.6em;padding:.6em;background:#fff;"
    "border:1px solid #ccc;max-width:36em}"
    "figure img{width:17em;margin-right:.3em}"
    "code{display:block;font-size:.8em;white-space:pre-wrap;color:#333}"
    "figcaption{margin:.3em 0}h2{margin-top:1.5em}</style></head><body>\n"
    "<h1>moxpx gallery</h1>\n<p>Each picture: the photograph, then the result. Pictures "
    "decoded: <span id=\"decoded\">counting</span></p>\n";

static const char* kTail =
    "<script>\nwindow.addEventListener('load', function () {\n"
    "  var images = document.images, decoded = 0;\n"
    "  for (var i = 0; i < images.length; ++i)\n"
    "    if (images[i].complete && images[i].naturalWidth > 0) ++decoded;\n"
    "  document.getElementById('decoded').textContent = decoded + ' of ' + images.length;\n"
    "});\n</script>\n</body></html>\n";

int main(int argc, char** argv) {
  const char* out = argc > 1 ? argv[1] : "gallery";
  char* names[MAX_PHOTOS];
  MoxImage* photos[MAX_PHOTOS];
  char path[PATH_SIZE], why[128], text[2048];
  int nPhotos, loaded = 0, i, family, written = 0, failed = 0, k = 0;
  FILE* page;

  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(printReport);
  makeFolder(out);

  nPhotos = listPhotos(MOXPX_SAMPLES_DIR, names);
  for (i = 0; i < nPhotos; ++i) {
    snprintf(path, sizeof path, "%s/%s", MOXPX_SAMPLES_DIR, names[i]);
    photos[loaded] = bmpRead(path, why, sizeof why);
    if (!photos[loaded]) {
      fprintf(stderr, "cannot load %s: %s\n", path, why);
      free(names[i]);
      continue;
    }
    topFirst(photos[loaded]);
    names[loaded] = names[i];
    snprintf(path, sizeof path, "%s/photo-%s", out, names[loaded]);
    if (bmpWrite(path, photos[loaded], 24, 0, 0, why, sizeof why) != 0)
      fprintf(stderr, "cannot write %s: %s\n", path, why);
    else
      printf("wrote %s\n", path);
    ++loaded;
  }
  if (loaded == 0) {
    fprintf(stderr, "no photographs in %s\n", MOXPX_SAMPLES_DIR);
    return 1;
  }

  snprintf(path, sizeof path, "%s/index.html", out);
  page = fopen(path, "w");
  if (!page) {
    fprintf(stderr, "cannot write %s\n", path);
    return 1;
  }
  fputs(kHead, page);
  for (family = 0; galleryFamilies[family]; ++family) {
    const GalleryEntry* e;
    fprintf(page, "<section>\n");
    for (e = galleryFamilies[family]; e->name; ++e, ++k) {
      const int p = k % loaded;
      MoxImage* result;
      MoxImage* shown;
      int bits;
      moxSetErrStatus(MOX_StsNoError); /* each entry judges only its own calls */
      result = e->run(photos[p]);
      if (!result) {
        printf("failed: %s\n", e->name);
        ++failed;
        continue;
      }
      shown = forDisplay(result);
      bits = (shown ? shown : result)->nChannels == 1 ? 8 : 24;
      snprintf(path, sizeof path, "%s/%s.bmp", out, e->name);
      if (bmpWrite(path, shown ? shown : result, bits, 0, 0, why, sizeof why) == 0) {
        printf("wrote %s\n", path);
        ++written;
        fprintf(page, "<figure><img src=\"photo-%s\" alt=\"photograph\"><img src=\"%s.bmp\" alt=\"",
                names[p], e->name);
        html(page, e->name);
        fputs("\"><figcaption>", page);
        html(page, e->caption);
        fputs("</figcaption><code>", page);
        fill(e->call, photos[p], text, sizeof text);
        html(page, text);
        fputs("</code><code>", page);
        fill(e->command, photos[p], text, sizeof text);
        html(page, text);
        fputs("</code></figure>\n", page);
      } else {
        printf("failed: %s (%s)\n", e->name, why);
        ++failed;
      }
      if (shown) moxDeallocate(shown, MOX_FREE_HEADER | MOX_FREE_DATA);
      moxDeallocate(result, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI);
    }
    fprintf(page, "</section>\n");
  }
  fputs(kTail, page);
  fclose(page);
  printf("%d pictures written, %d failed; open %s/index.html\n", written, failed, out);
  for (i = 0; i < loaded; ++i) {
    moxDeallocate(photos[i], MOX_FREE_HEADER | MOX_FREE_DATA);
    free(names[i]);
  }
  return failed ? 1 : 0;
}
