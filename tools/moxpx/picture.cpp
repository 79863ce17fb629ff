// The picture layer: depth names and conversions, the choice of format by
// file contents (reading) and by extension (writing), and the npy format
// (numpy's array files), which holds every depth the library has.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>

#include "formats.h"

namespace moxcli {

namespace {

struct DepthName {
  unsigned depth;
  const char* name;
};
constexpr DepthName kDepths[] = {
    {MOX_DEPTH_1U, "1u"},   {MOX_DEPTH_8U, "8u"},   {MOX_DEPTH_8S, "8s"},
    {MOX_DEPTH_16U, "16u"}, {MOX_DEPTH_16S, "16s"}, {MOX_DEPTH_32S, "32s"},
};

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string extensionOf(const std::string& path) {
  const auto slash = path.find_last_of("/\\");
  const auto dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return lower(path.substr(dot));
}

const Format* formatOfName(const std::string& path) {
  const std::string ext = extensionOf(path);
  for (const Format* f : formats())
    if (std::find(f->extensions.begin(), f->extensions.end(), ext) != f->extensions.end())
      return f;
  return nullptr;
}

long long valueAt(const unsigned char* p, unsigned depth) {
  switch (depth) {
    case MOX_DEPTH_8U: return *p;
    case MOX_DEPTH_8S: return static_cast<signed char>(*p);
    case MOX_DEPTH_16U: { std::uint16_t v; std::memcpy(&v, p, 2); return v; }
    case MOX_DEPTH_16S: { std::int16_t v; std::memcpy(&v, p, 2); return v; }
    default: { std::int32_t v; std::memcpy(&v, p, 4); return v; }
  }
}

void store(unsigned char* p, unsigned depth, long long v) {
  auto clamp = [&](long long lo, long long hi) { return std::min(std::max(v, lo), hi); };
  switch (depth) {
    case MOX_DEPTH_8U: *p = static_cast<unsigned char>(clamp(0, 255)); break;
    case MOX_DEPTH_8S: *p = static_cast<unsigned char>(static_cast<signed char>(clamp(-128, 127))); break;
    case MOX_DEPTH_16U: { const auto w = std::uint16_t(clamp(0, 65535)); std::memcpy(p, &w, 2); break; }
    case MOX_DEPTH_16S: { const auto w = std::int16_t(clamp(-32768, 32767)); std::memcpy(p, &w, 2); break; }
    default: {
      const auto w = std::int32_t(clamp(std::numeric_limits<std::int32_t>::min(),
                                        std::numeric_limits<std::int32_t>::max()));
      std::memcpy(p, &w, 4);
    }
  }
}

}  // namespace

std::size_t Picture::valueBytes() const {
  return depth == MOX_DEPTH_32S ? 4 : (depth & ~MOX_DEPTH_SIGN) == 16 ? 2 : 1;
}

const char* depthName(unsigned depth) {
  for (const auto& d : kDepths)
    if (d.depth == depth) return d.name;
  return "?";
}

unsigned depthOfName(const std::string& name) {
  for (const auto& d : kDepths)
    if (lower(name) == d.name) return d.depth;
  return 0;
}

std::string modelOf(int channels) {
  switch (channels) {
    case 1: return "GRAY";
    case 2: return "GRAY+alpha";
    case 3: return "RGB";
    case 4: return "RGBA";
    default: return std::to_string(channels) + " channels";
  }
}

Picture convertDepth(const Picture& in, unsigned depth) {
  if (in.depth == depth) return in;
  Picture out;
  out.width = in.width, out.height = in.height, out.channels = in.channels, out.depth = depth;
  out.allocate();
  const std::size_t n = std::size_t(in.width) * in.height * in.channels;
  const std::size_t ib = in.valueBytes(), ob = out.valueBytes();
  const bool shift = in.depth == MOX_DEPTH_16U && depth == MOX_DEPTH_8U;
  for (std::size_t i = 0; i < n; ++i) {
    const long long v = valueAt(&in.pixels[i * ib], in.depth);
    store(&out.pixels[i * ob], depth, shift ? v >> 8 : v);
  }
  return out;
}

const std::vector<const Format*>& formats() {
  static const std::vector<const Format*> all = {
#if defined(MOXCLI_BMP)
      &kBmpFormat,
#endif
#if defined(MOXCLI_PNG)
      &kPngFormat,
#endif
#if defined(MOXCLI_JPEG)
      &kJpegFormat,
#endif
      &kNpyFormat,
  };
  return all;
}

bool knownImageName(const std::string& path) { return formatOfName(path) != nullptr; }

std::string knownExtensions() {
  std::string out;
  for (const Format* f : formats())
    for (const auto& e : f->extensions) out.append(out.empty() ? "" : " ").append(e);
  return out;
}

Picture readPicture(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw FileError(path, std::string("cannot open it: ") + std::strerror(errno));
  unsigned char head[16] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  const auto n = static_cast<std::size_t>(in.gcount());
  if (n == 0) throw FileError(path, "the file is empty");
  for (const Format* f : formats())
    if (f->sniff(head, n)) return f->read(path);
  throw FileError(path, "not an image this build reads (it reads " + knownExtensions() + ")");
}

bool holdsExactly(const std::string& path, unsigned depth) {
  const Format* f = formatOfName(path);
  return f && f->holds(depth);
}

void writePicture(const std::string& path, const Picture& picture) {
  const Format* f = formatOfName(path);
  if (!f)
    throw FileError(path, "no format for the extension \"" + extensionOf(path) +
                              "\" (this build writes " + knownExtensions() + ")");
  if (f->holds(picture.depth)) return f->write(path, picture);
  // The nearest depth the format holds: 16 bits for 16- and 32-bit values
  // when it has them, else 8 bits.
  unsigned depth = MOX_DEPTH_8U;
  if (picture.depth != MOX_DEPTH_8S && f->holds(MOX_DEPTH_16U)) depth = MOX_DEPTH_16U;
  f->write(path, convertDepth(picture, depth));
}

// ------------------------------------------------------------------ npy

namespace {

struct NpyType {
  unsigned depth;
  const char* descr;
};
constexpr NpyType kNpyTypes[] = {
    {MOX_DEPTH_8U, "|u1"}, {MOX_DEPTH_8S, "|i1"},  {MOX_DEPTH_16U, "<u2"},
    {MOX_DEPTH_16S, "<i2"}, {MOX_DEPTH_32S, "<i4"},
};
constexpr char kNpyMagic[] = "\x93NUMPY";

bool npySniff(const unsigned char* head, std::size_t n) {
  return n >= 6 && std::memcmp(head, kNpyMagic, 6) == 0;
}

bool npyHolds(unsigned depth) {
  for (const auto& t : kNpyTypes)
    if (t.depth == depth) return true;
  return false;
}

// The value of a key in the header's dictionary text, up to the next comma
// at the outer level (the shape's tuple kept whole).
std::string npyField(const std::string& header, const std::string& key) {
  const auto at = header.find("'" + key + "'");
  if (at == std::string::npos) return "";
  auto p = header.find(':', at);
  if (p == std::string::npos) return "";
  ++p;
  while (p < header.size() && header[p] == ' ') ++p;
  if (p < header.size() && header[p] == '(') {
    const auto close = header.find(')', p);
    return close == std::string::npos ? "" : header.substr(p, close - p + 1);
  }
  const auto end = header.find_first_of(",}", p);
  return header.substr(p, end == std::string::npos ? std::string::npos : end - p);
}

Picture npyRead(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char pre[10];
  if (!in.read(reinterpret_cast<char*>(pre), 10)) throw FileError(path, "the npy header is cut short");
  std::size_t headerLen = pre[8] | (pre[9] << 8);
  if (pre[6] >= 2) {
    unsigned char more[2];
    if (!in.read(reinterpret_cast<char*>(more), 2)) throw FileError(path, "the npy header is cut short");
    headerLen |= std::size_t(more[0]) << 16 | std::size_t(more[1]) << 24;
  }
  if (headerLen > 65536) throw FileError(path, "the npy header is too long");
  std::string header(headerLen, '\0');
  if (!in.read(header.data(), std::streamsize(headerLen)))
    throw FileError(path, "the npy header is cut short");
  std::string descr = npyField(header, "descr");
  if (descr.size() >= 2) descr = descr.substr(1, descr.size() - 2);
  if (descr == "<u1" || descr == "=u1") descr = "|u1";
  if (descr == "<i1" || descr == "=i1") descr = "|i1";
  Picture pic;
  pic.depth = 0;
  for (const auto& t : kNpyTypes)
    if (descr == t.descr) pic.depth = t.depth;
  if (!pic.depth)
    throw FileError(path, "npy values of type " + descr +
                              " are not supported (uint8, int8, uint16, int16, int32 are)");
  if (npyField(header, "fortran_order").rfind("False", 0) != 0)
    throw FileError(path, "a Fortran-ordered npy array is not supported");
  std::vector<long long> shape;
  const std::string tuple = npyField(header, "shape");
  for (std::size_t p = 1; p < tuple.size();) {
    while (p < tuple.size() && !std::isdigit(static_cast<unsigned char>(tuple[p]))) ++p;
    if (p >= tuple.size()) break;
    long long v = 0;
    while (p < tuple.size() && std::isdigit(static_cast<unsigned char>(tuple[p])) && v < (1LL << 40))
      v = v * 10 + (tuple[p++] - '0');
    shape.push_back(v);
  }
  if (shape.size() == 2) shape.push_back(1);
  if (shape.size() != 3)
    throw FileError(path, "an npy image is an array of (height, width) or (height, width, channels)");
  if (shape[0] < 1 || shape[1] < 1 || shape[2] < 1 || shape[0] > (1 << 20) ||
      shape[1] > (1 << 20) || shape[2] > 64)
    throw FileError(path, "the npy array's shape is not one of an image");
  pic.height = int(shape[0]), pic.width = int(shape[1]), pic.channels = int(shape[2]);
  const long long bytes = shape[0] * shape[1] * shape[2] * (long long)pic.valueBytes();
  if (bytes > (1LL << 31)) throw FileError(path, "the npy array is too large");
  pic.allocate();
  if (!in.read(reinterpret_cast<char*>(pic.pixels.data()), std::streamsize(pic.pixels.size())))
    throw FileError(path, "the npy data is cut short");
  return pic;
}

void npyWrite(const std::string& path, const Picture& pic) {
  const char* descr = "|u1";
  for (const auto& t : kNpyTypes)
    if (t.depth == pic.depth) descr = t.descr;
  char shape[64];
  if (pic.channels == 1)
    std::snprintf(shape, sizeof shape, "(%d, %d)", pic.height, pic.width);
  else
    std::snprintf(shape, sizeof shape, "(%d, %d, %d)", pic.height, pic.width, pic.channels);
  std::string header = std::string("{'descr': '") + descr + "', 'fortran_order': False, 'shape': " +
                       shape + ", }";
  // Magic, version, length and header padded with blanks to a multiple of
  // 64 bytes, ending in a new line.
  while ((10 + header.size() + 1) % 64) header += ' ';
  header += '\n';
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw FileError(path, std::string("cannot create it: ") + std::strerror(errno));
  const unsigned char pre[10] = {0x93, 'N', 'U', 'M', 'P', 'Y', 1, 0,
                                 static_cast<unsigned char>(header.size() & 0xFF),
                                 static_cast<unsigned char>(header.size() >> 8)};
  out.write(reinterpret_cast<const char*>(pre), 10);
  out.write(header.data(), std::streamsize(header.size()));
  out.write(reinterpret_cast<const char*>(pic.pixels.data()), std::streamsize(pic.pixels.size()));
  if (!out.flush()) throw FileError(path, "writing failed");
}

}  // namespace

const Format kNpyFormat = {"npy", {".npy"}, npySniff, npyRead, npyWrite, npyHolds};

}  // namespace moxcli
