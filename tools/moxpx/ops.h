// The table of sub-commands: one entry per operation of the library.
#pragma once

#include <string>
#include <vector>

#include "run.h"

namespace moxcli {

// A constant by its short name (lower case, without the family prefix).
struct Named {
  const char* name;
  long long value;
};

enum class Kind {
  Int,       // signed 32-bit
  Unsigned,  // unsigned 32-bit
  Real,      // float
  Flags,     // names (or numbers) joined by commas, or-ed together
  Choice,    // one name or number
  List,      // whole numbers joined by commas; A:B stands for A, A+1, ..., B
  Kernel,    // nCols,nRows,anchorX,anchorY,nShiftR:values; each use adds one
  Tool,      // an option of the tool itself (an integer), not passed on
};

struct ArgSpec {
  const char* name;  // the interface's argument name
  Kind kind;
  const char* preset;  // the value when the option is not given
  const char* help;
  std::vector<Named> names = {};
};

struct Op {
  const char* name;     // the function's name without "mox", lower case
  const char* summary;  // one line
  const char* example;  // a command line
  std::vector<ArgSpec> args;
  std::vector<const char*> inputs;   // the input files, in argument order
  std::vector<const char*> outputs;  // the output files (none: the result is printed)
  bool mapping;                      // takes one destination tile per call
  void (*call)(const Call& c);
  // The destination depth for a working depth; null: the working depth.
  unsigned (*dstDepth)(const Args& args, unsigned working) = nullptr;
  // What is written of a destination; null: the destination itself.
  Picture (*view)(const Picture& result, const Args& args, const std::string& path) = nullptr;
  // The destination's size and channels from the first input's, for
  // operations that change them (a zoom, a colour to grey conversion); the
  // destination then starts black. Null: the input's, and the destination
  // starts as a copy of it.
  void (*shape)(const Args& args, int& width, int& height, int& channels) = nullptr;
  // The depth the sources are converted to; 0: the working depth.
  unsigned srcDepth = 0;
  // The destination's data order; null: pixel order.
  int (*dstOrder)(const Args& args) = nullptr;
  // The colour model and channel sequence the sources are labelled with;
  // null: GRAY or RGB by the number of channels, and G, GA, RGB or RGBA.
  const char* srcModel = nullptr;
  const char* srcSeq = nullptr;
  // The operation works on whole images whatever their ROIs, so threads
  // share out every destination tile, not only those of --roi.
  bool wholeImage = false;
  // Writes a destination's file itself; null: as a picture of the file's format.
  void (*save)(const std::string& path, const Picture& result, const Args& args) = nullptr;
};

const std::vector<Op>& operations();
const Op* findOperation(const std::string& name);

}  // namespace moxcli
