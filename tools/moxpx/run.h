// Running one operation of the table on pictures: the library images made
// from them (plain, tiled through the call-back protocol, or cut into one
// destination tile per call on several threads), the library's reports, and
// the pictures that come out.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "picture.h"

namespace moxcli {

// The options of the library's image model, shared by every operation.
struct Options {
  bool roi = false;
  int roiX = 0, roiY = 0, roiW = 0, roiH = 0;
  int coi = 0;
  unsigned depth = 0;     // working depth; 0: each file's own
  unsigned dstDepth = 0;  // destination depth; 0: the operation's choice
  int tileW = 0, tileH = 0;
  int threads = 0;        // 0: one call on the calling thread
  // The second image's rectangle (of the second source and destination),
  // when it differs from the first's.
  bool roi2 = false;
  int roi2X = 0, roi2Y = 0, roi2W = 0, roi2H = 0;
  // A file the first destination starts as, in place of a copy of the input
  // (or black); empty: none.
  std::string into;

  // The options of image `i` of the sources (or of the destinations).
  Options of(std::size_t i) const {
    Options o = *this;
    if (i == 1 && roi2) o.roi = true, o.roiX = roi2X, o.roiY = roi2Y, o.roiW = roi2W, o.roiH = roi2H;
    return o;
  }
};

// The parsed values of an operation's own arguments, by interface name.
struct Args {
  std::map<std::string, long long> ints;
  std::map<std::string, double> reals;
  std::map<std::string, std::vector<int>> lists;
  std::map<std::string, std::vector<std::string>> texts;
  int i(const std::string& name) const { return int(ints.at(name)); }
  unsigned u(const std::string& name) const { return unsigned(ints.at(name)); }
  float f(const std::string& name) const { return float(reals.at(name)); }
  const std::vector<int>& list(const std::string& name) const { return lists.at(name); }
};

// What an operation's call sees: the source images, the destination images
// (each starts as a copy of the input of the same place, or of the first),
// the destination tile of this call (null: all) and the arguments. An
// operation that computes values rather than pictures leaves its text in
// `printed`, shown once the call has succeeded.
struct Call {
  const MoxImage* src[3] = {};
  MoxImage* dst[2] = {};
  const int* mapping = nullptr;
  const Args& args;
  mutable std::string printed = {};
};

struct Op;

// A failure the library reported; the text is the report in one line.
struct LibraryFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// A request the tool cannot carry out (bad option values and the like).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Sets the calling thread's error mode to Parent with the tool's own report
// function, so the library never ends the process. Every thread that calls
// the library does this first.
void prepareThread();

// The first report the library made since the last call of this (or since
// the last run), in one line; empty when there was none.
std::string takeReport();

// Runs the operation; the destination pictures, as they are to be written.
// What the operation printed goes into `printed` when given.
std::vector<Picture> execute(const Op& op, const std::vector<Picture>& inputs,
                             const Options& options, const Args& args,
                             std::string* printed = nullptr);

}  // namespace moxcli
