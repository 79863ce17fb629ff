// The pictures the tool reads and writes, and the file formats that hold
// them. A picture is rows of interleaved channel values of one depth, with
// no padding, in the machine's byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "moxpx.h"

namespace moxcli {

struct Picture {
  int width = 0, height = 0, channels = 0;
  unsigned depth = MOX_DEPTH_8U;  // 8U, 8S, 16U, 16S or 32S
  std::vector<unsigned char> pixels;

  std::size_t valueBytes() const;
  std::size_t rowBytes() const { return std::size_t(width) * channels * valueBytes(); }
  void allocate() { pixels.assign(rowBytes() * height, 0); }
};

// A file that cannot be read or written: which one and why.
struct FileError : std::runtime_error {
  FileError(const std::string& path, const std::string& why)
      : std::runtime_error(path + ": " + why) {}
};

// Short depth names as the options take them: 1u 8u 8s 16u 16s 32s.
const char* depthName(unsigned depth);
// The depth of a name (either case); 0 for no depth.
unsigned depthOfName(const std::string& name);
// The colour model that a channel count stands for in a file: GRAY, RGB ...
std::string modelOf(int channels);

// Reads a picture; the format follows the file's contents (PNG, JPEG, BMP,
// npy). Throws FileError.
Picture readPicture(const std::string& path);
// Writes a picture in the format of the file name's extension. Values the
// format cannot hold saturate to its range (16-bit unsigned values going to
// an 8-bit format keep their high byte). Throws FileError.
void writePicture(const std::string& path, const Picture& picture);
// True when the format of the file name holds the picture's depth exactly.
bool holdsExactly(const std::string& path, unsigned depth);
// True when the name ends in an extension of a format this build knows.
bool knownImageName(const std::string& path);
// The extensions this build reads and writes, for the help text.
std::string knownExtensions();

}  // namespace moxcli
