// The same bits on every build: a digest of each destination, made from fixed
// pseudo-random images, as recorded on x86-64. A build that rounds otherwise
// (vector width, x87, fused multiply-adds) fails here where the formula tests
// accept a one-off. Add a case for every operation that computes in floating
// point or has more than one code path.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "image_helpers.h"

using namespace testimg;

namespace {

std::uint64_t digest(const MoxImage* im) {
  std::uint64_t h = 14695981039346656037ull;
  for (int i = 0; i < im->imageSize; ++i) h = (h ^ static_cast<unsigned char>(im->imageData[i])) * 1099511628211ull;
  return h;
}

// An image through 8-bit bitmaps and back: a median-cut palette with FS into
// the destination's left half, the fixed cube with STUCKEY into its right.
void paletteRoundTrip(MoxImage* a, MoxImage* d) {
  const int w = a->width / 2, h = a->height;
  std::vector<unsigned> block((40 + 1024 + ((w + 3) & ~3) * h) / 4 + 1);
  auto* dib = reinterpret_cast<MoxBitmapInfoHeader*>(block.data());
  MoxROI left{0, 0, 0, h, w}, right{0, w, 0, h, w};
  const int kinds[2][2] = {{MOX_DITHER_FS, MOX_PALCONV_MEDCUT}, {MOX_DITHER_STUCKEY, MOX_PALCONV_NONE}};
  for (int i = 0; i < 2; ++i) {
    *dib = MoxBitmapInfoHeader{40, w, h, 1, 8, 0, 0, 0, 0, 0, 0};
    a->roi = d->roi = i ? &right : &left;
    moxConvertToDIB(a, dib, kinds[i][0], kinds[i][1]);
    moxConvertFromDIB(dib, d);
  }
  a->roi = d->roi = nullptr;
}

struct Golden { const char* name; Shape src, dst; void (*run)(MoxImage*, MoxImage*, MoxImage*); std::uint64_t want; };

const Shape k8U3{MOX_DEPTH_8U, 3, 0, 61, 83}, k16S1{MOX_DEPTH_16S, 1, 0, 48, 64}, k32S1{MOX_DEPTH_32S, 1, 0, 48, 64},
    k8U1{MOX_DEPTH_8U, 1, 0, 45, 60}, k32S1odd{MOX_DEPTH_32S, 1, 0, 45, 60}, k16S3P{MOX_DEPTH_16S, 3, 1, 40, 40},
    k16U3{MOX_DEPTH_16U, 3, 0, 40, 40}, k32S3{MOX_DEPTH_32S, 3, 0, 40, 40}, k16U3P{MOX_DEPTH_16U, 3, 1, 40, 40},
    k16U1{MOX_DEPTH_16U, 1, 0, 48, 64}, k8U1w{MOX_DEPTH_8U, 1, 0, 48, 64}, k8U4{MOX_DEPTH_8U, 4, 0, 45, 61},
    zoomed8U{MOX_DEPTH_8U, 3, 0, 150, 190}, zoomed16S{MOX_DEPTH_16S, 3, 1, 90, 90}, zoomed32S{MOX_DEPTH_32S, 1, 0, 72, 150},
    decimated8U{MOX_DEPTH_8U, 3, 0, 41, 56}, decimated16U{MOX_DEPTH_16U, 1, 0, 24, 39};

// A twist with entries that are not powers of two, so that every product rounds.
void twist(const MoxImage* a, MoxImage* d, unsigned depth) {
  const int m[16] = {-3001, 70001, 19999, 5, 12345, -4321, 99999, -77, 3, 65537, -1, 1000, 0, 0, 0, 0};
  MoxColorTwist* t = moxCreateColorTwist(m, 16);
  moxApplyColorTwist(a, d, t, depth == MOX_DEPTH_8U ? -13 : 517, nullptr);
  moxDeleteColorTwist(t);
}

// A twist whose entries fit in 16 bits (the multiply-and-add lanes); the
// round one has translations of whole 32768s.
void smallTwist(const MoxImage* a, MoxImage* d, int offset, bool round = false) {
  const int m[16] = {301, -77, 45, round ? -65536 : 1003, -29, 250, 61, round ? 32768 : -517,
                     99, 130, -180, round ? 0 : 40000, 0, 0, 0, 0};
  MoxColorTwist* t = moxCreateColorTwist(m, 8);
  moxApplyColorTwist(a, d, t, offset, nullptr);
  moxDeleteColorTwist(t);
}

// Convolutions on the three accumulator paths: 16-bit products, 32-bit and
// 64-bit sums with the root of squares; one gradient alone (which 3).
void convolveWith(MoxImage* a, MoxImage* d, int which) {
  static const int binomial[25] = {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6, 4, 16, 24, 16, 4, 1, 4, 6, 4, 1};
  static const int gx[9] = {-3, 0, 3, -10, 0, 10, -3, 0, 3}, gy[9] = {-3, -10, -3, 0, 0, 0, 3, 10, 3};
  static const int big[6] = {70000, -3, 5, 9, -60000, 2};
  MoxConvKernel* k[2] = {which == 0   ? moxCreateConvKernel(5, 5, 2, 2, binomial, 8)
                         : which != 2 ? moxCreateConvKernel(3, 3, 1, 1, gx, 1)
                                      : moxCreateConvKernel(3, 2, 0, 1, big, 17),
                         which == 1 ? moxCreateConvKernel(3, 3, 1, 1, gy, 1) : nullptr};
  moxSetBorderMode(a, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
  moxConvolve2D(a, d, k, which == 1 ? 2 : 1, which == 1 ? MOX_SUMSQROOT : MOX_SUM);
  moxDeleteConvKernel(k[0]), moxDeleteConvKernel(k[1]);
}

// An interpolated stretch, then an equalization of its result.
void stretchAndEqualize(MoxImage* a, MoxImage* d) {
  static int key[4] = {0, 50, 200, 256}, value[3] = {10, 60, 250}, factor[3] = {70000, -9000, 123456};
  static int counts[3][3];
  MoxLUT lut{3, key, value, factor, MOX_LUT_INTER}, bins[3] = {{3, key, counts[0], nullptr, 0},
                                                             {3, key, counts[1], nullptr, 0}, {3, key, counts[2], nullptr, 0}};
  MoxLUT *luts[3] = {&lut, &lut, &lut}, *all[3] = {&bins[0], &bins[1], &bins[2]};
  moxContrastStretch(a, d, luts);
  moxHistoEqualize(d, d, all);
}

#define RUN(...) []([[maybe_unused]] MoxImage* a, [[maybe_unused]] MoxImage* b, MoxImage* d) { __VA_ARGS__; }
#define AS(model) std::memcpy(a->colorModel, model, 3)

const Golden kCases[] = {
    {"add 8U", k8U3, k8U3, RUN(moxAdd(a, b, d, nullptr)), 0x05038928323dbd9aull},
    {"multiply 16S", k16S1, k16S1, RUN(moxMultiply(a, b, d, nullptr)), 0xeb9b861af471f253ull},
    {"subtract 32S", k32S1, k32S1, RUN(moxSubtract(a, b, d, 1, nullptr)), 0x3ada4e6da7c81ae5ull},
    {"fft forward 8U to 32S, 64x48", k8U1w, k32S1, RUN(moxRealFft2D(a, d, MOX_FFT_FORWARD, nullptr)), 0x1c900b8dbf2b7132ull},
    {"fft forward general 8U to 32S, 60x45", k8U1, k32S1odd, RUN(moxRealFft2D(a, d, MOX_FFT_FORWARD, nullptr)),
     0x6ae48b07f91d8789ull},
    {"fft inverse 16S, 64x48", k16S1, k16S1, RUN(moxRealFft2D(a, d, MOX_FFT_INVERSE, nullptr)), 0x11267e14d89fb6e8ull},
    {"packed fft inverse 32S, 64x48", k32S1, k32S1, RUN(moxCcsFft2D(a, d, MOX_FFT_INVERSE | MOX_FFT_NOSCALE, nullptr)),
     0xa37caf0d5a23ded2ull},
    {"dct forward 16S planes", k16S3P, k16S3P, RUN(moxDCT2D(a, d, MOX_DCT_FORWARD)), 0xb1fb19ea8a8602c3ull},
    {"dct inverse 16S planes", k16S3P, k16S3P, RUN(moxDCT2D(a, d, MOX_DCT_INVERSE)), 0x575d3a41ed0aa3efull},
    {"rotate 8U linear", k8U3, k8U3, RUN(moxRotate(a, d, 3000, 40, 30, MOX_INTER_LINEAR, nullptr)), 0x9a7cd216b6af4c09ull},
    {"rotate 16U cubic", k16U1, k16U1, RUN(moxRotate(a, d, 12345, 20, 50, MOX_INTER_CUBIC, nullptr)), 0x121c08a6101c4ac4ull},
    {"rotate 8U nearest", k8U1, k8U1, RUN(moxRotate(a, d, -4500, 30, 22, MOX_INTER_NN, nullptr)), 0xe5a2f92a3c4ce49eull},
    {"mirror 16S planes both axes", k16S3P, k16S3P, RUN(moxMirror(a, d, -1)), 0xe87e1d120c7b8975ull},
    {"mirror 8U about the vertical axis", k8U3, k8U3, RUN(moxMirror(a, d, 1)), 0xae77578448b45803ull},
    {"rotate 8U quarter turn", k8U1, k8U1, RUN(moxRotate(a, d, 27000, 31, 25, MOX_INTER_NN, nullptr)), 0xbde07309bdeebbdfull},
    {"rotate 8U three channels quarter turn", zoomed8U, zoomed8U, RUN(moxRotate(a, d, 9000, 70, 90, MOX_INTER_NN, nullptr)), 0x2e4f2862175c6f29ull},
    {"rotate 16U three channels quarter turn", k16U3, k16U3, RUN(moxRotate(a, d, 27000, 18, 21, MOX_INTER_NN, nullptr)), 0x3148c22baa6cc0d7ull},
    {"rotate 8U four channels quarter turn", k8U4, k8U4, RUN(moxRotate(a, d, 9000, 20, 33, MOX_INTER_NN, nullptr)), 0x8030bdc998f833f5ull},
    {"reduce bits 16S to 8U, 7 levels, FS with jitter", k16S3P, k8U3, RUN(moxReduceBits(a, d, 30, MOX_DITHER_FS, 7)),
     0xd6dab809df8a849aull},
    {"reduce bits 8U to 1U, JJN", k8U1, {MOX_DEPTH_1U, 1, 0, 45, 60}, RUN(moxReduceBits(a, d, 0, MOX_DITHER_JJN, 2)),
     0x2c2e0828b01943b0ull},
    {"reduce bits 32S to 16U, STUCKEY", k32S1, k16U1, RUN(moxReduceBits(a, d, 0, MOX_DITHER_STUCKEY, 1000)),
     0xcd7e534669084c0bull},
    {"reduce bits 8U, 5 levels, ordered with jitter", k8U3, k8U3, RUN(moxReduceBits(a, d, 50, MOX_DITHER_BAYER, 5)),
     0x9ff71705a4c99558ull},
    {"convert 16S planes to 8U pixels", k16S3P, k8U3, RUN(moxConvert(a, d)), 0x66712eb564a2cb1full},
    {"8-bit bitmaps: median cut with FS, 3-3-2 cube with STUCKEY", k8U3, k8U3, RUN(paletteRoundTrip(a, d)),
     0xa625ef99d9b1a988ull},
    {"8-bit bitmaps of more pixels (colours counted in a table)", zoomed8U, zoomed8U, RUN(paletteRoundTrip(a, d)),
     0x8b9bd934a4f6716cull},
    {"rgb to hsv 16U", k16U3, k16U3, RUN(moxRGB2HSV(a, d, nullptr)), 0x3f6214817646aeaeull},
    {"rgb to hls 32S", k32S3, k32S3, RUN(moxRGB2HLS(a, d, nullptr)), 0xb3fc95efbf5142cfull},
    {"hsv to rgb 16U", k16U3, k16U3, RUN(AS("HSV"), moxHSV2RGB(a, d, nullptr)), 0x04fd16fd90018d1dull},
    {"hsv to rgb 32S", k32S3, k32S3, RUN(AS("HSV"), moxHSV2RGB(a, d, nullptr)), 0x731d5e7e1c844328ull},
    {"hls to rgb 16U", k16U3, k16U3, RUN(AS("HLS"), moxHLS2RGB(a, d, nullptr)), 0xd846e3b3ba240d24ull},
    {"hls to rgb 32S", k32S3, k32S3, RUN(AS("HLS"), moxHLS2RGB(a, d, nullptr)), 0x9e8e7432e9062649ull},
    {"gray to color 32S", {MOX_DEPTH_32S, 1, 0, 40, 40}, k32S3, RUN(moxGrayToColor(a, d, 0.3f, 0.6f, 0.1f, nullptr)),
     0x06cf144b0b464320ull},
    {"color twist 8U", k8U3, k8U3, RUN(twist(a, d, MOX_DEPTH_8U)), 0xe8e74efcd29ff35full},
    {"color twist 16U planes", k16U3P, k16U3P, RUN(twist(a, d, MOX_DEPTH_16U)), 0x9786f767caf0a429ull},
    {"color twist 8U, 16-bit entries", k8U3, k8U3, RUN(smallTwist(a, d, -13)), 0xaa629865d72014bdull},
    {"color twist 8U 4 channels, 16-bit entries", k8U4, k8U4, RUN(smallTwist(a, d, 21)), 0xccb41ac616d1b452ull},
    {"color twist 16U, 16-bit entries", k16U3, k16U3, RUN(smallTwist(a, d, 517)), 0xccfc80e31b92701dull},
    {"color twist 16U planes, 16-bit entries", k16U3P, k16U3P, RUN(smallTwist(a, d, -3000)), 0x6604437d11061759ull},
    {"color twist 16U, round translations", k16U3, k16U3, RUN(smallTwist(a, d, 0, true)), 0x878555d4060a182dull},
    {"zoom linear 8U 7/3 x 5/2", k8U3, zoomed8U, RUN(moxZoom(a, d, 7, 3, 5, 2, MOX_INTER_LINEAR, nullptr)), 0x2b6c885e49db4c64ull},
    {"zoom cubic 16S planes 9/4", k16S3P, zoomed16S, RUN(moxZoom(a, d, 9, 4, 9, 4, MOX_INTER_CUBIC, nullptr)), 0xb430486bbd0b18fbull},
    {"zoom cubic 32S 7/3 x 3/2", k32S1, zoomed32S, RUN(moxZoom(a, d, 7, 3, 3, 2, MOX_INTER_CUBIC, nullptr)), 0x98f1da889044616aull},
    {"decimate linear 8U 2/3", k8U3, decimated8U, RUN(moxDecimate(a, d, 2, 3, 2, 3, MOX_INTER_LINEAR, nullptr)), 0x11046deb3f380b33ull},
    {"rotate 8U one channel linear", k8U1w, k8U1w, RUN(moxRotate(a, d, 3000, 30, 20, MOX_INTER_LINEAR, nullptr)), 0x40df77162ac7d6aeull},
    {"rotate 8U cubic", k8U3, k8U3, RUN(moxRotate(a, d, 3000, 40, 30, MOX_INTER_CUBIC, nullptr)), 0x01cf24e804c54c7full},
    {"rotate 8U one channel cubic", k8U1w, k8U1w, RUN(moxRotate(a, d, 33000, 30, 20, MOX_INTER_CUBIC, nullptr)), 0xaa266ebe2412e471ull},
    {"rotate 8U one channel nearest", k8U1w, k8U1w, RUN(moxRotate(a, d, 3000, 30, 20, MOX_INTER_NN, nullptr)), 0x964d96971cf747a8ull},
    {"rotate 8U three channels quarter turn", k8U3, k8U3, RUN(moxRotate(a, d, 9000, 40, 30, MOX_INTER_NN, nullptr)), 0x75ac81762f251244ull},
    {"mirror 8U one channel both axes", k8U1w, k8U1w, RUN(moxMirror(a, d, -1)), 0xfab1a87c99ddc330ull},
    {"mirror 8U rows flipped", zoomed8U, zoomed8U, RUN(moxMirror(a, d, 0)), 0x1ebab542e2dfc895ull},
    {"mirror 8U one channel about the vertical axis", k8U1w, k8U1w, RUN(moxMirror(a, d, 1)), 0x59e4730de7af873cull},
    {"mirror 8U three channels both axes", zoomed8U, zoomed8U, RUN(moxMirror(a, d, -1)), 0x1b13088746aaa6b7ull},
    {"mirror 16U one channel about the vertical axis", k16U1, k16U1, RUN(moxMirror(a, d, 1)), 0xb0dc25c2fa3caf13ull},
    {"mirror 8U four channels both axes", k8U4, k8U4, RUN(moxMirror(a, d, -1)), 0xe154d3fddd013857ull},
    {"mirror 16U three channels about the vertical axis", k16U3, k16U3, RUN(moxMirror(a, d, 1)), 0x468da4f25809e249ull},
    {"zoom nearest 8U 5/3 x 7/4", k8U1, {MOX_DEPTH_8U, 1, 0, 70, 95}, RUN(moxZoom(a, d, 5, 3, 7, 4, MOX_INTER_NN, nullptr)), 0xadc563e2276a12efull},
    {"zoom linear 8U one channel 5/2 x 3/2", k8U1w, {MOX_DEPTH_8U, 1, 0, 70, 158}, RUN(moxZoom(a, d, 5, 2, 3, 2, MOX_INTER_LINEAR, nullptr)), 0x162c70101af242cdull},
    {"zoom linear 8U 2/1 x 3/2 of 140 rows", {MOX_DEPTH_8U, 3, 0, 140, 40}, {MOX_DEPTH_8U, 3, 0, 210, 80}, RUN(moxZoom(a, d, 2, 1, 3, 2, MOX_INTER_LINEAR, nullptr)), 0x72fa5b46cc8faab3ull},
    {"decimate nearest 8U 2/3", k8U1w, {MOX_DEPTH_8U, 1, 0, 32, 43}, RUN(moxDecimate(a, d, 2, 3, 2, 3, MOX_INTER_NN, nullptr)), 0xcc99b01b620c4df0ull},
    {"decimate linear 8U 3/4 x 2/3", k8U1w, {MOX_DEPTH_8U, 1, 0, 32, 48}, RUN(moxDecimate(a, d, 3, 4, 2, 3, MOX_INTER_LINEAR, nullptr)),
     0x098bd40d26d3056eull},
    {"decimate cubic 16U 3/5 x 1/2", k16U1, decimated16U, RUN(moxDecimate(a, d, 3, 5, 1, 2, MOX_INTER_CUBIC, nullptr)), 0xc04992c1d66132f0ull},
    {"premultiply 8U 4 channels, own alpha", k8U4, k8U4,
     RUN(moxMultiplySScale(a, d, -1, nullptr), d->alphaChannel = 4, moxPreMultiplyAlpha(d, -1, nullptr)),
     0x3c31f6fdbde90c79ull},
    {"composite over 8U 4 channels, straight, divided", k8U4, k8U4, RUN(a->alphaChannel = b->alphaChannel = d->alphaChannel = 4,
         moxAlphaComposite(a, b, d, MOX_COMPOSITE_OVER, nullptr, nullptr, nullptr, 0, 1)), 0xcaa38087fc133e6aull},
    {"composite over 8U 4 channels, premultiplied", k8U4, k8U4, RUN(a->alphaChannel = b->alphaChannel = d->alphaChannel = 4,
         moxAlphaComposite(a, b, d, MOX_COMPOSITE_OVER, nullptr, nullptr, nullptr, 1, 0)), 0x496a920f75730ca4ull},
    {"scaled multiply 16U", k16U3P, k16U3P, RUN(moxMultiplyScale(a, b, d, nullptr)), 0x029f686fb2755a2full},
    {"composite atop 8U, divided", k8U3, k8U3, RUN(a->alphaChannel = b->alphaChannel = d->alphaChannel = 3,
         moxAlphaComposite(a, b, d, MOX_COMPOSITE_ATOP, nullptr, nullptr, nullptr, 0, 1)), 0x5078caee803f47dbull},
    {"threshold 16S", k16S1, k16S1, RUN(moxThreshold(a, d, -77)), 0x0a83fc9027b585bbull},
    {"stretch interpolated and equalize 8U", k8U3, k8U3, RUN(stretchAndEqualize(a, d)), 0xeb649999ab4701ecull},
    {"convolve 8U 5x5 binomial", k8U3, k8U3, RUN(convolveWith(a, d, 0)), 0x158f9f264a1773e1ull},
    {"convolve 8S gradient", {MOX_DEPTH_8S, 3, 0, 45, 60}, {MOX_DEPTH_8S, 3, 0, 45, 60}, RUN(convolveWith(a, d, 3)), 0xdc09b290395b8b28ull},
    {"convolve 16S two kernels root of squares", k16S1, k16S1, RUN(convolveWith(a, d, 1)), 0x479809789f5f50baull},
    {"convolve 32S sum", k32S1, k32S1, RUN(convolveWith(a, d, 2)), 0x400516ebcf1a94e3ull},
    {"blur 8U 7x5", k8U3, k8U3, RUN(moxBlur(a, d, 7, 5, 3, 1)), 0x43aff097b4ff8a13ull},
    {"blur 8U 31x17, quotients in single precision", k8U3, k8U3, RUN(moxBlur(a, d, 31, 17, 15, 8)), 0x8b84178ae6db86f2ull},
    {"blur 8U one channel 15x15 then 2x3", k8U1, k8U1, RUN(moxBlur(a, b, 15, 15, 7, 7), moxBlur(b, d, 2, 3, 1, 1)), 0x9262d274bed56b76ull},
    {"blur 32S 4x4", k32S1, k32S1, RUN(moxBlur(a, d, 4, 4, 0, 3)), 0xb36ce592af3c52d2ull},
    {"blur 8U 65x64, quotients corrected in single precision", k8U3, k8U3, RUN(moxBlur(a, d, 65, 64, 32, 31)), 0x8e46df522963178bull},
    {"median 8U 3x3, 5x5, 9x9", k8U3, k8U3,
     RUN(moxMedianFilter(a, b, 3, 3, 1, 1), moxMedianFilter(b, a, 5, 5, 2, 2), moxMedianFilter(a, d, 9, 9, 4, 4)),
     0x13c037a8684783e8ull},
    {"median 16S 7x7 then 3x3", k16S1, k16S1,
     RUN(moxMedianFilter(a, b, 7, 7, 3, 3), moxMedianFilter(b, d, 3, 3, 1, 1)), 0x44d468cc0be60aa2ull},
    {"median 32S 5x5", k32S1, k32S1, RUN(moxMedianFilter(a, d, 5, 5, 2, 2)), 0x9b7722e25082d217ull},
    {"median 8U 7x7", k8U1, k8U1, RUN(moxMedianFilter(a, d, 7, 7, 3, 3)), 0x3e2acf2a59d9a2ebull},
    {"median 8S 15x15 then 3x3", {MOX_DEPTH_8S, 3, 0, 45, 60}, {MOX_DEPTH_8S, 3, 0, 45, 60},
     RUN(moxMedianFilter(a, b, 15, 15, 7, 7), moxMedianFilter(b, d, 3, 3, 1, 1)), 0x60b83b2280caa5adull},
    {"median 8U 401x300 folded past the image", k8U3, k8U3, RUN(moxMedianFilter(a, d, 401, 300, 350, 20)), 0xb0b4083eb9962957ull},
    {"median 16S 400x301 folded past the image", k16S1, k16S1, RUN(moxMedianFilter(a, d, 400, 301, 30, 290)), 0x6df0de0551480325ull},
    {"median 32S 1x250, folded rows, few values weighed", k32S1, k32S1, RUN(moxMedianFilter(a, d, 1, 250, 0, 100)), 0x6e431751526de325ull},
    {"blur 32S 500x400 folded past the image", k32S1, k32S1, RUN(moxBlur(a, d, 500, 400, 250, 10)), 0xf5e49fc508638725ull},
    {"min 8U 11x9 then max 3x3", k8U3, k8U3, RUN(moxMinFilter(a, b, 11, 9, 5, 4), moxMaxFilter(b, d, 3, 3, 1, 1)),
     0xa1f7dcab83fca59full},
};
#undef RUN
#undef AS

TEST(Golden, SameBitsOnEveryBuild) {
  Capture capture;
  for (const Golden& g : kCases) {
    Image a(g.src, 11), b(g.src, 12), d(g.dst, 13);
    g.run(a, b, d);
    EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError) << g.name;
    EXPECT_EQ(digest(d), g.want) << g.name << std::hex << ": got 0x" << digest(d);
  }
}

}  // namespace
