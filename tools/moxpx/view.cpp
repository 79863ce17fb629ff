// Log-magnitude pictures of spectra and cosine coefficients.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>
#include <new>

#include "magnitude.h"
#include "run.h"
#include "view.h"

namespace moxcli {

Picture logMagnitude(const Picture& in, bool packed) {
  Picture out;
  out.width = in.width, out.height = in.height, out.channels = in.channels;
  out.depth = MOX_DEPTH_8U;
  out.allocate();
  if (moxcliLogMagnitude(in.pixels.data(), long(in.rowBytes()), in.width, in.height, in.channels,
                         packed, out.pixels.data()) != 0)
    throw std::bad_alloc();
  return out;
}

Picture rawView(const Picture& values, const std::string& path) {
  if (!holdsExactly(path, values.depth))
    throw UsageError(std::string("--raw 1 writes ") + depthName(values.depth) +
                     " values, which " + path + " cannot hold exactly: write a .npy file");
  return values;
}

Picture channelOf(const Picture& in, int n) {
  if (n > in.channels)
    throw UsageError("--channel " + std::to_string(n) + ": the result has " +
                     std::to_string(in.channels) + " channel" + (in.channels == 1 ? "" : "s"));
  Picture out = in;
  out.channels = 1;
  out.allocate();
  const std::size_t bytes = in.valueBytes(), count = std::size_t(in.width) * in.height;
  for (std::size_t i = 0; i < count; ++i)
    std::memcpy(&out.pixels[i * bytes], &in.pixels[(i * in.channels + std::size_t(n - 1)) * bytes],
                bytes);
  return out;
}

Picture withAlpha(const Picture& in, const Picture& alpha) {
  if (in.channels != 1 && in.channels != 3)
    throw UsageError("--alpha goes with a grey or RGB input, not one of " +
                     std::to_string(in.channels) + " channels");
  if (alpha.width != in.width || alpha.height != in.height || alpha.depth != in.depth)
    throw UsageError("--alpha wants a picture of the input's size and depth");
  Picture out = in;
  out.channels = in.channels + 1;
  out.allocate();
  const std::size_t bytes = in.valueBytes(), count = std::size_t(in.width) * in.height;
  const std::size_t from = in.channels * bytes, to = out.channels * bytes;
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(&out.pixels[i * to], &in.pixels[i * from], from);
    std::memcpy(&out.pixels[i * to + from], &alpha.pixels[i * alpha.channels * bytes], bytes);
  }
  return out;
}

Picture bars(const std::string& text) {
  constexpr int kHeight = 200;
  std::vector<std::vector<double>> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    lines.emplace_back();
    for (double v; words >> v;) lines.back().push_back(v);
  }
  if (lines.empty() || lines.size() > 4 || lines[0].empty() || lines[0].size() > (1u << 16))
    throw UsageError("--plot draws 1 to 4 lines of numbers, and the operation printed none such");
  double top = 1;
  for (const auto& line : lines) {
    if (line.size() != lines[0].size())
      throw UsageError("--plot wants as many numbers on every printed line");
    for (double v : line) top = std::max(top, v);
  }
  Picture out;
  out.width = int(lines[0].size()), out.height = kHeight, out.channels = int(lines.size());
  out.allocate();
  for (int c = 0; c < out.channels; ++c)
    for (int x = 0; x < out.width; ++x)
      for (int y = 0; y < kHeight && double(y) * y * top < double(kHeight) * kHeight * lines[c][x];
           ++y)
        out.pixels[(std::size_t(kHeight - 1 - y) * out.width + x) * out.channels + c] = 255;
  return out;
}

}  // namespace moxcli
