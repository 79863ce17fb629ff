// Neighbourhood filters and morphology on 8U photographs-sized images (1 and
// 3 channels, 2048x2048), beside OpenCV's filter2D, sepFilter2D, blur,
// erode, dilate, morphologyEx and medianBlur with the same window and the
// replicated border. Names: BM_<peer>_<Op>/<case>; tiled runs (256x256
// tiles) add _tiled256.
//
// The rank filters and the median are exact in both libraries: every entry
// checks its result against OpenCV's (all pixels) before it is timed, when
// OpenCV is there. Convolutions and means round differently (OpenCV works in
// floating point), so they are checked against each other only where the
// weights make both exact.

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "bench_images.h"
#include "bench_register.h"

namespace {

using namespace moxbench;

struct Filter {
  std::string name;
  std::function<void(const MoxImage*, MoxImage*)> mox;
#ifdef MOXPX_HAVE_OPENCV
  std::function<void(const cv::Mat&, cv::Mat&)> cv;
#endif
  bool exact;  // OpenCV computes the same values
};

std::vector<int> binomial(int n) {
  std::vector<int> v{1};
  for (int k = 1; k < n; ++k) {
    std::vector<int> next(v.size() + 1, 0);
    for (size_t i = 0; i < v.size(); ++i) next[i] += v[i], next[i + 1] += v[i];
    v = next;
  }
  return v;
}

#ifdef MOXPX_HAVE_OPENCV
#define CV(body) , [=](const cv::Mat& s, cv::Mat& d) { body; }
#else
#define CV(body)
#endif

std::vector<Filter> filters() {
  std::vector<Filter> f;
  for (int k : {3, 5}) {
    // A binomial kernel: sums of 2^(2k-2), so both libraries divide exactly
    // only where the weighted sum is a multiple; not checked.
    const std::vector<int> b = binomial(k);
    std::vector<int> w;
    for (int y : b)
      for (int x : b) w.push_back(x * y);
    const int shift = 2 * (k - 1);
    f.push_back({"Conv" + std::to_string(k) + "x" + std::to_string(k),
                 [=](const MoxImage* s, MoxImage* d) {
                   MoxConvKernel* kk = moxCreateConvKernel(k, k, k / 2, k / 2, w.data(), shift);
                   moxConvolve2D(s, d, &kk, 1, MOX_SUM);
                   moxDeleteConvKernel(kk);
                 } CV({
                   cv::Mat kernel(k, k, CV_32F);
                   for (int i = 0; i < k * k; ++i) kernel.at<float>(i) = float(w[i]) / float(1 << shift);
                   cv::filter2D(s, d, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
                 }),
                 false});
  }
  {
    const std::vector<int> b = binomial(7);
    f.push_back({"Sep7",
                 [=](const MoxImage* s, MoxImage* d) {
                   MoxConvKernel* x = moxCreateConvKernel(7, 1, 3, 0, b.data(), 6);
                   MoxConvKernel* y = moxCreateConvKernel(1, 7, 0, 3, b.data(), 6);
                   moxConvolveSep2D(s, d, x, y);
                   moxDeleteConvKernel(x);
                   moxDeleteConvKernel(y);
                 } CV({
                   cv::Mat kernel(1, 7, CV_32F);
                   for (int i = 0; i < 7; ++i) kernel.at<float>(i) = float(b[i]) / 64.f;
                   cv::sepFilter2D(s, d, -1, kernel, kernel, cv::Point(-1, -1), 0,
                                   cv::BORDER_REPLICATE);
                 }),
                 false});
  }
  for (int k : {3, 15, 31, 61, 101, 255}) {
    const std::string n = std::to_string(k);
    f.push_back({"Blur" + n, [=](const MoxImage* s, MoxImage* d) { moxBlur(s, d, k, k, k / 2, k / 2); }
                 CV(cv::blur(s, d, cv::Size(k, k), cv::Point(-1, -1), cv::BORDER_REPLICATE)),
                 false});
    f.push_back({"MinFilter" + n,
                 [=](const MoxImage* s, MoxImage* d) { moxMinFilter(s, d, k, k, k / 2, k / 2); }
                 CV(cv::erode(s, d, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(k, k)),
                              cv::Point(-1, -1), 1, cv::BORDER_REPLICATE)),
                 true});
    f.push_back({"MaxFilter" + n,
                 [=](const MoxImage* s, MoxImage* d) { moxMaxFilter(s, d, k, k, k / 2, k / 2); }
                 CV(cv::dilate(s, d, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(k, k)),
                               cv::Point(-1, -1), 1, cv::BORDER_REPLICATE)),
                 true});
  }
  f.push_back({"Erode", [](const MoxImage* s, MoxImage* d) { moxErode(s, d, 1); }
               CV(cv::erode(s, d, cv::Mat(), cv::Point(-1, -1), 1, cv::BORDER_REPLICATE)), true});
  f.push_back({"Dilate", [](const MoxImage* s, MoxImage* d) { moxDilate(s, d, 1); }
               CV(cv::dilate(s, d, cv::Mat(), cv::Point(-1, -1), 1, cv::BORDER_REPLICATE)), true});
  f.push_back({"Open2", [](const MoxImage* s, MoxImage* d) { moxOpen(s, d, 2); }
               CV(cv::morphologyEx(s, d, cv::MORPH_OPEN, cv::Mat(), cv::Point(-1, -1), 2,
                                   cv::BORDER_REPLICATE)),
               true});
  for (int k : {3, 5, 7, 15, 31})
    f.push_back({"Median" + std::to_string(k),
                 [=](const MoxImage* s, MoxImage* d) { moxMedianFilter(s, d, k, k, k / 2, k / 2); }
                 CV(cv::medianBlur(s, d, k)), true});
  return f;
}
#undef CV

