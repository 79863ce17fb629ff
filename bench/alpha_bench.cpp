// Scaled products and premultiplication beside a plain loop of the same
// formula and OpenCV's multiply with a scale of 1/255 (which rounds the
// quotient where these truncate it, so only its time is compared).
#include <cstdint>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
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

}  // namespace
