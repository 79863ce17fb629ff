/* The main job for now: create and fill images, validate a good and a broken
   header, and print the version record and the broken header's fault text. */
#include <stdio.h>
#include <string.h>

#include "moxpx.h"

static int MOX_CALL quietReport(int status, const char* funcName, const char* message,
                                const char* file, int line) {
  printf("reported by %s [%s:%d], status %d (%s):\n%s", funcName, file, line, status,
         moxErrorStr(status), message);
  return status;
}

int main(void) {
  const MoxLibVersion* v = moxGetLibVersion();
  MoxImage* gray;
  MoxImage* color;
  MoxImage broken;
  MoxROI roi;
  unsigned int faults;
  int x;

  printf("%s %s %s built %s (%d.%d.%d, %s)\n", v->Name, v->Version, v->InternalVersion,
         v->BuildDate, v->major, v->minor, v->build, v->CallConv);

  gray = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", MOX_DATA_ORDER_PIXEL,
                              MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, 4, 10, NULL, NULL, NULL);
  color = moxCreateImageHeader(3, 0, MOX_DEPTH_16U, "RGB", "BGR", MOX_DATA_ORDER_PLANE,
                               MOX_ORIGIN_BL, MOX_ALIGN_8BYTES, 3, 5, NULL, NULL, NULL);
  if (!gray || !color) return 1;
  moxAllocateImage(gray, 0x7F);
  moxAllocateImage(color, 0x1234);
  printf("gray 10x4 8U: widthStep %d, imageSize %d, first row:", gray->widthStep,
         gray->imageSize);
  for (x = 0; x < gray->width; ++x) printf(" %d", (unsigned char)gray->imageData[x]);
  printf("\ncolor 5x3x3 16U planes: widthStep %d, imageSize %d, first value 0x%X\n",
         color->widthStep, color->imageSize, *(unsigned short*)color->imageData);
  printf("good header faults: 0x%X\n", moxBadImageHeader(gray));

  memcpy(&broken, gray, sizeof broken);
  broken.align = 2;
  broken.depth = 12;
  roi.coi = 0; roi.xOffset = -1; roi.yOffset = 0; roi.height = 2; roi.width = 0;
  broken.roi = &roi;
  faults = moxBadImageHeader(&broken);
  printf("broken header faults: 0x%X\n", faults);

  /* An operation given the broken header reports its fault text through
     moxError; in Parent mode the call returns and the status tells. */
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(quietReport);
  moxCopy(&broken, gray, NULL);
  printf("status now %d\n", moxGetErrStatus());

  moxDeallocate(gray, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(color, MOX_FREE_HEADER | MOX_FREE_DATA);
  return 0;
}
