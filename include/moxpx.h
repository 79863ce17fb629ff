/*
 * moxpx: image records, pixel arithmetic and logic, alpha work, geometry,
 * frequency transforms, colour conversions and interchange.
 *
 * The whole public interface. Valid C89, C99 and C++.
 * Operations return nothing: a failure is reported through moxError and the
 * calling thread's status, read back with moxGetErrStatus.
 */
#ifndef MOXPX_H
#define MOXPX_H

#include <stddef.h>

#if defined(_WIN32)
#  if defined(MOXPX_BUILD)
#    define MOX_API __declspec(dllexport)
#  elif defined(MOXPX_STATIC)
#    define MOX_API
#  else
#    define MOX_API __declspec(dllimport)
#  endif
#  if defined(_WIN64)
#    define MOX_CALL
#  else
#    define MOX_CALL __stdcall
#  endif
#else
#  if defined(__GNUC__) && __GNUC__ >= 4
#    define MOX_API __attribute__((visibility("default")))
#  else
#    define MOX_API
#  endif
#  define MOX_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ */
/* Constants                                                          */
/* ------------------------------------------------------------------ */

#define MOX_DEPTH_SIGN 0x80000000u
#define MOX_DEPTH_1U   1u
#define MOX_DEPTH_8U   8u
#define MOX_DEPTH_16U  16u
#define MOX_DEPTH_8S   (MOX_DEPTH_SIGN | 8u)
#define MOX_DEPTH_16S  (MOX_DEPTH_SIGN | 16u)
#define MOX_DEPTH_32S  (MOX_DEPTH_SIGN | 32u)

#define MOX_StsNoError             0
#define MOX_StsBacktrace          (-1)
#define MOX_StsUnknownError       (-2)
#define MOX_StsInternalError      (-3)
#define MOX_StsOutOfMemory        (-4)
#define MOX_StsBadArgument        (-5)
#define MOX_StsUnsupportedFunction (-6)
#define MOX_StsConvergenceFailed  (-7)
#define MOX_StsAutotraceCall      (-8)

#define MOX_ErrorModeLeaf   0
#define MOX_ErrorModeParent 1
#define MOX_ErrorModeSilent 2

#define MOX_FREE_HEADER   1
#define MOX_FREE_DATA     2
#define MOX_FREE_ROI      4
#define MOX_FREE_TILEINFO 8
#define MOX_FREE_MASK     16

#define MOX_GET_TILE_TO_READ  1
#define MOX_GET_TILE_TO_WRITE 2
#define MOX_RELEASE_TILE      4

#define MOX_BORDER_CONSTANT  0
#define MOX_BORDER_REPLICATE 1
#define MOX_BORDER_REFLECT   2
#define MOX_BORDER_WRAP      3

#define MOX_SIDE_TOP    1
#define MOX_SIDE_BOTTOM 2
#define MOX_SIDE_LEFT   4
#define MOX_SIDE_RIGHT  8
#define MOX_SIDE_ALL    15

#define MOX_INTER_NN     0
#define MOX_INTER_LINEAR 1
#define MOX_INTER_CUBIC  2

#define MOX_DATA_ORDER_PIXEL 0
#define MOX_DATA_ORDER_PLANE 1
#define MOX_ORIGIN_TL 0
#define MOX_ORIGIN_BL 1
#define MOX_ALIGN_4BYTES 4
#define MOX_ALIGN_8BYTES 8

#define MOX_FFT_FORWARD  1
#define MOX_FFT_INVERSE  2
#define MOX_FFT_NOSCALE  4
#define MOX_FFT_USEALPHA 8
#define MOX_FFT_SMALL    16
#define MOX_FFT_GENERAL  32
#define MOX_FFT_REUSE    64
#define MOX_FFT_FREE     128
#define MOX_FFT_SAVE     256

#define MOX_DCT_FORWARD 1
#define MOX_DCT_INVERSE 2
#define MOX_DCT_FREE    128
#define MOX_DCT_SAVE    256

#define MOX_COMPOSITE_OVER 0
#define MOX_COMPOSITE_IN   1
#define MOX_COMPOSITE_OUT  2
#define MOX_COMPOSITE_ATOP 3
#define MOX_COMPOSITE_XOR  4
#define MOX_COMPOSITE_PLUS 5

#define MOX_SUM        0
#define MOX_SUMSQ      1
#define MOX_SUMSQROOT  2
#define MOX_MAX        3
#define MOX_MIN        4

