// Convolution, box mean, minimum, maximum and median filters against their
// windows read through the border routines on every depth, border mode, box
// and anchor; tiled, in-place and channel-of-interest runs; the checks.
#include <deque>
#include <numeric>
#include <thread>

#include "frame/frame.h"
#include "image/border.h"
#include "op_cases.h"

namespace {

using namespace testimg;

// The value at any position, border modes applied, at the image's depth.
ll at(const MoxImage* im, int x, int y, int c) {
  unsigned v = 0;
  EXPECT_EQ(mox::ownGetBorderPixel(im, x, y, c, &v), mox::kBorderOk);
  return wrap(im->depth, v);
}

ll floorDiv(ll a, ll b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Runs f from src into dst; every value of the common rectangle must equal
// want(src x, src y, src channel from 1), clamped; the values outside it are
// unchanged.
void expectEach(const MoxImage* src, const Image& dst, const std::function<void(MoxImage*)>& f,
                const std::function<ll(int, int, int)>& want, const std::string& what) {
  const auto before = dst.bytes();
  f(dst);
  const auto got = dst.bytes();
  std::copy(before.begin(), before.end(), dst->imageData);
  const Rect s = clippedRoi(src), d = clippedRoi(dst);
  const int work = dst->roi && dst->roi->coi ? 1 : dst->nChannels;
  for (int y = 0; y < std::min(s.h, d.h); ++y)
    for (int x = 0; x < std::min(s.w, d.w); ++x)
      for (int k = 0; k < work; ++k)
        set(dst, d.x + x, d.y + y, channelOf(dst, k),
            clampTo(dst->depth, want(s.x + x, s.y + y, channelOf(src, k) + 1)));
  EXPECT_TRUE(got == dst.bytes()) << what;
}

struct Box { int nCols, nRows, anchorX, anchorY; };

// The window of (x, y) in row-major order.
std::vector<ll> window(const MoxImage* im, int x, int y, int c, const Box& b) {
  std::vector<ll> v;
  for (int r = 0; r < b.nRows; ++r)
    for (int k = 0; k < b.nCols; ++k) v.push_back(at(im, x - b.anchorX + k, y - b.anchorY + r, c));
  return v;
}

using BoxCall = void(MOX_CALL*)(const MoxImage*, MoxImage*, int, int, int, int);
struct BoxOp {
  const char* name;
  BoxCall call;
  ll (*reduce)(std::vector<ll>);
};

const BoxOp kBoxOps[] = {
    {"blur", moxBlur, [](std::vector<ll> v) { return floorDiv(std::accumulate(v.begin(), v.end(), ll(v.size()) / 2), ll(v.size())); }},
    {"min", moxMinFilter, [](std::vector<ll> v) { return *std::min_element(v.begin(), v.end()); }},
    {"max", moxMaxFilter, [](std::vector<ll> v) { return *std::max_element(v.begin(), v.end()); }},
    {"median", moxMedianFilter, [](std::vector<ll> v) { std::sort(v.begin(), v.end()); return v[(v.size() - 1) / 2]; }},
};

// The border settings of the cases: one mode on every side, then mixed
// sides whose corners follow the top and bottom sides.
void setModes(MoxImage* im, int k) {
  if (k < 4) {
    moxSetBorderMode(im, k, MOX_SIDE_ALL, 0x12345678 + 77 * k);
    return;
  }
  moxSetBorderMode(im, k == 4 ? MOX_BORDER_REFLECT : MOX_BORDER_CONSTANT, MOX_SIDE_TOP, -3);
  moxSetBorderMode(im, MOX_BORDER_WRAP, MOX_SIDE_BOTTOM, 0);
  moxSetBorderMode(im, MOX_BORDER_CONSTANT, MOX_SIDE_LEFT, 0x7FF1);
  moxSetBorderMode(im, MOX_BORDER_REPLICATE, MOX_SIDE_RIGHT, 0);
}
constexpr int kModeCases = 6;

// Every box filter with every box of the list from src into a fresh image.
void expectBoxes(const Image& src, std::initializer_list<Box> boxes, const std::string& what) {
  for (const Box& b : boxes)
    for (const BoxOp& op : kBoxOps) {
      Image dst({src->depth, src->nChannels, 0, src->height, src->width}, 5);
      expectEach(src, dst, [&](MoxImage* d) { op.call(src, d, b.nCols, b.nRows, b.anchorX, b.anchorY); },
                 [&](int x, int y, int c) { return op.reduce(window(src, x, y, c, b)); },
                 what + " " + op.name + " box " + std::to_string(b.nCols) + "x" + std::to_string(b.nRows));
    }
}

// Boxes of every shape and anchor on every depth and border setting; then
// boxes far larger than the image, and wider than the running extrema's
// direct path, on values spread over the whole range.
TEST(Filter, BoxFiltersMatchTheirWindows) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (int modes = 0; modes < kModeCases; ++modes) {
      Image src({depth, depth == MOX_DEPTH_1U ? 1 : 2, 0, 11, 13}, depth + modes);
      setModes(src, modes);
      expectBoxes(src, {{1, 1, 0, 0}, {3, 3, 1, 1}, {4, 2, 3, 0}, {5, 7, 0, 6}, {2, 5, 1, 2}, {9, 8, 4, 7},
                        {13, 3, 12, 1}}, "depth " + std::to_string(depth) + " modes " + std::to_string(modes));
    }
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16S, MOX_DEPTH_32S}) {
    Image src({depth, 1, 0, 7, 9}, 3);
    moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
    expectBoxes(src, {{31, 31, 15, 15}, {25, 1, 3, 0}, {1, 20, 0, 19}}, "large");
  }
  EXPECT_TRUE(reports().empty());
}

