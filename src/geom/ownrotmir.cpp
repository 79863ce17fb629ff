// Row copies for mirroring and rotation, and the rounding-mode guard.
#include "geom/ownrotmir.h"

#include <cfenv>

namespace mox::geom {

namespace {

constexpr unsigned char reversedByte(unsigned b) {
  unsigned r = 0;
  for (int i = 0; i < 8; ++i) r |= ((b >> i) & 1u) << (7 - i);
  return static_cast<unsigned char>(r);
}

struct ByteReversal {
  unsigned char table[256] = {};
  constexpr ByteReversal() {
    for (unsigned b = 0; b < 256; ++b) table[b] = reversedByte(b);
  }
};

// Built at compile time, not when the library loads.
constexpr ByteReversal kReversal;

}  // namespace

void reverseBits(const unsigned char* in, int w, unsigned char* out) {
  const int n = (w + 7) / 8;
  // Reversing the bytes and the bits within them puts bit j of `in` at
  // 8n - 1 - j; the row then starts 8n - w bits into that.
  unsigned char all[kBitChunk];
  for (int b = 0; b < n; ++b) all[b] = kReversal.table[in[n - 1 - b]];
  const int shift = 8 * n - w;
  for (int b = 0; b < n; ++b) out[b] = static_cast<unsigned char>(bits8(all, 8 * b + shift, n));
}

void copyBitRow(const View& s, int sy, const View& d, int dy, int w, bool reverse) {
  unsigned char in[kBitChunk], out[kBitChunk];
  for (int x0 = 0, n = 0; x0 < w; x0 += n) {
    n = w - x0 < kBitChunk * 8 ? w - x0 : kBitChunk * 8;
    if (!reverse) {
      readBits(s, sy, x0, n, in);
      writeBits(d, dy, x0, n, in);
      continue;
    }
    readBits(s, sy, w - x0 - n, n, in);
    reverseBits(in, n, out);
    writeBits(d, dy, x0, n, out);
  }
}

RowCopy rowCopyFor(unsigned depth) {
  switch (depthBits(depth)) {
    case 1: return &copyBitRow;
    case 8: return &copyRow<std::uint8_t>;
    case 16: return &copyRow<std::uint16_t>;
    default: return &copyRow<std::uint32_t>;
  }
}

NearestRounding::NearestRounding() : mode_(std::fegetround()) {
  if (mode_ != FE_TONEAREST) std::fesetround(FE_TONEAREST);
}

NearestRounding::~NearestRounding() {
  if (mode_ != FE_TONEAREST) std::fesetround(mode_);
}

}  // namespace mox::geom
