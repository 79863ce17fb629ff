// The check chain and walk shared by the point operations.
#include "image/pointop.h"

#include <cstdio>

namespace mox {

bool checkImages(const OpTable& t, const MoxImage* const* images) {
  for (int i = 0; i < t.n; ++i) {
    const Site at{t.func, t.file, t.header[i]};
    if (badHeader(images[i], at) || badLayout(images[i], t.names[i], at)) return false;
  }
  const int last = t.n - 1;
  const MoxImage* d = images[last];
  char message[128];
  for (int i = 0; i < last; ++i) {
    if (images[i]->depth == d->depth) continue;
    std::snprintf(message, sizeof message, "(%s->depth != %s->depth)", t.names[i], t.names[last]);
    report(Site{t.func, t.file, t.depth[i]}, message);
    return false;
  }
  for (int i = 0; i < last; ++i) {
    if (images[i]->dataOrder == d->dataOrder) continue;
    std::snprintf(message, sizeof message, "(%s->dataOrder != %s->dataOrder)", t.names[i],
                  t.names[last]);
    report(Site{t.func, t.file, t.order[i]}, message);
    return false;
  }
  for (int i = 0; i < last; ++i) {
    if (workChannels(images[i]) == workChannels(d)) continue;
    std::snprintf(message, sizeof message, "(%s != %s)", t.chNames[i], t.chNames[last]);
    report(Site{t.func, t.file, t.channels[i]}, message);
    return false;
  }
  return true;
}

void runPointOp(const OpTable& t, const MoxImage* const* images, const int* mapping,
                Kernel (*pick)(unsigned depth), const OpArgs& args, bool writeAll) {
  if (!checkImages(t, images)) return;
  WalkImage walked[3];
  for (int i = 0; i < t.n; ++i) walked[i] = {images[i], t.names[i], writeAll || i == t.n - 1};
  const WalkPlan plan{t.func, t.file, &t.walk, true};
  walk(plan, walked, t.n, mapping, pick(images[t.n - 1]->depth), &args);
#if defined(__SSE2__)
  // Kernels may have stored a large destination past the caches: the fence
  // makes those stores visible to other threads before the call returns.
  _mm_sfence();
#endif
}

}  // namespace mox
