// Mirroring and rotation beside a copy of the same bytes (the memory floor of
// a mirror) and, when installed, OpenCV's flip, warpAffine (inverse map, the
// same interpolation, constant 0 outside) and rotate. Names:
// BM_<peer>_<Op>/<case>; Op is Mirror0, Mirror1, MirrorBoth, Rotate3000NN,
// Rotate3000Linear, Rotate3000Cubic or Rotate9000.
//
// Mirrors are checked against the peer's flip once before they are timed;
// rotations only against a failure report (the peer samples differently).
// libvips, where installed, runs vips_flip, vips_rot (the half turn for both
// axes) and vips_affine with the matching interpolator, timed by the wall
// clock (see vips_peer.h).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "bench_images.h"
#include "bench_register.h"
#include "vips_peer.h"

namespace {

using namespace moxbench;

struct Op {
  const char* name;
  int flipAxis;  // mirrors: 0, 1, -1; rotations: unused
  int angle;     // rotations: the angle; mirrors: 0
  int interpolate;
};

const Op kOps[] = {
    {"Mirror0", 0, 0, 0},
    {"Mirror1", 1, 0, 0},
    {"MirrorBoth", -1, 0, 0},
    {"Rotate3000NN", 0, 3000, MOX_INTER_NN},
    {"Rotate3000Linear", 0, 3000, MOX_INTER_LINEAR},
    {"Rotate3000Cubic", 0, 3000, MOX_INTER_CUBIC},
    {"Rotate9000", 0, 9000, MOX_INTER_NN},
};

bool isMirror(const Op& op) { return op.angle == 0; }

struct Workspace {
  explicit Workspace(const Shape& s) : shape(s), a(s), d(s) {
    if (!ok()) return;
    fillRandom(a.data(), a.bytes(), 0x1234567u);
    std::memset(d.data(), 0, d.bytes());
  }
  bool ok() const { return a.ok() && d.ok(); }
  Shape shape;
  PlainImage a, d;
};

Workspace* workspace(const Shape& s) {
  static std::unique_ptr<Workspace> current;
  if (!current || !(current->shape == s)) {
    current.reset();
    current = std::make_unique<Workspace>(s);
  }
  return current->ok() ? current.get() : nullptr;
}

void runOp(const Op& op, const MoxImage* a, MoxImage* d) {
  if (isMirror(op))
    moxMirror(a, d, op.flipAxis);
  else
    moxRotate(a, d, op.angle, a->width / 2, a->height / 2, op.interpolate, nullptr);
}

void setBytes(benchmark::State& state, const Shape& s) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(s.bytes()) * 2);
}

#ifdef MOXPX_HAVE_OPENCV
cv::Mat wrap(const PlainImage& image) {
  const Shape& s = image.shape();
  const int depth = s.depth == MOX_DEPTH_16U ? CV_16U : CV_8U;
  return cv::Mat(s.height, s.width, CV_MAKETYPE(depth, s.channels), image.data(), s.rowBytes());
}

int cvInterpolation(int interpolate) {
  return interpolate == MOX_INTER_NN       ? cv::INTER_NEAREST
         : interpolate == MOX_INTER_LINEAR ? cv::INTER_LINEAR
                                           : cv::INTER_CUBIC;
}

// The destination-to-source map of the rotation, as the library builds it.
cv::Mat inverseMap(const Op& op, const Shape& s) {
  const double rad = op.angle * 0.01 * (1.0 / 180.0) * CV_PI;
  const double c = std::cos(rad), sn = std::sin(rad), cx = s.width / 2, cy = s.height / 2;
  return (cv::Mat_<double>(2, 3) << c, -sn, cx - c * cx + sn * cy, sn, c, cy - sn * cx - c * cy);
}

void runPeer(const Op& op, const cv::Mat& a, cv::Mat& d, const cv::Mat& map) {
  if (isMirror(op))
    cv::flip(a, d, op.flipAxis);
  else if (op.angle == 9000)
    cv::rotate(a, d, cv::ROTATE_90_COUNTERCLOCKWISE);
  else
    cv::warpAffine(a, d, map, d.size(), cvInterpolation(op.interpolate) | cv::WARP_INVERSE_MAP,
                   cv::BORDER_CONSTANT, cv::Scalar::all(0));
}

void runOpenCv(benchmark::State& state, const Op& op, Shape s) {
  Workspace* w = workspace(s);
  if (!w) return state.SkipWithError("out of memory for the images");
  const cv::Mat a = wrap(w->a), map = inverseMap(op, s);
  cv::Mat d = wrap(w->d);
  for (auto _ : state) {
    runPeer(op, a, d, map);
    benchmark::ClobberMemory();
  }
  setBytes(state, s);
}
#endif

