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
#include <vector>

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

// An image through 8-bit bitmaps and back: a median-cut palette with
// FS error diffusion into the destination's left half, the fixed cube with
// STUCKEY into its right half.
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

struct Golden {
  const char* name;
  Shape src, dst;
  std::function<void(MoxImage* a, MoxImage* b, MoxImage* d)> run;
  std::uint64_t want;
};

const Shape k8U3{MOX_DEPTH_8U, 3, 0, 61, 83}, k16S1{MOX_DEPTH_16S, 1, 0, 48, 64},
    k32S1{MOX_DEPTH_32S, 1, 0, 48, 64}, k8U1{MOX_DEPTH_8U, 1, 0, 45, 60},
    k32S1odd{MOX_DEPTH_32S, 1, 0, 45, 60}, k16S3P{MOX_DEPTH_16S, 3, 1, 40, 40};

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
    {"reduce bits 16S to 8U, 7 levels, FS with jitter", k16S3P, k8U3,
     [](auto a, auto, auto d) { moxReduceBits(a, d, 30, MOX_DITHER_FS, 7); }, 0xd6dab809df8a849aull},
    {"reduce bits 8U to 1U, JJN", k8U1, {MOX_DEPTH_1U, 1, 0, 45, 60},
     [](auto a, auto, auto d) { moxReduceBits(a, d, 0, MOX_DITHER_JJN, 2); }, 0x2c2e0828b01943b0ull},
    {"reduce bits 32S to 16U, STUCKEY", k32S1, {MOX_DEPTH_16U, 1, 0, 48, 64},
     [](auto a, auto, auto d) { moxReduceBits(a, d, 0, MOX_DITHER_STUCKEY, 1000); }, 0xcd7e534669084c0bull},
    {"reduce bits 8U, 5 levels, ordered with jitter", k8U3, k8U3,
     [](auto a, auto, auto d) { moxReduceBits(a, d, 50, MOX_DITHER_BAYER, 5); }, 0x9ff71705a4c99558ull},
    {"convert 16S planes to 8U pixels", k16S3P, k8U3,
     [](auto a, auto, auto d) { moxConvert(a, d); }, 0x66712eb564a2cb1full},
    {"8-bit bitmaps: median cut with FS, 3-3-2 cube with STUCKEY", k8U3, k8U3,
     [](auto a, auto, auto d) { paletteRoundTrip(a, d); }, 0xa625ef99d9b1a988ull},
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
