// The sub-commands. Every operation of the library is one entry: its name,
// one line of description, an example, its arguments with their interface
// names, and the call. A new operation adds one entry here.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>

#include "formats.h"
#include "ops.h"
#include "view.h"

namespace moxcli {
namespace {

const std::vector<Named> kFftFlags = {
    {"forward", MOX_FFT_FORWARD}, {"inverse", MOX_FFT_INVERSE}, {"noscale", MOX_FFT_NOSCALE},
    {"usealpha", MOX_FFT_USEALPHA}, {"small", MOX_FFT_SMALL},   {"general", MOX_FFT_GENERAL},
    {"reuse", MOX_FFT_REUSE},       {"free", MOX_FFT_FREE},     {"save", MOX_FFT_SAVE},
};
const std::vector<Named> kDctFlags = {
    {"forward", MOX_DCT_FORWARD}, {"inverse", MOX_DCT_INVERSE},
    {"free", MOX_DCT_FREE},       {"save", MOX_DCT_SAVE},
};

const std::vector<Named> kDepthNames = {
    {"1u", MOX_DEPTH_1U},   {"8u", MOX_DEPTH_8U},   {"8s", MOX_DEPTH_8S},
    {"16u", MOX_DEPTH_16U}, {"16s", MOX_DEPTH_16S}, {"32s", MOX_DEPTH_32S},
};
const std::vector<Named> kOrders = {{"pixel", MOX_DATA_ORDER_PIXEL}, {"plane", MOX_DATA_ORDER_PLANE}};
const std::vector<Named> kDithers = {
    {"none", MOX_DITHER_NONE}, {"fs", MOX_DITHER_FS},       {"jjn", MOX_DITHER_JJN},
    {"stuckey", MOX_DITHER_STUCKEY}, {"bayer", MOX_DITHER_BAYER},
};
const std::vector<Named> kPalettes = {
    {"none", MOX_PALCONV_NONE}, {"populate", MOX_PALCONV_POPULATE}, {"medcut", MOX_PALCONV_MEDCUT}};

const std::vector<Named> kInterpolations = {
    {"nn", MOX_INTER_NN}, {"linear", MOX_INTER_LINEAR}, {"cubic", MOX_INTER_CUBIC}};
const std::vector<Named> kComposites = {
    {"over", MOX_COMPOSITE_OVER}, {"in", MOX_COMPOSITE_IN},   {"out", MOX_COMPOSITE_OUT},
    {"atop", MOX_COMPOSITE_ATOP}, {"xor", MOX_COMPOSITE_XOR}, {"plus", MOX_COMPOSITE_PLUS}};
const std::vector<Named> kNorms = {
    {"c", MOX_NORM_C}, {"l1", MOX_NORM_L1}, {"l2", MOX_NORM_L2}, {"relative", MOX_NORM_RELATIVE}};
const std::vector<Named> kCombines = {{"sum", MOX_SUM}, {"sumsq", MOX_SUMSQ},
                                      {"sumsqroot", MOX_SUMSQROOT}, {"max", MOX_MAX},
                                      {"min", MOX_MIN}};
const std::vector<Named> kLutTypes = {{"lookup", MOX_LUT_LOOKUP}, {"inter", MOX_LUT_INTER}};

const ArgSpec kValue{"value", Kind::Int, "0", "the scalar operand"};
const ArgSpec kReverse{"reverse", Kind::Int, "0", "non-zero: the operands swap places"};
const ArgSpec kShift{"nShift", Kind::Unsigned, "1", "bits to shift by (taken modulo 32)"};
const ArgSpec kRaw{"raw", Kind::Tool, "0",
                   "1: write the result's values as they are (into .npy) instead of a picture"};

const ArgSpec kInterpolate{"interpolate", Kind::Choice, "nn", "the interpolation", kInterpolations};
const ArgSpec kCompositeType{"compositeType", Kind::Choice, "over", "the Porter-Duff rule",
                             kComposites};
const ArgSpec kPremulAlpha{"premulAlpha", Kind::Int, "0",
                           "non-zero: the colours are already premultiplied"};
const ArgSpec kDivideMode{"divideMode", Kind::Int, "0",
                          "non-zero: the result colours are divided by the result alpha"};
const ArgSpec kKey{"key", Kind::List, "0:256", "the num+1 increasing bin boundaries"};

const std::vector<const char*> kOneIn = {"INPUT"}, kTwoIn = {"A", "B"}, kOneOut = {"OUTPUT"};

// The entries of the two-image, image-and-scalar and one-image operations.
#define MOX_TWO(name, fn, what)                                                           \
  Op{name, what, "moxpx " name " photo.png other.png result.png", {}, kTwoIn, kOneOut, true, \
     [](const Call& c) { fn(c.src[0], c.src[1], c.dst[0], c.mapping); }}
#define MOX_SCALAR(name, fn, what, example)                                                \
  Op{name, what, "moxpx " name " " example " photo.png result.png", {kValue}, kOneIn,      \
     kOneOut, true, [](const Call& c) { fn(c.src[0], c.dst[0], c.args.i("value"), c.mapping); }}
#define MOX_ONE(name, fn, what)                                                            \
  Op{name, what, "moxpx " name " photo.png result.png", {}, kOneIn, kOneOut, true,         \
     [](const Call& c) { fn(c.src[0], c.dst[0], c.mapping); }}

// The conversions between colour models, which convert whole images; the
// ways back need their sources labelled with the model they hold.
#define MOX_MODEL(opName, fn, what, model)                                                 \
  Op{.name = opName, .summary = what, .example = "moxpx " opName " photo.png result.png",   \
     .args = {}, .inputs = kOneIn, .outputs = kOneOut, .mapping = true,                     \
     .call = [](const Call& c) { fn(c.src[0], c.dst[0], c.mapping); }, .srcModel = model,   \
     .wholeImage = true}

// The box filters and the morphology.
#define MOX_BOX(opName, fn, what)                                                          \
  Op{opName, what, "moxpx " opName " --nCols 5 --nRows 5 --anchorX 2 --anchorY 2 photo.png " \
     "result.png", kBox, kOneIn, kOneOut, false,                                            \
     [](const Call& c) {                                                                    \
       const Args& a = c.args;                                                              \
       fn(c.src[0], c.dst[0], a.i("nCols"), a.i("nRows"), a.i("anchorX"), a.i("anchorY"));  \
     }}
#define MOX_MORPH(opName, fn, what)                                                        \
  Op{opName, what, "moxpx " opName " --nIterations 2 photo.png result.png", {kIterations},  \
     kOneIn, kOneOut, false,                                                                \
     [](const Call& c) { fn(c.src[0], c.dst[0], c.args.i("nIterations")); }}

// Spectra and cosine coefficients need 32 bits; samples coming back are 8U
// unless --dstDepth says otherwise.
unsigned spectrumDepth(const Args&, unsigned) { return MOX_DEPTH_32S; }
unsigned samplesDepth(const Args&, unsigned) { return MOX_DEPTH_8U; }
unsigned cosineDepth(const Args& a, unsigned) {
  return a.i("flags") & MOX_DCT_FORWARD ? MOX_DEPTH_32S : MOX_DEPTH_8U;
}

Picture spectrumView(const Picture& result, const Args& a, const std::string& path) {
  return a.i("raw") ? rawView(result, path) : logMagnitude(result, true);
}
Picture cosineView(const Picture& result, const Args& a, const std::string& path) {
  if (!(a.i("flags") & MOX_DCT_FORWARD)) return result;
  return a.i("raw") ? rawView(result, path) : logMagnitude(result, false);
}

// Zoom and decimation make a destination of the source's size times xU/xL
// (rows alike); a factor the library refuses leaves the size alone.
long long scaled(long long size, int u, int l) {
  return u > 0 && l > 0 ? std::min(size * u / l, 1LL << 30) : size;
}
void resampledShape(const Args& a, int& width, int& height, int&) {
  width = int(scaled(width, a.i("xU"), a.i("xL")));
  height = int(scaled(height, a.i("yU"), a.i("yL")));
}
void oneChannel(const Args&, int&, int&, int& channels) { channels = 1; }
void threeChannels(const Args&, int&, int&, int& channels) { channels = 3; }

const std::vector<ArgSpec> kFactors = {
    {"xU", Kind::Int, "2", "numerator of the horizontal factor"},
    {"xL", Kind::Int, "1", "denominator of the horizontal factor"},
    {"yU", Kind::Int, "2", "numerator of the vertical factor"},
    {"yL", Kind::Int, "1", "denominator of the vertical factor"},
    kInterpolate};

// The same lookup table for every channel of the source, from --key and,
// for the maps, --value, --factor and --interpolateType.
class Tables {
 public:
  Tables(const Call& c, bool map) {
    const Args& a = c.args;
    key_ = a.list("key");
    if (key_.size() < 2) throw UsageError("--key wants at least two bin boundaries");
    const std::size_t bins = key_.size() - 1;
    int type = MOX_LUT_LOOKUP;
    if (map) {
      value_ = a.list("value");
      factor_ = a.list("factor");
      type = a.i("interpolateType");
      if (value_.size() != bins)
        throw UsageError("--value wants one number per bin (" + std::to_string(bins) + "), not " +
                         std::to_string(value_.size()));
      if (factor_.empty()) factor_.assign(bins, 0);
      if (factor_.size() != bins)
        throw UsageError("--factor wants one number per bin (" + std::to_string(bins) + "), not " +
                         std::to_string(factor_.size()));
    }
    const MoxImage* src = c.src[0];
    channels_ = src->roi && src->roi->coi ? 1 : std::max(src->nChannels, 1);
    tables_.resize(std::size_t(std::max(src->nChannels, 1)));
    counts_.assign(tables_.size(), std::vector<int>(bins, 0));
    for (std::size_t i = 0; i < tables_.size(); ++i) {
      tables_[i] = MoxLUT{int(bins), key_.data(), map ? value_.data() : counts_[i].data(),
                          factor_.empty() ? nullptr : factor_.data(), type};
      pointers_.push_back(&tables_[i]);
    }
  }
  MoxLUT** luts() { return pointers_.data(); }
  // The counts of each processed channel, a line each.
  std::string counts() const {
    std::string text;
    for (int ch = 0; ch < channels_; ++ch) {
      for (std::size_t i = 0; i < counts_[ch].size(); ++i)
        text.append(i ? " " : "").append(std::to_string(counts_[ch][i]));
      text += '\n';
    }
    return text;
  }