#define MOX_DITHER_NONE    0
#define MOX_DITHER_FS      1
#define MOX_DITHER_JJN     2
#define MOX_DITHER_STUCKEY 3
#define MOX_DITHER_BAYER   4

#define MOX_NORM_C        1
#define MOX_NORM_L1       2
#define MOX_NORM_L2       4
#define MOX_NORM_RELATIVE 8

#define MOX_LUT_LOOKUP 0
#define MOX_LUT_INTER  1

#define MOX_PALCONV_NONE     0
#define MOX_PALCONV_POPULATE 1
#define MOX_PALCONV_MEDCUT   2

/* ------------------------------------------------------------------ */
/* Records                                                            */
/* ------------------------------------------------------------------ */

struct MoxImage;

typedef struct MoxROI {
  int coi;
  int xOffset;
  int yOffset;
  int height;
  int width;
} MoxROI;

typedef void (MOX_CALL *MoxTileCallBack)(const struct MoxImage* image,
                                         int xIndex, int yIndex, int mode);

typedef struct MoxTileInfo {
  MoxTileCallBack callBack;
  int id;
  char* tileData;
  int width;
  int height;
} MoxTileInfo;

typedef struct MoxImage {
  int headerSize;
  int headerId;
  int nChannels;
  int alphaChannel;
  unsigned int depth;
  char colorModel[4];
  char channelSeq[4];
  int dataOrder;
  int origin;
  int align;
  int height;
  int width;
  struct MoxROI* roi;
  struct MoxImage* maskRoi;
  void* imageId;
  struct MoxTileInfo* tileInfo;
  int imageSize;
  char* imageData;
  int widthStep;
  int borderMode[4];
  int borderConst[4];
  char* imageDataOrigin;
} MoxImage;

typedef int (MOX_CALL *MoxErrorCallBack)(int status, const char* funcName,
                                         const char* message, const char* file,
                                         int line);

typedef struct MoxContext {
  int status;
  int errMode;
  MoxErrorCallBack reportFn;
  int reserved[390];
  char errorText[80];
} MoxContext;

typedef struct MoxLibVersion {
  int major;
  int minor;
  int build;
  const char* Name;
  const char* Version;
  const char* InternalVersion;
  const char* BuildDate;
  const char* CallConv;
} MoxLibVersion;

typedef struct MoxColorTwist {
  int data[16];
  int scalingValue;
} MoxColorTwist;

typedef struct MoxConvKernel {
  int nCols;
  int nRows;
  int anchorX;
  int anchorY;
  int* values;
  int nShiftR;
} MoxConvKernel;

typedef struct MoxLUT {
  int num;
  int* key;
  int* value;
  int* factor;
  int interpolateType;
} MoxLUT;

typedef struct MoxBitmapInfoHeader {
  unsigned int biSize;
  int biWidth;
  int biHeight;
  unsigned short biPlanes;
  unsigned short biBitCount;
  unsigned int biCompression;
  unsigned int biSizeImage;
  int biXPelsPerMeter;
  int biYPelsPerMeter;
  unsigned int biClrUsed;
  unsigned int biClrImportant;
} MoxBitmapInfoHeader;

/* ------------------------------------------------------------------ */
/* Library context and error reporting                                */
/* ------------------------------------------------------------------ */

/* Returns the calling thread's last stored status. */
MOX_API int MOX_CALL moxGetErrStatus(void);
/* Stores a status in the calling thread's context. */
MOX_API void MOX_CALL moxSetErrStatus(int status);
/* Returns the calling thread's error mode (Leaf, Parent or Silent). */
MOX_API int MOX_CALL moxGetErrMode(void);
/* Sets the calling thread's error mode; any value is stored. */
MOX_API void MOX_CALL moxSetErrMode(int mode);
/* Stores the status (not -1 or -8) and, unless it is 0, calls the report function. */
MOX_API int MOX_CALL moxError(int status, const char* funcName, const char* message,
                              const char* file, int line);
/* Returns the text of a status code. */
MOX_API const char* MOX_CALL moxErrorStr(int status);
/* Installs a report function (null: the message box) and returns the previous one. */
MOX_API MoxErrorCallBack MOX_CALL moxRedirectError(MoxErrorCallBack fn);
/* Report function that writes nothing; ends the process in Leaf mode. */
MOX_API int MOX_CALL moxNulDevReport(int status, const char* funcName, const char* message,
                                     const char* file, int line);
