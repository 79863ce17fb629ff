// Eight threads at once run operations of every family on shared sources,
// interleaved with calls that fail. Each thread has its own error mode and
// report function; after every call its status, its mode and the reports its
// function saw must be its own, and every result must be the one a single
// thread computes (the transforms keep their tables per thread).
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "image_helpers.h"

namespace {

using testimg::Capture;
using testimg::Image;
using testimg::Shape;

constexpr int kThreads = 8;
constexpr int kRounds = 12;

// Report function n counts its reports and notes a report from a thread
// other than the one that installed it.
std::array<std::atomic<int>, kThreads> reportCount;
std::array<std::thread::id, kThreads> owner;
std::atomic<int> strayReports{0};

template <int N>
int MOX_CALL recordFor(int status, const char*, const char*, const char*, int) {
  if (owner[N] != std::this_thread::get_id()) ++strayReports;
  ++reportCount[N];
  return status;
}

template <int... N>
constexpr std::array<MoxErrorCallBack, kThreads> recorders(std::integer_sequence<int, N...>) {
  return {&recordFor<N>...};
}
constexpr auto kRecorders = recorders(std::make_integer_sequence<int, kThreads>());

// The shared sources: colour with alpha, grey, and a colour image whose
// ROI starts off the corner.
struct Sources {
  Image rgba{Shape{MOX_DEPTH_8U, 4, 0, 20, 24}, 11};
  Image gray{Shape{MOX_DEPTH_8U, 1, 0, 32, 32}, 12};
  Image rgb{Shape{MOX_DEPTH_8U, 3, 0, 18, 22}, 13};
  Sources() { rgba->alphaChannel = 4; }
};

// One operation: it writes its results (pixels, or any bytes) into `out`.
using Op = std::function<void(const Sources&, std::vector<char>& out, bool keepTables)>;

std::vector<char> bytesOf(const MoxImage* im) {
  return {im->imageData, im->imageData + im->imageSize};
}

template <class F>
Op into(Shape shape, F call) {
  return [shape, call](const Sources& s, std::vector<char>& out, bool keep) {
    Image d(shape, 0);
    call(s, +d, keep);
    out = bytesOf(d);
  };
}

const Shape kRgba{MOX_DEPTH_8U, 4, 0, 20, 24}, kRgb{MOX_DEPTH_8U, 3, 0, 18, 22},
    kGray{MOX_DEPTH_8U, 1, 0, 32, 32}, kSpectrum{MOX_DEPTH_32S, 1, 0, 32, 32};

const std::vector<Op>& operations() {
  static const std::vector<Op> ops = {
      into(kRgba, [](const Sources& s, MoxImage* d, bool) { moxAdd(s.rgba, s.rgba, d, nullptr); }),
      into(kRgba, [](const Sources& s, MoxImage* d, bool) {
        moxZoom(s.rgba, d, 7, 3, 5, 2, MOX_INTER_CUBIC, nullptr);
      }),
      into(kRgba, [](const Sources& s, MoxImage* d, bool) {
        moxRotate(s.rgba, d, 3317, 11, 9, MOX_INTER_LINEAR, nullptr);
      }),
      into(kRgb, [](const Sources& s, MoxImage* d, bool) { moxRGB2HSV(s.rgb, d, nullptr); }),
      into(kRgba, [](const Sources& s, MoxImage* d, bool) {
        moxCopy(s.rgba, d, nullptr);
        d->alphaChannel = 4;
        moxPreMultiplyAlpha(d, -1, nullptr);
      }),
      [](const Sources& s, std::vector<char>& out, bool) {
        const double n = moxNorm(s.rgb, nullptr, MOX_NORM_L2);
        out.assign(reinterpret_cast<const char*>(&n), reinterpret_cast<const char*>(&n + 1));
      },
      into(kRgba, [](const Sources& s, MoxImage* d, bool) { moxMedianFilter(s.rgba, d, 5, 3, 2, 1); }),
      into(kGray, [](const Sources& s, MoxImage* d, bool) { moxClose(s.gray, d, 2); }),
      into(kSpectrum, [](const Sources& s, MoxImage* d, bool keep) {
        moxRealFft2D(s.gray, d, MOX_FFT_FORWARD | (keep ? MOX_FFT_SAVE : 0), nullptr);
      }),
      into(kSpectrum, [](const Sources& s, MoxImage* d, bool keep) {
        moxDCT2D(s.gray, d, MOX_DCT_FORWARD | (keep ? MOX_DCT_SAVE : 0));
      }),
      [](const Sources& s, std::vector<char>& out, bool) {
        // 8-bit bitmap with a median-cut palette, read back
        out.assign(40 + 1024 + 24 * 18, 0);
        auto* dib = reinterpret_cast<MoxBitmapInfoHeader*>(out.data());
        *dib = MoxBitmapInfoHeader{40, 22, 18, 1, 8, 0, 0, 0, 0, 0, 0};
        moxConvertToDIB(s.rgb, dib, MOX_DITHER_FS, MOX_PALCONV_MEDCUT);
        int cloned = 0;
        MoxImage* back = moxTranslateDIB(dib, &cloned);
        const std::vector<char> pixels = bytesOf(back);
        out.insert(out.end(), pixels.begin(), pixels.end());
        moxDeallocate(back, MOX_FREE_HEADER | MOX_FREE_DATA);
      },
  };
  return ops;
}

// Calls that each make exactly one report.
const std::vector<std::function<void(const Sources&)>>& failures() {
  static const std::vector<std::function<void(const Sources&)>> calls = {
      [](const Sources& s) { moxAdd(nullptr, s.rgba, nullptr, nullptr); },
      [](const Sources& s) {
        Image d(kRgba, 0);
        moxBlur(s.rgba, d, 0, 3, 0, 0);
      },
      [](const Sources& s) { moxRealFft2D(s.gray, nullptr, MOX_FFT_FORWARD, nullptr); },
      [](const Sources&) {
        int cloned = 0;
        moxTranslateDIB(nullptr, &cloned);
      },
  };
  return calls;
}

// One thread's run; returns what went wrong, or "".
std::string runThread(int n, const Sources& s, const std::vector<std::vector<char>>& expected) {
  owner[std::size_t(n)] = std::this_thread::get_id();
  moxRedirectError(kRecorders[std::size_t(n)]);
  const int mode = n % 3;  // Leaf, Parent, Silent
  moxSetErrMode(mode);
  int reports = 0;
  std::vector<char> out;
  const auto& ops = operations();
  const auto& bad = failures();
  for (int round = 0; round < kRounds; ++round)
    for (std::size_t k = 0; k < ops.size(); ++k) {
      moxSetErrStatus(MOX_StsNoError);
      ops[k](s, out, (n + round) % 2 == 1);
      if (out != expected[k]) return "operation " + std::to_string(k) + " differs";
      if (moxGetErrStatus() != MOX_StsNoError || reportCount[std::size_t(n)] != reports)
        return "operation " + std::to_string(k) + " reported";
      bad[(k + std::size_t(n)) % bad.size()](s);
      ++reports;
      if (moxGetErrStatus() != MOX_StsBadArgument || reportCount[std::size_t(n)] != reports)
        return "failing call " + std::to_string((k + std::size_t(n)) % bad.size());
      if (moxGetErrMode() != mode) return "mode changed";
    }
  moxSetErrStatus(MOX_StsNoError);
  return "";
}

TEST(Stress, EightThreadsKeepTheirOwnStateAndResults) {
  const Sources sources;
  std::vector<std::vector<char>> expected(operations().size());
  {
    Capture capture;
    for (std::size_t k = 0; k < expected.size(); ++k) operations()[k](sources, expected[k], false);
    for (const auto& r : testimg::reports()) ADD_FAILURE() << r.func << ": " << r.message;
    ASSERT_TRUE(testimg::reports().empty());
  }
  for (auto& c : reportCount) c = 0;
  strayReports = 0;
  std::array<std::string, kThreads> faults;
  std::vector<std::thread> threads;
  for (int n = 0; n < kThreads; ++n)
    threads.emplace_back([&, n] { faults[std::size_t(n)] = runThread(n, sources, expected); });
  for (auto& t : threads) t.join();
  for (int n = 0; n < kThreads; ++n) EXPECT_EQ(faults[std::size_t(n)], "") << "thread " << n;
  EXPECT_EQ(strayReports, 0);
  // The calling thread's own state is untouched by the others.
  EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
}

}  // namespace
