// libvips as a peer of the geometry benches: the benchmark's images wrapped
// without a copy, and a pipeline's result written straight into the
// destination's bytes. libvips evaluates on worker threads of its own (one,
// as set here), so its entries are timed by the wall clock.
#pragma once

#ifdef MOXPX_HAVE_VIPS
#include <vips/vips.h>

#include "bench_images.h"

namespace moxbench {

// Starts libvips once for the whole program: one worker, no cache of
// results (every call computes anew). False when it cannot start.
inline bool vipsReady() {
  static const bool ready = [] {
    if (VIPS_INIT("moxpx_bench")) return false;
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    return true;
  }();
  return ready;
}

// An 8-bit image over the bytes of a plain image (1 band: black and white,
// 3 bands: colour, so that nothing converts its colours).
inline VipsImage* vipsWrap(const PlainImage& im) {
  const Shape& s = im.shape();
  VipsImage* v = vips_image_new_from_memory(im.data(), im.bytes(), s.width, s.height, s.channels,
                                            VIPS_FORMAT_UCHAR);
  if (v) v->Type = s.channels == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
  return v;
}

// Writes `out` (released here) into the bytes of d; false when it has not
// d's size, bands and format or the write fails.
inline bool vipsWriteInto(VipsImage* out, PlainImage& d) {
  if (!out) return false;
  const Shape& s = d.shape();
  bool ok = out->Xsize == s.width && out->Ysize == s.height && out->Bands == s.channels &&
            out->BandFmt == VIPS_FORMAT_UCHAR;
  if (ok) {
    VipsImage* target = vips_image_new_from_memory(d.data(), d.bytes(), s.width, s.height,
                                                   s.channels, VIPS_FORMAT_UCHAR);
    ok = target && vips_image_write(out, target) == 0;
    if (target) g_object_unref(target);
  }
  g_object_unref(out);
  return ok;
}

}  // namespace moxbench
#endif