/* Report function that writes to standard error; ends the process in Leaf mode. */
MOX_API int MOX_CALL moxStdErrReport(int status, const char* funcName, const char* message,
                                     const char* file, int line);
/* Report function that asks through a message box (the default report). */
MOX_API int MOX_CALL moxGuiBoxReport(int status, const char* funcName, const char* message,
                                     const char* file, int line);
/* Returns the calling thread's library context. */
MOX_API MoxContext* MOX_CALL moxUndContext(void);

/* ------------------------------------------------------------------ */
/* Memory and version                                                 */
/* ------------------------------------------------------------------ */

/* Allocates an 8-aligned block of bytes; release with moxFree. */
MOX_API void* MOX_CALL moxMalloc(int length);
/* Allocates an 8-aligned block of 16-bit values; release with moxFree. */
MOX_API short* MOX_CALL moxwMalloc(int length);
/* Allocates an 8-aligned block of 32-bit integers; release with moxFree. */
MOX_API int* MOX_CALL moxiMalloc(int length);
/* Allocates an 8-aligned block of floats; release with moxFree. */
MOX_API float* MOX_CALL moxsMalloc(int length);
/* Allocates an 8-aligned block of doubles; release with moxFree. */
MOX_API double* MOX_CALL moxdMalloc(int length);
/* Releases a block of the moxMalloc family; null is ignored. */
MOX_API void MOX_CALL moxFree(void* ptr);
/* Returns the library's version record. */
MOX_API const MoxLibVersion* MOX_CALL moxGetLibVersion(void);

/* ------------------------------------------------------------------ */
/* Image records                                                      */
/* ------------------------------------------------------------------ */

/* Creates an image header (no pixels); null on a bad field or no memory. */
MOX_API MoxImage* MOX_CALL moxCreateImageHeader(int nChannels, int alphaChannel,
    unsigned int depth, const char* colorModel, const char* channelSeq, int dataOrder,
    int origin, int align, int height, int width, MoxROI* roi, void* imageId,
    MoxTileInfo* tileInfo);
/* Allocates the pixel block (64 KB or more: on a page); fillValue -1 leaves it unfilled. */
MOX_API void MOX_CALL moxAllocateImage(MoxImage* image, int fillValue);
/* Releases the pixel block of a header. */
MOX_API void MOX_CALL moxDeallocateImage(MoxImage* image);
/* Releases the parts of an image named by the MOX_FREE_ flags. */
MOX_API void MOX_CALL moxDeallocate(MoxImage* image, int flag);
/* Releases the header record only. */
MOX_API void MOX_CALL moxDeallocateHeader(MoxImage* image);
/* Creates a region-of-interest record; null on no memory. */
MOX_API MoxROI* MOX_CALL moxCreateROI(int coi, int xOffset, int yOffset, int height, int width);
/* Overwrites all fields of a region of interest. */
MOX_API void MOX_CALL moxSetROI(MoxROI* roi, int coi, int xOffset, int yOffset, int height,
                                int width);
/* Releases a region-of-interest record. */
MOX_API void MOX_CALL moxDeleteROI(MoxROI* roi);
/* Creates a tile-info record; null on no memory. */
MOX_API MoxTileInfo* MOX_CALL moxCreateTileInfo(MoxTileCallBack callBack, int id, int width,
                                                int height);
/* Overwrites all fields of a tile-info record. */
MOX_API void MOX_CALL moxSetTileInfo(MoxTileInfo* tileInfo, MoxTileCallBack callBack, int id,
                                     int width, int height);
/* Releases a tile-info record. */
MOX_API void MOX_CALL moxDeleteTileInfo(MoxTileInfo* tileInfo);
/* Sets the border mode and constant of the sides named in the border mask. */
MOX_API void MOX_CALL moxSetBorderMode(MoxImage* image, int mode, int border, int constVal);
/* Returns the fault bits of a header; 0 means usable. */
MOX_API unsigned int MOX_CALL moxBadImageHeader(const MoxImage* image);

/* ------------------------------------------------------------------ */
/* Pixel arithmetic and logic                                         */
/* ------------------------------------------------------------------ */

/* dst = A + B, saturated. */
MOX_API void MOX_CALL moxAdd(const MoxImage* srcImageA, const MoxImage* srcImageB,
                             MoxImage* dstImage, const int* mapping);