// Windows reaching many times the image's size past its edges, on every
// depth and border setting: sides just short of, at and past three times
// the image's width or height (where the extrema stop looking), and far
// beyond, plain and from 3x3 tiles.
TEST(Filter, WindowsFarPastTheImageMatchTheirWindows) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (int modes = 0; modes < kModeCases; ++modes) {
      Image src({depth, depth == MOX_DEPTH_1U ? 1 : 2, 0, 4, 5}, 3 * depth + modes);
      setModes(src, modes);
      const std::string what = "far depth " + std::to_string(depth) + " modes " + std::to_string(modes);
      // Windows that overreach a period (twice the image) on one side, the
      // other or both, of odd and even counts.
      expectBoxes(src, {{15, 1, 14, 0}, {16, 1, 15, 0}, {17, 2, 0, 1}, {1, 12, 0, 11}, {2, 13, 1, 12},
                        {1, 14, 0, 0}, {61, 47, 30, 20}, {62, 48, 40, 3}, {16, 30, 2, 27}, {300, 1, 150, 0},
                        {1, 300, 0, 299}},
                    what);
      // Several 8x8 tiles under a window far taller than the image.
      const Shape sh{depth, src->nChannels, 0, 11, 13};
      Image big(sh, 7 * depth + modes);
      setModes(big, modes);
      for (const BoxOp& op : kBoxOps) {
        Image want(sh, 5), dst(sh, 5), got(sh, 5);
        op.call(big, want, 7, 1000, 3, 400);
        Tiled ts(big, 8, 8), td(dst, 8, 8);
        setModes(ts, modes);
        op.call(ts, td, 7, 1000, 3, 400);
        td.gather(got);
        EXPECT_EQ(got.bytes(), want.bytes()) << what << " tiled " << op.name;
      }
    }
  EXPECT_TRUE(reports().empty());
}

// Medians of 65536 values and more: folded past a tiny image, and inside
// a larger one (a ROI keeps the reference short).
TEST(Filter, MediansOfManyValuesMatchTheirWindows) {
  Capture capture;
  const Box box{300, 230, 140, 100};
  const auto median = [](const MoxImage* src, const Box& b) {
    return [src, b](int x, int y, int c) { return kBoxOps[3].reduce(window(src, x, y, c, b)); };
  };
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U, MOX_DEPTH_32S}) {
    for (int modes = 0; modes < kModeCases; ++modes) {
      Image src({depth, 1, 0, 3, 4}, 9 * depth + modes);
      setModes(src, modes);
      Image dst({depth, 1, 0, 3, 4}, 5);
      expectEach(src, dst, [&](MoxImage* d) { moxMedianFilter(src, d, box.nCols, box.nRows, box.anchorX, box.anchorY); },
                 median(src, box), "depth " + std::to_string(depth) + " modes " + std::to_string(modes));
    }
  }
  // Tall, thin windows over a wide image weigh few of the folded block's
  // values.
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_16S, MOX_DEPTH_32S})
    for (const Box& b : {Box{1, 61, 0, 30}, Box{3, 40, 1, 2}, Box{2, 50, 0, 49}}) {
      Image src({depth, 2, 0, 4, 150}, 3 * depth), dst({depth, 2, 0, 4, 150}, 5);
      setModes(src, 4);
      expectEach(src, dst, [&](MoxImage* d) { moxMedianFilter(src, d, b.nCols, b.nRows, b.anchorX, b.anchorY); },
                 median(src, b), "thin depth " + std::to_string(depth) + " box " + std::to_string(b.nRows));
    }
  const Box inside{300, 220, 150, 110};
  Image src({MOX_DEPTH_8U, 1, 0, 60, 100}, 4), dst({MOX_DEPTH_8U, 1, 0, 60, 100}, 5);
  src.roi(0, 47, 29, 3, 4), dst.roi(0, 47, 29, 3, 4);
  moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
  expectEach(src, dst, [&](MoxImage* d) { moxMedianFilter(src, d, inside.nCols, inside.nRows, inside.anchorX, inside.anchorY); },
             median(src, inside), "inside");
  EXPECT_TRUE(reports().empty());
}