 private:
  std::vector<int> key_, value_, factor_;
  std::vector<std::vector<int>> counts_;
  std::vector<MoxLUT> tables_;
  std::vector<MoxLUT*> pointers_;
  int channels_ = 1;
};

void applyColorTwist(const Call& c) {
  const std::vector<int>& m = c.args.list("cTwist");
  if (m.size() != 16)
    throw UsageError("--cTwist wants the 16 numbers of the 4x4 matrix, row by row, not " +
                     std::to_string(m.size()));
  const std::unique_ptr<MoxColorTwist, void (*)(MoxColorTwist*)> twist(
      moxCreateColorTwist(m.data(), c.args.i("scalingValue")),
      [](MoxColorTwist* t) { moxDeleteColorTwist(t); });
  if (!twist) return;  // the library has reported why
  moxApplyColorTwist(c.src[0], c.dst[0], twist.get(), c.args.i("offset"), c.mapping);
}

// The convolution kernels of --name options, made by the library.
class Kernels {
 public:
  Kernels(const Args& a, const char* name) {
    const auto given = a.texts.find(name);
    if (given == a.texts.end()) return;
    for (const std::string& text : given->second) {
      const std::string option = std::string("--") + name;
      const auto colon = text.find(':');
      std::vector<long long> head;
      std::vector<int> values;
      if (colon != std::string::npos && parseInts(text.substr(0, colon), head) &&
          parseInts(text.substr(colon + 1), values) && head.size() == 5 && head[0] > 0 &&
          head[1] > 0 && (long long)values.size() == head[0] * head[1]) {
        MoxConvKernel* k = moxCreateConvKernel(int(head[0]), int(head[1]), int(head[2]),
                                               int(head[3]), values.data(), int(head[4]));
        if (!k)  // the library refuses it without a report
          throw UsageError(option + " " + text + ": the library makes no such kernel (the " +
                           "anchor lies outside it, or nShiftR is outside 0..31)");
        kernels_.push_back(k);
        continue;
      }
      throw UsageError(option + " wants nCols,nRows,anchorX,anchorY,nShiftR:values with " +
                       "nCols*nRows values, not \"" + text + "\"");
    }
  }
  Kernels(const Kernels&) = delete;
  Kernels& operator=(const Kernels&) = delete;
  ~Kernels() {
    for (MoxConvKernel* k : kernels_) moxDeleteConvKernel(k);
  }
  MoxConvKernel* const* data() const { return kernels_.data(); }
  int count() const { return int(kernels_.size()); }
  const MoxConvKernel* first() const { return kernels_.empty() ? nullptr : kernels_[0]; }

