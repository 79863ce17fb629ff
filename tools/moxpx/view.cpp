// Log-magnitude pictures of spectra and cosine coefficients.
#include <cmath>
#include <cstring>
#include <vector>

#include "run.h"
#include "view.h"

namespace moxcli {

double log1pExact(double m) {
  int e = 0;
  double f = std::frexp(1.0 + m, &e) * 2.0;  // exact: f in [1, 2)
  --e;
  if (f > 1.4142135623730951) f /= 2.0, ++e;
  // ln f = 2 atanh(s), s = (f - 1) / (f + 1), |s| < 0.172
  const double s = (f - 1.0) / (f + 1.0), s2 = s * s;
  double term = s, sum = 0.0;
  for (int k = 1; k < 30; k += 2, term *= s2) sum += term / k;
  return e * 0.6931471805599453 + 2.0 * sum;
}

namespace {

// Reads channel c of a 32-bit picture.
struct Plane {
  const Picture& p;
  int c;
  double at(int x, int y) const {
    std::int32_t v;
    std::memcpy(&v, &p.pixels[(std::size_t(y) * p.width + x) * p.channels * 4 + std::size_t(c) * 4], 4);
    return v;
  }
};

double norm(double re, double im) { return std::sqrt(re * re + im * im); }

// |F(col, v)| of a column packed as a real sequence of `h` values.
double packedColumn(const Plane& pl, int col, int v, int h) {
  if (v > h / 2) v = h - v;
  if (v == 0) return std::fabs(pl.at(col, 0));
  if (h % 2 == 0 && v == h / 2) return std::fabs(pl.at(col, h - 1));
  return norm(pl.at(col, 2 * v - 1), pl.at(col, 2 * v));
}

// |F(u, v)| of a packed two-dimensional spectrum.
double packedMagnitude(const Plane& pl, int u, int v, int w, int h) {
  if (u > w / 2) {  // the conjugate half
    u = w - u;
    v = (h - v) % h;
  }
  if (u == 0) return packedColumn(pl, 0, v, h);
  if (w % 2 == 0 && u == w / 2) return packedColumn(pl, w - 1, v, h);
  return norm(pl.at(2 * u - 1, v), pl.at(2 * u, v));
}

}  // namespace

Picture logMagnitude(const Picture& in, bool packed) {
  const int w = in.width, h = in.height, n = in.channels;
  const bool alpha = n == 2 || n == 4;
  std::vector<double> logs(std::size_t(w) * h * n, 0.0);
  double top = 0.0, bottom = -1.0;
  for (int c = 0; c < n; ++c) {
    if (alpha && c == n - 1) continue;
    const Plane pl{in, c};
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        double m;
        if (packed)
          m = packedMagnitude(pl, (x + w - w / 2) % w, (y + h - h / 2) % h, w, h);
        else
          m = std::fabs(pl.at(x, y));
        const double l = log1pExact(m);
        logs[(std::size_t(y) * w + x) * n + c] = l;
        if (l > top) top = l;
        if (bottom < 0.0 || l < bottom) bottom = l;
      }
  }
  Picture out;
  out.width = w, out.height = h, out.channels = n, out.depth = MOX_DEPTH_8U;
  out.allocate();
  for (std::size_t i = 0; i < logs.size(); ++i) {
    const bool opaque = alpha && int(i % n) == n - 1;
    const double span = top - bottom;
    out.pixels[i] = opaque ? 255
                    : span > 0 ? static_cast<unsigned char>((logs[i] - bottom) / span * 255.0 + 0.5)
                               : 0;
  }
  return out;
}

Picture rawView(const Picture& values, const std::string& path) {
  if (!holdsExactly(path, values.depth))
    throw UsageError(std::string("--raw 1 writes ") + depthName(values.depth) +
                     " values, which " + path + " cannot hold exactly: write a .npy file");
  return values;
}

}  // namespace moxcli
