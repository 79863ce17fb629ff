// Every arithmetic, logic, copy and set operation with a straightforward
// reference, the image layouts they run on, and a runner that checks an
// operation's result pixel by pixel.
#pragma once

#include <climits>
#include <functional>
#include <stdexcept>

#include "image_helpers.h"

namespace testimg {

// Calls operation f by name: two sources a, b (else a) into d, with the
// scalar or shift count v, the reverse flag r and the tile request m.
inline void runOp(const std::string& f, MoxImage* a, MoxImage* b, MoxImage* d, int v, int r, const int* m) {
  if (f == "moxAdd") moxAdd(a, b, d, m);
  if (f == "moxSubtract") moxSubtract(a, b, d, r, m);
  if (f == "moxMultiply") moxMultiply(a, b, d, m);
  if (f == "moxAnd") moxAnd(a, b, d, m);
  if (f == "moxOr") moxOr(a, b, d, m);
  if (f == "moxXor") moxXor(a, b, d, m);
  if (f == "moxAddS") moxAddS(a, d, v, m);
  if (f == "moxSubtractS") moxSubtractS(a, d, v, r, m);
  if (f == "moxMultiplyS") moxMultiplyS(a, d, v, m);
  if (f == "moxAndS") moxAndS(a, d, v, m);
  if (f == "moxOrS") moxOrS(a, d, v, m);
  if (f == "moxXorS") moxXorS(a, d, v, m);
  if (f == "moxLShiftS") moxLShiftS(a, d, unsigned(v), m);
  if (f == "moxRShiftS") moxRShiftS(a, d, unsigned(v), m);
  if (f == "moxSquare") moxSquare(a, d, m);
  if (f == "moxAbs") moxAbs(a, d, m);
  if (f == "moxNot") moxNot(a, d, m);
  if (f == "moxCopy") moxCopy(a, d, m);
  if (f == "moxSet") moxSet(d, v, m);
}

// One case: the operation, its number of sources (0 to 2), scalar and
// reverse flag, and the reference on values a, b at depth d.
struct OpCase {
  const char* func;
  int sources, value, reverse;
  ll (*ref)(unsigned d, ll a, ll b, ll v, int r);
  void run(MoxImage* a, MoxImage* b, MoxImage* d, const int* m) const { runOp(func, a, b, d, value, reverse, m); }
};

#define REF(e)                                                                                   \
  []([[maybe_unused]] unsigned d, [[maybe_unused]] ll a, [[maybe_unused]] ll b,                  \
     [[maybe_unused]] ll v, [[maybe_unused]] int r) -> ll { return e; }

// Every rule once per scalar (or shift count) of its row.
inline std::vector<OpCase> allOps() {
  const struct { const char* func; int sources, reverse; std::vector<int> values; decltype(OpCase::ref) ref; } rules[] = {
      {"moxAdd", 2, 0, {0}, REF(clampTo(d, a + b))},
      {"moxSubtract", 2, 0, {0}, REF(clampTo(d, a - b))},
      {"moxSubtract", 2, 7, {0}, REF(clampTo(d, b - a))},
      {"moxMultiply", 2, 0, {0}, REF(clampTo(d, a * b))},
      {"moxAnd", 2, 0, {0}, REF(wrap(d, a & b))},
      {"moxOr", 2, 0, {0}, REF(wrap(d, a | b))},
      {"moxXor", 2, 0, {0}, REF(wrap(d, a ^ b))},
      {"moxSquare", 1, 0, {0}, REF(clampTo(d, a * a))},
      {"moxAbs", 1, 0, {0}, REF(a < 0 ? wrap(d, -a) : a)},
      {"moxNot", 1, 0, {0}, REF(wrap(d, ~a))},
      {"moxCopy", 1, 0, {0}, REF(a)},
      {"moxAddS", 1, 0, {77, -300, 3, INT_MAX}, REF(clampTo(d, a + v))},
      {"moxMultiplyS", 1, 0, {77, -300, 3, INT_MAX}, REF(clampTo(d, a * v))},
      {"moxSubtractS", 1, 0, {1000, 5, -70000}, REF(clampTo(d, a - v))},
      {"moxSubtractS", 1, 1, {1000, 5, -70000}, REF(clampTo(d, v - a))},
      {"moxAndS", 1, 0, {0x1F5, -7, 0x10F0F}, REF(wrap(d, a & v))},
      {"moxOrS", 1, 0, {0x1F5, -7, 0x10F0F}, REF(wrap(d, a | v))},
      {"moxXorS", 1, 0, {0x1F5, -7, 0x10F0F}, REF(wrap(d, a ^ v))},
      // Shift counts are taken modulo 32; signed values below 32 bits shift
      // right as their 32-bit two's complement.
      {"moxLShiftS", 1, 0, {0, 1, 2, 9, 17, 25, 31, 33}, REF(wrap(d, ll(unsigned(a) << (v & 31))))},
      {"moxRShiftS", 1, 0, {0, 1, 2, 9, 17, 25, 31, 33},
       REF(d == MOX_DEPTH_32S || !(d & MOX_DEPTH_SIGN) ? a >> (v & 31) : wrap(d, unsigned(a) >> (v & 31)))},
      {"moxSet", 0, 0, {0, 1, -1, 0x12345, -200}, REF(wrap(d, v))},
  };
  std::vector<OpCase> o;
  for (const auto& r : rules)
    for (int v : r.values) o.push_back({r.func, r.sources, v, r.reverse, r.ref});
  return o;
}
#undef REF

// The first case of operation f with reverse flag r.
inline OpCase opNamed(const std::string& f, int r = 0) {
  for (const OpCase& c : allOps())
    if (f == c.func && c.reverse == r) return c;
  throw std::runtime_error(f);
}

// Images a, b, d of one depth: channels, height, width; ROI (coi, x, y, h, w;
// h 0: no ROI).
struct Layout {
  const char* name;
  int order, shape[3][3], roi[3][5];
  Image make(unsigned depth, int i) const {
    return Image({depth, shape[i][0], order, shape[i][1], shape[i][2]}, 11 + i, roi[i][3] ? roi[i] : nullptr);
  }
};

inline std::vector<Layout> layouts(unsigned depth) {
  const int c = depth == MOX_DEPTH_1U ? 1 : 3;
  std::vector<Layout> v = {
      {"whole", 0, {{c, 9, 13}, {c, 9, 13}, {c, 9, 13}}, {}},
      {"rois", 0, {{c, 12, 40}, {c, 9, 35}, {c, 14, 50}}, {{0, 3, 1, 8, 30}, {0, 5, 2, 7, 29}, {0, 11, 4, 9, 33}}},
      {"plane", 1, {{c, 12, 40}, {c, 9, 35}, {c, 14, 50}}, {{0, 1, 1, 8, 30}, {0, 0, 2, 5, 29}, {0, 7, 3, 20, 26}}},
      // ROIs clipped by their images; one outside its image: nothing to do.
      {"clipped", 0, {{c, 9, 13}, {c, 9, 13}, {c, 9, 13}}, {{}, {}, {0, 11, 5, 99, 99}}},
      {"outside", 0, {{c, 9, 13}, {c, 9, 13}, {c, 9, 13}}, {{0, 20, 30, 4, 4}, {}, {}}},
  };
  if (c == 1) {
    v.push_back({"bitsOddOffsets", 0, {{1, 5, 70}, {1, 5, 70}, {1, 5, 70}}, {{0, 3, 0, 5, 37}, {0, 13, 1, 4, 40}, {0, 5, 1, 4, 39}}});
    v.push_back({"bitsInsideOneByte", 0, {{1, 3, 16}, {1, 3, 16}, {1, 3, 16}}, {{0, 1, 0, 2, 3}, {0, 6, 0, 2, 7}, {0, 2, 1, 2, 4}}});
  } else {
    v.push_back({"coi", 0, {{3, 10, 20}, {1, 10, 20}, {4, 10, 20}}, {{2, 1, 1, 6, 15}, {0, 2, 0, 8, 17}, {4, 3, 2, 8, 16}}});
    v.push_back({"coiPlane", 1, {{3, 10, 20}, {2, 10, 20}, {1, 10, 20}}, {{3, 1, 1, 6, 15}, {1, 2, 0, 8, 17}, {0, 3, 2, 8, 16}}});
  }
  return v;
}

struct Rect { int x, y, w, h; };
constexpr Rect kEverywhere{0, 0, INT_MAX, INT_MAX};

// An image's ROI clipped to the image (the whole image without one).
inline Rect clippedRoi(const MoxImage* im) {
  const MoxROI* r = im->roi;
  return r ? Rect{r->xOffset, r->yOffset, std::clamp(im->width - r->xOffset, 0, r->width),
                  std::clamp(im->height - r->yOffset, 0, r->height)}
           : Rect{0, 0, im->width, im->height};
}

// Channel of the k-th value an operation works on at a pixel: the channel of
// interest alone, else every channel.
inline int channelOf(const MoxImage* im, int k) { return im->roi && im->roi->coi ? im->roi->coi - 1 : k; }

inline std::vector<ll> pixels(const MoxImage* d) {
  std::vector<ll> out;
  for (int y = 0; y < d->height; ++y)
    for (int x = 0; x < d->width; ++x)
      for (int c = 0; c < valueChannels(d); ++c) out.push_back(get(d, x, y, c));
  return out;
}

// The pixel values of the destination after f over the common rectangle of
// the images (sources first, destination last); nothing else changes.
// `limit` cuts the rectangle further (in destination coordinates).
inline std::vector<ll> expected(const std::vector<MoxImage*>& images, const std::function<ll(const ll*)>& f,
                                Rect limit = kEverywhere) {
  MoxImage* d = images.back();
  std::vector<ll> out = pixels(d);
  std::vector<Rect> r;
  for (MoxImage* im : images) r.push_back(clippedRoi(im));
  const Rect dr = r.back();
  int w = INT_MAX, h = INT_MAX;
  for (const Rect& ri : r) w = std::min(w, ri.w), h = std::min(h, ri.h);
  const int work = d->roi && d->roi->coi ? 1 : valueChannels(d);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int dx = dr.x + x, dy = dr.y + y;
      if (dx < limit.x || dy < limit.y || dx - limit.x >= limit.w || dy - limit.y >= limit.h) continue;
      for (int k = 0; k < work; ++k) {
        ll v[3] = {};
        for (size_t i = 0; i + 1 < images.size(); ++i)
          v[i] = get(images[i], r[i].x + x, r[i].y + y, channelOf(images[i], k));
        out[(size_t(dy) * d->width + dx) * valueChannels(d) + channelOf(d, k)] = f(v);
      }
    }
  return out;
}

