/* .bmp files: the file header around the library's packed bitmaps. */
#include "bmpfile.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define FILE_HEADER 14
#define INFO_HEADER 40

static void say(char* why, int size, const char* text) {
  if (why && size > 0) {
    strncpy(why, text, (size_t)size - 1);
    why[size - 1] = '\0';
  }
}

static unsigned long get32(const unsigned char* p) {
  return (unsigned long)p[0] | (unsigned long)p[1] << 8 | (unsigned long)p[2] << 16 |
         (unsigned long)p[3] << 24;
}

static void put32(unsigned char* p, unsigned long v) {
  p[0] = (unsigned char)v, p[1] = (unsigned char)(v >> 8), p[2] = (unsigned char)(v >> 16),
  p[3] = (unsigned char)(v >> 24);
}

MoxBitmapInfoHeader* bmpUnpack(const unsigned char* file, size_t size, char* why, int whySize) {
  MoxBitmapInfoHeader h;
  unsigned long offset, head, colours, rows, height;
  unsigned char* dib;
  if (size < FILE_HEADER + INFO_HEADER || file[0] != 'B' || file[1] != 'M') {
    say(why, whySize, "not a bmp file");
    return NULL;
  }
  memcpy(&h, file + FILE_HEADER, sizeof h);
  offset = get32(file + 10);
  if (h.biSize != 40 && h.biSize != 108 && h.biSize != 124) {
    say(why, whySize, "unknown bitmap header size");
    return NULL;
  }
  /* Header, masks and palette come first; the rows start at the offset. */
  colours = h.biClrUsed ? h.biClrUsed : h.biBitCount <= 8 ? 1ul << h.biBitCount : 0;
  if (colours > 256 || h.biWidth <= 0 || h.biHeight == 0 || h.biWidth > 0x7fffffe0 / 32) {
    say(why, whySize, "bitmap header out of range");
    return NULL;
  }
  head = h.biSize + (h.biCompression == 3 && h.biSize == 40 ? 12 : 0) + 4 * colours;
  height = h.biHeight < 0 ? 0ul - (unsigned long)h.biHeight : (unsigned long)h.biHeight;
  if (h.biCompression == 1 || h.biCompression == 2) {
    rows = h.biSizeImage;
  } else {
    const double bytes = ((double)h.biWidth * h.biBitCount + 31) / 32 * 4 * (double)height;
    if (bytes > 0x7fffffff) {
      say(why, whySize, "bitmap too large");
      return NULL;
    }
    rows = ((unsigned long)h.biWidth * h.biBitCount + 31) / 32 * 4 * height;
  }
  if (FILE_HEADER + head > size || offset < FILE_HEADER + head || offset > size ||
      rows > size - offset) {
    say(why, whySize, "truncated bmp file");
    return NULL;
  }
  dib = (unsigned char*)malloc(head + rows + 1);
  if (!dib) {
    say(why, whySize, "out of memory");
    return NULL;
  }
  memcpy(dib, file + FILE_HEADER, head);
  memcpy(dib + head, file + offset, rows);
  return (MoxBitmapInfoHeader*)(void*)dib;
}

static unsigned char* slurp(const char* path, size_t* size) {
  FILE* f = fopen(path, "rb");
  unsigned char* data = NULL;
  long n;
  if (!f) return NULL;
  if (fseek(f, 0, SEEK_END) == 0 && (n = ftell(f)) >= 0 && fseek(f, 0, SEEK_SET) == 0) {
    data = (unsigned char*)malloc((size_t)n + 1);
    if (data && fread(data, 1, (size_t)n, f) != (size_t)n) {
      free(data);
      data = NULL;
    }
    *size = (size_t)n;
  }
  fclose(f);
  return data;
}