#ifdef MOXPX_HAVE_VIPS
// The peer's result of one call, written into d; false when it fails.
bool vipsRun(const Op& op, VipsImage* a, PlainImage& d) {
  const Shape& s = d.shape();
  VipsImage* out = nullptr;
  int failed = 0;
  if (op.angle == 0 && op.flipAxis == -1) {
    failed = vips_rot(a, &out, VIPS_ANGLE_D180, nullptr);
  } else if (op.angle == 0) {
    failed = vips_flip(a, &out, op.flipAxis == 0 ? VIPS_DIRECTION_VERTICAL : VIPS_DIRECTION_HORIZONTAL,
                       nullptr);
  } else if (op.angle == 9000) {
    failed = vips_rot(a, &out, VIPS_ANGLE_D270, nullptr);
  } else {
    // The forward map of the rotation about the centre (the inverse of the
    // library's destination-to-source map), onto the destination's area.
    const double rad = op.angle * 0.01 * (1.0 / 180.0) * 3.14159265358979323846;
    const double c = std::cos(rad), sn = std::sin(rad), cx = s.width / 2, cy = s.height / 2;
    const char* kind = op.interpolate == MOX_INTER_NN       ? "nearest"
                       : op.interpolate == MOX_INTER_LINEAR ? "bilinear"
                                                            : "bicubic";
    VipsInterpolate* interpolate = vips_interpolate_new(kind);
    VipsArrayInt* area = vips_array_int_newv(4, 0, 0, s.width, s.height);
    failed = !interpolate || !area ||
             vips_affine(a, &out, c, sn, -sn, c, "interpolate", interpolate, "oarea", area, "odx",
                         cx - c * cx - sn * cy, "ody", cy + sn * cx - c * cy, nullptr);
    if (area) vips_area_unref(VIPS_AREA(area));
    if (interpolate) g_object_unref(interpolate);
  }
  if (failed) {
    if (out) g_object_unref(out);
    return false;
  }
  return vipsWriteInto(out, d);
}

void runVips(benchmark::State& state, const Op& op, Shape s) {
  Workspace* w = workspace(s);
  if (!w) return state.SkipWithError("out of memory for the images");
  VipsImage* a = vipsReady() && s.rowBytes() == std::size_t(s.width) * s.channels ? vipsWrap(w->a) : nullptr;
  if (!a || !vipsRun(op, a, w->d)) {
    if (a) g_object_unref(a);
    return state.SkipWithError("libvips failed");
  }
  for (auto _ : state) {
    vipsRun(op, a, w->d);
    benchmark::ClobberMemory();
  }
  g_object_unref(a);
  setBytes(state, s);
}
#endif

void runMoxpx(benchmark::State& state, const Op& op, Shape s) {
  Workspace* w = workspace(s);
  if (!w) return state.SkipWithError("out of memory for the images");
  quietErrors();
  runOp(op, w->a.get(), w->d.get());
  if (moxGetErrStatus() != MOX_StsNoError) return state.SkipWithError(lastReport().c_str());
#ifdef MOXPX_HAVE_OPENCV
  if (isMirror(op)) {
    cv::Mat want;
    cv::flip(wrap(w->a), want, op.flipAxis);
    if (std::memcmp(want.data, w->d.data(), s.bytes()) != 0)
      return state.SkipWithError("the mirror differs from the peer's flip");
  }
#endif
  for (auto _ : state) {
    runOp(op, w->a.get(), w->d.get());
    benchmark::ClobberMemory();
  }
  setBytes(state, s);
}

void runFloor(benchmark::State& state, const Op&, Shape s) {
  Workspace* w = workspace(s);
  if (!w) return state.SkipWithError("out of memory for the images");
  for (auto _ : state) {
    std::memcpy(w->d.data(), w->a.data(), s.bytes());
    benchmark::ClobberMemory();
  }
  setBytes(state, s);
}

int registerAll() {
#ifdef MOXPX_HAVE_OPENCV
  cv::setNumThreads(1);
#endif
  const Shape shapes[] = {
      {MOX_DEPTH_8U, 1024, 1024, 1},
      {MOX_DEPTH_8U, 1024, 1024, 3},
      {MOX_DEPTH_8U, 2048, 2048, 1},
      {MOX_DEPTH_8U, 2048, 2048, 3},
  };
  // Mirrors also of four-byte and two-byte pixels.
  const Shape mirrorShapes[] = {{MOX_DEPTH_8U, 1024, 1024, 4}, {MOX_DEPTH_16U, 1024, 1024, 1}};
  auto mirrorsOnly = [&](const Shape& s, const Op& op) {
    return isMirror(op) || std::find(std::begin(shapes), std::end(shapes), s) != std::end(shapes);
  };
  std::vector<Shape> all(std::begin(shapes), std::end(shapes));
  all.insert(all.end(), std::begin(mirrorShapes), std::end(mirrorShapes));
  for (const Shape& s : all)
    for (const Op& op : kOps) {
      if (!mirrorsOnly(s, op)) continue;
      std::string entry = op.name;
      entry.append("/").append(caseName(s));
      auto add = [&](const char* peer, auto run) { addEntry(peer, entry, "", run, op, s); };
      add("moxpx", runMoxpx);
      if (isMirror(op)) add("floor", runFloor);
#ifdef MOXPX_HAVE_OPENCV
      add("opencv", runOpenCv);
#endif
#ifdef MOXPX_HAVE_VIPS
      // The libvips peer wraps 8-bit images only.
      if (s.depth == MOX_DEPTH_8U) addEntry("vips", entry, "", runVips, op, s)->UseRealTime();
#endif
    }
  return 0;
}

const int registered = registerAll();

}  // namespace
