// sin and cos in plain double arithmetic. The C library's differ between
// processors and systems; these give the same bits on every build.
#pragma once

namespace mox {

// sin and cos of r in [-pi/4, pi/4] by their Taylor series, whose first
// omitted terms are below 1e-18 there.
inline void sinCosSmall(double r, double* sn, double* cs) {
  const double r2 = r * r;
  // 1/n! for the terms of each series, highest first.
  static constexpr double kSin[] = {1.0 / 355687428096000.0, -1.0 / 1307674368000.0,
                                    1.0 / 6227020800.0,      -1.0 / 39916800.0,
                                    1.0 / 362880.0,          -1.0 / 5040.0,
                                    1.0 / 120.0,             -1.0 / 6.0};
  static constexpr double kCos[] = {1.0 / 20922789888000.0, -1.0 / 87178291200.0,
                                    1.0 / 479001600.0,      -1.0 / 3628800.0,
                                    1.0 / 40320.0,          -1.0 / 720.0,
                                    1.0 / 24.0,             -0.5};
  double ps = 0, pc = 0;
  for (double k : kSin) ps = ps * r2 + k;
  for (double k : kCos) pc = pc * r2 + k;
  *sn = r + r * (r2 * ps);
  *cs = 1.0 + r2 * pc;
}

}  // namespace mox
