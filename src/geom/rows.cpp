// The row loops with the build's own vectors, and the choice of table.
#include "frame/frame.h"

#define MOX_GEOM_LOOPS kBaseLoops
#include "geom/rows.h"

namespace mox::geom {

const RowLoops& rowLoops() {
#if defined(MOX_GEOM_HAVE_WIDE)
  static const RowLoops& table = wideVectors() ? kWideLoops : kBaseLoops;
  return table;
#else
  return kBaseLoops;
#endif
}

}  // namespace mox::geom