struct Images {
  explicit Images(const Shape& s) : src(s), dst(s), want(s.bytes()) {
    fillRandom(src.data(), src.bytes(), 0x5eed);
    // Smooth the noise a little so medians and extrema are not all at the ends.
    for (std::size_t i = 1; i < src.bytes(); ++i)
      src.data()[i] = static_cast<char>((static_cast<unsigned char>(src.data()[i - 1]) * 3u +
                                         static_cast<unsigned char>(src.data()[i])) / 4u);
    moxSetBorderMode(src.get(), MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
  }
  PlainImage src, dst;
  std::vector<char> want;
};

void runMox(benchmark::State& state, const Filter& f, Shape s, int tile) {
  quietErrors();
  Images im(s);
  std::unique_ptr<TiledImage> ts, td;
  const MoxImage* src = im.src.get();
  MoxImage* dst = im.dst.get();
  if (tile) {
    ts = std::make_unique<TiledImage>(s, tile);
    td = std::make_unique<TiledImage>(s, tile);
    ts->load(im.src.data());
    moxSetBorderMode(ts->get(), MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
    src = ts->get();
    dst = td->get();
  }
  f.mox(src, dst);
  if (moxGetErrStatus() != MOX_StsNoError) return state.SkipWithError(lastReport().c_str());
#ifdef MOXPX_HAVE_OPENCV
  if (f.exact) {
    const int type = CV_8UC(s.channels);
    cv::Mat a(s.height, s.width, type, im.src.data()), b;
    f.cv(a, b);
    std::vector<char> got(s.bytes());
    if (tile) td->store(got.data()); else std::memcpy(got.data(), im.dst.data(), s.bytes());
    if (std::memcmp(got.data(), b.data, s.bytes()) != 0)
      return state.SkipWithError("the result differs from OpenCV's");
  }
#endif
  for (auto _ : state) f.mox(src, dst);
}

#ifdef MOXPX_HAVE_OPENCV
void runCv(benchmark::State& state, const Filter& f, Shape s) {
  Images im(s);
  cv::Mat a(s.height, s.width, CV_8UC(s.channels), im.src.data()), b;
  for (auto _ : state) f.cv(a, b);
}
#endif

const bool registered = [] {
#ifdef MOXPX_HAVE_OPENCV
  cv::setNumThreads(1);  // the library is single-threaded; so is the comparison
#endif
  static const std::vector<Filter> all = filters();
  for (int ch : {1, 3}) {
    const Shape s{MOX_DEPTH_8U, 2048, 2048, ch};
    for (const Filter& f : all) {
      std::string entry = f.name;
      entry.append("/").append(caseName(s));
      addEntry("moxpx", entry, "", runMox, f, s, 0);
      if (f.name == "Conv3x3" || f.name == "Blur15" || f.name == "Erode" || f.name == "Median5")
        addEntry("moxpx", entry, "_tiled256", runMox, f, s, 256);
#ifdef MOXPX_HAVE_OPENCV
      addEntry("opencv", entry, "", runCv, f, s);
#endif
    }
  }
  return true;
}();

}  // namespace
