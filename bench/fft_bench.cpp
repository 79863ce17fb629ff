// Two-dimensional real FFT of an 8U square image into a 32S packed spectrum,
// beside the peers' real-to-complex transforms of the same image.
//   moxpx:  moxRealFft2D, forward, tables kept between calls (MOX_FFT_SAVE).
//   floor:  the two passes every transform makes anyway: the 8U samples
//           converted to doubles and the doubles stored as 32S.
//   fftw:   8U converted to a double array, then a measured r2c 2-D plan
//           (made outside the timed loop).
//   opencv: 8U converted to CV_64F (timed), then cv::dft.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "moxpx.h"

#ifdef MOXPX_HAVE_FFTW
#include <fftw3.h>
#endif
#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

std::vector<std::uint8_t> samples(int n) {
  std::vector<std::uint8_t> v(static_cast<std::size_t>(n) * n);
  std::mt19937 rng(1);
  for (auto& x : v) x = static_cast<std::uint8_t>(rng() & 0xff);
  return v;
}

void setCounters(benchmark::State& state, int n) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(n) * n);
}

void BM_moxpx_RealFft2D(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  MoxImage* src = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", MOX_DATA_ORDER_PIXEL,
                                       MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, n, n, nullptr, nullptr,
                                       nullptr);
  MoxImage* dst = moxCreateImageHeader(1, 0, MOX_DEPTH_32S, "GRAY", "GRAY", MOX_DATA_ORDER_PIXEL,
                                       MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, n, n, nullptr, nullptr,
                                       nullptr);
  moxAllocateImage(src, 0);
  moxAllocateImage(dst, 0);
  const std::vector<std::uint8_t> v = samples(n);
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) src->imageData[y * src->widthStep + x] = static_cast<char>(v[y * n + x]);
  for (auto _ : state) {
    if (moxRealFft2D(src, dst, MOX_FFT_FORWARD | MOX_FFT_SAVE, nullptr) != 0)
      state.SkipWithError("moxRealFft2D failed");
    benchmark::DoNotOptimize(dst->imageData);
  }
  moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr);
  moxDeallocate(src, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(dst, MOX_FREE_HEADER | MOX_FREE_DATA);
  setCounters(state, n);
}

void BM_floor_RealFft2D(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<std::uint8_t> v = samples(n);
  std::vector<double> work(v.size());
  std::vector<std::int32_t> out(v.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < v.size(); ++i) work[i] = v[i];
    benchmark::ClobberMemory();
    for (std::size_t i = 0; i < v.size(); ++i)
      out[i] = static_cast<std::int32_t>(work[i] * 0.5);
    benchmark::DoNotOptimize(out.data());
  }
  setCounters(state, n);
}

#ifdef MOXPX_HAVE_FFTW
void BM_fftw_RealFft2D(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<std::uint8_t> v = samples(n);
  double* in = fftw_alloc_real(static_cast<std::size_t>(n) * n);
  fftw_complex* out = fftw_alloc_complex(static_cast<std::size_t>(n) * (n / 2 + 1));
  fftw_plan plan = fftw_plan_dft_r2c_2d(n, n, in, out, FFTW_MEASURE);
  for (auto _ : state) {
    for (std::size_t i = 0; i < v.size(); ++i) in[i] = v[i];
    fftw_execute(plan);
    benchmark::DoNotOptimize(out);
  }
  fftw_destroy_plan(plan);
  fftw_free(in);
  fftw_free(out);
  setCounters(state, n);
}
BENCHMARK(BM_fftw_RealFft2D)->Arg(512)->Arg(1024)->Arg(1000)->Unit(benchmark::kMillisecond);
#endif

#ifdef MOXPX_HAVE_OPENCV
// CV_64F, so that the peer computes in the same precision.
void BM_opencv_RealFft2D(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<std::uint8_t> v = samples(n);
  cv::Mat src(n, n, CV_8U, v.data()), work, out;
  for (auto _ : state) {
    src.convertTo(work, CV_64F);
    cv::dft(work, out);
    benchmark::DoNotOptimize(out.data);
  }
  setCounters(state, n);
}
BENCHMARK(BM_opencv_RealFft2D)->Arg(512)->Arg(1024)->Arg(1000)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK(BM_moxpx_RealFft2D)->Arg(512)->Arg(1024)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_floor_RealFft2D)->Arg(512)->Arg(1024)->Arg(1000)->Unit(benchmark::kMillisecond);
