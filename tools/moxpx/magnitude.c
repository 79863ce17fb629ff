/* Log-magnitude pictures of spectra and cosine coefficients. */
#include "magnitude.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

double moxcliLog1p(double m) {
  int e = 0, k;
  double f = frexp(1.0 + m, &e) * 2.0; /* exact: f in [1, 2) */
  double s, s2, term, sum = 0.0;
  --e;
  if (f > 1.4142135623730951) f /= 2.0, ++e;
  /* ln f = 2 atanh(s), s = (f - 1) / (f + 1), |s| < 0.172 */
  s = (f - 1.0) / (f + 1.0), s2 = s * s, term = s;
  for (k = 1; k < 30; k += 2, term *= s2) sum += term / k;
  return e * 0.6931471805599453 + 2.0 * sum;
}

/* Channel c of a picture of 32-bit values. */
typedef struct Plane {
  const char* values;
  long rowStep;
  int channels, c;
} Plane;

static double at(const Plane* p, int x, int y) {
  int v;
  memcpy(&v, p->values + y * p->rowStep + ((long)x * p->channels + p->c) * 4, 4);
  return v;
}

static double norm(double re, double im) { return sqrt(re * re + im * im); }

/* |F(col, v)| of a column packed as a real sequence of `h` values. */
static double packedColumn(const Plane* p, int col, int v, int h) {
  if (v > h / 2) v = h - v;
  if (v == 0) return fabs(at(p, col, 0));
  if (h % 2 == 0 && v == h / 2) return fabs(at(p, col, h - 1));
  return norm(at(p, col, 2 * v - 1), at(p, col, 2 * v));
}

/* |F(u, v)| of a packed two-dimensional spectrum. */
static double packedMagnitude(const Plane* p, int u, int v, int w, int h) {
  if (u > w / 2) { /* the conjugate half */
    u = w - u;
    v = (h - v) % h;
  }
  if (u == 0) return packedColumn(p, 0, v, h);
  if (w % 2 == 0 && u == w / 2) return packedColumn(p, w - 1, v, h);
  return norm(at(p, 2 * u - 1, v), at(p, 2 * u, v));
}

int moxcliLogMagnitude(const void* values, long rowStep, int w, int h, int n, int packed,
                       unsigned char* out) {
  const int alpha = n == 2 || n == 4;
  const size_t count = (size_t)w * h * n;
  double* logs = (double*)calloc(count ? count : 1, sizeof *logs);
  double top = 0.0, bottom = -1.0, span;
  size_t i;
  int c, x, y;
  if (!logs) return -1;
  for (c = 0; c < n; ++c) {
    const Plane p = {(const char*)values, rowStep, n, c};
    if (alpha && c == n - 1) continue;
    for (y = 0; y < h; ++y)
      for (x = 0; x < w; ++x) {
        const double m = packed ? packedMagnitude(&p, (x + w - w / 2) % w, (y + h - h / 2) % h, w, h)
                                : fabs(at(&p, x, y));
        const double l = moxcliLog1p(m);
        logs[((size_t)y * w + x) * n + c] = l;
        if (l > top) top = l;
        if (bottom < 0.0 || l < bottom) bottom = l;
      }
  }
  span = top - bottom;
  for (i = 0; i < count; ++i) {
    const int opaque = alpha && (int)(i % n) == n - 1;
    out[i] = opaque ? 255 : span > 0 ? (unsigned char)((logs[i] - bottom) / span * 255.0 + 0.5) : 0;
  }
  free(logs);
  return 0;
}
