// moxMirror: the source rectangle mirrored about its horizontal centre line
// (flipAxis 0), its vertical one (1) or both (-1).
//
// Destination row i takes source row rows - 1 - i when rows flip, and the
// columns run backwards when columns flip. Source and destination may share
// their pixels: the same rectangle is mirrored in place a pair of rows at a
// time through a two-row buffer; rectangles that overlap otherwise are first
// copied aside whole.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "frame/frame.h"
#include "geom/ownrotmir.h"
#include "image/source.h"

namespace {

using mox::View;
using mox::geom::Buffer;
using mox::geom::Rect;
using mox::geom::allocate;
using mox::geom::packedLike;
using mox::geom::rowBytes;

constexpr const char* kFunc = "moxMirror";
constexpr const char* kFile = "moxmirr";
constexpr mox::Site at(int line) { return {kFunc, kFile, line}; }

constexpr int kLineSrcHeader = 2098, kLineDstHeader = 2099, kLineDepth = 2101,
              kLineChannels = 2102, kLineAxis = 2103, kLineCoi = 2113, kLineMemory = 2125;

// The walk over a tiled destination (no tile requests: the call takes none)
// and the reader that gathers a tiled source's rectangle.
constexpr mox::WalkLines kWalkLines{{2130, 2131, 2132, 2133}, {2134, 2135, 2136, 2137}};
constexpr mox::WalkPlan kWalkPlan{kFunc, kFile, &kWalkLines, false};
const mox::SourceSites kSourceSites{kFunc, kFile, "srcImage", 2140, 2141, 2142, 2143};

bool outOfMemory() {
  mox::report(at(kLineMemory), "Out of memory", MOX_StsOutOfMemory);
  return false;
}

// Pixels of 1, 2 or 4 bytes reversed: rows as they come (storing on the
// vectors' boundaries, with one unaligned vector at each end, cost more
// than it saved on rows of a few thousand bytes), a whole rectangle in one
// run aligned.
template <class T, bool Whole>
void reverseValues(const char* s, char* d, int w) {
  const auto* from = reinterpret_cast<const T*>(s);
  auto* to = reinterpret_cast<T*>(d);
  if constexpr (Whole)
    mox::geom::copyPixels<T, 1>(from, 1, to, 1, w, 1, true);
  else
    mox::geom::reverseRun(from, to, w);
}

// The reversal of a row of w packed pixels of P bytes (Whole: of a whole
// rectangle as one run).
template <int P, bool Whole>
void reversePacked(const char* s, char* d, int w) {
  using mox::geom::copyPixels;
  if constexpr (P == 1)
    reverseValues<std::uint8_t, Whole>(s, d, w);
  else if constexpr (P == 2)
    reverseValues<std::uint16_t, Whole>(s, d, w);
  else if constexpr (P == 4)
    reverseValues<std::uint32_t, Whole>(s, d, w);
  else if constexpr (P == 3)
    copyPixels<std::uint8_t, 3>(reinterpret_cast<const std::uint8_t*>(s), 3,
                                reinterpret_cast<std::uint8_t*>(d), 3, w, 3, true);
  else
    copyPixels<std::uint16_t, 3>(reinterpret_cast<const std::uint16_t*>(s), 3,
                                 reinterpret_cast<std::uint16_t*>(d), 3, w, 3, true);
}

using PackedReversal = void (*)(const char* s, char* d, int w);

// Bytes of a pixel of the rows packedReversal takes (the channel of
// interest alone in plane order: one plane's sample).
int packedPixelBytes(const View& v) {
  return static_cast<int>(mox::depthBits(v.depth) / 8) * mox::geom::rowShape(v).count;
}

// Rows of whole pixels packed together in both views (all channels of
// pixel-order images, or one-channel images) that fit the caches are
// reversed or copied with the row loop chosen once per call, not per row.
template <bool Whole>
PackedReversal packedReversal(const View& s, const View& d) {
  const mox::geom::RowShape a = mox::geom::rowShape(s), b = mox::geom::rowShape(d);
  const unsigned bits = mox::depthBits(d.depth);
  if (d.large || bits == 1 || a.lanes != 1 || b.lanes != 1 || a.count != a.stride ||
      b.count != b.stride || a.count != b.count || a.offset != 0 || b.offset != 0)
    return nullptr;
  switch (static_cast<int>(bits / 8) * b.count) {
    case 1: return &reversePacked<1, Whole>;
    case 2: return &reversePacked<2, Whole>;
    case 3: return &reversePacked<3, Whole>;
    case 4: return &reversePacked<4, Whole>;
    case 6: return &reversePacked<6, Whole>;
    default: return nullptr;
  }
}

#if defined(MOX_GEOM_HAVE_WIDE)
// Packed rows (as packedReversal takes them) copied or reversed in one call
// for all rows; false, with nothing written, where the vectors do not take
// them. The walks keep the destination one stream, forwards when rows
// alone flip (the source rows taken from the last one up), backwards when
// columns alone flip (all rows from the last one up); only the source
// jumps at each row's end, which the kernels' fetch of the next row covers.
// A whole rectangle's run of one-byte pixels stays with the aligned stores
// of packedReversal<true>.
bool packedRowsWide(const View& s, const View& d, bool flipRows, bool flipColumns, bool whole) {
  const int rows = d.height;
  const std::ptrdiff_t last = rows - 1;
  const auto* from = reinterpret_cast<const std::uint8_t*>(s.data);
  auto* to = reinterpret_cast<std::uint8_t*>(d.data);
  std::ptrdiff_t ss = s.widthStep, ds = d.widthStep;
  const int pixelBytes = packedPixelBytes(d);
  if (!flipColumns) {
    if (flipRows) from += last * ss, ss = -ss;
    mox::geom::copyRowsWide(from, ss, to, ds, rows, std::ptrdiff_t(d.width) * pixelBytes);
    return true;
  }
  if (flipRows) to += last * ds, ds = -ds;
  if (whole && pixelBytes == 1) return false;
  if (!flipRows) from += last * ss, ss = -ss, to += last * ds, ds = -ds;
  return mox::geom::reverseRowsWide(from, ss, to, ds, rows, d.width, pixelBytes);
}
#endif

// Whether the view's rows are whole pixels of bytes packed together and
// follow each other without a gap.
bool oneRun(const View& v) {
  const mox::geom::RowShape a = mox::geom::rowShape(v);
  return mox::depthBits(v.depth) != 1 && a.lanes == 1 && a.count == a.stride && a.offset == 0 &&
         v.widthStep == rowBytes(v);
}

// Distinct memory: every destination row straight from its source row.
void mirrorApart(View s, View d, bool flipRows, bool flipColumns, mox::geom::RowCopy copy) {
  // A half turn of rectangles that are each one run of pixels is that run
  // reversed, without the rows' seams.
  const bool whole = flipRows && flipColumns && oneRun(s) && oneRun(d) &&
                     static_cast<long long>(d.width) * d.height <= 0x7fffffff;
  if (whole) {
    s.width = d.width = d.width * d.height;
    s.height = d.height = 1;
  }
  if (const PackedReversal reverse = whole ? packedReversal<true>(s, d) : packedReversal<false>(s, d)) {
    const std::size_t bytes = static_cast<std::size_t>(d.width) * packedPixelBytes(d);
#if defined(MOX_GEOM_HAVE_WIDE)
    if (mox::wideVectors() && packedRowsWide(s, d, flipRows, flipColumns, whole)) return;
#endif
    for (int k = 0; k < d.height; ++k) {
      const char* from = s.data + std::ptrdiff_t(k) * s.widthStep;
      char* to = d.data + std::ptrdiff_t(flipRows ? d.height - 1 - k : k) * d.widthStep;
      if (flipColumns)
        reverse(from, to, d.width);
      else
        std::memcpy(to, from, bytes);
    }
    return;
  }
  // The source is read upwards from its first row (and the destination
  // written from its last row back when rows flip).
  for (int k = 0; k < d.height; ++k) {
    const int i = flipRows ? d.height - 1 - k : k;
    copy(s, k, d, i, d.width, flipColumns);
  }
}

// One packed row (as packedReversal takes them) to memory it does not
// share, reversed when columns flip.
void moveRow(const char* from, char* to, int w, int pixelBytes, bool flipColumns,
             PackedReversal reverse) {
#if defined(MOX_GEOM_HAVE_WIDE)
  if (mox::wideVectors()) {
    const auto* s = reinterpret_cast<const std::uint8_t*>(from);
    auto* d = reinterpret_cast<std::uint8_t*>(to);
    if (!flipColumns) return mox::geom::copyRowsWide(s, 0, d, 0, 1, std::ptrdiff_t(w) * pixelBytes);
    if (mox::geom::reverseRowsWide(s, 0, d, 0, 1, w, pixelBytes)) return;
  }
#endif
  if (flipColumns)
    reverse(from, to, w);
  else
    std::memcpy(to, from, static_cast<std::size_t>(w) * pixelBytes);
}

// The same rectangle of packed rows: of rows r and rows - 1 - r, r is set
// aside and the other moved straight across (a row that stays in its place
// is set aside and moved back).
bool mirrorInPlacePacked(const View& v, bool flipRows, bool flipColumns, PackedReversal reverse) {
  const int pixelBytes = packedPixelBytes(v);
  const std::size_t bytes = static_cast<std::size_t>(v.width) * pixelBytes;
  Buffer buffer = allocate(static_cast<long long>(bytes));
  if (!buffer) return outOfMemory();
  char* aside = buffer.get();
  const int rows = v.height;
  const int pairs = flipRows ? (rows + 1) / 2 : rows;
  for (int r = 0; r < pairs; ++r) {
    char* row = v.data + std::ptrdiff_t(r) * v.widthStep;
    char* other = v.data + std::ptrdiff_t(flipRows ? rows - 1 - r : r) * v.widthStep;
#if defined(MOX_GEOM_HAVE_WIDE)
    // Reversed rows exchanged in the vectors, without the row set aside.
    if (flipColumns && mox::wideVectors() &&
        mox::geom::reverseRowPairWide(reinterpret_cast<std::uint8_t*>(row),
                                      reinterpret_cast<std::uint8_t*>(other), v.width, pixelBytes))
      continue;
#endif
    std::memcpy(aside, row, bytes);
    if (other != row) moveRow(other, row, v.width, pixelBytes, flipColumns, reverse);
    moveRow(aside, other, v.width, pixelBytes, flipColumns, reverse);
  }
  return true;
}

// The same rectangle otherwise: rows r and rows - 1 - r (or r alone when
// rows stay) are read into the buffer before either is written.
bool mirrorInPlace(const View& v, bool flipRows, bool flipColumns, mox::geom::RowCopy copy) {
  Buffer buffer = allocate(2 * rowBytes(v));
  if (!buffer) return outOfMemory();
  const View t = packedLike(v, buffer.get(), 2);
  const int rows = v.height;
  const int pairs = flipRows ? (rows + 1) / 2 : rows;
  for (int r = 0; r < pairs; ++r) {
    const int other = flipRows ? rows - 1 - r : r;
    copy(v, r, t, 0, v.width, false);
    copy(v, other, t, 1, v.width, false);
    copy(t, 0, v, other, v.width, flipColumns);
    copy(t, 1, v, r, v.width, flipColumns);
  }
  return true;
}

struct Job {
  View src;  // the whole source rectangle
  Rect dst;  // the destination rectangle
  bool flipRows, flipColumns;
  mox::geom::RowCopy copy;
};

// One piece of a tiled destination: its part inside the rectangle, row by
// row from the mirrored rows and columns of the source.
bool mirrorDestination(const View& piece, int x, int y, void* arg) {
  const Job& job = *static_cast<const Job*>(arg);
  const Rect& r = job.dst;
  const int x0 = x > r.x ? x : r.x, y0 = y > r.y ? y : r.y;
  const long long xe = static_cast<long long>(x) + piece.width, ye = static_cast<long long>(y) + piece.height;
  const int x1 = static_cast<int>(xe < r.x + r.w ? xe : r.x + r.w);
  const int y1 = static_cast<int>(ye < r.y + r.h ? ye : r.y + r.h);
  if (x0 >= x1) return true;
  const int n = x1 - x0, j = x0 - r.x;
  const int sj = job.flipColumns ? r.w - j - n : j;
  for (int row = y0; row < y1; ++row) {
    const int i = row - r.y;
    const View from = mox::geom::shifted(job.src, sj, job.flipRows ? r.h - 1 - i : i);
    const View to = mox::geom::shifted(piece, x0 - x, row - y);
    job.copy(from, 0, to, 0, n, job.flipColumns);
  }
  return true;
}

// A tiled source is gathered whole (through the reader's scratch, which
// shares nothing with the destination) before any pixel is written; a
// tiled destination is walked piece by piece.
void mirrorTiled(const MoxImage* src, MoxImage* dst, const Rect& sr, const Rect& dr,
                 const Job& plain) {
  Job job = plain;
  mox::SourceReader reader(src, mox::Edge::kClamp, kSourceSites);
  if (src->tileInfo && !reader.read(sr.x, sr.y, sr.w, sr.h, &job.src)) return;
  if (!dst->tileInfo) {
    return mirrorApart(job.src, mox::geom::viewOf(dst, dr), job.flipRows, job.flipColumns,
                       job.copy);
  }
  mox::walkDestination(kWalkPlan, {dst, "dstImage", true}, nullptr, &mirrorDestination, &job);
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxMirror(const MoxImage* srcImage, MoxImage* dstImage,
                                           int flipAxis) {
  if (mox::badHeader(srcImage, at(kLineSrcHeader)) ||
      mox::badLayout(srcImage, "srcImage", at(kLineSrcHeader)) ||
      mox::badHeader(dstImage, at(kLineDstHeader)) ||
      mox::badLayout(dstImage, "dstImage", at(kLineDstHeader)))
    return;
  if (srcImage->depth != dstImage->depth)
    return mox::report(at(kLineDepth), "(srcImage->depth!=dstImage->depth)");
  if (srcImage->nChannels != dstImage->nChannels)
    return mox::report(at(kLineChannels), "(srcImage->nChannels!=dstImage->nChannels)");
  if (flipAxis > 1 || flipAxis < -1) return mox::report(at(kLineAxis), "((flipAxis>1)||(flipAxis<-1))");
  if (mox::geom::coiOf(srcImage) != mox::geom::coiOf(dstImage))
    return mox::report(at(kLineCoi), "(coiSrc!=coiDst)");

  Rect sr = mox::geom::clippedRect(srcImage), dr = mox::geom::clippedRect(dstImage);
  const int rows = sr.h < dr.h ? sr.h : dr.h, cols = sr.w < dr.w ? sr.w : dr.w;
  if (rows <= 0 || cols <= 0) return;
  sr.w = dr.w = cols;
  sr.h = dr.h = rows;
  const bool flipRows = flipAxis != 1, flipColumns = flipAxis != 0;
  const mox::geom::RowCopy copy = mox::geom::rowCopyFor(dstImage->depth);
  if (srcImage->tileInfo || dstImage->tileInfo) {
    const View s = srcImage->tileInfo ? View{} : mox::geom::viewOf(srcImage, sr);
    return mirrorTiled(srcImage, dstImage, sr, dr, Job{s, dr, flipRows, flipColumns, copy});
  }
  const View s = mox::geom::viewOf(srcImage, sr);
  View d = mox::geom::viewOf(dstImage, dr);
  d.large = rowBytes(d) * rows >= mox::kLargeBytes;
  if (!mox::geom::overlap(s, d)) {
    mirrorApart(s, d, flipRows, flipColumns, copy);
#if defined(__SSE2__)
    // Large rows were stored past the caches: the fence makes them visible
    // to other threads before the call returns.
    if (d.large) _mm_sfence();
#endif
    return;
  }
  if (s.data == d.data && s.widthStep == d.widthStep && s.bitOffset == d.bitOffset &&
      s.dataOrder == d.dataOrder && s.planeStep == d.planeStep) {
    if (const PackedReversal reverse = packedReversal<false>(d, d))
      mirrorInPlacePacked(d, flipRows, flipColumns, reverse);
    else
      mirrorInPlace(d, flipRows, flipColumns, copy);
    return;
  }
  // Overlapping otherwise: the source rectangle is copied aside first.
  Buffer buffer = allocate(rowBytes(s) * rows);
  if (!buffer) {
    outOfMemory();
    return;
  }
  const View t = packedLike(s, buffer.get(), rows);
  for (int i = 0; i < rows; ++i) copy(s, i, t, i, cols, false);
  mirrorApart(t, d, flipRows, flipColumns, copy);
}