MoxImage* bmpRead(const char* path, char* why, int whySize) {
  size_t size = 0;
  unsigned char* file = slurp(path, &size);
  MoxBitmapInfoHeader* dib;
  MoxImage* shared;
  MoxImage* own = NULL;
  int cloned = 0;
  if (!file) {
    say(why, whySize, "cannot read the file");
    return NULL;
  }
  dib = bmpUnpack(file, size, why, whySize);
  free(file);
  if (!dib) return NULL;
  shared = moxTranslateDIB(dib, &cloned);
  if (!shared) {
    say(why, whySize, "the library refused the bitmap");
    free(dib);
    return NULL;
  }
  if (cloned) {
    own = shared;
  } else {
    /* The rows still belong to the bitmap: copy them into the image's own. */
    own = moxCreateImageHeader(shared->nChannels, shared->alphaChannel, shared->depth,
                               shared->colorModel, shared->channelSeq, shared->dataOrder,
                               shared->origin, shared->align, shared->height, shared->width, NULL,
                               NULL, NULL);
    if (own) moxAllocateImage(own, -1);
    if (own && own->imageData) {
      memcpy(own->imageData, shared->imageData, (size_t)own->imageSize);
    } else {
      if (own) moxDeallocateHeader(own);
      own = NULL;
      say(why, whySize, "out of memory");
    }
    moxDeallocate(shared, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
  free(dib);
  return own;
}

int bmpWrite(const char* path, const MoxImage* image, int bitCount, int dither,
             int paletteConversion, char* why, int whySize) {
  MoxBitmapInfoHeader* dib;
  unsigned char fileHeader[FILE_HEADER] = {'B', 'M'};
  unsigned long rowBytes, bytes, head;
  int width, height, status, failed;
  FILE* f;
  if (!image || (bitCount != 8 && bitCount != 24 && bitCount != 32)) {
    say(why, whySize, "no image or an unsupported bit count");
    return -1;
  }
  width = image->width, height = image->height;
  if (image->roi) {
    const MoxROI* r = image->roi;
    width = r->width < image->width - r->xOffset ? r->width : image->width - r->xOffset;
    height = r->height < image->height - r->yOffset ? r->height : image->height - r->yOffset;
  }
  if (width <= 0 || height <= 0 || (double)width * height * 4 > 0x7fff0000) {
    say(why, whySize, "empty or too large image");
    return -1;
  }
  rowBytes = ((unsigned long)width * bitCount + 31) / 32 * 4;
  head = INFO_HEADER + (bitCount == 8 ? 1024 : 0);
  bytes = head + rowBytes * (unsigned long)height;
  dib = (MoxBitmapInfoHeader*)calloc(1, bytes);
  if (!dib) {
    say(why, whySize, "out of memory");
    return -1;
  }
  dib->biSize = INFO_HEADER;
  dib->biWidth = width;
  dib->biHeight = height;
  dib->biPlanes = 1;
  dib->biBitCount = (unsigned short)bitCount;
  dib->biXPelsPerMeter = dib->biYPelsPerMeter = 2835;
  dib->biClrUsed = bitCount == 8 ? 256 : 0;
  /* The caller's status stays as it was unless this call fails. */
  status = moxGetErrStatus();
  moxSetErrStatus(MOX_StsNoError);
  moxConvertToDIB(image, dib, dither, paletteConversion);
  failed = moxGetErrStatus() != MOX_StsNoError;
  if (failed) {
    free(dib);
    say(why, whySize, "the library refused the image");
    return -1;
  }
  moxSetErrStatus(status);
  put32(fileHeader + 2, FILE_HEADER + bytes);
  put32(fileHeader + 10, FILE_HEADER + head);
  f = fopen(path, "wb");
  failed = !f || fwrite(fileHeader, 1, FILE_HEADER, f) != FILE_HEADER ||
           fwrite(dib, 1, bytes, f) != bytes;
  if (f && fclose(f) != 0) failed = 1;
  free(dib);
  if (failed) {
    say(why, whySize, "cannot write the file");
    return -1;
  }
  return 0;
}
