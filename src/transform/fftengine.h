// The transform engine behind the FFT and DCT operations: complex transforms
// of any length in double precision (mixed radix 2, 3, 4, 5, 8 and small primes,
// a chirp convolution for lengths with a large prime factor), run on several
// sequences at once, and the real-input transforms built on them.
//
// Sequences are handled in "lanes": a batch of a few sequences is
// gathered from a matrix into split real/imaginary buffers laid out element
// by element ([n][lanes]), transformed together, and scattered back. Every
// lane runs exactly the same arithmetic whatever the batch width, so the
// one-sequence-at-a-time schedule (one busy lane per batch) gives
// bit-identical results.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace mox::fft {

// Widest batch of the general schedule.
constexpr int kLanes = 8;
// The batch of the column pairs: four long columns stay in the second-level
// cache while their passes run.
constexpr int kColumnLanes = 4;

struct Plan;
struct RealPlan;
struct CosinePlan;

// Moves a block of the work matrix between it and the images: load fills
// rows [y, y + h) x columns [x, x + w) of the matrix before the transform
// reads them, store takes them once they are final. The transforms call
// these in pieces so that each piece moves while it is still in the cache.
class Stream {
 public:
  virtual void load(int x, int y, int w, int h) = 0;
  virtual void store(int x, int y, int w, int h) = 0;

 protected:
  ~Stream() = default;
};

// The scratch and tables of one thread. Building tables may throw
// std::bad_alloc (or std::length_error, past what a vector holds on 32-bit
// builds); the callers catch both at their boundary.
class Engine {
 public:
  Engine();
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Drops every table and scratch block.
  void release();

  // A matrix of rows x cols doubles with the given row step. Scratch owned by
  // the engine, kept with the tables.
  double* matrix(std::size_t rows, std::size_t cols);

  // Real rows x cols matrix m (row step `step`) into its packed spectrum, in
  // place: every row packed, then column 0 (and the last column for an even
  // width) as real sequences and the other column pairs as complex
  // sequences. sign is the exponent's sign. narrow runs one sequence at a time.
  // io loads the input and stores the result.
  void realToPacked(double* m, int rows, int cols, std::ptrdiff_t step, int sign, bool narrow,
                    Stream& io);
  // The reverse: a packed spectrum into real samples (no scaling).
  void packedToReal(double* m, int rows, int cols, std::ptrdiff_t step, int sign, bool narrow,
                    Stream& io);

  // Orthonormal two-dimensional DCT-II (forward) or its inverse, in place.
  void cosine2D(double* m, int rows, int cols, std::ptrdiff_t step, bool inverse);

 private:
  const Plan& plan(int n, int sign);
  const RealPlan& realPlan(int n, int sign);
  const CosinePlan& cosinePlan(int n);
  double* scratch(std::size_t count);
  // The row transforms, and the column transforms, of a packed spectrum.
  // Rows are loaded just before their forward pass, or stored just after
  // their inverse one.
  void rowPass(double* m, int rows, int cols, std::ptrdiff_t step, int sign, bool inverse,
               bool narrow, Stream& io);
  void columnPass(double* m, int rows, int cols, std::ptrdiff_t step, int sign, bool inverse,
                  bool narrow);

  std::vector<std::unique_ptr<Plan>> plans_;
  std::vector<std::unique_ptr<RealPlan>> realPlans_;
  std::vector<std::unique_ptr<CosinePlan>> cosinePlans_;
  std::vector<double> scratch_;
  std::vector<double> matrix_;
};

// The calling thread's engines (one for the Fourier operations, one for the
// cosine transform, so that releasing one leaves the other's tables).
Engine& fourierEngine();
Engine& cosineEngine();
// Engines in existence, for the tests.
int liveEngines();

}  // namespace mox::fft