// A window of 70001 x 70001 over one pixel, different constants on each
// side: whole rows of the top and bottom constants, then the middle row
// (left constant, the pixel, right constant). The middle place lies on the
// last left value, the pixel or the first right value as the anchor moves;
// the mean's sum is far beyond 32 bits.
TEST(Filter, WindowsOfBillionsOfValuesCountEveryOne) {
  Capture capture;
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_32S}) {
    Image src({depth, 1, 0, 1, 1}, 1);
    set(src, 0, 0, 0, 100);
    const int sides[][2] = {{MOX_SIDE_TOP, 10}, {MOX_SIDE_LEFT, 50}, {MOX_SIDE_RIGHT, 150}, {MOX_SIDE_BOTTOM, 200}};
    for (const auto& side : sides) moxSetBorderMode(src, MOX_BORDER_CONSTANT, side[0], side[1]);
    for (const auto& [anchorX, want] : {std::pair{35001, 50}, {35000, 100}, {34999, 150}}) {
      Image dst({depth, 1, 0, 1, 1}, 5);
      moxMedianFilter(src, dst, 70001, 70001, anchorX, 35000);
      EXPECT_EQ(at(dst, 0, 0, 1), want) << depth << " anchor " << anchorX;
      // The mean of the same values, rounded half up.
      const ll rows = 35000LL * 70001, count = 70001LL * 70001;
      const ll sum = 10 * rows + 200 * rows + 50LL * anchorX + 100 + 150LL * (70000 - anchorX);
      moxBlur(src, dst, 70001, 70001, anchorX, 35000);
      EXPECT_EQ(at(dst, 0, 0, 1), (sum + count / 2) / count) << depth << " anchor " << anchorX;
    }
  }
  EXPECT_TRUE(reports().empty());
}

// Rows wider than several vectors, of every channel count and an odd
// width, so the vector paths (small medians, small extrema, extrema by
// doubling runs, box sums) run whole vectors and a short tail on every depth.
TEST(Filter, WideRowsMatchTheirWindowsForEveryChannelCount) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (int ch = 1; ch <= 4; ++ch) {
      if (depth == MOX_DEPTH_1U && ch > 1) continue;
      Image src({depth, ch, 0, 8, 71}, 7 * depth + ch);
      moxSetBorderMode(src, MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
      expectBoxes(src, {{3, 3, 1, 1}, {5, 5, 2, 2}, {7, 7, 3, 3}, {3, 3, 0, 2}, {5, 5, 4, 0}, {2, 3, 1, 1}, {6, 4, 2, 3},
                         {16, 1, 15, 0}, {17, 4, 0, 3}, {3, 9, 1, 8}, {8, 12, 3, 4}, {45, 3, 20, 1}, {70, 9, 35, 4}, {130, 2, 7, 1}},
                  "wide depth " + std::to_string(depth) + " channels " + std::to_string(ch));
    }
  EXPECT_TRUE(reports().empty());
}

// The extremes of every run of n values of v, through a queue of the
// values that can still be one.
std::vector<ll> runExtremes(const std::vector<ll>& v, int n, bool max) {
  std::vector<ll> out;
  std::deque<int> q;
  for (int i = 0; i < int(v.size()); ++i) {
    while (!q.empty() && (max ? v[std::size_t(q.back())] <= v[std::size_t(i)] : v[std::size_t(q.back())] >= v[std::size_t(i)]))
      q.pop_back();
    q.push_back(i);
    if (q.front() <= i - n) q.pop_front();
    if (i >= n - 1) out.push_back(v[std::size_t(q.front())]);
  }
  return out;
}

// Minimum and maximum of windows thousands of columns wide, past 4096 too,
// narrower than the image so that each sees part of its row, on pixels of
// 1 to 16 bytes under mixed borders. The values climb along each row (with
// some noise), so that a window's extremes lie near its ends and move with
// it.
TEST(Filter, VeryWideExtremaMatchTheirWindows) {
  Capture capture;
  struct Case { unsigned depth; int ch, width, height, modes; Box box; };
  const Case cases[] = {{MOX_DEPTH_8U, 1, 1100, 33, 5, {1051, 2, 525, 1}}, {MOX_DEPTH_8U, 1, 4200, 34, 4, {4101, 2, 2050, 0}},
                        {MOX_DEPTH_8U, 3, 4200, 3, 2, {4101, 2, 100, 1}}, {MOX_DEPTH_16S, 3, 4200, 17, 5, {4200, 1, 4000, 0}},
                        {MOX_DEPTH_32S, 4, 4150, 3, 4, {4130, 3, 515, 2}}};
  for (const Case& k : cases) {
    const Box& b = k.box;
    Image src({k.depth, k.ch, 0, k.height, k.width}, 3 * k.depth + k.ch + k.modes);
    setModes(src, k.modes);
    const ll span = k.depth == MOX_DEPTH_8U ? 250 : 30000;
    std::uint32_t noise = 12345;
    for (int y = 0; y < k.height; ++y)
      for (int x = 0; x < k.width; ++x)
        for (int c = 0; c < k.ch; ++c) {
          noise = noise * 1664525u + 1013904223u;
          set(src, x, y, c, (ll(x) * span / k.width + 3 * y + c) % span + (noise >> 29) - (k.depth == MOX_DEPTH_8U ? 0 : span / 2));
        }
    for (const bool max : {false, true}) {
      // The extremes across every bordered row, then down the window's rows.
      std::vector<std::vector<std::vector<ll>>> across(std::size_t(k.ch) + 1);
      for (int c = 1; c <= k.ch; ++c)
        for (int y = 0; y < k.height + b.nRows - 1; ++y) {
          std::vector<ll> row;
          for (int x = 0; x < k.width + b.nCols - 1; ++x) row.push_back(at(src, x - b.anchorX, y - b.anchorY, c));
          across[std::size_t(c)].push_back(runExtremes(row, b.nCols, max));
        }
      Image dst({k.depth, k.ch, 0, k.height, k.width}, 4);
      expectEach(src, dst, [&](MoxImage* d) { (max ? moxMaxFilter : moxMinFilter)(src, d, b.nCols, b.nRows, b.anchorX, b.anchorY); },
                 [&](int x, int y, int c) {
                   ll v = across[std::size_t(c)][std::size_t(y)][std::size_t(x)];
                   for (int r = 1; r < b.nRows; ++r) {
                     const ll u = across[std::size_t(c)][std::size_t(y + r)][std::size_t(x)];
                     v = max ? std::max(v, u) : std::min(v, u);
                   }
                   return v;
                 },
                 std::string(max ? "max" : "min") + " depth " + std::to_string(k.depth) + " channels " +
                     std::to_string(k.ch) + " box " + std::to_string(b.nCols));
    }
  }
  EXPECT_TRUE(reports().empty());
}

