// Tables of the transform engine, shared by the engine and its kernels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace mox::fft {

// Largest prime handled by a direct butterfly; longer prime factors go
// through the chirp convolution.
constexpr int kLargestRadix = 61;

// One pass: radix p over L finished sub-transforms, m sequences still apart.
struct Stage {
  int p;
  int L;
  int m;
  std::size_t tw;   // twiddles at tw + q * (p - 1) + (a - 1)
  std::size_t gen;  // the p-point DFT table of a generic radix
};

struct Plan {
  int n = 0;
  int sign = 1;
  std::vector<Stage> stages;
  std::vector<double> twRe, twIm;
  std::vector<double> genCos, genSin;
  // Chirp convolution (m > 0): sub-transforms of length m in both signs.
  int m = 0;
  const Plan* up = nullptr;
  const Plan* down = nullptr;
  std::vector<double> chirpRe, chirpIm, kernRe, kernIm;

  // Complex scratch values per lane that a run needs beside its data.
  std::size_t work() const { return m ? 2 * static_cast<std::size_t>(m) : n; }
};

struct RealPlan {
  int n = 0;
  const Plan* fft = nullptr;       // n / 2 points for even n, n for odd n
  std::vector<double> wRe, wIm;    // exp(sign 2 pi i k / n), k < n / 2
};

struct CosinePlan {
  int n = 0;
  const Plan* fwd = nullptr;       // sign -1
  const Plan* inv = nullptr;       // sign +1
  std::vector<double> c, s;        // cos and sin of pi k / 2n
  std::vector<double> fwdScale;    // orthonormal factor of each output
  std::vector<double> invScale;    // its inverse, with 1/n of the transform
};

// Doubles left between the blocks of a lane batch. The blocks of a length
// that is a power of two would otherwise start on the same cache sets, and
// the passes, which read and write all of them at once, would evict their
// own data.
constexpr std::size_t kBlockPad = 200;

// Doubles of scratch one batch of B lanes needs: the data, the work block
// of the plan and a packed sequence of `packed` values.
inline std::size_t scratchFor(std::size_t points, const Plan& P, std::size_t packed, int B) {
  return (2 * points + 2 * P.work() + packed) * B + 4 * kBlockPad;
}

// The kernels, compiled once for the baseline instruction set and once for
// wider vectors where the processor has them.
struct Kernels {
  // Real sequences along rows (rows of a matrix with the given step) to
  // packed spectra, or back.
  void (*realRows)(const RealPlan&, double* m, int rows, std::ptrdiff_t step, bool inverse,
                   bool narrow, double* scratch);
  // Column 0 and, for an even width, the last column, as real sequences.
  void (*realColumns)(const RealPlan&, double* m, int cols, std::ptrdiff_t step, bool inverse,
                      bool narrow, double* scratch);
  // The column pairs (2k - 1, 2k) as complex sequences.
  void (*complexColumns)(const Plan&, double* m, int cols, std::ptrdiff_t step, bool narrow,
                         double* scratch);
  // count cosine transforms: element e of line j at m[e * es + j * ls].
  void (*cosineLines)(const CosinePlan&, double* m, int count, std::ptrdiff_t es,
                      std::ptrdiff_t ls, bool inverse, double* scratch);
  // n values scaled by `scale`, rounded half away from zero and saturated to
  // [lo, hi] (integers) into 32-bit integers.
  void (*roundRun)(const double* s, int n, double scale, double lo, double hi, std::int32_t* out);
  // One sequence in (r, i); work in (wr, wi); the result pointers returned.
  void (*runOne)(const Plan&, double* r, double* i, double* wr, double* wi, double** outR,
                 double** outI);
};

extern const Kernels kBaselineKernels;
#if defined(__GNUC__) && !defined(__clang__) && (defined(__x86_64__) || defined(__i386__))
#define MOX_FFT_HAVE_WIDE 1
extern const Kernels kWideKernels;
#endif

// The kernels for this processor.
const Kernels& kernels();

}  // namespace mox::fft
