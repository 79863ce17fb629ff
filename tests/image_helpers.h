// Test helpers: images with random pixels, pixel access by coordinates,
// tiled copies of images served by a test call-back, and the slow separable
// transform the transform suites compare with.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "capture.h"
#include "image/image.h"
#include "moxpx.h"

namespace testimg {

using ll = long long;

using moxtest::Capture, moxtest::expectReport, moxtest::Report, moxtest::reports;

inline unsigned bitsOf(unsigned depth) { return depth & ~MOX_DEPTH_SIGN; }
// Values per pixel as the tests store them (packed bits: one channel).
inline int valueChannels(const MoxImage* im) { return im->depth == MOX_DEPTH_1U ? 1 : im->nChannels; }
inline ll lowest(unsigned d) { return d & MOX_DEPTH_SIGN ? -(1LL << (bitsOf(d) - 1)) : 0; }
inline ll highest(unsigned d) { return (1LL << (bitsOf(d) - (d & MOX_DEPTH_SIGN ? 1 : 0))) - 1; }
inline ll clampTo(unsigned d, ll v) { return std::clamp(v, lowest(d), highest(d)); }
// The value that the low bits of v stand for at the depth.
inline ll wrap(unsigned d, ll v) {
  const ll m = 1LL << bitsOf(d), u = v & (m - 1);
  return u > highest(d) ? u - m : u;
}

// Address and bit of value (x, y, c) in a block laid out like the image
// (or like one of its tiles: rows `step` apart, `rows` rows).
struct Spot { unsigned char* byte; int bit; };

inline Spot spot(const MoxImage* im, char* base, int step, int rows, int x, int y, int c) {
  auto* row = reinterpret_cast<unsigned char*>(base + ll(y) * step + (im->dataOrder == 1 ? ll(c) * step * rows : 0));
  if (bitsOf(im->depth) == 1) return {row + x / 8, 7 - x % 8};
  return {row + (im->dataOrder == 1 ? x : ll(x) * im->nChannels + c) * (bitsOf(im->depth) / 8), 0};
}

// Values are stored little-endian, packed bits from the most significant.
inline ll load(unsigned depth, Spot s) {
  unsigned u = 0;
  if (bitsOf(depth) == 1) return (*s.byte >> s.bit) & 1;
  return std::memcpy(&u, s.byte, bitsOf(depth) / 8), wrap(depth, u);
}

inline void store(unsigned depth, Spot s, ll v) {
  const unsigned u = static_cast<unsigned>(v);
  if (bitsOf(depth) == 1) *s.byte = static_cast<unsigned char>((*s.byte & ~(1 << s.bit)) | ((v & 1) << s.bit));
  else std::memcpy(s.byte, &u, bitsOf(depth) / 8);
}

inline Spot spot(const MoxImage* im, int x, int y, int c) { return spot(im, im->imageData, im->widthStep, im->height, x, y, c); }
inline ll get(const MoxImage* im, int x, int y, int c = 0) { return load(im->depth, spot(im, x, y, c)); }
inline void set(MoxImage* im, int x, int y, int c, ll v) { store(im->depth, spot(im, x, y, c), v); }

struct Shape { unsigned depth; int nChannels, dataOrder, height, width; };

// An allocated image with random bytes and an optional ROI (coi, x, y, h, w).
class Image {
 public:
  explicit Image(const Shape& s, unsigned seed = 1, const int* r = nullptr)
      : im_(moxCreateImageHeader(s.nChannels, 0, s.depth, "RGB", "RGB", s.dataOrder, 0, 4, s.height, s.width,
                                 r ? moxCreateROI(r[0], r[1], r[2], r[3], r[4]) : nullptr, nullptr, nullptr)) {
    moxAllocateImage(im_, 0);
    std::mt19937 rng(seed);
    for (int i = 0; i < im_->imageSize; ++i) im_->imageData[i] = static_cast<char>(rng());
  }
  ~Image() { moxDeallocate(im_, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI); }
  Image(const Image&) = delete;

  void roi(int coi, int x, int y, int h, int w) { moxDeleteROI(im_->roi), im_->roi = moxCreateROI(coi, x, y, h, w); }
  MoxImage* operator->() const { return im_; }
  operator MoxImage*() const { return im_; }
  MoxImage* operator+() const { return im_; }  // where no conversion is tried (?:)
  std::vector<char> bytes() const { return {im_->imageData, im_->imageData + im_->imageSize}; }
  // Channel c, row by row.
  std::vector<double> plane(int c = 0) const {
    std::vector<double> v;
    for (int i = 0; i < im_->height * im_->width; ++i) v.push_back(double(get(im_, i % im_->width, i / im_->width, c)));
    return v;
  }