// 8-bit medians of larger windows keep column histograms for stripes of
// the row: rows wider than one stripe, one and three channels.
TEST(Filter, LargeEightBitMediansAcrossStripes) {
  Capture capture;
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S})
    for (int ch : {1, 3}) {
      Image src({depth, ch, 0, 6, 300}, 5 * depth + ch);
      moxSetBorderMode(src, MOX_BORDER_WRAP, MOX_SIDE_ALL, 0);
      for (const Box& box : {Box{9, 9, 4, 4}, Box{17, 3, 2, 1}}) {
        Image dst({depth, ch, 0, 6, 300}, 4);
        expectEach(src, dst, [&](MoxImage* d) { moxMedianFilter(src, d, box.nCols, box.nRows, box.anchorX, box.anchorY); },
                   [&](int x, int y, int c) { return kBoxOps[3].reduce(window(src, x, y, c, box)); },
                   "depth " + std::to_string(depth) + " channels " + std::to_string(ch) + " box " + std::to_string(box.nCols));
      }
    }
  EXPECT_TRUE(reports().empty());
}

// Means of large boxes, each window summed from a table of the bordered
// image: on a short image, windows many times its height (folded blocks);
// on a larger one, sums past 2^16, 2^20, 2^23 and (16-bit values) 2^31
// that no window folds.
TEST(Filter, LargeBoxMeansMatchTheirWindows) {
  Capture capture;
  struct Case { int height, width; std::vector<Box> boxes; };
  const Case cases[] = {{4, 150, {{15, 15, 7, 7}, {31, 31, 15, 15}, {64, 64, 30, 33}, {65, 64, 64, 0}}},
                        {60, 100, {{31, 31, 15, 15}, {65, 64, 64, 0}, {129, 41, 64, 20}, {301, 111, 150, 55}}}};
  for (const Case& k : cases)
    for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U})
      for (int ch : {1, 3}) {
        Image src({depth, ch, 0, k.height, k.width}, 5 * depth + ch);
        moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
        for (const Box& box : k.boxes) {
          const int ws = k.width + box.nCols - 1, hs = k.height + box.nRows - 1, side = ws + 1;
          std::vector<std::vector<ll>> sums(std::size_t(ch) + 1, std::vector<ll>(std::size_t(side) * (hs + 1), 0));
          for (int c = 1; c <= ch; ++c) {
            auto& t = sums[std::size_t(c)];
            for (int y = 0; y < hs; ++y)
              for (int x = 0; x < ws; ++x)
                t[std::size_t((y + 1) * side + x + 1)] = at(src, x - box.anchorX, y - box.anchorY, c) +
                                                         t[std::size_t(y * side + x + 1)] +
                                                         t[std::size_t((y + 1) * side + x)] - t[std::size_t(y * side + x)];
          }
          const ll count = ll(box.nCols) * box.nRows;
          Image dst({depth, ch, 0, k.height, k.width}, 4);
          expectEach(src, dst, [&](MoxImage* d) { moxBlur(src, d, box.nCols, box.nRows, box.anchorX, box.anchorY); },
                     [&](int x, int y, int c) {
                       const auto& t = sums[std::size_t(c)];
                       const auto cell = [&](int cx, int cy) { return t[std::size_t(cy * side + cx)]; };
                       const ll sum = cell(x + box.nCols, y + box.nRows) - cell(x, y + box.nRows) -
                                      cell(x + box.nCols, y) + cell(x, y);
                       return floorDiv(sum + count / 2, count);
                     },
                     "height " + std::to_string(k.height) + " depth " + std::to_string(depth) + " channels " +
                         std::to_string(ch) + " box " + std::to_string(box.nCols));
        }
      }
  EXPECT_TRUE(reports().empty());
}

// Working blocks stay with their thread between calls, give the same
// results the second time, and go when the thread ends.
TEST(Filter, WorkingBlocksStayWithTheirThreadTillItEnds) {
  const int live = mox::platform::liveSpares();
  bool same = false;
  int kept = 0;
  std::thread t([&] {
    Image src({MOX_DEPTH_8U, 3, 0, 300, 400}, 7), first({MOX_DEPTH_8U, 3, 0, 300, 400}), again({MOX_DEPTH_8U, 3, 0, 300, 400});
    moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
    moxMinFilter(src, first, 61, 41, 30, 20);
    for (int i = 0; i < 3; ++i) moxMinFilter(src, again, 61, 41, 30, 20);
    kept = mox::platform::keptSpares();
    same = first.bytes() == again.bytes();
  });
  t.join();
  EXPECT_GT(kept, 0);
  EXPECT_LE(kept, 8);
  EXPECT_TRUE(same);
  EXPECT_EQ(mox::platform::liveSpares(), live);
}