// The same for a source and destination of one layout, as the
// destination's bytes (for images too large for a vector of every value):
// f over the values of the destination's clipped ROI, channel of interest
// or all, at the same places of the source; padding and the rest as they
// were.
inline std::vector<char> expectedBytes(const MoxImage* s, const MoxImage* d, const std::function<ll(ll)>& f) {
  std::vector<char> out(d->imageData, d->imageData + d->imageSize);
  const Rect r = clippedRoi(d);
  const int work = d->roi && d->roi->coi ? 1 : valueChannels(d);
  for (int y = r.y; y < r.y + r.h; ++y)
    for (int x = r.x; x < r.x + r.w; ++x)
      for (int k = 0; k < work; ++k)
        store(d->depth, spot(d, out.data(), d->widthStep, d->height, x, y, channelOf(d, k)),
              f(get(s, x, y, channelOf(d, k))));
  return out;
}

// The destination's pixels after case c on a, b into d (plain images).
inline std::vector<ll> expected(const OpCase& c, MoxImage* a, MoxImage* b, MoxImage* d, Rect limit = kEverywhere) {
  std::vector<MoxImage*> images = {a, b, d};
  images.erase(images.begin() + c.sources, images.end() - 1);
  return expected(images, [&](const ll* v) { return c.ref(d->depth, v[0], v[1], c.value, c.reverse); }, limit);
}

// Runs the case on the images and compares with the reference.
inline void checkCase(const OpCase& c, MoxImage* a, MoxImage* b, MoxImage* d) {
  const auto want = expected(c, a, b, d);
  c.run(a, b, d, nullptr);
  EXPECT_EQ(moxGetErrStatus(), 0) << c.func;
  EXPECT_EQ(pixels(d), want) << c.func << " " << c.value << " depth " << std::hex << d->depth;
}

}  // namespace testimg
