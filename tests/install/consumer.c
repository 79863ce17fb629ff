/* Adds two small images with the installed library and prints the result;
   exits with 1 when the sum is wrong or the library reports a failure. */
#include <stdio.h>

#include "moxpx.h"

int main(void) {
  MoxImage* a = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "G", MOX_DATA_ORDER_PIXEL,
                                     MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, 2, 3, NULL, NULL, NULL);
  MoxImage* b = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "G", MOX_DATA_ORDER_PIXEL,
                                     MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, 2, 3, NULL, NULL, NULL);
  const MoxLibVersion* v = moxGetLibVersion();
  int ok;
  if (!a || !b) return 1;
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(moxStdErrReport);
  moxAllocateImage(a, 200);
  moxAllocateImage(b, 100);
  moxAdd(a, b, b, NULL);
  ok = moxGetErrStatus() == MOX_StsNoError && (unsigned char)b->imageData[0] == 255;
  printf("moxpx %d.%d.%d: 200 + 100 = %d\n", v->major, v->minor, v->build,
         (unsigned char)b->imageData[0]);
  moxDeallocate(a, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(b, MOX_FREE_HEADER | MOX_FREE_DATA);
  return ok ? 0 : 1;
}