struct Kernel { Box box; std::vector<int> values; int shift; };

ll convolveAt(const MoxImage* im, int x, int y, int c, const Kernel& k) {
  const auto v = window(im, x, y, c, k.box);
  ll s = 0;
  for (size_t i = 0; i < v.size(); ++i) s += v[i] * k.values[i];
  return s >> k.shift;
}

// Squares saturate at 2^62 (every depth's range is far below); the root is
// the integer part.
ll combine(const std::vector<ll>& r, int method) {
  const ll big = 1LL << 31;
  ll out = method == MOX_MAX || method == MOX_MIN ? r[0] : 0;
  for (ll v : r) {
    const ll q = std::min(v < 0 ? -v : v, big);
    if (method == MOX_SUM) out += v;
    if (method == MOX_SUMSQ || method == MOX_SUMSQROOT) out = out > big * big - q * q ? big * big : out + q * q;
    if (method == MOX_MAX || method == MOX_MIN) out = method == MOX_MAX ? std::max(out, v) : std::min(out, v);
  }
  ll root = 0;
  for (ll bit = 1LL << 31; bit; bit >>= 1) root += (root + bit) <= out / (root + bit) ? bit : 0;  // no square overflows
  return method == MOX_SUMSQROOT ? root : out;
}

const Kernel kKernels[] = {
    {{3, 3, 1, 1}, {1, 2, 1, 2, 4, 2, 1, 2, 1}, 4}, {{3, 3, 1, 1}, {-1, 0, 1, -2, 0, 2, -1, 0, 1}, 0},
    {{2, 4, 0, 3}, {7, -3, 0, 5, -9, 2, 1, 1}, 2}, {{5, 1, 4, 0}, {1, -1, 3, -7, 11}, 1},
    {{1, 1, 0, 0}, {-3}, 0}, {{3, 2, 2, 1}, {100000, -3, 0, 0, 5, -70000}, 31},
};

TEST(Filter, ConvolutionMatchesItsWindowsForEveryCombineAndDepth) {
  Capture capture;
  const std::vector<int> sets[] = {{0}, {1}, {2}, {5}, {1, 3}, {0, 2, 4}};  // rows of kKernels
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U, MOX_DEPTH_16S, MOX_DEPTH_32S})
    for (int modes = 0; modes < kModeCases; ++modes) {
      Image src({depth, 3, 0, 9, 11}, depth * 7 + modes);
      setModes(src, modes);
      for (const auto& set : sets)
        for (int method = MOX_SUM; method <= MOX_MIN; ++method) {
          std::vector<MoxConvKernel*> ks;
          std::vector<const Kernel*> used;
          for (int i : set) {
            const Kernel& k = kKernels[i];
            ks.push_back(moxCreateConvKernel(k.box.nCols, k.box.nRows, k.box.anchorX, k.box.anchorY, k.values.data(), k.shift));
            used.push_back(&k);
          }
          Image dst({depth, 3, 0, 9, 11}, 4);
          expectEach(src, dst, [&](MoxImage* d) { moxConvolve2D(src, d, ks.data(), int(ks.size()), method); },
                     [&](int x, int y, int c) {
                       std::vector<ll> r;
                       for (const Kernel* k : used) r.push_back(convolveAt(src, x, y, c, *k));
                       return combine(r, method);
                     }, "depth " + std::to_string(depth) + " set " + std::to_string(set[0]) +
                         " method " + std::to_string(method) + " modes " + std::to_string(modes));
          for (MoxConvKernel* k : ks) moxDeleteConvKernel(k);
        }
    }
  EXPECT_TRUE(reports().empty());
}

// 8-bit rows of every channel count wider than the paired-tap vectors, with
// an even and an odd number of taps, negative weights and saturation.
TEST(Filter, WideEightBitConvolutionMatchesItsWindows) {
  Capture capture;
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S})
    for (int ch = 1; ch <= 4; ++ch) {
      Image src({depth, ch, 0, 5, 61}, 3 * depth + ch);
      moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
      for (int i : {0, 1, 2, 3}) {
        const Kernel& k = kKernels[i];
        MoxConvKernel* kk = moxCreateConvKernel(k.box.nCols, k.box.nRows, k.box.anchorX, k.box.anchorY, k.values.data(), k.shift);
        Image dst({depth, ch, 0, 5, 61}, 4);
        expectEach(src, dst, [&](MoxImage* d) { moxConvolve2D(src, d, &kk, 1, MOX_SUM); },
                   [&](int x, int y, int c) { return convolveAt(src, x, y, c, k); },
                   "depth " + std::to_string(depth) + " channels " + std::to_string(ch) + " kernel " + std::to_string(i));
        moxDeleteConvKernel(kk);
      }
    }
  EXPECT_TRUE(reports().empty());
}

