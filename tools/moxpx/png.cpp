// PNG files through libpng: 8- and 16-bit grey, grey with alpha, RGB and
// RGBA. Palettes and grey of fewer bits are expanded to 8 bits on reading.
// libpng reports its errors by a long jump back to the call that set it up;
// only plain values and heap blocks live across that point.
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

#include "formats.h"

namespace moxcli {
namespace {

struct PngFile {
  std::FILE* file = nullptr;
  png_structp png = nullptr;
  png_infop info = nullptr;
  bool writing = false;
  char why[256] = "the PNG data is damaged";
  Picture picture;
  std::vector<png_bytep> rows;

  ~PngFile() {
    if (writing)
      png_destroy_write_struct(&png, info ? &info : nullptr);
    else
      png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    if (file) std::fclose(file);
  }
};

void pngFailed(png_structp png, png_const_charp message) {
  auto* f = static_cast<PngFile*>(png_get_error_ptr(png));
  std::snprintf(f->why, sizeof f->why, "%s", message);
  std::longjmp(png_jmpbuf(png), 1);
}

void pngWarned(png_structp, png_const_charp) {}

bool littleEndian() {
  const std::uint16_t one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 1;
}

bool sniff(const unsigned char* head, std::size_t n) {
  return n >= 8 && png_sig_cmp(head, 0, 8) == 0;
}

bool holds(unsigned depth) { return depth == MOX_DEPTH_8U || depth == MOX_DEPTH_16U; }

// The part of reading that libpng may leave by its long jump.
bool readInto(PngFile* f) {
  if (setjmp(png_jmpbuf(f->png))) return false;
  png_init_io(f->png, f->file);
  png_read_info(f->png, f->info);
  png_set_expand(f->png);
  if (png_get_bit_depth(f->png, f->info) == 16 && littleEndian()) png_set_swap(f->png);
  png_set_interlace_handling(f->png);
  png_read_update_info(f->png, f->info);
  const png_uint_32 w = png_get_image_width(f->png, f->info);
  const png_uint_32 h = png_get_image_height(f->png, f->info);
  const int channels = png_get_channels(f->png, f->info);
  const int bits = png_get_bit_depth(f->png, f->info);
  if ((unsigned long long)w * h * channels * (bits / 8) > (1ULL << 31)) {
    std::snprintf(f->why, sizeof f->why, "the image of %ux%u is too large", w, h);
    return false;
  }
  f->picture.width = int(w), f->picture.height = int(h), f->picture.channels = channels;
  f->picture.depth = bits == 16 ? MOX_DEPTH_16U : MOX_DEPTH_8U;
  f->picture.allocate();
  f->rows.resize(h);
  for (png_uint_32 y = 0; y < h; ++y)
    f->rows[y] = f->picture.pixels.data() + y * f->picture.rowBytes();
  png_read_image(f->png, f->rows.data());
  png_read_end(f->png, nullptr);
  return true;
}

Picture read(const std::string& path) {
  auto f = std::make_unique<PngFile>();
  f->file = std::fopen(path.c_str(), "rb");
  if (!f->file) throw FileError(path, std::string("cannot open it: ") + std::strerror(errno));
  f->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, f.get(), pngFailed, pngWarned);
  if (f->png) f->info = png_create_info_struct(f->png);
  if (!f->info) throw FileError(path, "out of memory");
  if (!readInto(f.get())) throw FileError(path, std::string("bad PNG: ") + f->why);
  return std::move(f->picture);
}

bool writeFrom(PngFile* f, const Picture& pic) {
  if (setjmp(png_jmpbuf(f->png))) return false;
  static constexpr int kTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                                   PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};
  png_init_io(f->png, f->file);
  const int bits = pic.depth == MOX_DEPTH_16U ? 16 : 8;
  png_set_IHDR(f->png, f->info, png_uint_32(pic.width), png_uint_32(pic.height), bits,
               kTypes[pic.channels - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(f->png, f->info);
  if (bits == 16 && littleEndian()) png_set_swap(f->png);
  for (int y = 0; y < pic.height; ++y)
    f->rows.push_back(const_cast<png_bytep>(pic.pixels.data() + std::size_t(y) * pic.rowBytes()));
  png_write_image(f->png, f->rows.data());
  png_write_end(f->png, nullptr);
  return true;
}

void write(const std::string& path, const Picture& pic) {
  if (pic.channels < 1 || pic.channels > 4)
    throw FileError(path, "PNG holds 1 to 4 channels, not " + std::to_string(pic.channels));
  auto f = std::make_unique<PngFile>();
  f->writing = true;
  f->file = std::fopen(path.c_str(), "wb");
  if (!f->file) throw FileError(path, std::string("cannot create it: ") + std::strerror(errno));
  f->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, f.get(), pngFailed, pngWarned);
  if (f->png) f->info = png_create_info_struct(f->png);
  if (!f->info) throw FileError(path, "out of memory");
  if (!writeFrom(f.get(), pic)) throw FileError(path, std::string("writing PNG failed: ") + f->why);
  if (std::fflush(f->file) != 0) throw FileError(path, "writing failed");
}

}  // namespace

const Format kPngFormat = {"PNG", {".png"}, sniff, read, write, holds};

}  // namespace moxcli
