// Pixels at any coordinate, inside or outside the image: the position code,
// the four border modes of each side, and the reads of single pixels, rows
// and columns of one channel on plain and tiled images.
//
// Values are raw 32-bit words: 1-bit pixels as 0 or 1, 8- and 16-bit values
// zero-extended, 32-bit values as stored; a constant border gives the side's
// whole constant word. Buffers are packed at the image's depth (1-bit most
// significant bit first). Channels are numbered from 1.
//
// Every routine returns a BorderStatus and writes nothing but its outputs.
// A side whose mode is not a border mode passes the position on to the next
// side with a valid mode (left, right, bottom, in that order, moving on from
// the governing side); a position that still lies outside the image is never
// read: the routine returns kBorderBadMode and the operation reports it.
#pragma once

#include "image/walk.h"

namespace mox {

enum BorderStatus : int {
  kBorderOk = 0,
  kBorderBadMode = 1,  // the border modes leave the position outside the image
  kBorderNoTile = 2,   // the call-back left tileData null on a get
  kBorderKept = 3,     // the call-back left tileData set on a release
};

// Where the value of an outside position comes from.
struct BorderSource {
  bool constant;    // the value is `value`, no pixel is read
  unsigned value;   // the constant word
  int x, y;         // otherwise the inside pixel to read
};

// How the positions outside the image are resolved.
enum class Edge {
  kModes,  // the image's own border modes (filters, morphology)
  kClamp,  // the nearest edge pixel (geometry)
};

// Resolves any position by the policy. Returns kBorderOk or kBorderBadMode.
int borderSource(const MoxImage* image, int x, int y, Edge edge, BorderSource* out);

// What every position of one position code reads: the constant, or the
// pixel (mapBorderCoord(modeX, x, width), mapBorderCoord(modeY, y, height)).
// A mode of -1 leaves its coordinate as it is. Returns kBorderOk or
// kBorderBadMode, as borderSource does for each position of the code.
struct BorderRule {
  bool constant;
  unsigned value;
  int modeX, modeY;
};
int borderRule(const MoxImage* image, int code, Edge edge, BorderRule* out);
int mapBorderCoord(int mode, long long c, int n);

// Reflect and wrap of a coordinate over a size n, in constant time.
int reflectCoord(long long c, int n);
int wrapCoord(long long c, int n);

// Position code: +1 above, +2 below, +4 left of, +8 right of the image.
int ownClassifyPoint(const MoxImage* image, int x, int y);
// The raw value at an inside position (gets and releases its tile).
int ownGetPixel(const MoxImage* image, int x, int y, int channel, unsigned* value);
// The raw value at any position, border modes applied.
int ownGetBorderPixel(const MoxImage* image, int x, int y, int channel, unsigned* value);
// count values of row y from column x, one pixel forward (direction 1) or
// backward (0); the whole run lies inside the image, else kBorderBadMode.
int ownReadRowRun(const MoxImage* image, int x, int y, int channel, void* dst, int count,
                  int direction);
// count values along row y from column x, border modes applied; the run is
// governed by the position of its first pixel.
int ownGetBorderRow(const MoxImage* image, int x, int y, int channel, void* dst, int count);
// count values down column x from row y, border modes applied.
int ownGetBorderColumn(const MoxImage* image, int x, int y, int channel, void* dst, int count);
// count values of the depth, all equal to value (1-bit: whole bytes).
void ownFillRun(unsigned value, unsigned depth, void* dst, int count);

// Stores element i of a packed buffer of the depth.
void putPacked(void* dst, unsigned depth, long long i, unsigned value);

// The raw value of (x, y, channel) of a view, counted from its first pixel,
// and its store.
unsigned viewValue(const View& v, long long x, long long y, int channel);
void setViewValue(const View& v, long long x, long long y, int channel, unsigned value);

}  // namespace mox
