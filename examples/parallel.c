/*
 * One operation on many threads: every call of moxAdd computes one tile of a
 * tiled destination (its `mapping` names the tile), and the threads take the
 * tiles in turn. The destination's tiles come from a call-back that hands out
 * a per-thread tile buffer and copies it into the result image on release.
 * The result equals the single call over the whole image.
 *
 *   moxpx_parallel [threads] [width] [height] [tile width] [tile height]
 *
 * Tile sizes are multiples of 8. Each thread owns its destination header and
 * tile record: the call-back sets tileData in the record, and records must
 * not be shared by threads that call at once.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "moxpx.h"

typedef struct Tiler {
  unsigned char* result; /* the whole result, width bytes per row */
  int width, height;     /* of the result */
  int tileWidth, tileHeight, tileStep;
  unsigned char* tile;   /* this thread's tile buffer */
  int heldX, heldY, held;
} Tiler;

typedef struct Work {
  const MoxImage* a;
  const MoxImage* b;
  Tiler tiler;
  MoxTileInfo* tileInfo;
  MoxImage* dst;
  int* next; /* the next tile number, shared */
  pthread_mutex_t* lock;
  int tilesX, tiles;
  int failed;
} Work;

/* Copies the part of tile (tx, ty) that lies in the result between the
 * result and the tile buffer. */
static void moveTile(Tiler* t, int tx, int ty, int toResult) {
  int x0 = tx * t->tileWidth, y0 = ty * t->tileHeight, y;
  int w = t->width - x0 < t->tileWidth ? t->width - x0 : t->tileWidth;
  int h = t->height - y0 < t->tileHeight ? t->height - y0 : t->tileHeight;
  for (y = 0; y < h; ++y) {
    unsigned char* r = t->result + (size_t)(y0 + y) * t->width + x0;
    unsigned char* b = t->tile + (size_t)y * t->tileStep;
    if (toResult) memcpy(r, b, (size_t)w);
    else memcpy(b, r, (size_t)w);
  }
}

/* The destination's call-back. The header's imageId leads to the thread's
 * tiler; the tile record is the header's own. */
static void MOX_CALL serveTile(const MoxImage* image, int xIndex, int yIndex, int mode) {
  Tiler* t = (Tiler*)image->imageId;
  if (mode == MOX_RELEASE_TILE) {
    if (t->held) moveTile(t, t->heldX, t->heldY, 1);
    t->held = 0;
    image->tileInfo->tileData = NULL;
    return;
  }
  if (t->held && (t->heldX != xIndex || t->heldY != yIndex)) moveTile(t, t->heldX, t->heldY, 1);
  if (!t->held || t->heldX != xIndex || t->heldY != yIndex) {
    /* The call may write only part of the tile: start from what is there. */
    moveTile(t, xIndex, yIndex, 0);
    t->held = 1, t->heldX = xIndex, t->heldY = yIndex;
  }
  image->tileInfo->tileData = (char*)t->tile;
}

static void* worker(void* arg) {
  Work* w = (Work*)arg;
  int mapping[2];
  /* Report failures on standard error and return; the status tells. */
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(moxStdErrReport);
  for (;;) {
    int k;
    pthread_mutex_lock(w->lock);
    k = (*w->next)++;
    pthread_mutex_unlock(w->lock);
    if (k >= w->tiles) break;
    mapping[0] = k % w->tilesX;
    mapping[1] = k / w->tilesX;
    moxSetErrStatus(MOX_StsNoError);
    moxAdd(w->a, w->b, w->dst, mapping);
    if (moxGetErrStatus() < 0) {
      w->failed = 1;
      break;
    }
  }
  return NULL;
}

static MoxImage* plainImage(int width, int height, int fill) {
  MoxImage* im = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", MOX_DATA_ORDER_PIXEL,
                                      MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, height, width, NULL, NULL,
                                      NULL);
  if (im) moxAllocateImage(im, fill);
  return im;
}