// The row kernel's sums (shifted, not clamped) feed the column kernel: on
// rows narrower and wider than a vector, and with 8-bit weights at the edge
// of what 16-bit sums hold (every sum across 128 x 255, every shifted row
// value times the column weights just below 2^15).
TEST(Filter, SeparableConvolutionRowThenColumn) {
  Capture capture;
  const std::pair<Kernel, Kernel> pairs[] = {
      {{{4, 1, 2, 0}, {1, -4, 6, 3}, 1}, {{1, 3, 0, 0}, {2, 5, -1}, 2}},
      {{{2, 1, 1, 0}, {-60, 68}, 2}, {{1, 2, 0, 1}, {3, -1}, 1}},
  };
  for (const auto& pair : pairs) {
    const Kernel &kx = pair.first, &ky = pair.second;
    MoxConvKernel* x = moxCreateConvKernel(kx.box.nCols, 1, kx.box.anchorX, 0, kx.values.data(), kx.shift);
    MoxConvKernel* y = moxCreateConvKernel(1, ky.box.nRows, 0, ky.box.anchorY, ky.values.data(), ky.shift);
    for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16S, MOX_DEPTH_32S})
      for (int width : {10, 40})
        for (int modes = 0; modes < kModeCases; ++modes) {
          Image src({depth, 2, 1, 9, width}, depth + modes);
          setModes(src, modes);
          for (int which = 0; which < 4; ++which) {
            const bool useX = which & 1, useY = which & 2;
            auto rowAt = [&](int px, int py, int c) { return useX ? convolveAt(src, px, py, c, kx) : at(src, px, py, c); };
            Image dst({depth, 2, 1, 9, width}, 4);
            expectEach(src, dst, [&](MoxImage* d) { moxConvolveSep2D(src, d, useX ? x : nullptr, useY ? y : nullptr); },
                       [&](int px, int py, int c) {
                         if (!useY) return rowAt(px, py, c);
                         ll sum = 0;
                         for (int k = 0; k < ky.box.nRows; ++k)
                           sum += ky.values[std::size_t(k)] * rowAt(px, py + k - ky.box.anchorY, c);
                         return sum >> ky.shift;
                       },
                       "sep " + std::to_string(which) + " depth " + std::to_string(depth) + " width " +
                           std::to_string(width) + " weights " + std::to_string(kx.values[0]));
          }
        }
    moxDeleteConvKernel(x);
    moxDeleteConvKernel(y);
  }
  EXPECT_TRUE(reports().empty());
}

// Tiled sources and destinations, ROIs, channels of interest and in-place
// calls give the bits of the plain call.
TEST(Filter, TiledAndInPlaceEqualPlain) {
  Capture capture;
  static const int weights[] = {1, -2, 3, 4, 5, -6};
  const std::pair<const char*, void (*)(const MoxImage*, MoxImage*)> ops[] = {
      {"conv", [](const MoxImage* s, MoxImage* d) {
         MoxConvKernel k{3, 2, 2, 1, const_cast<int*>(weights), 1}, *p = &k;
         moxConvolve2D(s, d, &p, 1, MOX_SUM);
       }},
      {"sep", [](const MoxImage* s, MoxImage* d) {
         MoxConvKernel x{3, 1, 0, 0, const_cast<int*>(weights), 0}, y{1, 4, 0, 2, const_cast<int*>(weights) + 2, 3};
         moxConvolveSep2D(s, d, &x, &y);
       }},
      {"blur", [](const MoxImage* s, MoxImage* d) { moxBlur(s, d, 5, 3, 1, 2); }},
      {"min", [](const MoxImage* s, MoxImage* d) { moxMinFilter(s, d, 9, 8, 3, 7); }},
      {"max", [](const MoxImage* s, MoxImage* d) { moxMaxFilter(s, d, 2, 3, 0, 1); }},
      {"median", [](const MoxImage* s, MoxImage* d) { moxMedianFilter(s, d, 4, 3, 2, 2); }},
      {"erode", [](const MoxImage* s, MoxImage* d) { moxErode(s, d, 2); }},
      {"dilate", [](const MoxImage* s, MoxImage* d) { moxDilate(s, d, 1); }},
      {"open", [](const MoxImage* s, MoxImage* d) { moxOpen(s, d, 2); }},
      {"close", [](const MoxImage* s, MoxImage* d) { moxClose(s, d, 1); }},
  };
  const int H = 23, W = 29;
  // ROIs (h 0: none) of the source and destination.
  const struct { unsigned depth; int ch, order, srcRoi[5], dstRoi[5]; } layouts[] = {
      {MOX_DEPTH_8U, 3, 0, {}, {}},
      {MOX_DEPTH_16S, 2, 1, {0, 3, 2, 15, 20}, {0, 5, 6, 17, 19}},
      {MOX_DEPTH_8U, 3, 0, {2, 1, 1, 20, 25}, {3, 0, 2, 20, 25}},
      {MOX_DEPTH_32S, 2, 1, {2, 0, 0, 23, 29}, {1, 0, 0, 23, 29}},
      {MOX_DEPTH_1U, 1, 0, {0, 3, 5, 17, 21}, {}},
      // Pieces that straddle the source tiles, one channel and all three.
      {MOX_DEPTH_16U, 1, 0, {0, 3, 2, 15, 20}, {0, 5, 6, 17, 19}},
      {MOX_DEPTH_8S, 3, 0, {0, 1, 4, 19, 22}, {0, 3, 0, 20, 23}},
  };
  for (const auto& [name, op] : ops)
    for (const auto& l : layouts) {
      if (l.depth == MOX_DEPTH_1U && (name == std::string("conv") || name == std::string("sep"))) continue;
      const std::string what = std::string(name) + " depth " + std::to_string(l.depth);
      const Shape sh{l.depth, l.ch, l.order, H, W};
      const int *sr = l.srcRoi[3] ? l.srcRoi : nullptr, *dr = l.dstRoi[3] ? l.dstRoi : nullptr;
      Image src(sh, 9, sr), want(sh, 10, dr), other(sh, 9, sr), back(sh, 9, sr);
      setModes(src, 5);
      op(src, want);
      for (int tile : {8, 16}) {
        Image dst(sh, 10, dr), got(sh, 10, dr);
        Tiled ts(src, tile, tile), td(dst, 16, 8);
        setModes(ts, 5);
        op(ts, td);
        td.gather(got);
        EXPECT_EQ(got.bytes(), want.bytes()) << what << " tiled " << tile;
        EXPECT_EQ(td->tileInfo->tileData, nullptr);
        EXPECT_FALSE(ts.badIndex || td.badIndex);
        // Every source tile asked for is given back, also one read in place.
        EXPECT_EQ(ts->tileInfo->tileData, nullptr);
        EXPECT_EQ(std::count_if(ts.calls.begin(), ts.calls.end(), [](const Tiled::Call& c) { return c.mode == MOX_RELEASE_TILE; }) * 2,
                  static_cast<long>(ts.calls.size())) << what;
      }
      // In place: the source is its own destination (same ROI).
      Tiled tiledSelf(src, 8, 8);
      setModes(tiledSelf, 5);
      op(src, other);
      op(src, src);
      EXPECT_EQ(src.bytes(), other.bytes()) << what << " in place";
      op(tiledSelf, tiledSelf);
      tiledSelf.gather(back);
      EXPECT_EQ(back.bytes(), other.bytes()) << what << " tiled in place";
    }
  EXPECT_TRUE(reports().empty());
}

