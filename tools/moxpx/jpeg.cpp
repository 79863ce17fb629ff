// JPEG files through libjpeg: 8-bit grey and RGB. Like libpng, libjpeg
// reports its errors by a long jump back to the call that set it up.
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

#include <jpeglib.h>

#include "formats.h"

namespace moxcli {
namespace {

struct JpegError {
  jpeg_error_mgr manager;  // first, so that the library's pointer is ours
  std::jmp_buf jump;
  char why[JMSG_LENGTH_MAX] = "the JPEG data is damaged";
};

void jpegFailed(j_common_ptr info) {
  auto* e = reinterpret_cast<JpegError*>(info->err);
  info->err->format_message(info, e->why);
  std::longjmp(e->jump, 1);
}

struct JpegFile {
  std::FILE* file = nullptr;
  JpegError error;
  jpeg_decompress_struct in{};
  jpeg_compress_struct out{};
  bool reading = false, writing = false;
  Picture picture;

  ~JpegFile() {
    if (reading) jpeg_destroy_decompress(&in);
    if (writing) jpeg_destroy_compress(&out);
    if (file) std::fclose(file);
  }
};

bool sniff(const unsigned char* head, std::size_t n) {
  return n >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
}

bool holds(unsigned depth) { return depth == MOX_DEPTH_8U; }

bool readInto(JpegFile* f) {
  f->in.err = jpeg_std_error(&f->error.manager);
  f->error.manager.error_exit = jpegFailed;
  if (setjmp(f->error.jump)) return false;
  jpeg_create_decompress(&f->in);
  f->reading = true;
  jpeg_stdio_src(&f->in, f->file);
  jpeg_read_header(&f->in, TRUE);
  if (f->in.jpeg_color_space == JCS_CMYK || f->in.jpeg_color_space == JCS_YCCK) {
    std::snprintf(f->error.why, sizeof f->error.why, "CMYK JPEG files are not supported");
    return false;
  }
  f->in.out_color_space = f->in.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_start_decompress(&f->in);
  Picture& p = f->picture;
  p.width = int(f->in.output_width), p.height = int(f->in.output_height);
  p.channels = f->in.output_components;
  p.depth = MOX_DEPTH_8U;
  p.allocate();
  while (f->in.output_scanline < f->in.output_height) {
    JSAMPROW row = p.pixels.data() + std::size_t(f->in.output_scanline) * p.rowBytes();
    jpeg_read_scanlines(&f->in, &row, 1);
  }
  jpeg_finish_decompress(&f->in);
  return true;
}

Picture read(const std::string& path) {
  auto f = std::make_unique<JpegFile>();
  f->file = std::fopen(path.c_str(), "rb");
  if (!f->file) throw FileError(path, std::string("cannot open it: ") + std::strerror(errno));
  if (!readInto(f.get())) throw FileError(path, std::string("bad JPEG: ") + f->error.why);
  return std::move(f->picture);
}

bool writeFrom(JpegFile* f, const Picture& p) {
  f->out.err = jpeg_std_error(&f->error.manager);
  f->error.manager.error_exit = jpegFailed;
  if (setjmp(f->error.jump)) return false;
  jpeg_create_compress(&f->out);
  f->writing = true;
  jpeg_stdio_dest(&f->out, f->file);
  f->out.image_width = JDIMENSION(p.width);
  f->out.image_height = JDIMENSION(p.height);
  f->out.input_components = p.channels;
  f->out.in_color_space = p.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&f->out);
  jpeg_set_quality(&f->out, 95, TRUE);
  jpeg_start_compress(&f->out, TRUE);
  while (f->out.next_scanline < f->out.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(p.pixels.data() + std::size_t(f->out.next_scanline) * p.rowBytes());
    jpeg_write_scanlines(&f->out, &row, 1);
  }
  jpeg_finish_compress(&f->out);
  return true;
}

void write(const std::string& path, const Picture& pic) {
  if (pic.channels != 1 && pic.channels != 3)
    throw FileError(path, "JPEG holds 1 or 3 channels, not " + std::to_string(pic.channels));
  auto f = std::make_unique<JpegFile>();
  f->file = std::fopen(path.c_str(), "wb");
  if (!f->file) throw FileError(path, std::string("cannot create it: ") + std::strerror(errno));
  if (!writeFrom(f.get(), pic)) throw FileError(path, std::string("writing JPEG failed: ") + f->error.why);
  if (std::fflush(f->file) != 0) throw FileError(path, "writing failed");
}

}  // namespace

const Format kJpegFormat = {"JPEG", {".jpg", ".jpeg"}, sniff, read, write, holds};

}  // namespace moxcli
