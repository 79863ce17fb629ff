// Helpers shared by the transform suites: owned test images, a report
// recorder and a seeded sample generator.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "moxpx.h"

namespace transform_test {

// An allocated image with typed access to its samples.
class Image {
 public:
  Image(int height, int width, unsigned depth, int nChannels = 1, int alphaChannel = 0,
        int dataOrder = MOX_DATA_ORDER_PIXEL)
      : header_(moxCreateImageHeader(nChannels, alphaChannel, depth, "GRAY", "GRAY", dataOrder,
                                     MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, height, width, nullptr,
                                     nullptr, nullptr)) {
    moxAllocateImage(header_, 0);
  }
  ~Image() {
    if (header_->roi) moxDeleteROI(header_->roi);
    moxDeallocate(header_, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  MoxImage* operator->() const { return header_; }
  MoxImage* get() const { return header_; }

  void setRoi(int coi, int x, int y, int height, int width) {
    if (header_->roi) moxDeleteROI(header_->roi);
    header_->roi = moxCreateROI(coi, x, y, height, width);
  }

  // Sample (y, x) of channel c (0-based) as a wide integer.
  long long at(int y, int x, int c = 0) const { return read(address(y, x, c)); }
  void set(int y, int x, long long v, int c = 0) const { write(address(y, x, c), v); }

  // Channel c as a row-major vector of doubles.
  std::vector<double> plane(int c = 0) const {
    std::vector<double> out;
    for (int y = 0; y < header_->height; ++y)
      for (int x = 0; x < header_->width; ++x) out.push_back(static_cast<double>(at(y, x, c)));
    return out;
  }

  // Fills channel c with uniform samples from [lo, hi].
  void fill(std::mt19937& rng, long long lo, long long hi, int c = 0) const {
    std::uniform_int_distribution<long long> d(lo, hi);
    for (int y = 0; y < header_->height; ++y)
      for (int x = 0; x < header_->width; ++x) set(y, x, d(rng), c);
  }

  std::vector<char> bytes() const {
    return {header_->imageData, header_->imageData + header_->imageSize};
  }

 private:
  char* address(int y, int x, int c) const {
    const int bytes = static_cast<int>((header_->depth & ~MOX_DEPTH_SIGN) / 8);
    if (header_->dataOrder == MOX_DATA_ORDER_PIXEL)
      return header_->imageData + y * header_->widthStep + (x * header_->nChannels + c) * bytes;
    return header_->imageData + (c * header_->height + y) * header_->widthStep + x * bytes;
  }
  long long read(const char* p) const {
    switch (header_->depth) {
      case MOX_DEPTH_8U: return *reinterpret_cast<const std::uint8_t*>(p);
      case MOX_DEPTH_8S: return *reinterpret_cast<const std::int8_t*>(p);
      case MOX_DEPTH_16U: return *reinterpret_cast<const std::uint16_t*>(p);
      case MOX_DEPTH_16S: return *reinterpret_cast<const std::int16_t*>(p);
      default: return *reinterpret_cast<const std::int32_t*>(p);
    }
  }
  void write(char* p, long long v) const {
    switch (header_->depth) {
      case MOX_DEPTH_8U: *reinterpret_cast<std::uint8_t*>(p) = static_cast<std::uint8_t>(v); break;
      case MOX_DEPTH_8S: *reinterpret_cast<std::int8_t*>(p) = static_cast<std::int8_t>(v); break;
      case MOX_DEPTH_16U: *reinterpret_cast<std::uint16_t*>(p) = static_cast<std::uint16_t>(v); break;
      case MOX_DEPTH_16S: *reinterpret_cast<std::int16_t*>(p) = static_cast<std::int16_t>(v); break;
      default: *reinterpret_cast<std::int32_t*>(p) = static_cast<std::int32_t>(v);
    }
  }
  MoxImage* header_;
};

// One report as the report function received it.
struct Report {
  int status;
  std::string func, message, file;
  int line;
};

// Records every report of the calling thread while it lives (Parent mode,
// nothing shown).
class Recorder {
 public:
  Recorder() : mode_(moxGetErrMode()), previous_(moxRedirectError(&Recorder::record)) {
    moxSetErrMode(MOX_ErrorModeParent);
    moxSetErrStatus(MOX_StsNoError);
    log().clear();
  }
  ~Recorder() {
    moxRedirectError(previous_);
    moxSetErrMode(mode_);
    moxSetErrStatus(MOX_StsNoError);
  }
  std::vector<Report>& reports() const { return log(); }

 private:
  static std::vector<Report>& log() {
    thread_local std::vector<Report> reports;
    return reports;
  }
  static int MOX_CALL record(int status, const char* func, const char* message, const char* file,
                             int line) {
    log().push_back({status, func ? func : "", message ? message : "", file ? file : "", line});
    return status;
  }
  int mode_;
  MoxErrorCallBack previous_;
};

}  // namespace transform_test
