// The same bits on every build: each case runs an operation on fixed
// pseudo-random images (std::mt19937 is the same generator everywhere) and
// compares a digest of the destination with the one recorded on x86-64.
// A build that rounds differently (other vector width, x87 registers, fused
// multiply-adds, another processor) fails here even where the formula tests
// accept a one-off. Add a case for every operation whose kernels compute in
// floating point or have more than one code path.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>

#include "image_helpers.h"

using namespace testimg;

namespace {

std::uint64_t digest(const MoxImage* im) {
  std::uint64_t h = 14695981039346656037ull;
  for (int i = 0; i < im->imageSize; ++i) {
    h ^= static_cast<unsigned char>(im->imageData[i]);
    h *= 1099511628211ull;
  }
  return h;
}

struct Golden {
  const char* name;
  Shape src, dst;
  std::function<void(MoxImage* a, MoxImage* b, MoxImage* d)> run;
  std::uint64_t want;
};

const Shape k8U3{MOX_DEPTH_8U, 3, 0, 61, 83}, k16S1{MOX_DEPTH_16S, 1, 0, 48, 64},
    k32S1{MOX_DEPTH_32S, 1, 0, 48, 64}, k8U1{MOX_DEPTH_8U, 1, 0, 45, 60},
    k32S1odd{MOX_DEPTH_32S, 1, 0, 45, 60}, k16S3P{MOX_DEPTH_16S, 3, 1, 40, 40};

// Convolutions on the three accumulator paths: 16-bit products, 32-bit and
// 64-bit sums with the root of squares.
void convolveWith(MoxImage* a, MoxImage* d, int which) {
  static const int binomial[25] = {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6,
                                   4, 16, 24, 16, 4, 1, 4, 6, 4, 1};
  static const int gx[9] = {-3, 0, 3, -10, 0, 10, -3, 0, 3}, gy[9] = {-3, -10, -3, 0, 0, 0, 3, 10, 3};
  static const int big[6] = {70000, -3, 5, 9, -60000, 2};
  MoxConvKernel* k[2] = {};
  int n = 1, method = MOX_SUM;
  if (which == 0) {
    k[0] = moxCreateConvKernel(5, 5, 2, 2, binomial, 8);
  } else if (which == 1) {
    k[0] = moxCreateConvKernel(3, 3, 1, 1, gx, 1);
    k[1] = moxCreateConvKernel(3, 3, 1, 1, gy, 1);
    n = 2, method = MOX_SUMSQROOT;
  } else {
    k[0] = moxCreateConvKernel(3, 2, 0, 1, big, 17);
  }
  moxSetBorderMode(a, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
  moxConvolve2D(a, d, k, n, method);
  moxDeleteConvKernel(k[0]);
  moxDeleteConvKernel(k[1]);
}

const Golden kCases[] = {
    {"add 8U", k8U3, k8U3, [](auto a, auto b, auto d) { moxAdd(a, b, d, nullptr); },
     0x05038928323dbd9aull},
    {"multiply 16S", k16S1, k16S1, [](auto a, auto b, auto d) { moxMultiply(a, b, d, nullptr); },
     0xeb9b861af471f253ull},
    {"subtract 32S", k32S1, k32S1,
     [](auto a, auto b, auto d) { moxSubtract(a, b, d, 1, nullptr); }, 0x3ada4e6da7c81ae5ull},
    {"fft forward 8U to 32S, 64x48", {MOX_DEPTH_8U, 1, 0, 48, 64}, k32S1,
     [](auto a, auto, auto d) { moxRealFft2D(a, d, MOX_FFT_FORWARD, nullptr); }, 0x1c900b8dbf2b7132ull},
    {"fft forward general 8U to 32S, 60x45", k8U1, k32S1odd,
     [](auto a, auto, auto d) { moxRealFft2D(a, d, MOX_FFT_FORWARD, nullptr); }, 0x6ae48b07f91d8789ull},
    {"fft inverse 16S, 64x48", k16S1, k16S1,
     [](auto a, auto, auto d) { moxRealFft2D(a, d, MOX_FFT_INVERSE, nullptr); }, 0x11267e14d89fb6e8ull},
    {"packed fft inverse 32S, 64x48", k32S1, k32S1,
     [](auto a, auto, auto d) { moxCcsFft2D(a, d, MOX_FFT_INVERSE | MOX_FFT_NOSCALE, nullptr); },
     0xa37caf0d5a23ded2ull},
    {"dct forward 16S planes", k16S3P, k16S3P,
     [](auto a, auto, auto d) { moxDCT2D(a, d, MOX_DCT_FORWARD); }, 0xb1fb19ea8a8602c3ull},
    {"dct inverse 16S planes", k16S3P, k16S3P,
     [](auto a, auto, auto d) { moxDCT2D(a, d, MOX_DCT_INVERSE); }, 0x575d3a41ed0aa3efull},
    {"convolve 8U 5x5 binomial", k8U3, k8U3, [](auto a, auto, auto d) { convolveWith(a, d, 0); }, 0x158f9f264a1773e1ull},
    {"convolve 16S two kernels root of squares", k16S1, k16S1,
     [](auto a, auto, auto d) { convolveWith(a, d, 1); }, 0x479809789f5f50baull},
    {"convolve 32S sum", k32S1, k32S1, [](auto a, auto, auto d) { convolveWith(a, d, 2); }, 0x400516ebcf1a94e3ull},
    {"blur 8U 7x5", k8U3, k8U3, [](auto a, auto, auto d) { moxBlur(a, d, 7, 5, 3, 1); }, 0x43aff097b4ff8a13ull},
    {"blur 32S 4x4", k32S1, k32S1, [](auto a, auto, auto d) { moxBlur(a, d, 4, 4, 0, 3); }, 0xb36ce592af3c52d2ull},
    {"median 8U 3x3, 5x5, 9x9", k8U3, k8U3, [](auto a, auto b, auto d) {
       moxMedianFilter(a, b, 3, 3, 1, 1);
       moxMedianFilter(b, a, 5, 5, 2, 2);
       moxMedianFilter(a, d, 9, 9, 4, 4);
     }, 0x13c037a8684783e8ull},
    {"min 8U 11x9 then max 3x3", k8U3, k8U3, [](auto a, auto b, auto d) {
       moxMinFilter(a, b, 11, 9, 5, 4);
       moxMaxFilter(b, d, 3, 3, 1, 1);
     }, 0xa1f7dcab83fca59full},
};

TEST(Golden, SameBitsOnEveryBuild) {
  Capture capture;
  for (const Golden& g : kCases) {
    Image a(g.src, 11), b(g.src, 12), d(g.dst, 13);
    g.run(a, b, d);
    EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError) << g.name;
    char got[32];
    std::snprintf(got, sizeof got, "0x%016llxull", static_cast<unsigned long long>(digest(d)));
    char want[32];
    std::snprintf(want, sizeof want, "0x%016llxull", static_cast<unsigned long long>(g.want));
    EXPECT_STREQ(got, want) << g.name;
  }
}

}  // namespace
