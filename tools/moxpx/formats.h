// The file formats the tool knows. Each reads into a picture and writes one
// of the depths it holds; the picture layer picks the format and converts
// depths around it.
#pragma once

#include <string>
#include <vector>

#include "picture.h"

namespace moxcli {

struct Format {
  const char* name;
  std::vector<std::string> extensions;  // lower case, with the dot
  // True when the first bytes of a file are of this format.
  bool (*sniff)(const unsigned char* head, std::size_t n);
  Picture (*read)(const std::string& path);
  // Writes a picture of a depth that holds() accepts.
  void (*write)(const std::string& path, const Picture& picture);
  // True for the depths the format stores as they are.
  bool (*holds)(unsigned depth);
};

// The formats of this build, in the order they are tried.
const std::vector<const Format*>& formats();

extern const Format kNpyFormat;
#if defined(MOXCLI_BMP)
extern const Format kBmpFormat;
// Writes an 8-bit (palette, dithered as moxReduceBits does), 24- or 32-bit
// BMP file through moxConvertToDIB.
void writeBmp(const std::string& path, const Picture& picture, int bits, int dither,
              int paletteConversion);
#endif
#if defined(MOXCLI_PNG)
extern const Format kPngFormat;
#endif
#if defined(MOXCLI_JPEG)
extern const Format kJpegFormat;
#endif

// The values at the depth a file format holds, saturated (16U to 8U keeps
// the high byte).
Picture convertDepth(const Picture& picture, unsigned depth);

}  // namespace moxcli