 private:
  MoxImage* im_;
};

// A change to a source s and destination d before a call, for check tables.
#define SPOIL(...) []([[maybe_unused]] Image& s, [[maybe_unused]] Image& d) { __VA_ARGS__; }

// A tiled twin of an image: same geometry and ROI, pixels kept in separate
// tile blocks that the test call-back hands out. The call-back records every
// request and can be told to misbehave.
class Tiled {
 public:
  Tiled(const MoxImage* p, int tileWidth, int tileHeight) {
    info_ = moxCreateTileInfo(&callBack, 0, tileWidth, tileHeight);
    im_ = moxCreateImageHeader(p->nChannels, 0, p->depth, "RGB", "RGB", p->dataOrder, 0, p->align, p->height, p->width,
                               nullptr, this, info_);
    if (const MoxROI* r = p->roi) im_->roi = moxCreateROI(r->coi, r->xOffset, r->yOffset, r->height, r->width);
    mox::layoutSize(tileWidth, tileHeight, p->depth, p->nChannels, p->dataOrder, p->align, &step_, &size_);
    across_ = (p->width + tileWidth - 1) / tileWidth, down_ = (p->height + tileHeight - 1) / tileHeight;
    tiles_.assign(static_cast<size_t>(across_ * down_), std::vector<char>(size_, 0));
    forEach(p, [&](Spot t, Spot q) { store(p->depth, t, load(p->depth, q)); });
  }
  ~Tiled() { moxDeallocate(im_, MOX_FREE_HEADER | MOX_FREE_ROI | MOX_FREE_TILEINFO); }
  Tiled(const Tiled&) = delete;

  // Copies the tiles' pixels into an image of the same shape.
  void gather(MoxImage* into) { forEach(into, [&](Spot t, Spot p) { store(into->depth, p, load(into->depth, t)); }); }

  MoxImage* operator->() const { return im_; }
  operator MoxImage*() const { return im_; }
  MoxImage* operator+() const { return im_; }

  struct Call { const MoxImage* image; int x, y, mode; };
  std::vector<Call> calls;
  int nullOnGet = -1;      // the get with this number (from 0) leaves tileData null
  int keepOnRelease = -1;  // the release with this number leaves tileData set
  bool badIndex = false;   // a request named a tile outside the image

 private:
  static void MOX_CALL callBack(const MoxImage* image, int x, int y, int mode) {
    Tiled* self = static_cast<Tiled*>(image->imageId);
    self->calls.push_back({image, x, y, mode});
    char*& data = image->tileInfo->tileData;
    const bool outside = x < 0 || y < 0 || x >= self->across_ || y >= self->down_;
    if (mode == MOX_RELEASE_TILE) {
      if (self->releases_++ != self->keepOnRelease) data = nullptr;
    } else {
      self->badIndex |= outside;
      data = outside || self->gets_++ == self->nullOnGet ? nullptr : self->tiles_[size_t(y * self->across_ + x)].data();
    }
  }

  // Visits every value of the tiles with its place in p, an image of the
  // same shape.
  template <class F>
  void forEach(const MoxImage* p, F f) {
    const int tw = info_->width, th = info_->height;
    for (int y = 0; y < p->height; ++y)
      for (int x = 0; x < p->width; ++x)
        for (int c = 0; c < valueChannels(p); ++c)
          f(spot(p, tiles_[size_t((y / th) * across_ + x / tw)].data(), step_, th, x % tw, y % th, c), spot(p, x, y, c));
  }

  MoxTileInfo* info_;
  MoxImage* im_;
  int step_ = 0, size_ = 0, across_ = 0, down_ = 0, gets_ = 0, releases_ = 0;
  std::vector<std::vector<char>> tiles_;
};

inline const unsigned kDepths[] = {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U, MOX_DEPTH_16S, MOX_DEPTH_32S};

// The slow separable transform of an h x w matrix (row by row):
// out(v, u) = sum over y, x of k(v, y, h) k(u, x, w) f(y, x).
template <class T, class K>
std::vector<T> separable(const std::vector<T>& f, int h, int w, K k) {
  std::vector<T> rows(f.size()), out(f.size());
  for (int y = 0; y < h; ++y)
    for (int u = 0; u < w; ++u)
      for (int x = 0; x < w; ++x) rows[y * w + u] += k(u, x, w) * f[y * w + x];
  for (int v = 0; v < h; ++v)
    for (int u = 0; u < w; ++u)
      for (int y = 0; y < h; ++y) out[v * w + u] += k(v, y, h) * rows[y * w + u];
  return out;
}

}  // namespace testimg