/* dst = A - B (B - A when reverse), saturated. */
MOX_API void MOX_CALL moxSubtract(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                  MoxImage* dstImage, int reverse, const int* mapping);
/* dst = A * B, saturated. */
MOX_API void MOX_CALL moxMultiply(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                  MoxImage* dstImage, const int* mapping);
/* dst = A AND B. */
MOX_API void MOX_CALL moxAnd(const MoxImage* srcImageA, const MoxImage* srcImageB,
                             MoxImage* dstImage, const int* mapping);
/* dst = A OR B. */
MOX_API void MOX_CALL moxOr(const MoxImage* srcImageA, const MoxImage* srcImageB,
                            MoxImage* dstImage, const int* mapping);
/* dst = A XOR B. */
MOX_API void MOX_CALL moxXor(const MoxImage* srcImageA, const MoxImage* srcImageB,
                             MoxImage* dstImage, const int* mapping);
/* dst = src + value, saturated. */
MOX_API void MOX_CALL moxAddS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                              const int* mapping);
/* dst = src - value (value - src when reverse), saturated. */
MOX_API void MOX_CALL moxSubtractS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                   int reverse, const int* mapping);
/* dst = src * value, saturated. */
MOX_API void MOX_CALL moxMultiplyS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                   const int* mapping);
/* dst = src AND value. */
MOX_API void MOX_CALL moxAndS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                              const int* mapping);
/* dst = src OR value. */
MOX_API void MOX_CALL moxOrS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                             const int* mapping);
/* dst = src XOR value. */
MOX_API void MOX_CALL moxXorS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                              const int* mapping);
/* dst = src shifted left by nShift (mod 32), no saturation. */
MOX_API void MOX_CALL moxLShiftS(const MoxImage* srcImage, MoxImage* dstImage,
                                 unsigned int nShift, const int* mapping);
/* dst = src shifted right by nShift (mod 32). */
MOX_API void MOX_CALL moxRShiftS(const MoxImage* srcImage, MoxImage* dstImage,
                                 unsigned int nShift, const int* mapping);
/* dst = src * src, saturated. */
MOX_API void MOX_CALL moxSquare(const MoxImage* srcImage, MoxImage* dstImage,
                                const int* mapping);
/* dst = |src| (the most negative value stays). */
MOX_API void MOX_CALL moxAbs(const MoxImage* srcImage, MoxImage* dstImage, const int* mapping);
/* dst = NOT src (every stored bit inverted). */
MOX_API void MOX_CALL moxNot(const MoxImage* srcImage, MoxImage* dstImage, const int* mapping);

/* ------------------------------------------------------------------ */
/* Alpha work                                                         */
/* ------------------------------------------------------------------ */

/* dst = src * value / max, exactly rounded (8U, 16U). */
MOX_API void MOX_CALL moxMultiplySScale(const MoxImage* srcImage, MoxImage* dstImage,
                                        int value, const int* mapping);
/* dst = A * B / max, exactly rounded (8U, 16U). */
MOX_API void MOX_CALL moxMultiplyScale(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                       MoxImage* dstImage, const int* mapping);
/* Multiplies the colour channels by alpha (own alpha, or alphaValue which becomes the alpha). */
MOX_API void MOX_CALL moxPreMultiplyAlpha(MoxImage* image, int alphaValue, const int* mapping);
/* Porter-Duff composition of two images by their alpha images or channels. */
MOX_API void MOX_CALL moxAlphaComposite(const MoxImage* srcImageA, const MoxImage* srcImageB,
    MoxImage* dstImage, int compositeType, const MoxImage* alphaImageA,
    const MoxImage* alphaImageB, MoxImage* alphaImageDst, int premulAlpha, int divideMode);
/* Porter-Duff composition of two images with constant alphas. */
MOX_API void MOX_CALL moxAlphaCompositeC(const MoxImage* srcImageA, const MoxImage* srcImageB,
    MoxImage* dstImage, int compositeType, int aA, int aB, int premulAlpha, int divideMode);

/* ------------------------------------------------------------------ */
/* Neighbourhood filters and morphology                               */
/* ------------------------------------------------------------------ */

/* Creates an integer convolution kernel (values copied row by row). */
MOX_API MoxConvKernel* MOX_CALL moxCreateConvKernel(int nCols, int nRows, int anchorX,
    int anchorY, const int* values, int nShiftR);
/* Reads back the fields of a convolution kernel. */
MOX_API void MOX_CALL moxGetConvKernel(const MoxConvKernel* kernel, int* nCols, int* nRows,
    int* anchorX, int* anchorY, int** values, int* nShiftR);