TEST(Filter, KernelRecordsAreCopiesAndRefuseBadShapes) {
  Capture capture;
  int values[] = {1, 2, 3, 4, 5, 6};
  MoxConvKernel* k = moxCreateConvKernel(3, 2, 2, 1, values, 5);
  ASSERT_NE(k, nullptr);
  values[0] = 99;
  int c = 0, r = 0, ax = 0, ay = 0, s = 0, *v = nullptr;
  moxGetConvKernel(k, &c, &r, &ax, &ay, &v, &s);
  EXPECT_EQ(std::vector<int>({c, r, ax, ay, s}), std::vector<int>({3, 2, 2, 1, 5}));
  EXPECT_EQ(std::vector<int>(v, v + 6), std::vector<int>({1, 2, 3, 4, 5, 6}));
  moxDeleteConvKernel(k);
  moxDeleteConvKernel(nullptr);
  const int bad[][5] = {{0, 1, 0, 0, 0}, {1, -1, 0, 0, 0}, {2, 2, 2, 0, 0}, {2, 2, 0, -1, 0},
                        {2, 2, 0, 0, 32},  {2, 2, 0, 0, -1}, {0x10000, 0x10000, 0, 0, 0}};
  for (const auto& b : bad) EXPECT_EQ(moxCreateConvKernel(b[0], b[1], b[2], b[3], values, b[4]), nullptr);
  EXPECT_EQ(moxCreateConvKernel(1, 1, 0, 0, nullptr, 0), nullptr);
  EXPECT_TRUE(reports().empty());
  moxGetConvKernel(nullptr, &c, &r, &ax, &ay, &v, &s);
  expectReport("moxGetConvKernel", "(kernel == NULL)", 60, "moxfilt");
}

