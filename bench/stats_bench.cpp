// Threshold, histograms, lookup maps, equalization and norms beside plain
// loops and OpenCV's threshold, calcHist, LUT, equalizeHist and norm.
// OpenCV's threshold and LUT give the same bytes and are checked; its
// histogram (floats), equalization (another formula) and norms are timed only.
#include <cmath>
#include <cstdint>
#include <cstring>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "point_cases.h"

namespace {

using namespace moxbench;

constexpr int kThreshold = 128;

auto u8(const PlainImage& im) { return reinterpret_cast<std::uint8_t*>(im.data()); }

#ifdef MOXPX_HAVE_OPENCV
cv::Mat mat(const PlainImage& im) {
  const Shape& s = im.shape();
  return cv::Mat(s.height, s.width, CV_MAKETYPE(CV_8U, s.channels), im.data(), s.rowBytes());
}
#define PEER(...) [](Images& w) { __VA_ARGS__; }
#else
#define PEER(...) nullptr
#endif

// One table per channel: 256 bins of one value each; as a map, the
// inverted value.
struct Tables {
  int key[257], value[4][256], inverted[256];
  MoxLUT lut[4];
  MoxLUT* luts[4];
  Tables() {
    for (int i = 0; i <= 256; ++i) key[i] = i;
    for (int i = 0; i < 256; ++i) inverted[i] = 255 - i;
    for (int c = 0; c < 4; ++c) {
      lut[c] = {256, key, value[c], nullptr, MOX_LUT_LOOKUP};
      luts[c] = &lut[c];
    }
  }
  // Tables that map instead of count.
  MoxLUT** maps() {
    for (int c = 0; c < 4; ++c) lut[c].value = inverted;
    return luts;
  }
  MoxLUT** counts() {
    for (int c = 0; c < 4; ++c) lut[c].value = value[c];
    return luts;
  }
  void keep(Images& w) {
    w.numbers.clear();
    for (int c = 0; c < w.shape.channels; ++c) w.numbers.insert(w.numbers.end(), value[c], value[c] + 256);
  }
};

Tables& tables() {
  static Tables t;
  return t;
}

// Counts per channel, as the plain loop keeps them.
void countLoop(Images& w, long long* out) {
  const int n = w.shape.channels;
  std::uint32_t t[4][256] = {};
  const std::uint8_t* a = u8(w.a);
  for (std::size_t i = 0, bytes = w.a.bytes(); i < bytes; i += n)
    for (int c = 0; c < n; ++c) ++t[c][a[i + c]];
  for (int c = 0; c < n; ++c)
    for (int v = 0; v < 256; ++v) out[c * 256 + v] = t[c][v];
}

void keepNorm(Images& w, double v) {
  long long bits;
  std::memcpy(&bits, &v, sizeof bits);
  w.numbers.assign(1, bits);
}

template <bool Squares>
void normLoop(Images& w) {
  const std::uint8_t* __restrict a = u8(w.a);
  const std::uint8_t* __restrict b = u8(w.b);
  std::uint64_t sum = 0;
  const std::size_t n = w.a.bytes();
  for (std::size_t i0 = 0; i0 < n; i0 += 1 << 16) {
    std::uint32_t s = 0;
    const std::size_t end = std::min(n, i0 + (1 << 16));
    for (std::size_t i = i0; i < end; ++i) {
      const int d = int(a[i]) - int(b[i]);
      s += std::uint32_t(Squares ? d * d : (d < 0 ? -d : d));
    }
    sum += s;
  }
  keepNorm(w, Squares ? std::sqrt(double(sum)) : double(sum));
}

#ifdef MOXPX_HAVE_OPENCV
void calcHistAll(Images& w) {
  const cv::Mat a = mat(w.a);
  const int size[] = {256};
  const float range[] = {0, 256};
  const float* ranges[] = {range};
  cv::Mat hist;
  for (int c = 0; c < w.shape.channels; ++c) cv::calcHist(&a, 1, &c, cv::Mat(), hist, 1, size, ranges);
}
#endif

const int registered = registerCases({
    {"Threshold", 2, [](Images& w) { moxThreshold(w.a.get(), w.d.get(), kThreshold); },
     [](Images& w) {
       const std::uint8_t* __restrict a = u8(w.a);
       std::uint8_t* __restrict d = u8(w.d);
       for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = a[i] < kThreshold ? 0 : 255;
     },
     PEER(cv::Mat d = mat(w.d); cv::threshold(mat(w.a), d, kThreshold - 1, 255, cv::THRESH_BINARY)),
     true},
    {"ComputeHisto", 1,
     [](Images& w) {
       moxComputeHisto(w.a.get(), tables().counts());
       tables().keep(w);
     },
     [](Images& w) {
       w.numbers.resize(std::size_t(w.shape.channels) * 256);
       countLoop(w, w.numbers.data());
     },
     PEER(calcHistAll(w))},
    {"ContrastStretch", 2, [](Images& w) { moxContrastStretch(w.a.get(), w.d.get(), tables().maps()); },
     [](Images& w) {
       const std::uint8_t* __restrict a = u8(w.a);
       std::uint8_t* __restrict d = u8(w.d);
       std::uint8_t t[256];
       for (int i = 0; i < 256; ++i) t[i] = std::uint8_t(255 - i);
       for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = t[a[i]];
     },
     PEER(cv::Mat t(1, 256, CV_8U); for (int i = 0; i < 256; ++i) t.at<uchar>(i) = uchar(255 - i);
          cv::Mat d = mat(w.d); cv::LUT(mat(w.a), t, d)),
     true},
    {"NormL1", 2, [](Images& w) { keepNorm(w, moxNorm(w.a.get(), w.b.get(), MOX_NORM_L1)); },
     normLoop<false>, PEER(keepNorm(w, cv::norm(mat(w.a), mat(w.b), cv::NORM_L1)))},
    {"NormL2", 2, [](Images& w) { keepNorm(w, moxNorm(w.a.get(), w.b.get(), MOX_NORM_L2)); },
     normLoop<true>, PEER(keepNorm(w, cv::norm(mat(w.a), mat(w.b), cv::NORM_L2)))},
});

// The peer equalizes one channel.
const int registeredEqualize = registerCases(
    {
        {"HistoEqualize", 2, [](Images& w) { moxHistoEqualize(w.a.get(), w.d.get(), tables().counts()); },
         [](Images& w) {
           long long n[256];
           countLoop(w, n);
           long long total = 0, below = 0;
           for (long long k : n) total += k;
           std::uint8_t t[256];
           for (int v = 0; v < 256; ++v) below += n[v], t[v] = std::uint8_t((255 * below + total / 2) / total);
           const std::uint8_t* __restrict a = u8(w.a);
           std::uint8_t* __restrict d = u8(w.d);
           for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = t[a[i]];
         },
         PEER(cv::Mat d = mat(w.d); cv::equalizeHist(mat(w.a), d))},
    },
    1);

}  // namespace