/* Releases a convolution kernel. */
MOX_API void MOX_CALL moxDeleteConvKernel(MoxConvKernel* kernel);
/* Convolves with 1..100 kernels and combines their results. */
MOX_API void MOX_CALL moxConvolve2D(const MoxImage* srcImage, MoxImage* dstImage,
    MoxConvKernel* const* kernel, int nKernels, int combineMethod);
/* Convolves with a row kernel, then a column kernel (either may be null). */
MOX_API void MOX_CALL moxConvolveSep2D(const MoxImage* srcImage, MoxImage* dstImage,
    const MoxConvKernel* xKernel, const MoxConvKernel* yKernel);
/* Mean over a box, rounded half up. */
MOX_API void MOX_CALL moxBlur(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                              int nRows, int anchorX, int anchorY);
/* Minimum over a box. */
MOX_API void MOX_CALL moxMinFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                   int nRows, int anchorX, int anchorY);
/* Maximum over a box. */
MOX_API void MOX_CALL moxMaxFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                   int nRows, int anchorX, int anchorY);
/* Median over a box (lower middle value of an even count). */
MOX_API void MOX_CALL moxMedianFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                      int nRows, int anchorX, int anchorY);
/* Erosion by a 3x3 square, nIterations times. */
MOX_API void MOX_CALL moxErode(const MoxImage* srcImage, MoxImage* dstImage, int nIterations);
/* Dilation by a 3x3 square, nIterations times. */
MOX_API void MOX_CALL moxDilate(const MoxImage* srcImage, MoxImage* dstImage, int nIterations);
/* Opening: erosion then dilation, nIterations each. */
MOX_API void MOX_CALL moxOpen(const MoxImage* srcImage, MoxImage* dstImage, int nIterations);
/* Closing: dilation then erosion, nIterations each. */
MOX_API void MOX_CALL moxClose(const MoxImage* srcImage, MoxImage* dstImage, int nIterations);

/* ------------------------------------------------------------------ */
/* Geometry                                                           */
/* ------------------------------------------------------------------ */

/* Enlarges the source ROI by xU/xL and yU/yL (nearest, linear or cubic). */
MOX_API void MOX_CALL moxZoom(const MoxImage* srcImage, MoxImage* dstImage, int xU, int xL,
                              int yU, int yL, int interpolate, const int* point);
/* Reduces the source ROI by xU/xL and yU/yL in fixed point. */
MOX_API void MOX_CALL moxDecimate(const MoxImage* srcImage, MoxImage* dstImage, int xU, int xL,
                                  int yU, int yL, int interpolate, const int* point);
/* Rotates by angle/100 degrees about (xCenter, yCenter). */
MOX_API void MOX_CALL moxRotate(const MoxImage* srcImage, MoxImage* dstImage, int angle,
                                int xCenter, int yCenter, int interpolate, const int* mapping);
/* Mirrors about the horizontal (0), vertical (1) or both (-1) axes. */
MOX_API void MOX_CALL moxMirror(const MoxImage* srcImage, MoxImage* dstImage, int flipAxis);

/* ------------------------------------------------------------------ */
/* Frequency transforms                                               */
/* ------------------------------------------------------------------ */

/* Two-dimensional real FFT into a packed spectrum (or the reverse direction). */
MOX_API int MOX_CALL moxRealFft2D(const MoxImage* srcImage, MoxImage* dstImage, int flags,
                                  const int* map);
/* Two-dimensional FFT of a packed spectrum into real samples (or the reverse direction). */
MOX_API int MOX_CALL moxCcsFft2D(const MoxImage* srcImage, MoxImage* dstImage, int flags,
                                 const int* map);
/* Orthonormal two-dimensional DCT-II (forward) or its inverse. */
MOX_API void MOX_CALL moxDCT2D(const MoxImage* srcImage, MoxImage* dstImage, int flags);

/* ------------------------------------------------------------------ */
/* Colour and interchange                                             */
/* ------------------------------------------------------------------ */

/* RGB to one grey channel. */
MOX_API void MOX_CALL moxColorToGray(const MoxImage* srcImage, MoxImage* dstImage,
                                     const int* mapping);
/* Grey to RGB with the given fractions. */
MOX_API void MOX_CALL moxGrayToColor(const MoxImage* srcImage, MoxImage* dstImage,
    float fractR, float fractG, float fractB, const int* mapping);
