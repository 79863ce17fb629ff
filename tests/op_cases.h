// Every arithmetic and logic operation with a straightforward reference,
// and a runner that checks an operation's result pixel by pixel.
#pragma once

#include <climits>
#include <functional>

#include "image_helpers.h"

namespace testimg {

struct OpCase {
  const char* name;
  int sources;  // 1 or 2
  std::function<void(MoxImage* a, MoxImage* b, MoxImage* d, const int* mapping)> run;
  std::function<ll(unsigned depth, ll a, ll b)> ref;
};

inline ll rshiftRef(unsigned d, ll a, unsigned n) {
  n &= 31;
  if (d == MOX_DEPTH_32S) return a >> n;
  if (d & MOX_DEPTH_SIGN) return wrap(d, static_cast<unsigned>(static_cast<int>(a)) >> n);
  return a >> n;
}

// One case: the call (a, b, d, m) and the reference (depth d, values a, b).
#define OP_CASE(name, sources, call, ref)                          \
  OpCase {                                                         \
    name, sources,                                                 \
        [=](MoxImage* a, MoxImage* b, MoxImage* d, const int* m) { \
          (void)b;                                                 \
          call;                                                    \
        },                                                         \
        [=](unsigned d, ll a, ll b) -> ll {                        \
          (void)b;                                                 \
          return ref;                                              \
        }                                                          \
  }

inline std::vector<OpCase> allOps() {
  std::vector<OpCase> v = {
      OP_CASE("Add", 2, moxAdd(a, b, d, m), clampTo(d, a + b)),
      OP_CASE("Subtract", 2, moxSubtract(a, b, d, 0, m), clampTo(d, a - b)),
      OP_CASE("SubtractReverse", 2, moxSubtract(a, b, d, 7, m), clampTo(d, b - a)),
      OP_CASE("Multiply", 2, moxMultiply(a, b, d, m), clampTo(d, a * b)),
      OP_CASE("And", 2, moxAnd(a, b, d, m), wrap(d, a & b)),
      OP_CASE("Or", 2, moxOr(a, b, d, m), wrap(d, a | b)),
      OP_CASE("Xor", 2, moxXor(a, b, d, m), wrap(d, a ^ b)),
      OP_CASE("Square", 1, moxSquare(a, d, m), clampTo(d, a * a)),
      OP_CASE("Abs", 1, moxAbs(a, d, m), a < 0 ? wrap(d, -a) : a),
      OP_CASE("Not", 1, moxNot(a, d, m), wrap(d, ~a)),
  };
  for (int value : {77, -300, 3, INT_MAX}) {
    v.push_back(OP_CASE("AddS", 1, moxAddS(a, d, value, m), clampTo(d, a + value)));
    v.push_back(OP_CASE("MultiplyS", 1, moxMultiplyS(a, d, value, m), clampTo(d, a * value)));
  }
  for (int reverse : {0, 1})
    for (int value : {1000, 5, -70000})
      v.push_back(OP_CASE("SubtractS", 1, moxSubtractS(a, d, value, reverse, m),
                          clampTo(d, reverse ? value - a : a - value)));
  for (int value : {0x1F5, -7, 0x10F0F}) {
    v.push_back(OP_CASE("AndS", 1, moxAndS(a, d, value, m), wrap(d, a & value)));
    v.push_back(OP_CASE("OrS", 1, moxOrS(a, d, value, m), wrap(d, a | value)));
    v.push_back(OP_CASE("XorS", 1, moxXorS(a, d, value, m), wrap(d, a ^ value)));
  }
  for (unsigned n : {0u, 1u, 2u, 9u, 17u, 25u, 31u, 33u}) {
    v.push_back(OP_CASE("LShiftS", 1, moxLShiftS(a, d, n, m),
                        wrap(d, static_cast<unsigned>(a) << (n & 31))));
    v.push_back(OP_CASE("RShiftS", 1, moxRShiftS(a, d, n, m), rshiftRef(d, a, n)));
  }
  return v;
}
#undef OP_CASE

struct Rect {
  int x, y, w, h;
};

inline Rect clippedRoi(const MoxImage* im) {
  if (!im->roi) return {0, 0, im->width, im->height};
  const MoxROI* r = im->roi;
  return {r->xOffset, r->yOffset, std::max(0, std::min(r->width, im->width - r->xOffset)),
          std::max(0, std::min(r->height, im->height - r->yOffset))};
}

inline int workChannels(const MoxImage* im) {
  return im->roi && im->roi->coi ? 1 : (im->depth == MOX_DEPTH_1U ? 1 : im->nChannels);
}
inline int channelOf(const MoxImage* im, int k) {
  return im->roi && im->roi->coi ? im->roi->coi - 1 : k;
}

// The pixel values of the destination after f over the common rectangle of
// the images (sources first, destination last); nothing else changes.
// `limit` cuts the rectangle further (in destination coordinates).
inline std::vector<ll> expected(const std::vector<MoxImage*>& images,
                                const std::function<ll(const ll*)>& f,
                                Rect limit = {0, 0, INT_MAX, INT_MAX}) {
  MoxImage* d = images.back();
  const int channels = d->depth == MOX_DEPTH_1U ? 1 : d->nChannels;
  std::vector<ll> out;
  for (int y = 0; y < d->height; ++y)
    for (int x = 0; x < d->width; ++x)
      for (int c = 0; c < channels; ++c) out.push_back(get(d, x, y, c));
  int w = INT_MAX, h = INT_MAX;
  for (MoxImage* im : images) w = std::min(w, clippedRoi(im).w), h = std::min(h, clippedRoi(im).h);
  const Rect dr = clippedRoi(d);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int dx = dr.x + x, dy = dr.y + y;
      if (dx < limit.x || dy < limit.y || dx >= limit.x + ll(limit.w) ||
          dy >= limit.y + ll(limit.h))
        continue;
      for (int k = 0; k < workChannels(d); ++k) {
        ll values[3];
        for (size_t i = 0; i + 1 < images.size(); ++i) {
          const Rect r = clippedRoi(images[i]);
          values[i] = get(images[i], r.x + x, r.y + y, channelOf(images[i], k));
        }
        out[(size_t(dy) * d->width + dx) * channels + channelOf(d, k)] = f(values);
      }
    }
  return out;
}