TEST(Filter, EveryCheckReportsItsTextAndLineAndWritesNothing) {
  const int w3[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  MoxConvKernel good{3, 3, 1, 1, const_cast<int*>(w3), 0};
  auto conv = [](std::vector<MoxConvKernel*> ks, int n = -1, int method = MOX_SUM) {
    return [=](MoxImage* s, MoxImage* d) mutable {
      moxConvolve2D(s, d, ks.empty() ? nullptr : ks.data(), n < 0 ? int(ks.size()) : n, method);
    };
  };
  auto sep = [](MoxConvKernel* x, MoxConvKernel* y) { return [=](MoxImage* s, MoxImage* d) { moxConvolveSep2D(s, d, x, y); }; };
  int* w = const_cast<int*>(w3);
  MoxConvKernel bad[] = {{3, 0, 1, 1, w, 0}, {3, 3, 3, 1, w, 0}, {3, 3, 1, -1, w, 0},
                         {3, 3, 1, 1, nullptr, 0}, {3, 3, 1, 1, w, 32}};
  static int huge[9] = {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF};
  MoxConvKernel heavy{3, 3, 1, 1, huge, 0}, row{3, 1, 0, 0, w, 0}, column{1, 3, 0, 0, w, 0};
  std::vector<MoxConvKernel*> many(101, &good);
  const struct Case {
    const char* func; int line; std::function<void(MoxImage*, MoxImage*)> call; const char* text;
    unsigned depth = MOX_DEPTH_8U;
  } cases[] = {
      {"moxConvolve2D", 120, conv({}, 1), "(kernel == NULL)"},
      {"moxConvolve2D", 121, conv({&good}, 0), "(nKernels < 1 || nKernels > 100)"},
      {"moxConvolve2D", 121, conv(many), "(nKernels < 1 || nKernels > 100)"},
      {"moxConvolve2D", 122, conv({&good}, 1, 5), "(combineMethod < MOX_SUM || combineMethod > MOX_MIN)"},
      {"moxConvolve2D", 123, conv({&good}), "(dstImage->depth == MOX_DEPTH_1U)", MOX_DEPTH_1U},
      {"moxConvolve2D", 124, conv({&good, nullptr}), "(kernel[1] == NULL)"},
      {"moxConvolve2D", 125, conv({&bad[0]}), "(kernel[0]->nCols <= 0 || kernel[0]->nRows <= 0)"},
      {"moxConvolve2D", 126, conv({&good, &bad[1]}), "(kernel[1]->anchorX < 0 || kernel[1]->anchorX >= nCols)"},
      {"moxConvolve2D", 127, conv({&bad[2]}), "(kernel[0]->anchorY < 0 || kernel[0]->anchorY >= nRows)"},
      {"moxConvolve2D", 128, conv({&bad[3]}), "(kernel[0]->values == NULL)"},
      {"moxConvolve2D", 129, conv({&bad[4]}), "(kernel[0]->nShiftR < 0 || kernel[0]->nShiftR > 31)"},
      {"moxConvolve2D", 130, conv({&heavy}), "(sum of |kernel[0]->values| * largest pixel > 2^62)", MOX_DEPTH_32S},
      {"moxConvolveSep2D", 221, sep(&bad[1], nullptr), "(xKernel->anchorX < 0 || xKernel->anchorX >= nCols)"},
      {"moxConvolveSep2D", 225, sep(&good, nullptr), "(xKernel->nRows != 1)"},
      {"moxConvolveSep2D", 234, sep(&row, &bad[4]), "(yKernel->nShiftR < 0 || yKernel->nShiftR > 31)"},
      {"moxConvolveSep2D", 235, sep(nullptr, &row), "(yKernel->nCols != 1)"},
      {"moxConvolveSep2D", 236, sep(&row, &column), "(dstImage->depth == MOX_DEPTH_1U)", MOX_DEPTH_1U},
#define F(...) [&](MoxImage* s, MoxImage* d) { (void)s, (void)d; __VA_ARGS__; }
      {"moxBlur", 320, F(moxBlur(s, d, 0, 3, 0, 0)), "(nCols <= 0)"},
      {"moxMinFilter", 421, F(moxMinFilter(s, d, 3, -2, 0, 0)), "(nRows <= 0)"},
      {"moxMaxFilter", 522, F(moxMaxFilter(s, d, 3, 3, 3, 0)), "(anchorX < 0 || anchorX >= nCols)"},
      {"moxMedianFilter", 623, F(moxMedianFilter(s, d, 3, 3, 0, -1)), "(anchorY < 0 || anchorY >= nRows)"},
      {"moxBlur", 300, F(s->align = 3; moxBlur(s, d, 3, 3, 1, 1)), "Image align is invalid"},
      {"moxMedianFilter", 601, F(moxMedianFilter(s, nullptr, 3, 3, 1, 1)), "Image header is null"},
      {"moxMinFilter", 402, F(s->depth = MOX_DEPTH_8S; moxMinFilter(s, d, 3, 3, 1, 1)),
       "(srcImage->depth != dstImage->depth)"},
      {"moxConvolve2D", 104, F(s->roi = moxCreateROI(1, 0, 0, 3, 3); conv({&good})(s, d)), "(nChSrc != nChDst)"},
      // A border mode that is none leaves the window outside the image.
      {"moxBlur", 315, F(moxSetBorderMode(s, 9, MOX_SIDE_ALL, 0); moxBlur(s, d, 3, 3, 1, 1)),
       "(srcImage->borderMode[0] < MOX_BORDER_CONSTANT || srcImage->borderMode[0] > MOX_BORDER_WRAP)"},
#undef F
  };
  Capture capture;
  for (const Case& c : cases) {
    const int ch = c.depth == MOX_DEPTH_1U ? 1 : 2;
    Image s({c.depth, ch, 0, 6, 7}, 1), d({c.depth, ch, 0, 6, 7}, 2);
    const auto before = d.bytes();
    c.call(s, d);
    expectReport(c.func, c.text, c.line, "moxfilt");
    EXPECT_TRUE(reports().empty()) << c.text;
    EXPECT_EQ(d.bytes(), before) << c.text;
  }
  // A window too large for any source block.
  Image s({MOX_DEPTH_8U, 1, 0, 6, 7}, 1), d({MOX_DEPTH_8U, 1, 0, 6, 7}, 2);
  const auto before = d.bytes();
  moxBlur(s, d, 0x7FFFFFFF, 1, 0x7FFFFFFE, 0);
  ASSERT_EQ(reports().size(), 1u);
  EXPECT_EQ(std::make_tuple(reports()[0].status, reports()[0].line, reports()[0].message),
            std::make_tuple(int(MOX_StsOutOfMemory), 316, std::string("Out of memory")));
  EXPECT_EQ(d.bytes(), before);
  // The extrema of such a window see no more than a window of three
  // image widths each way: they run.
  Image cut({MOX_DEPTH_8U, 1, 0, 6, 7}, 2);
  moxMaxFilter(s, d, 0x7FFFFFFF, 1, 0x7FFFFFFE, 0);
  moxMaxFilter(s, cut, 21, 1, 20, 0);
  EXPECT_EQ(d.bytes(), cut.bytes());
  moxErode(s, d, 0x7FFFFFFF);  // as many steps as the image is large: fine
  EXPECT_EQ(reports().size(), 1u);
}

}  // namespace