/* RGB to HSV. */
MOX_API void MOX_CALL moxRGB2HSV(const MoxImage* srcImage, MoxImage* dstImage,
                                 const int* mapping);
/* HSV to RGB. */
MOX_API void MOX_CALL moxHSV2RGB(const MoxImage* srcImage, MoxImage* dstImage,
                                 const int* mapping);
/* RGB to HLS. */
MOX_API void MOX_CALL moxRGB2HLS(const MoxImage* srcImage, MoxImage* dstImage,
                                 const int* mapping);
/* HLS to RGB. */
MOX_API void MOX_CALL moxHLS2RGB(const MoxImage* srcImage, MoxImage* dstImage,
                                 const int* mapping);
/* Creates a colour twist record; null on a bad argument or no memory. */
MOX_API MoxColorTwist* MOX_CALL moxCreateColorTwist(const int* data, int scalingValue);
/* Overwrites the matrix and scale of a colour twist. */
MOX_API void MOX_CALL moxSetColorTwist(MoxColorTwist* cTwist, const int* data,
                                       int scalingValue);
/* Releases a colour twist; null is ignored. */
MOX_API void MOX_CALL moxDeleteColorTwist(MoxColorTwist* cTwist);
/* Applies a colour twist to the three colour channels, plus offset. */
MOX_API void MOX_CALL moxApplyColorTwist(const MoxImage* srcImage, MoxImage* dstImage,
    const MoxColorTwist* cTwist, int offset, const int* mapping);
/* Reduces to equally spaced levels with optional dithering and jitter. */
MOX_API void MOX_CALL moxReduceBits(const MoxImage* srcImage, MoxImage* dstImage, int noise,
                                    int ditherType, int levels);
/* Converts between depths and data orders. */
MOX_API void MOX_CALL moxConvert(const MoxImage* srcImage, MoxImage* dstImage);
/* Expands a 1-bit image: 0 to ZeroScale, 1 to OneScale. */
MOX_API void MOX_CALL moxBitonalToGray(const MoxImage* srcImage, MoxImage* dstImage,
                                       int ZeroScale, int OneScale);
/* Makes an image header for a packed DIB (sharing or copying its bits). */
MOX_API MoxImage* MOX_CALL moxTranslateDIB(const MoxBitmapInfoHeader* dib, int* cloneData);
/* Converts a packed DIB into an existing image. */
MOX_API void MOX_CALL moxConvertFromDIB(const MoxBitmapInfoHeader* dib, MoxImage* image);
/* Writes an image as a packed 8-, 24- or 32-bit DIB. */
MOX_API void MOX_CALL moxConvertToDIB(const MoxImage* image, MoxBitmapInfoHeader* dib,
                                      int dither, int paletteConversion);

/* ------------------------------------------------------------------ */
/* Statistics and point maps                                          */
/* ------------------------------------------------------------------ */

/* Values below threshold to the depth's minimum, the others to its maximum. */
MOX_API void MOX_CALL moxThreshold(const MoxImage* srcImage, MoxImage* dstImage,
                                   int threshold);
/* Counts each channel's values into the bins of its lookup table. */
MOX_API void MOX_CALL moxComputeHisto(const MoxImage* srcImage, MoxLUT** lut);
/* Maps each channel through its lookup table. */
MOX_API void MOX_CALL moxContrastStretch(const MoxImage* srcImage, MoxImage* dstImage,
                                         MoxLUT** lut);
/* Equalizes each channel's histogram over the given bins. */
MOX_API void MOX_CALL moxHistoEqualize(const MoxImage* srcImage, MoxImage* dstImage,
                                       MoxLUT** lut);
/* C, L1 or L2 norm of A - B (or of A), optionally relative to B. */
MOX_API double MOX_CALL moxNorm(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                int normType);

/* ------------------------------------------------------------------ */
/* Data movement                                                      */
/* ------------------------------------------------------------------ */

/* Copies the source ROI into the destination ROI. */
MOX_API void MOX_CALL moxCopy(const MoxImage* srcImage, MoxImage* dstImage,
                              const int* mapping);
/* Writes fillValue, cut to the depth, into the ROI. */
MOX_API void MOX_CALL moxSet(MoxImage* image, int fillValue, const int* mapping);
/* Exchanges the contents of two ROIs. */
MOX_API void MOX_CALL moxExchange(MoxImage* imageA, MoxImage* imageB, const int* mapping);

#ifdef __cplusplus
}
#endif

#endif /* MOXPX_H */
