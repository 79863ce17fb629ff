// The transform engine: self-sorting mixed-radix passes over batches of
// sequences, a chirp convolution for lengths with a large prime factor, and
// the real-input and cosine transforms built on the complex one.
#include "fftengine.h"

#include "fftplan.h"
#include "frame/frame.h"
#include "frame/trig.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>

namespace mox::fft {

namespace {

// exp(sign * 2 pi i k / n). The turn is cut into eighths with integers and
// the rest computed by sinCosSmall, not by the C library, whose sin and cos
// differ between processors and systems: every build and machine gets the
// same tables and so the same transforms.
void unitRoot(long long k, long long n, int sign, double* re, double* im) {
  k %= n;
  if (k < 0) k += n;
  const long long eighths = 8 * k, octant = eighths / n, r = eighths - octant * n;
  constexpr double kQuarterPi = 0.78539816339744830962;
  // Even octants start at octant * pi/4 and go on by phi; odd ones end at
  // (octant + 1) * pi/4 and are reached from there going back by theta.
  const bool odd = octant % 2 != 0;
  const double x = kQuarterPi * static_cast<double>(odd ? n - r : r) / static_cast<double>(n);
  double s, c;
  sinCosSmall(x, &s, &c);
  double cosA = 0, sinA = 0;
  switch (octant) {
    case 0: cosA = c, sinA = s; break;    // phi
    case 1: cosA = s, sinA = c; break;    // pi/2 - theta
    case 2: cosA = -s, sinA = c; break;   // pi/2 + phi
    case 3: cosA = -c, sinA = s; break;   // pi - theta
    case 4: cosA = -c, sinA = -s; break;  // pi + phi
    case 5: cosA = -s, sinA = -c; break;  // 3pi/2 - theta
    case 6: cosA = s, sinA = -c; break;   // 3pi/2 + phi
    default: cosA = c, sinA = -s; break;  // 2pi - theta
  }
  *re = cosA;
  *im = sign * sinA;
}

}  // namespace

// ------------------------------------------------------------------ plans

namespace {
std::atomic<int> liveCount{0};
}  // namespace

Engine::Engine() { ++liveCount; }
Engine::~Engine() { --liveCount; }

void Engine::release() {
  plans_.clear();
  plans_.shrink_to_fit();
  realPlans_.clear();
  realPlans_.shrink_to_fit();
  cosinePlans_.clear();
  cosinePlans_.shrink_to_fit();
  std::vector<double>().swap(scratch_);
  std::vector<double>().swap(matrix_);
}

double* Engine::matrix(std::size_t rows, std::size_t cols) {
  if (cols && rows > matrix_.max_size() / cols) throw std::bad_alloc();
  if (matrix_.size() < rows * cols) {
    std::vector<double>().swap(matrix_);
    matrix_.resize(rows * cols);
  }
  return matrix_.data();
}

double* Engine::scratch(std::size_t count) {
  if (scratch_.size() < count) {
    std::vector<double>().swap(scratch_);
    scratch_.resize(count);
  }
  return scratch_.data();
}

const Plan& Engine::plan(int n, int sign) {
  for (const auto& p : plans_)
    if (p->n == n && p->sign == sign) return *p;
  auto P = std::make_unique<Plan>();
  P->n = n;
  P->sign = sign;
  std::vector<int> radices;
  int rest = n;
  // Powers of two in passes of 8, with one or two passes of 4 for the rest
  // (a pass of 2 only for the factor 2 alone): fewer sweeps over the data.
  int twos = 0;
  while (rest % 2 == 0) ++twos, rest /= 2;
  int eights = twos / 3, fours = 0;
  if (twos % 3 == 2) fours = 1;
  else if (twos % 3 == 1 && eights > 0) --eights, fours = 2;
  for (int i = 0; i < eights; ++i) radices.push_back(8);
  for (int i = 0; i < fours; ++i) radices.push_back(4);
  if (twos == 1) radices.push_back(2);
  for (int p = 3; rest > 1 && p <= kLargestRadix; p += 2)
    while (rest % p == 0) radices.push_back(p), rest /= p;
  if (rest > 1) {
    // A prime factor too large for a direct butterfly: chirp convolution of
    // a power-of-two length of at least 2n - 1.
    long long wide = 1;
    while (wide < 2LL * n - 1) wide *= 2;
    if (wide > (1LL << 30)) throw std::bad_alloc();  // beyond any block we could hold
    const int m = static_cast<int>(wide);
    P->m = m;
    P->up = &plan(m, 1);
    P->down = &plan(m, -1);
    P->chirpRe.resize(n);
    P->chirpIm.resize(n);
    for (long long t = 0; t < n; ++t)  // exp(sign pi i t^2 / n)
      unitRoot(t * t % (2LL * n), 2LL * n, sign, &P->chirpRe[t], &P->chirpIm[t]);
    std::vector<double> br(static_cast<std::size_t>(m) * 1, 0.0), bi(br);
    for (int t = 0; t < n; ++t) {
      br[t] = P->chirpRe[t];
      bi[t] = -P->chirpIm[t];
      if (t) br[m - t] = br[t], bi[m - t] = bi[t];
    }
    std::vector<double> wr(2 * static_cast<std::size_t>(m)), wi(wr.size());
    double *Kr, *Ki;
    kernels().runOne(*P->up, br.data(), bi.data(), wr.data(), wi.data(), &Kr, &Ki);
    P->kernRe.assign(Kr, Kr + m);
    P->kernIm.assign(Ki, Ki + m);
    for (int k = 0; k < m; ++k) P->kernRe[k] /= m, P->kernIm[k] /= m;
  } else {
    long long L = 1;
    for (int p : radices) {
      Stage s{p, static_cast<int>(L), static_cast<int>(n / (L * p)), P->twRe.size(), 0};
      for (long long q = 0; q < L; ++q)
        for (int a = 1; a < p; ++a) {
          double re, im;
          unitRoot(q * a, L * p, sign, &re, &im);
          P->twRe.push_back(re);
          P->twIm.push_back(im);
        }
      if (p % 2 && p > 5) {
        s.gen = P->genCos.size();
        for (int j = 0; j < p; ++j) {
          double re, im;
          unitRoot(j, p, sign, &re, &im);
          P->genCos.push_back(re);
          P->genSin.push_back(im);
        }
      }
      P->stages.push_back(s);
      L *= p;
    }
  }
  plans_.push_back(std::move(P));
  return *plans_.back();
}

const RealPlan& Engine::realPlan(int n, int sign) {
  for (const auto& r : realPlans_)
    if (r->n == n && r->fft->sign == sign) return *r;
  auto R = std::make_unique<RealPlan>();
  R->n = n;
  R->fft = &plan(n % 2 ? n : n / 2, sign);
  if (n % 2 == 0) {
    R->wRe.resize(n / 2);
    R->wIm.resize(n / 2);
    for (int k = 0; k < n / 2; ++k) unitRoot(k, n, sign, &R->wRe[k], &R->wIm[k]);
  }
  realPlans_.push_back(std::move(R));
  return *realPlans_.back();
}

const CosinePlan& Engine::cosinePlan(int n) {
  for (const auto& c : cosinePlans_)
    if (c->n == n) return *c;
  auto C = std::make_unique<CosinePlan>();
  C->n = n;
  C->fwd = &plan(n, -1);
  C->inv = &plan(n, 1);
  C->c.resize(n);
  C->s.resize(n);
  C->fwdScale.resize(n);
  C->invScale.resize(n);
  for (int k = 0; k < n; ++k) {
    unitRoot(k, 4LL * n, 1, &C->c[k], &C->s[k]);
    const double f = std::sqrt((k ? 2.0 : 1.0) / n);
    C->fwdScale[k] = f;
    C->invScale[k] = 1.0 / (f * n);
  }
  cosinePlans_.push_back(std::move(C));
  return *cosinePlans_.back();
}

// ------------------------------------------------------------------ drivers

// Rows per piece of the row pass: whole batches, small enough to stay in the
// first-level cache between their move and their transform.
constexpr int kRowPiece = 8;

void Engine::rowPass(double* m, int rows, int cols, std::ptrdiff_t step, int sign, bool inverse,
                     bool narrow, Stream& io) {
  if (cols < 2) {
    if (inverse) io.store(0, 0, cols, rows);
    else io.load(0, 0, cols, rows);
    return;
  }
  const RealPlan& R = realPlan(cols, sign);
  double* s = scratch(scratchFor(R.fft->n, *R.fft, cols, kLanes));
  for (int y = 0; y < rows; y += kRowPiece) {
    const int h = std::min(kRowPiece, rows - y);
    if (!inverse) io.load(0, y, cols, h);
    kernels().realRows(R, m + y * step, h, step, inverse, narrow, s);
    if (inverse) io.store(0, y, cols, h);
  }
}

void Engine::columnPass(double* m, int rows, int cols, std::ptrdiff_t step, int sign,
                        bool inverse, bool narrow) {
  if (rows < 2) return;
  const RealPlan& R = realPlan(rows, sign);
  const Plan& P = plan(rows, sign);
  double* s = scratch(
      std::max(scratchFor(R.fft->n, *R.fft, rows, kLanes), scratchFor(rows, P, 0, kColumnLanes)));
  kernels().realColumns(R, m, cols, step, inverse, narrow, s);
  kernels().complexColumns(P, m, cols, step, narrow, s);
}

void Engine::realToPacked(double* m, int rows, int cols, std::ptrdiff_t step, int sign,
                          bool narrow, Stream& io) {
  rowPass(m, rows, cols, step, sign, false, narrow, io);
  columnPass(m, rows, cols, step, sign, false, narrow);
  io.store(0, 0, cols, rows);
}

void Engine::packedToReal(double* m, int rows, int cols, std::ptrdiff_t step, int sign,
                          bool narrow, Stream& io) {
  io.load(0, 0, cols, rows);
  columnPass(m, rows, cols, step, sign, true, narrow);
  rowPass(m, rows, cols, step, sign, true, narrow, io);
}

void Engine::cosine2D(double* m, int rows, int cols, std::ptrdiff_t step, bool inverse) {
  const Kernels& k = kernels();
  if (cols > 1) {
    const CosinePlan& C = cosinePlan(cols);
    double* s = scratch(scratchFor(cols, inverse ? *C.inv : *C.fwd, cols, kLanes));
    k.cosineLines(C, m, rows, 1, step, inverse, s);
  }
  if (rows > 1) {
    const CosinePlan& C = cosinePlan(rows);
    double* s = scratch(scratchFor(rows, inverse ? *C.inv : *C.fwd, rows, kLanes));
    k.cosineLines(C, m, cols, step, 1, inverse, s);
  }
}

const Kernels& kernels() {
#if defined(MOX_FFT_HAVE_WIDE)
  if (wideVectors()) return kWideKernels;
#endif
  return kBaselineKernels;
}

namespace {

void dropEngine(void* engine) { delete static_cast<Engine*>(engine); }

// Each thread's engines are records the platform layer releases when the
// thread ends. (Engines kept in thread_local objects crashed on Windows,
// whose runtimes may free a thread's thread_local storage before they run
// the destructors of the objects in it.)
Engine& threadEngine(platform::ThreadRecord which) {
  if (platform::ThreadRecords* r = platform::threadRecords()) {
    if (!r->record[which]) {
      r->record[which] = new Engine;
      r->release[which] = dropEngine;
    }
    return *static_cast<Engine*>(r->record[which]);
  }
  // A thread the library was never told of keeps its engines to the end.
  thread_local Engine* unkept[platform::kThreadRecords] = {};
  if (!unkept[which]) unkept[which] = new Engine;
  return *unkept[which];
}

}  // namespace

int liveEngines() { return liveCount.load(); }

Engine& fourierEngine() { return threadEngine(platform::kFourierRecord); }

Engine& cosineEngine() { return threadEngine(platform::kCosineRecord); }

}  // namespace mox::fft