 private:
  template <class T>
  static bool parseInts(const std::string& text, std::vector<T>& out) {
    std::stringstream in(text);
    for (std::string part; std::getline(in, part, ',');) {
      char* end = nullptr;
      errno = 0;
      const long long v = std::strtoll(part.c_str(), &end, 10);
      if (part.empty() || *end || errno || v < INT_MIN || v > INT_MAX) return false;
      out.push_back(T(v));
    }
    return !text.empty() && text.back() != ',';
  }
  std::vector<MoxConvKernel*> kernels_;
};

const ArgSpec kIterations{"nIterations", Kind::Int, "1", "how many times (1 or more)"};
const std::vector<ArgSpec> kBox = {{"nCols", Kind::Int, "3", "the box's width"},
                                   {"nRows", Kind::Int, "3", "the box's height"},
                                   {"anchorX", Kind::Int, "1", "the box's anchor column"},
                                   {"anchorY", Kind::Int, "1", "the box's anchor row"}};

#if defined(MOXCLI_BMP)
// An 8-bit palette file of the picture, made by moxConvertToDIB.
void savePalette(const std::string& path, const Picture& result, const Args& a) {
  if (!holdsExactly(path, MOX_DEPTH_8U) || path.size() < 4 ||
      (path.compare(path.size() - 4, 4, ".bmp") && path.compare(path.size() - 4, 4, ".BMP")))
    throw UsageError("converttodib writes a .bmp file, not " + path);
  writeBmp(path, result, 8, a.i("dither"), a.i("paletteConversion"));
}
#endif

const std::vector<Op> kOperations = {
    MOX_TWO("add", moxAdd, "A + B, saturated"),
    Op{"subtract", "A - B (B - A with --reverse 1), saturated",
       "moxpx subtract --reverse 1 photo.png other.png result.png", {kReverse}, kTwoIn, kOneOut,
       true, [](const Call& c) { moxSubtract(c.src[0], c.src[1], c.dst[0], c.args.i("reverse"), c.mapping); }},
    MOX_TWO("multiply", moxMultiply, "A * B, saturated"),
    MOX_TWO("and", moxAnd, "A AND B, bit by bit"),
    MOX_TWO("or", moxOr, "A OR B, bit by bit"),
    MOX_TWO("xor", moxXor, "A XOR B, bit by bit"),
    MOX_SCALAR("adds", moxAddS, "INPUT + value, saturated", "--value 40"),
    Op{"subtracts", "INPUT - value (value - INPUT with --reverse 1), saturated",
       "moxpx subtracts --value 255 --reverse 1 photo.png negative.png", {kValue, kReverse}, kOneIn,
       kOneOut, true,
       [](const Call& c) { moxSubtractS(c.src[0], c.dst[0], c.args.i("value"), c.args.i("reverse"), c.mapping); }},
    MOX_SCALAR("multiplys", moxMultiplyS, "INPUT * value, saturated", "--value 2"),
    MOX_SCALAR("ands", moxAndS, "INPUT AND value, bit by bit", "--value 0xF0"),
    MOX_SCALAR("ors", moxOrS, "INPUT OR value, bit by bit", "--value 0x0F"),
    MOX_SCALAR("xors", moxXorS, "INPUT XOR value, bit by bit", "--value 0x80"),
    Op{"lshifts", "INPUT shifted left by nShift bits (no saturation)",
       "moxpx lshifts --nShift 2 photo.png result.png", {kShift}, kOneIn, kOneOut, true,
       [](const Call& c) { moxLShiftS(c.src[0], c.dst[0], c.args.u("nShift"), c.mapping); }},
    Op{"rshifts", "INPUT shifted right by nShift bits",
       "moxpx rshifts --nShift 2 photo.png result.png", {kShift}, kOneIn, kOneOut, true,
       [](const Call& c) { moxRShiftS(c.src[0], c.dst[0], c.args.u("nShift"), c.mapping); }},
    MOX_ONE("square", moxSquare, "INPUT * INPUT, saturated"),
    MOX_ONE("abs", moxAbs, "|INPUT| (try --depth 8s)"),
    MOX_ONE("not", moxNot, "every stored bit of INPUT inverted"),
    MOX_ONE("copy", moxCopy, "INPUT's ROI copied (with --depth: converted)"),
    Op{"set", "fillValue written into the ROI of INPUT",
       "moxpx set --fillValue 0 --roi 16,16,64,64 photo.png result.png",
       {{"fillValue", Kind::Int, "0", "the value written, cut to the depth"}}, kOneIn, kOneOut,
       true, [](const Call& c) { moxSet(c.dst[0], c.args.i("fillValue"), c.mapping); }},
    Op{"exchange", "the ROI contents of A and B swapped (two outputs)",
       "moxpx exchange --roi 0,0,64,64 photo.png other.png photo2.png other2.png", {}, kTwoIn,
       {"OUTPUT_A", "OUTPUT_B"}, true,
       [](const Call& c) { moxExchange(c.dst[0], c.dst[1], c.mapping); }},
    Op{"realfft2d",
       "2-D real FFT into a packed spectrum, shown as its log-magnitude (--raw 1: the 32s values)",
       "moxpx realfft2d --flags forward photo.png spectrum.png",
       {{"flags", Kind::Flags, "forward", "forward or inverse, with noscale, usealpha, small, general",
         kFftFlags},
        kRaw},
       kOneIn, kOneOut, false,
       [](const Call& c) { moxRealFft2D(c.src[0], c.dst[0], c.args.i("flags"), nullptr); },
       spectrumDepth, spectrumView},
    Op{"ccsfft2d", "2-D FFT of a packed spectrum back into real samples",
       "moxpx ccsfft2d --flags inverse spectrum.npy photo.png",
       {{"flags", Kind::Flags, "inverse", "inverse or forward, with noscale, small, general",
         kFftFlags}},
       kOneIn, kOneOut, false,
       [](const Call& c) { moxCcsFft2D(c.src[0], c.dst[0], c.args.i("flags"), nullptr); },
       samplesDepth},
    Op{"dct2d",
       "orthonormal 2-D DCT, shown as its log-magnitude (--raw 1: the 32s values), or its inverse",
       "moxpx dct2d --flags forward photo.png cosines.png",
       {{"flags", Kind::Flags, "forward", "forward or inverse", kDctFlags}, kRaw}, kOneIn, kOneOut,
       false, [](const Call& c) { moxDCT2D(c.src[0], c.dst[0], c.args.i("flags")); }, cosineDepth,
       cosineView},
    Op{.name = "convert",
       .summary = "INPUT converted to another depth (values saturate) and data order",
       .example = "moxpx convert --depth 16s --dataOrder plane photo.png result.npy",
       .args = {{"depth", Kind::Choice, "8u", "the destination's depth", kDepthNames},
                {"dataOrder", Kind::Choice, "pixel", "the destination's data order", kOrders}},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call& c) { moxConvert(c.src[0], c.dst[0]); },
       .dstDepth = [](const Args& a, unsigned) { return a.u("depth"); },
       .dstOrder = [](const Args& a) { return a.i("dataOrder"); }},
    Op{.name = "bitonaltogray",
       .summary = "a 1-bit picture (INPUT's values that are not 0) to ZeroScale and OneScale",
       .example = "moxpx bitonaltogray --ZeroScale 40 --OneScale 220 bits.png result.png",
       .args = {{"ZeroScale", Kind::Int, "0", "the value of clear bits"},
                {"OneScale", Kind::Int, "255", "the value of set bits"}},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call& c) {
         moxBitonalToGray(c.src[0], c.dst[0], c.args.i("ZeroScale"), c.args.i("OneScale"));
       },
       .dstDepth = samplesDepth, .srcDepth = MOX_DEPTH_1U},
    Op{.name = "reducebits",
       .summary = "INPUT reduced to equally spaced levels, dithered, with optional jitter",
       .example = "moxpx reducebits --noise 0 --ditherType fs --levels 2 photo.png result.png",
       .args = {{"noise", Kind::Int, "0", "jitter in percent of a level step (0..100)"},
                {"ditherType", Kind::Choice, "none", "the dither", kDithers},
                {"levels", Kind::Int, "2", "the number of output levels"}},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call& c) {
         moxReduceBits(c.src[0], c.dst[0], c.args.i("noise"), c.args.i("ditherType"),
                       c.args.i("levels"));
       }},
    Op{"convolve2d", "INPUT convolved with each --kernel, the results combined",
       "moxpx convolve2d --kernel 3,3,1,1,0:0,-1,0,-1,5,-1,0,-1,0 --combineMethod sum "
       "photo.png result.png",
       {{"kernel", Kind::Kernel, "",
         "nCols,nRows,anchorX,anchorY,nShiftR:values row by row (give 1 to 100)"},
        {"combineMethod", Kind::Choice, "sum", "how the kernels' results combine", kCombines}},
       kOneIn, kOneOut, false,
       [](const Call& c) {
         const Kernels k(c.args, "kernel");
         moxConvolve2D(c.src[0], c.dst[0], k.data(), k.count(), c.args.i("combineMethod"));
       }},
    Op{"convolvesep2d", "INPUT convolved with a row kernel, then a column kernel",
       "moxpx convolvesep2d --xKernel 3,1,1,0,2:1,2,1 --yKernel 1,3,0,1,2:1,2,1 photo.png "
       "result.png",
       {{"xKernel", Kind::Kernel, "", "the row kernel (none: skipped)"},
        {"yKernel", Kind::Kernel, "", "the column kernel (none: skipped)"}},
       kOneIn, kOneOut, false,
       [](const Call& c) {
         const Kernels x(c.args, "xKernel"), y(c.args, "yKernel");
         if (x.count() > 1 || y.count() > 1)
           throw UsageError("--xKernel and --yKernel are given once each");
         moxConvolveSep2D(c.src[0], c.dst[0], x.first(), y.first());
       }},
    MOX_BOX("blur", moxBlur, "the mean of INPUT over a box, rounded half up"),
    MOX_BOX("minfilter", moxMinFilter, "the minimum of INPUT over a box"),
    MOX_BOX("maxfilter", moxMaxFilter, "the maximum of INPUT over a box"),
    MOX_BOX("medianfilter", moxMedianFilter, "the median of INPUT over a box"),
    MOX_MORPH("erode", moxErode, "INPUT eroded by a 3x3 square, nIterations times"),
    MOX_MORPH("dilate", moxDilate, "INPUT dilated by a 3x3 square, nIterations times"),
    MOX_MORPH("open", moxOpen, "INPUT eroded, then dilated, nIterations times each"),
    MOX_MORPH("close", moxClose, "INPUT dilated, then eroded, nIterations times each"),
    Op{.name = "zoom",
       .summary = "INPUT enlarged by xU/xL across and yU/yL down",
       .example = "moxpx zoom --xU 3 --xL 2 --yU 3 --yL 2 --interpolate cubic photo.png result.png",
       .args = kFactors, .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call& c) {
         const Args& a = c.args;
         moxZoom(c.src[0], c.dst[0], a.i("xU"), a.i("xL"), a.i("yU"), a.i("yL"), a.i("interpolate"),
                 nullptr);
       },
       .shape = resampledShape},
    Op{.name = "decimate",
       .summary = "INPUT reduced by xU/xL across and yU/yL down",
       .example = "moxpx decimate --xU 3 --xL 8 --yU 3 --yL 8 --interpolate linear "
                  "photo.png result.png",
       .args = {{"xU", Kind::Int, "1", "numerator of the horizontal factor"},
                {"xL", Kind::Int, "2", "denominator of the horizontal factor"},
                {"yU", Kind::Int, "1", "numerator of the vertical factor"},
                {"yL", Kind::Int, "2", "denominator of the vertical factor"},
                kInterpolate},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call& c) {
         const Args& a = c.args;
         moxDecimate(c.src[0], c.dst[0], a.i("xU"), a.i("xL"), a.i("yU"), a.i("yL"),
                     a.i("interpolate"), nullptr);
       },
       .shape = resampledShape},
    Op{"mirror", "INPUT mirrored about the horizontal (0), vertical (1) or both (-1) axes",
       "moxpx mirror --flipAxis 1 photo.png result.png",
       {{"flipAxis", Kind::Int, "0", "0: upside down, 1: left to right, -1: both"}}, kOneIn,
       kOneOut, false, [](const Call& c) { moxMirror(c.src[0], c.dst[0], c.args.i("flipAxis")); }},
    Op{"rotate", "INPUT turned by angle/100 degrees about (xCenter, yCenter)",
       "moxpx rotate --angle 3000 --xCenter 24 --yCenter 16 --interpolate linear "
       "photo.png result.png",
       {{"angle", Kind::Int, "9000", "hundredths of a degree"},
        {"xCenter", Kind::Int, "0", "column of the centre"},
        {"yCenter", Kind::Int, "0", "row of the centre"},
        kInterpolate},
       kOneIn, kOneOut, true,
       [](const Call& c) {
         const Args& a = c.args;
         moxRotate(c.src[0], c.dst[0], a.i("angle"), a.i("xCenter"), a.i("yCenter"),
                   a.i("interpolate"), c.mapping);
       }},
    Op{.name = "colortogray",
       .summary = "an RGB INPUT as one grey channel",
       .example = "moxpx colortogray photo.png result.png",
       .args = {}, .inputs = kOneIn, .outputs = kOneOut, .mapping = true,
       .call = [](const Call& c) { moxColorToGray(c.src[0], c.dst[0], c.mapping); },
       .shape = oneChannel, .wholeImage = true},
    Op{.name = "graytocolor",
       .summary = "a grey INPUT as RGB, each channel the grey times its fraction",
       .example = "moxpx graytocolor --fractR 1.0 --fractG 0.8 --fractB 0.55 bits.png result.png",
       .args = {{"fractR", Kind::Real, "0", "the red fraction (all 0: the grey weights)"},
                {"fractG", Kind::Real, "0", "the green fraction"},
                {"fractB", Kind::Real, "0", "the blue fraction"}},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = true,
       .call = [](const Call& c) {
         moxGrayToColor(c.src[0], c.dst[0], c.args.f("fractR"), c.args.f("fractG"),
                        c.args.f("fractB"), c.mapping);
       },
       .shape = threeChannels,
       .srcSeq = "RGB",  // the colours are written in the order the grey source's label names
       .wholeImage = true},
    MOX_MODEL("rgb2hsv", moxRGB2HSV, "RGB INPUT as hue, saturation and value", nullptr),
    MOX_MODEL("hsv2rgb", moxHSV2RGB,
              "hue, saturation and value of INPUT (as rgb2hsv writes them) back to RGB", "HSV"),
    MOX_MODEL("rgb2hls", moxRGB2HLS, "RGB INPUT as hue, lightness and saturation", nullptr),
    MOX_MODEL("hls2rgb", moxHLS2RGB,
              "hue, lightness and saturation of INPUT (as rgb2hls writes them) back to RGB", "HLS"),
    Op{"applycolortwist",
       "the first three channels of INPUT through a 4x4 matrix over 2^scalingValue, plus offset",
       "moxpx applycolortwist --cTwist 0,0,1,0,0,1,0,0,1,0,0,0,0,0,0,0 --scalingValue 0 "
       "--offset 0 photo.png result.png",
       {{"cTwist", Kind::List, "1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1",
         "the matrix, 16 whole numbers row by row"},
        {"scalingValue", Kind::Int, "0", "the matrix is divided by 2^scalingValue (0..31)"},
        {"offset", Kind::Int, "0", "added to every result"}},
       kOneIn, kOneOut, true, applyColorTwist},
    MOX_SCALAR("multiplysscale", moxMultiplySScale, "INPUT * value / max, rounded", "--value 160"),
    MOX_TWO("multiplyscale", moxMultiplyScale, "A * B / max, rounded"),
    Op{"premultiplyalpha",
       "the colours of INPUT times its alpha (or times alphaValue, which becomes the alpha)",
       "moxpx premultiplyalpha --alphaValue -1 photo-alpha.png result.png",
       {{"alphaValue", Kind::Int, "-1", "below 0: each pixel's own alpha"}}, kOneIn, kOneOut, true,
       [](const Call& c) { moxPreMultiplyAlpha(c.dst[0], c.args.i("alphaValue"), c.mapping); }},
    Op{"alphacomposite", "A composed with B by their alpha channels (opaque without one)",
       "moxpx alphacomposite --compositeType xor photo-alpha.png photo.png result.png",
       {kCompositeType, kPremulAlpha, kDivideMode}, kTwoIn, kOneOut, false,
       [](const Call& c) {
         const Args& a = c.args;
         moxAlphaComposite(c.src[0], c.src[1], c.dst[0], a.i("compositeType"), nullptr, nullptr,
                           nullptr, a.i("premulAlpha"), a.i("divideMode"));
       }},
    Op{"alphacompositec", "A composed with B, with the constant alphas aA and aB",
       "moxpx alphacompositec --compositeType over --aA 96 --aB 255 photo.png other.png result.png",
       {kCompositeType,
        {"aA", Kind::Int, "255", "the alpha of A"},
        {"aB", Kind::Int, "255", "the alpha of B"},
        kPremulAlpha, kDivideMode},
       kTwoIn, kOneOut, false,
       [](const Call& c) {
         const Args& a = c.args;
         moxAlphaCompositeC(c.src[0], c.src[1], c.dst[0], a.i("compositeType"), a.i("aA"),
                            a.i("aB"), a.i("premulAlpha"), a.i("divideMode"));
       }},
    Op{"threshold",
       "values of INPUT below threshold to the depth's minimum, the rest to its maximum",
       "moxpx threshold --threshold 128 photo.png result.png",
       {{"threshold", Kind::Int, "128", "the first value that becomes the maximum"}}, kOneIn,
       kOneOut, false,
       [](const Call& c) { moxThreshold(c.src[0], c.dst[0], c.args.i("threshold")); }},
    Op{"computehisto", "prints each channel's counts in the bins of --key, a line per channel",
       "moxpx computehisto --key 0,64,128,192,256 photo.png", {kKey}, kOneIn, {}, false,
       [](const Call& c) {
         Tables tables(c, false);
         moxComputeHisto(c.src[0], tables.luts());
         c.printed = tables.counts();
       }},
    Op{"histoequalize", "each channel of INPUT equalized over the bins of --key",
       "moxpx histoequalize --key 0:256 photo.png result.png", {kKey}, kOneIn, kOneOut, false,
       [](const Call& c) {
         Tables tables(c, false);
         moxHistoEqualize(c.src[0], c.dst[0], tables.luts());
       }},
    Op{"contraststretch", "each channel of INPUT mapped bin by bin (value, plus factor slopes)",
       "moxpx contraststretch --key 0,64,192,256 --value 0,128,224 --factor 131072,49152,32768 "
       "--interpolateType inter photo.png result.png",
       {kKey,
        {"value", Kind::List, "", "the value of each bin"},
        {"factor", Kind::List, "", "inter: each bin's slope in 1/65536 (none: every slope 0)"},
        {"interpolateType", Kind::Choice, "lookup", "lookup: steps, inter: slopes", kLutTypes}},
       kOneIn, kOneOut, false,
       [](const Call& c) {
         Tables tables(c, true);
         moxContrastStretch(c.src[0], c.dst[0], tables.luts());
       }},
    Op{"norm", "prints the C, L1 or L2 norm of A - B (relative: divided by B's)",
       "moxpx norm --normType l1 photo.png other.png",
       {{"normType", Kind::Flags, "l2", "c, l1 or l2, with relative", kNorms}}, kTwoIn, {}, false,
       [](const Call& c) {
         const double v = moxNorm(c.src[0], c.src[1], c.args.i("normType"));
         char text[40];
         std::snprintf(text, sizeof text, "%.17g\n", v);
         c.printed = text;
       }},
#if defined(MOXCLI_BMP)
    Op{.name = "converttodib",
       .summary = "INPUT as an 8-bit palette BMP file (the palette built and dithered as asked)",
       .example = "moxpx converttodib --dither fs --paletteConversion medcut photo.png result.bmp",
       .args = {{"dither", Kind::Choice, "none", "the dither of the palette mapping", kDithers},
                {"paletteConversion", Kind::Choice, "none",
                 "the palette: the 3-3-2 cube, the most frequent colours, or median cut", kPalettes}},
       .inputs = kOneIn, .outputs = kOneOut, .mapping = false,
       .call = [](const Call&) {},  // the destination is the input; the file is the work
       .save = savePalette},
#endif
};

}  // namespace

const std::vector<Op>& operations() { return kOperations; }

const Op* findOperation(const std::string& name) {
  for (const Op& op : kOperations)
    if (name == op.name) return &op;
  return nullptr;
}

}  // namespace moxcli