inline std::vector<ll> pixels(const MoxImage* d) {
  const int channels = d->depth == MOX_DEPTH_1U ? 1 : d->nChannels;
  std::vector<ll> out;
  for (int y = 0; y < d->height; ++y)
    for (int x = 0; x < d->width; ++x)
      for (int c = 0; c < channels; ++c) out.push_back(get(d, x, y, c));
  return out;
}

// Runs the case on the images and compares with the reference.
inline void checkCase(const OpCase& c, MoxImage* a, MoxImage* b, MoxImage* d) {
  const unsigned depth = d->depth;
  std::vector<MoxImage*> images = {a};
  if (c.sources == 2) images.push_back(b);
  images.push_back(d);
  const auto want =
      expected(images, [&](const ll* v) { return c.ref(depth, v[0], c.sources == 2 ? v[1] : 0); });
  c.run(a, b, d, nullptr);
  EXPECT_EQ(moxGetErrStatus(), 0) << c.name;
  EXPECT_EQ(pixels(d), want) << c.name << " depth " << std::hex << depth;
}

// Exactly one report, a bad argument with this function, text (header
// fault texts without their padding), line and, when given, file.
inline void expectReport(const char* func, const std::string& message, int line,
                         const char* file = nullptr) {
  ASSERT_EQ(reports().size(), 1u) << func << " " << message;
  const Report& r = reports()[0];
  EXPECT_EQ(r.status, MOX_StsBadArgument);
  EXPECT_EQ(r.func, func);
  EXPECT_EQ(r.file, file ? file : r.file);
  EXPECT_EQ(r.message.substr(0, r.message.find_last_not_of(" \n") + 1), message);
  EXPECT_EQ(r.line, line) << func << " " << message;
  reports().clear();
}

}  // namespace testimg