int main(int argc, char** argv) {
  int threads = argc > 1 ? atoi(argv[1]) : 4;
  int width = argc > 2 ? atoi(argv[2]) : 1000;
  int height = argc > 3 ? atoi(argv[3]) : 700;
  int tileWidth = argc > 4 ? atoi(argv[4]) : 128;
  int tileHeight = argc > 5 ? atoi(argv[5]) : 64;
  int i, x, y, next = 0, failed = 0, equal = 1;
  MoxImage *a, *b, *whole;
  unsigned char* result;
  Work* work;
  pthread_t* ids;
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

  if (threads < 1 || width < 1 || height < 1 || tileWidth < 8 || tileHeight < 8 ||
      tileWidth % 8 || tileHeight % 8) {
    fprintf(stderr, "usage: %s [threads] [width] [height] [tile width] [tile height]\n"
                    "(tile sizes are multiples of 8)\n", argv[0]);
    return 2;
  }
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(moxStdErrReport);

  /* Two sources with a pattern that saturates in places. */
  a = plainImage(width, height, -1);
  b = plainImage(width, height, -1);
  whole = plainImage(width, height, 0);
  result = (unsigned char*)calloc((size_t)width * height, 1);
  work = (Work*)calloc((size_t)threads, sizeof(Work));
  ids = (pthread_t*)calloc((size_t)threads, sizeof(pthread_t));
  if (!a || !b || !whole || !a->imageData || !b->imageData || !whole->imageData || !result ||
      !work || !ids) {
    fprintf(stderr, "out of memory\n");
    return 1;
  }
  for (y = 0; y < height; ++y)
    for (x = 0; x < width; ++x) {
      a->imageData[(size_t)y * a->widthStep + x] = (char)((x * 7 + y * 3) & 255);
      b->imageData[(size_t)y * b->widthStep + x] = (char)((x ^ y) & 255);
    }

  for (i = 0; i < threads; ++i) {
    Work* w = &work[i];
    w->a = a, w->b = b, w->next = &next, w->lock = &lock;
    w->tilesX = (width + tileWidth - 1) / tileWidth;
    w->tiles = w->tilesX * ((height + tileHeight - 1) / tileHeight);
    w->tiler.result = result;
    w->tiler.width = width, w->tiler.height = height;
    w->tiler.tileWidth = tileWidth, w->tiler.tileHeight = tileHeight;
    w->tiler.tileStep = (tileWidth + 3) & ~3; /* 8U rows, 4-byte aligned */
    w->tiler.tile = (unsigned char*)malloc((size_t)w->tiler.tileStep * tileHeight);
    w->tileInfo = moxCreateTileInfo(serveTile, i, tileWidth, tileHeight);
    w->dst = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", MOX_DATA_ORDER_PIXEL,
                                  MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, height, width, NULL,
                                  &w->tiler, w->tileInfo);
    if (!w->tiler.tile || !w->tileInfo || !w->dst) {
      fprintf(stderr, "out of memory\n");
      return 1;
    }
  }
  for (i = 0; i < threads; ++i)
    if (pthread_create(&ids[i], NULL, worker, &work[i]) != 0) {
      fprintf(stderr, "cannot start thread %d\n", i);
      return 1;
    }
  for (i = 0; i < threads; ++i) {
    pthread_join(ids[i], NULL);
    failed |= work[i].failed;
  }

  /* The single call over the whole image, for comparison. */
  moxAdd(a, b, whole, NULL);
  if (failed || moxGetErrStatus() < 0) {
    fprintf(stderr, "an operation failed\n");
    return 1;
  }
  for (y = 0; y < height && equal; ++y)
    equal = memcmp(result + (size_t)y * width, whole->imageData + (size_t)y * whole->widthStep,
                   (size_t)width) == 0;
  printf("%d thread%s, %d tiles of %dx%d over %dx%d: %s the single call\n", threads,
         threads == 1 ? "" : "s", work[0].tiles, tileWidth, tileHeight, width, height,
         equal ? "equal to" : "DIFFERENT FROM");

  for (i = 0; i < threads; ++i) {
    moxDeallocate(work[i].dst, MOX_FREE_HEADER | MOX_FREE_TILEINFO);
    free(work[i].tiler.tile);
  }
  moxDeallocate(a, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(b, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(whole, MOX_FREE_HEADER | MOX_FREE_DATA);
  free(result);
  free(work);
  free(ids);
  return equal ? 0 : 1;
}
