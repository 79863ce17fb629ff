// The sub-commands. Every operation of the library is one entry: its name,
// one line of description, an example, its arguments with their interface
// names, and the call. A new operation adds one entry here.
#include <cstring>

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

const ArgSpec kValue{"value", Kind::Int, "0", "the scalar operand"};
const ArgSpec kReverse{"reverse", Kind::Int, "0", "non-zero: the operands swap places"};
const ArgSpec kShift{"nShift", Kind::Unsigned, "1", "bits to shift by (taken modulo 32)"};
const ArgSpec kRaw{"raw", Kind::Tool, "0",
                   "1: write the result's values as they are (into .npy) instead of a picture"};

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
