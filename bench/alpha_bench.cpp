// Scaled products and premultiplication beside a plain loop of the same
// formula and OpenCV's multiply with a scale of 1/255 (which rounds the
// quotient where these truncate it, so only its time is compared); the
// composition OVER beside libvips' composite2.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif
#ifdef MOXPX_HAVE_VIPS
#include <vips/vips.h>
#endif

#include "point_cases.h"

namespace {

using namespace moxbench;

constexpr int kValue = 200;

inline std::uint8_t scaled(unsigned a, unsigned b) {
  const unsigned p = a * b;
  return static_cast<std::uint8_t>((p + 1 + (p >> 8)) >> 8);
}

auto u8(const PlainImage& im) { return reinterpret_cast<std::uint8_t*>(im.data()); }

#ifdef MOXPX_HAVE_OPENCV
cv::Mat mat(const PlainImage& im) {
  const Shape& s = im.shape();
  return cv::Mat(s.height, s.width, CV_MAKETYPE(CV_8U, s.channels), im.data(), s.rowBytes());
}
#endif

// Premultiplication keeps a copy of the source to start from, so every run
// does the same work: a copy, then the product in place (the loop and the
// peer do the same).
void restore(Images& w) { std::memcpy(w.d.data(), w.a.data(), w.d.bytes()); }

const int registered = registerCases({
    {"MultiplySScale", 2, [](Images& w) { moxMultiplySScale(w.a.get(), w.d.get(), kValue, nullptr); },
     [](Images& w) {
       const std::uint8_t* __restrict a = u8(w.a);
       std::uint8_t* __restrict d = u8(w.d);
       for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = scaled(a[i], kValue);
     },
#ifdef MOXPX_HAVE_OPENCV
     [](Images& w) {
       cv::Mat d = mat(w.d);
       cv::multiply(mat(w.a), cv::Scalar::all(kValue), d, 1.0 / 255);
     }
#else
     nullptr
#endif
    },
    {"MultiplyScale", 3, [](Images& w) { moxMultiplyScale(w.a.get(), w.b.get(), w.d.get(), nullptr); },
     [](Images& w) {
       const std::uint8_t* __restrict a = u8(w.a);
       const std::uint8_t* __restrict b = u8(w.b);
       std::uint8_t* __restrict d = u8(w.d);
       for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = scaled(a[i], b[i]);
     },
#ifdef MOXPX_HAVE_OPENCV
     [](Images& w) {
       cv::Mat d = mat(w.d);
       cv::multiply(mat(w.a), mat(w.b), d, 1.0 / 255);
     }
#else
     nullptr
#endif
    },
});

const int registeredPremultiply = registerCases(
    {
        {"PreMultiplyAlpha", 3,
         [](Images& w) {
           restore(w);
           w.d.get()->alphaChannel = 4;
           moxPreMultiplyAlpha(w.d.get(), -1, nullptr);
         },
         // the floor: the same copy and a product of every byte in place
         [](Images& w) {
           restore(w);
           std::uint8_t* __restrict d = u8(w.d);
           for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = scaled(d[i], kValue);
         },
#ifdef MOXPX_HAVE_OPENCV
         // the peer's nearest counterpart: each pixel times a constant colour
         [](Images& w) {
           restore(w);
           cv::Mat d = mat(w.d);
           cv::multiply(d, cv::Scalar(kValue, kValue, kValue, 255), d, 1.0 / 255);
         },
#else
         nullptr,
#endif
         false,
         [](Images& w) {
           restore(w);
           std::uint8_t* __restrict d = u8(w.d);
           for (std::size_t i = 0, n = w.d.bytes(); i < n; i += 4) {
             const unsigned al = d[i + 3];
             d[i] = scaled(d[i], al), d[i + 1] = scaled(d[i + 1], al);
             d[i + 2] = scaled(d[i + 2], al);
           }
         }},
    },
    4);

// ---------------------------------------------------------------- composition
// A OVER B into a destination of the same kind, alpha last in all three.
// AlphaComposite takes premultiplied colours; AlphaCompositeStraight takes
// straight ones, premultiplies them and divides the result by its alpha.
// libvips' composite2 computes in floats: on premultiplied colours its
// result is checked once to lie within one step of ours (it truncates
// where the scaled multiply rounds); on straight ones it also keeps the
// premultiplied colours unrounded, which gives results far apart where
// alpha is small, so that case is timed only. The floor reads both images
// and writes the destination once.

// One pixel, as the library computes it.
template <bool Straight>
void overPixel(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* d) {
  const unsigned aa = a[3], ab = b[3];
  const unsigned out = std::min(255u, aa + scaled(ab, 255 - aa));
  for (int c = 0; c < 3; ++c) {
    const unsigned x = Straight ? scaled(a[c], aa) : a[c], y = Straight ? scaled(b[c], ab) : b[c];
    const unsigned r = std::min(255u, x + scaled(y, 255 - aa));
    d[c] = std::uint8_t(!Straight ? r : out ? std::min(255u, (r * 255 + out / 2) / out) : 0);
  }
  d[3] = std::uint8_t(out);
}

// Marks the last channel of the three images as alpha for one call.
struct AlphaLast {
  explicit AlphaLast(Images& w) : w(w) { set(4); }
  ~AlphaLast() { set(0); }
  void set(int c) { w.a.get()->alphaChannel = w.b.get()->alphaChannel = w.d.get()->alphaChannel = c; }
  Images& w;
};

#ifdef MOXPX_HAVE_VIPS
// The peer's images over the benchmark's bytes, made once per case (colour
// images, so that no conversion of colour space is added); its result is
// written straight into the destination's bytes.
struct VipsImages {
  const std::uint8_t* a = nullptr;
  VipsImage *base = nullptr, *overlay = nullptr;
  VipsImage* wrap(const PlainImage& im) {
    const Shape& s = im.shape();
    VipsImage* v = vips_image_new_from_memory(im.data(), im.bytes(), s.width, s.height, 4,
                                              VIPS_FORMAT_UCHAR);
    if (v) v->Type = VIPS_INTERPRETATION_sRGB;
    return v;
  }
  bool wrap(Images& w) {
    if (a != u8(w.a)) {
      release();
      a = u8(w.a);
      overlay = wrap(w.a), base = wrap(w.b);
    }
    return base && overlay;
  }
  void release() {
    if (overlay) g_object_unref(overlay);
    if (base) g_object_unref(base);
    overlay = base = nullptr;
  }
};

template <bool Straight>
bool vipsOver(Images& w) {
  static VipsImages v;
  VipsImage* out = nullptr;
  if (!v.wrap(w) || vips_composite2(v.base, v.overlay, &out, VIPS_BLEND_MODE_OVER, "premultiplied",
                                    Straight ? FALSE : TRUE, nullptr))
    return false;
  const Shape& s = w.shape;
  VipsImage* target = vips_image_new_from_memory(w.d.data(), w.d.bytes(), s.width, s.height, 4,
                                                 VIPS_FORMAT_UCHAR);
  const bool ok = out->Bands == 4 && out->BandFmt == VIPS_FORMAT_UCHAR && target &&
                  vips_image_write(out, target) == 0;
  if (target) g_object_unref(target);
  g_object_unref(out);
  return ok;
}

// The peer once: it must run, and on premultiplied colours come within one
// step of the library.
template <bool Straight>
bool vipsAgrees(Images& w) {
  std::vector<std::uint8_t> want(w.d.bytes());
  const std::uint8_t *a = u8(w.a), *b = u8(w.b);
  for (std::size_t i = 0; i < want.size(); i += 4) overPixel<Straight>(a + i, b + i, want.data() + i);
  if (!vipsOver<Straight>(w)) return false;
  const std::uint8_t* d = u8(w.d);
  for (std::size_t i = 0; i < want.size() && !Straight; ++i)
    if (std::abs(int(d[i]) - int(want[i])) > 1) return false;
  return true;
}

template <bool Straight>
void peerOver(benchmark::State& state, Shape s) {
  Images* w = imagesFor(s);
  if (!w || !vipsAgrees<Straight>(*w)) {
    state.SkipWithError(w ? "libvips failed or its result is more than one step from ours"
                          : "out of memory for the images");
    return;
  }
  for (auto _ : state) {
    vipsOver<Straight>(*w);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(s.bytes()) * 3);
}

// The peer composes on a worker thread of its own while this one waits, so
// its entries are timed by the clock on the wall, not by this thread's time.
int registerVips() {
  if (VIPS_INIT("moxpx_bench")) return 0;
  vips_concurrency_set(1);  // the library is single-threaded; so is the comparison
  vips_cache_set_max(0);    // every call composes anew
  for (int side : {2048, 4096}) {
    const Shape s{MOX_DEPTH_8U, side, side, 4};
    for (bool straight : {false, true}) {
      std::string name = "BM_vips_AlphaComposite";
      name.append(straight ? "Straight/" : "/").append(caseName(s));
      benchmark::RegisterBenchmark(name.c_str(), straight ? peerOver<true> : peerOver<false>, s)
          ->UseRealTime();
    }
  }
  return 0;
}
const int registeredVips = registerVips();
#endif

template <bool Straight>
PointCase overCase() {
  return {Straight ? "AlphaCompositeStraight" : "AlphaComposite", 3,
          [](Images& w) {
            AlphaLast alpha(w);
            moxAlphaComposite(w.a.get(), w.b.get(), w.d.get(), MOX_COMPOSITE_OVER, nullptr,
                              nullptr, nullptr, !Straight, Straight);
          },
          [](Images& w) {
            const std::uint8_t* __restrict a = u8(w.a);
            const std::uint8_t* __restrict b = u8(w.b);
            std::uint8_t* __restrict d = u8(w.d);
            for (std::size_t i = 0, n = w.d.bytes(); i < n; ++i) d[i] = scaled(a[i], b[i]);
          },
          nullptr, false,
          [](Images& w) {
            const std::uint8_t *a = u8(w.a), *b = u8(w.b);
            std::uint8_t* d = u8(w.d);
            for (std::size_t i = 0, n = w.d.bytes(); i < n; i += 4) overPixel<Straight>(a + i, b + i, d + i);
          }};
}

const int registeredComposite = registerCases({overCase<false>(), overCase<true>()}, 4);

}  // namespace
