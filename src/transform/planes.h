// Moving one channel of an image rectangle between its integer samples and a
// matrix of doubles, for the transforms. The storer rounds to nearest (ties
// away from zero) and saturates to the destination's depth.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "image/image.h"
#include "fftplan.h"


namespace mox::transform {

// A rectangle of an image.
struct Rect {
  int x, y, width, height;
};

// Row step of the work matrix: whole cache lines, and never a large power of
// two, so that walking down a column does not keep hitting the same sets.
inline std::ptrdiff_t matrixStep(int width) {
  std::ptrdiff_t step = (static_cast<std::ptrdiff_t>(width) + 7) & ~std::ptrdiff_t(7);
  if (step % 128 == 0) step += 8;
  return step;
}

// Bytes per channel value for the depths the transforms take.
inline int depthBytes(unsigned depth) { return static_cast<int>(depthBits(depth) / 8); }

// True for the depths the transforms take: 8U, 16U, 8S, 16S, 32S.
inline bool transformDepth(unsigned depth) {
  return depth == MOX_DEPTH_8U || depth == MOX_DEPTH_16U || depth == MOX_DEPTH_8S ||
         depth == MOX_DEPTH_16S || depth == MOX_DEPTH_32S;
}

// True when the header's row step and block size hold every row it claims
// (so that reading any rectangle inside the image stays inside the block).
// Both asked without products that could leave 64 bits.
inline bool layoutHolds(const MoxImage* image) {
  const long long row = pixelRowBytes(image->width, depthBits(image->depth),
                                      image->dataOrder == 0 ? image->nChannels : 1);
  const long long rows =
      static_cast<long long>(image->height) * (image->dataOrder == 0 ? 1 : image->nChannels);
  return row >= 0 && image->widthStep >= row && image->widthStep > 0 &&
         rows <= image->imageSize / image->widthStep;
}

// Where channel `channel` (0-based) of row y of the rectangle starts, and the
// step between its samples, in elements of T.
template <typename T>
T* channelRow(const MoxImage* image, int channel, int y, int x, std::ptrdiff_t* step) {
  char* base = image->imageData + static_cast<std::ptrdiff_t>(y) * image->widthStep;
  if (image->dataOrder == 0) {
    *step = image->nChannels;
    return reinterpret_cast<T*>(base) + static_cast<std::ptrdiff_t>(x) * image->nChannels + channel;
  }
  base += static_cast<std::ptrdiff_t>(channel) * image->widthStep * image->height;
  *step = 1;
  return reinterpret_cast<T*>(base) + x;
}

template <typename T>
void loadPlane(const MoxImage* image, int channel, const Rect& r, double* m, std::ptrdiff_t mStep) {
  for (int y = 0; y < r.height; ++y) {
    std::ptrdiff_t step;
    const T* s = channelRow<T>(image, channel, r.y + y, r.x, &step);
    double* d = m + y * mStep;
    if (step == 1)
      for (int x = 0; x < r.width; ++x) d[x] = s[x];
    else
      for (int x = 0; x < r.width; ++x) d[x] = s[x * step];
  }
}

template <typename T>
void storePlane(const double* m, std::ptrdiff_t mStep, double scale, MoxImage* image, int channel,
                const Rect& r) {
  for (int y = 0; y < r.height; ++y) {
    std::ptrdiff_t step;
    T* d = channelRow<T>(image, channel, r.y + y, r.x, &step);
    const double* s = m + y * mStep;
    constexpr double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    const auto roundRun = mox::fft::kernels().roundRun;
    if constexpr (sizeof(T) == sizeof(std::int32_t)) {
      if (step == 1) {  // packed 32-bit samples take the rounded run directly
        roundRun(s, r.width, scale, lo, hi, reinterpret_cast<std::int32_t*>(d));
        continue;
      }
    }
    std::int32_t run[256];
    for (int x0 = 0; x0 < r.width; x0 += 256) {
      const int n = r.width - x0 < 256 ? r.width - x0 : 256;
      roundRun(s + x0, n, scale, lo, hi, run);
      T* dx = d + static_cast<std::ptrdiff_t>(x0) * step;
      if (step == 1)
        for (int x = 0; x < n; ++x) dx[x] = static_cast<T>(run[x]);
      else
        for (int x = 0; x < n; ++x) dx[x * step] = static_cast<T>(run[x]);
    }
  }
}

// Calls f with a value of the sample type of the depth (one of the five).
template <typename F>
void withSampleType(unsigned depth, F&& f) {
  switch (depth) {
    case MOX_DEPTH_8U: f(std::uint8_t()); break;
    case MOX_DEPTH_8S: f(std::int8_t()); break;
    case MOX_DEPTH_16U: f(std::uint16_t()); break;
    case MOX_DEPTH_16S: f(std::int16_t()); break;
    default: f(std::int32_t()); break;
  }
}

inline void load(const MoxImage* image, int channel, const Rect& r, double* m, std::ptrdiff_t step) {
  withSampleType(image->depth,
                 [&](auto t) { loadPlane<decltype(t)>(image, channel, r, m, step); });
}

inline void store(const double* m, std::ptrdiff_t step, double scale, MoxImage* image, int channel,
                  const Rect& r) {
  withSampleType(image->depth,
                 [&](auto t) { storePlane<decltype(t)>(m, step, scale, image, channel, r); });
}

// The rectangle a header's ROI names (the whole image without one).
inline Rect roiRect(const MoxImage* image) {
  if (const MoxROI* roi = image->roi) return {roi->xOffset, roi->yOffset, roi->width, roi->height};
  return {0, 0, image->width, image->height};
}

inline int roiCoi(const MoxImage* image) { return image->roi ? image->roi->coi : 0; }

// True when the ROI lies inside the image.
inline bool roiInside(const MoxImage* image) {
  const Rect r = roiRect(image);
  return r.x >= 0 && r.y >= 0 && r.width > 0 && r.height > 0 &&
         static_cast<long long>(r.x) + r.width <= image->width &&
         static_cast<long long>(r.y) + r.height <= image->height;
}

// The intersection of the two ROIs (larger offsets, smaller ends); its width
// or height is 0 or less when they do not meet.
inline Rect commonRect(const MoxImage* a, const MoxImage* b) {
  const Rect ra = roiRect(a), rb = roiRect(b);
  const int x = ra.x > rb.x ? ra.x : rb.x, y = ra.y > rb.y ? ra.y : rb.y;
  const long long xa = 1LL * ra.x + ra.width, xb = 1LL * rb.x + rb.width;
  const long long ya = 1LL * ra.y + ra.height, yb = 1LL * rb.y + rb.height;
  return {x, y, static_cast<int>((xa < xb ? xa : xb) - x), static_cast<int>((ya < yb ? ya : yb) - y)};
}

}  // namespace mox::transform
