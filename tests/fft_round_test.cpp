#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "transform/fftplan.h"

namespace {

// Round half away from zero, then saturate: the rule every kernel table
// must follow, written the slow way.
std::int32_t expected(double v, double scale, double lo, double hi) {
  const double x = v * scale;
  const double exact = x < 0 ? -std::round(-x) : std::round(x);
  return static_cast<std::int32_t>(exact < lo ? lo : exact > hi ? hi : exact);
}

TEST(FftRounding, EveryKernelTableRoundsAndSaturatesAlike) {
  const double below = std::nextafter(0.5, 0.0);
  const std::vector<double> values = {
      0.0,   -0.0, 0.5,   -0.5,  1.5,    -1.5,    2.5,   -2.5,   below, -below,
      0.49,  0.51, 254.5, 255.5, -128.5, -129.5,  1e12,  -1e12,  3e9,   -3e9,
      2147483646.5, -2147483647.5, 7.25, -7.75, 1e-300, 65535.5, 32767.5, -32768.5, 100.0};
  const struct {
    double lo, hi;
  } ranges[] = {{0, 255}, {-128, 127}, {0, 65535}, {-32768, 32767}, {INT32_MIN, INT32_MAX}};
  for (const auto* k : {&mox::fft::kBaselineKernels, &mox::fft::kernels()})
    for (const auto& r : ranges)
      for (double scale : {1.0, 0.25, -3.0}) {
        // Every length up to the full list, so that the vector bodies and
        // the scalar tails both see every value.
        for (std::size_t n = 1; n <= values.size(); ++n) {
          std::vector<std::int32_t> out(n + 1, 12345);
          k->roundRun(values.data(), static_cast<int>(n), scale, r.lo, r.hi, out.data());
          for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(out[i], expected(values[i], scale, r.lo, r.hi))
                << "value " << values[i] << " scale " << scale << " range " << r.lo << ".."
                << r.hi << " n " << n;
          EXPECT_EQ(out[n], 12345) << "wrote past the run";
        }
      }
}

}  // namespace
