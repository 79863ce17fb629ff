#!/usr/bin/env python3
"""Tests of the moxpx command-line tool.

Every sub-command runs on small images and is compared with the same call
made directly on the shared library (through ctypes); tiled and threaded
runs must give the same bytes as plain ones; bad files and bad options end
with their exit status and a message that names the problem.

Usage: cli_test.py TOOL LIBRARY [unittest options]
"""

import ctypes as C
import glob
import os
import pty
import re
import subprocess
import sys
import tempfile
import unittest

import numpy as np

TOOL = LIBRARY = None
SAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "samples")
DONE, LIBRARY_FAILURE, USAGE, FILE_FAILURE = 0, 1, 2, 3

DEPTHS = {np.uint8: 8, np.int8: 0x80000008, np.uint16: 16, np.int16: 0x80000010,
          np.int32: 0x80000020}
P, I = C.c_void_p, C.c_int


class MoxImage(C.Structure):
    _fields_ = [("headerSize", I), ("headerId", I), ("nChannels", I), ("alphaChannel", I),
                ("depth", C.c_uint), ("colorModel", C.c_char * 4), ("channelSeq", C.c_char * 4),
                ("dataOrder", I), ("origin", I), ("align", I), ("height", I), ("width", I),
                ("roi", P), ("maskRoi", P), ("imageId", P), ("tileInfo", P), ("imageSize", I),
                ("imageData", P), ("widthStep", I), ("borderMode", I * 4),
                ("borderConst", I * 4), ("imageDataOrigin", P)]


class MoxLUT(C.Structure):
    _fields_ = [("num", I), ("key", C.POINTER(I)), ("value", C.POINTER(I)),
                ("factor", C.POINTER(I)), ("interpolateType", I)]


class Library:
    """The shared library, called directly."""

    def __init__(self, path):
        self.lib = lib = C.CDLL(path)
        lib.moxCreateImageHeader.restype = C.POINTER(MoxImage)
        lib.moxCreateImageHeader.argtypes = [I, I, C.c_uint] + [C.c_char_p] * 2 + [I] * 5 + [P] * 3
        lib.moxCreateROI.argtypes = [I] * 5
        lib.moxDeallocate.argtypes = [C.POINTER(MoxImage), I]
        lib.moxCreateROI.restype = lib.moxCreateColorTwist.restype = P
        lib.moxCreateConvKernel.restype = P
        lib.moxNorm.restype = C.c_double
        lib.moxSetErrMode(1)
        lib.moxRedirectError(lib.moxNulDevReport)

    @staticmethod
    def rows(im, array):
        """The image's rows as bytes, as wide as the array's rows."""
        h, step = array.shape[0], im.contents.widthStep
        data = np.ctypeslib.as_array((C.c_uint8 * (h * step)).from_address(im.contents.imageData))
        return data.reshape(h, step)[:, :array[0].nbytes]

    def image(self, array, roi=None, coi=0, model=None):
        """A library image holding the array (rows, columns[, channels])."""
        h, w = array.shape[:2]
        n = array.shape[2] if array.ndim == 3 else 1
        x, y, rw, rh = roi or (0, 0, w, h)
        region = self.lib.moxCreateROI(coi, x, y, rh, rw) if roi or coi else None
        im = self.lib.moxCreateImageHeader(n, n if n in (2, 4) else 0, DEPTHS[array.dtype.type],
                                           model or (b"GRAY" if n < 3 else b"RGB"), b"RGBA", 0,
                                           0, 8, h, w, region, None, None)
        self.lib.moxAllocateImage(im, 0)
        self.rows(im, array)[:] = np.ascontiguousarray(array).reshape(h, -1).view(np.uint8)
        return im

    def run(self, call, sources, destinations, roi=None, coi=0, model=None):
        """call(lib, src images, dst images); the destinations' arrays."""
        self.lib.moxSetErrStatus(0)
        srcs = [self.image(a, roi, coi, model) for a in sources]
        dsts = [self.image(a, roi, coi) for a in destinations]
        call(self.lib, srcs, dsts)
        status = self.lib.moxGetErrStatus()
        out = [np.empty_like(a) for a in destinations]
        for d, a in zip(dsts, out):
            a.reshape(a.shape[0], -1).view(np.uint8)[:] = self.rows(d, a)
        for im in srcs + dsts:
            self.lib.moxDeallocate(im, 15)
        assert not status, "the library reported status %d" % status
        return out


def tool(*args, check=None, cwd=None):
    done = subprocess.run([TOOL] + [str(a) for a in args], capture_output=True, text=True, cwd=cwd)
    if check is not None and done.returncode != check:
        raise AssertionError("moxpx %s: status %d, wanted %d\n%s" % (
            " ".join(map(str, args)), done.returncode, check, done.stderr))
    return done


def noise(shape, dtype, seed):
    info = np.iinfo(dtype)
    rng = np.random.default_rng(seed)
    return rng.integers(info.min, info.max, size=shape, endpoint=True, dtype=dtype)


def needs_bmp(test):
    if ".bmp" not in tool("--help").stdout:
        test.skipTest("this build reads and writes no BMP files")


class Temp(unittest.TestCase):
    def setUp(self):
        self.dir = self.enterContext(tempfile.TemporaryDirectory())

    def path(self, name):
        return os.path.join(self.dir, name)

    def save(self, name, array):
        np.save(self.path(name), array)
        return self.path(name)

    def npy(self, *args, check=DONE):
        """Runs the tool with an .npy output and returns the output."""
        out = self.path("out.npy")
        tool(*args, out, check=check)
        return np.load(out)


def plain(fn, *extra):  # one source
    return lambda L, s, d: getattr(L, fn)(s[0], d[0], *extra)


def both(fn, *extra):  # two sources
    return lambda L, s, d: getattr(L, fn)(s[0], s[1], d[0], *extra)


def one(fn, *extra):
    return plain(fn, *extra, None)


def two(fn, *extra):
    return both(fn, *extra, None)


def twist(matrix, scale, offset):
    def call(L, s, d):
        t = L.moxCreateColorTwist((I * 16)(*matrix), scale)
        L.moxApplyColorTwist(s[0], d[0], P(t), offset, None)
        L.moxDeleteColorTwist(P(t))
    return call


def lut(fn, key, value=(), factor=(), kind=0):
    """The call with one table per channel; the call keeps the arrays alive."""
    arrays = [(I * len(v))(*v) for v in (key, value, factor)]
    record = MoxLUT(len(key) - 1, *[C.cast(a, C.POINTER(I)) for a in arrays], kind)
    tables = (P * 3)(*[C.addressof(record)] * 3)

    def call(L, s, d):
        getattr(L, fn)(s[0], d[0], tables)
    call.held = arrays, record
    return call


def convolve(kernels, combine=None, sep=False):
    def call(L, s, d):
        made = [P(L.moxCreateConvKernel(w, h, ax, ay, (I * len(v))(*v), shift))
                for w, h, ax, ay, shift, v in kernels]
        if sep:
            L.moxConvolveSep2D(s[0], d[0], *made)
        else:
            L.moxConvolve2D(s[0], d[0], (P * len(made))(*made), len(made), combine)
        for k in made:
            L.moxDeleteConvKernel(k)
    return call


def case(op, options, call, dtypes=(np.uint8,), shape=(19, 27, 3), dst=None, model=None):
    """A row of the table below; dst: the destination's shape if not the first source's."""
    return op, options, call, dtypes, shape, dst, model


# The point sub-commands (name, options, sources, direct call), each on one
# depth in turn, grey and colour in turn.
POINT_OPS = [
    ("add", [], 2, two("moxAdd")), ("multiply", [], 2, two("moxMultiply")),
    ("subtract", [], 2, two("moxSubtract", 0)),
    ("subtract", ["--reverse", 1], 2, two("moxSubtract", 1)),
    ("and", [], 2, two("moxAnd")), ("or", [], 2, two("moxOr")), ("xor", [], 2, two("moxXor")),
    ("adds", ["--value", -40], 1, one("moxAddS", -40)),
    ("subtracts", ["--value", 7, "--reverse", 1], 1, one("moxSubtractS", 7, 1)),
    ("multiplys", ["--value", 3], 1, one("moxMultiplyS", 3)),
    ("ands", ["--value", "0x5A"], 1, one("moxAndS", 0x5A)),
    ("ors", ["--value", 33], 1, one("moxOrS", 33)),
    ("xors", ["--value", -1], 1, one("moxXorS", -1)),
    ("lshifts", ["--nShift", 3], 1, one("moxLShiftS", 3)),
    ("rshifts", ["--nShift", 33], 1, one("moxRShiftS", 33)),
    ("square", [], 1, one("moxSquare")), ("abs", [], 1, one("moxAbs")),
    ("not", [], 1, one("moxNot")), ("copy", [], 1, one("moxCopy")),
    ("set", ["--fillValue", 300], 1, lambda L, s, d: L.moxSet(d[0], 300, None)),
]
SEPIA = [34, 137, 70, 0, 43, 176, 89, 0, 48, 197, 101, 0, 0, 0, 0, 0]
SOBEL_X, SOBEL_Y = [-1, 0, 1, -2, 0, 2, -1, 0, 1], [-1, -2, -1, 0, 0, 0, 1, 2, 1]
F, U16, S16, GREY = C.c_float, (np.uint16,), (np.int16,), (19, 27)
WINDOW = ["--nCols", 5, "--nRows", 3, "--anchorX", 1, "--anchorY", 2]
OPS = [case(op, options, call, (list(DEPTHS)[k % 5],) * n, (19, 27, 3)[:2 + k % 2])
       for k, (op, options, n, call) in enumerate(POINT_OPS)]
OPS += [
    case("zoom", ["--xU", 2, "--xL", 1, "--yU", 5, "--yL", 3, "--interpolate", "cubic"],
         plain("moxZoom", 2, 1, 5, 3, 2, None), S16, (13, 9), (21, 18)),
    case("decimate", ["--xU", 3, "--xL", 8, "--yU", 1, "--yL", 2, "--interpolate", "linear"],
         plain("moxDecimate", 3, 8, 1, 2, 1, None), U16, (40, 48, 3), (20, 18, 3)),
    case("mirror", ["--flipAxis", -1], plain("moxMirror", -1), (np.int32,), (11, 17, 3)),
    case("rotate", ["--angle", 3000, "--xCenter", 10, "--yCenter", 7, "--interpolate", "cubic"],
         one("moxRotate", 3000, 10, 7, 2)),
    case("colortogray", [], one("moxColorToGray"), U16, dst=GREY),
    case("graytocolor", ["--fractR", 1.0, "--fractG", 0.5, "--fractB", 0.25],
         one("moxGrayToColor", F(1.0), F(0.5), F(0.25)), shape=GREY, dst=(19, 27, 3)),
    case("rgb2hsv", [], one("moxRGB2HSV")),
    case("hsv2rgb", [], one("moxHSV2RGB"), U16, model=b"HSV"),
    case("rgb2hls", [], one("moxRGB2HLS"), U16),
    case("hls2rgb", [], one("moxHLS2RGB"), model=b"HLS"),
    case("applycolortwist", ["--cTwist", ",".join(map(str, SEPIA)), "--scalingValue", 8,
                             "--offset", 5], twist(SEPIA, 8, 5), U16, (19, 27, 4)),
    case("multiplysscale", ["--value", 160], one("moxMultiplySScale", 160), U16),
    case("multiplyscale", [], two("moxMultiplyScale"), (np.uint8, np.uint8)),
    case("premultiplyalpha", [], lambda L, s, d: L.moxPreMultiplyAlpha(d[0], -1, None),
         shape=(19, 27, 4)),
    case("premultiplyalpha", ["--alphaValue", 100],
         lambda L, s, d: L.moxPreMultiplyAlpha(d[0], 100, None), U16, (19, 27, 2)),
    case("alphacomposite", ["--compositeType", "atop", "--divideMode", 1],
         both("moxAlphaComposite", 3, None, None, None, 0, 1), (np.uint8, np.uint8), (19, 27, 4)),
    case("alphacompositec", ["--compositeType", "over", "--aA", 96, "--aB", 200, "--premulAlpha",
                             1], both("moxAlphaCompositeC", 0, 96, 200, 1, 0), U16 * 2),
    case("threshold", ["--threshold", -5], plain("moxThreshold", -5), S16),
    case("histoequalize", ["--key", "16,100:110,200"],
         lut("moxHistoEqualize", [16, *range(100, 111), 200])),
    case("contraststretch", ["--key", "0,64,192,256", "--value", "0,128,224", "--factor",
                             "131072,49152,32768", "--interpolateType", "inter"],
         lut("moxContrastStretch", [0, 64, 192, 256], [0, 128, 224], [131072, 49152, 32768], 1)),
    case("convolve2d", ["--kernel", "3,3,1,1,1:" + ",".join(map(str, SOBEL_X)), "--kernel",
                        "3,3,0,2,0:" + ",".join(map(str, SOBEL_Y)),
                        "--combineMethod", "sumsqroot"],
         convolve([(3, 3, 1, 1, 1, SOBEL_X), (3, 3, 0, 2, 0, SOBEL_Y)], 2), S16, GREY),
    case("convolvesep2d", ["--xKernel", "5,1,2,0,4:1,4,6,4,1", "--yKernel", "1,3,0,0,1:1,0,1"],
         convolve([(5, 1, 2, 0, 4, [1, 4, 6, 4, 1]), (1, 3, 0, 0, 1, [1, 0, 1])], sep=True), U16),
]
OPS += [case(op, WINDOW, plain(fn, 5, 3, 1, 2))
        for op, fn in [("blur", "moxBlur"), ("minfilter", "moxMinFilter"),
                       ("maxfilter", "moxMaxFilter"), ("medianfilter", "moxMedianFilter")]]
OPS += [case(op, ["--nIterations", 2], plain(fn, 2), U16, GREY)
        for op, fn in [("erode", "moxErode"), ("dilate", "moxDilate"), ("open", "moxOpen"),
                       ("close", "moxClose")]]
OPS += [case("reducebits", ["--noise", 30, "--ditherType", dither, "--levels", 3],
             plain("moxReduceBits", 30, code, 3)) for dither, code in [("fs", 1), ("bayer", 4)]]

RAMP = np.array([[0, 100, 200, 255]], np.uint8)
BITS = noise((13, 17), np.uint8, 5) // 128 * 7  # zeros and sevens
PIXELS = noise((13, 17, 3), np.uint8, 4)
# (options, source, the output wanted)
KNOWN_OUTPUTS = [
    (["copy", "--depth", "8s"], RAMP, [[0, 100, 127, 127]]),
    # 0 - 150 saturates at -128 in 8S.
    (["subtracts", "--depth", "8s", "--dstDepth", "8s", "--value", 150], RAMP,
     [[-128, -50, -23, -23]]),
    (["copy", "--depth", "1u"], RAMP, [[0, 255, 255, 255]]),
    (["convert", "--depth", "16s", "--dataOrder", "plane"], PIXELS, PIXELS.astype(np.int16)),
    (["convert", "--depth", "8s"], PIXELS, np.minimum(PIXELS, 127).astype(np.int8)),
    (["bitonaltogray", "--ZeroScale", 40, "--OneScale", 220], BITS, np.where(BITS, 220, 40)),
]


class Operations(Temp):
    """Each sub-command against the direct call with the same arguments."""

    def test_against_the_library(self):
        for op, options, call, dtypes, shape, dst, model in OPS:
            arrays = [noise(shape, t, seed + 3) for seed, t in enumerate(dtypes)]
            files = [self.save("in%d.npy" % i, a) for i, a in enumerate(arrays)]
            start = arrays[0] if dst is None else np.zeros(dst, dtypes[0])
            with self.subTest(op=op, options=options, dtypes=dtypes):
                got = self.npy(op, *options, *files)
                want, = LIB.run(call, arrays, [start], model=model)
                np.testing.assert_array_equal(want, got)

    def test_known_outputs(self):
        for args, source, want in KNOWN_OUTPUTS:
            with self.subTest(args=args):
                np.testing.assert_array_equal(want, self.npy(*args, self.save("a.npy", source)))

    def test_roi_coi_and_exchange(self):
        a, b = noise((23, 31, 3), np.uint8, 1), noise((23, 31, 3), np.uint8, 2)
        files = [self.save("a.npy", a), self.save("b.npy", b)]
        for roi, coi in [((3, 5, 11, 7), 0), ((0, 0, 31, 23), 2), ((20, 10, 50, 50), 3)]:
            with self.subTest(roi=roi, coi=coi):
                got = self.npy("add", "--roi", ",".join(map(str, roi)), "--coi", coi, *files)
                want, = LIB.run(two("moxAdd"), [a, b], [a], roi, coi)
                np.testing.assert_array_equal(want, got)
                outside = np.ones(a.shape, bool)
                x, y, w, h = roi
                outside[y:y + h, x:x + w, (coi - 1) if coi else slice(None)] = False
                np.testing.assert_array_equal(a[outside], got[outside])
        tool("exchange", "--roi", "2,1,8,5", *files, self.path("oa.npy"), self.path("ob.npy"),
             check=DONE)
        want = LIB.run(lambda L, s, d: L.moxExchange(d[0], d[1], None), [a, b], [a, b],
                       (2, 1, 8, 5))
        np.testing.assert_array_equal(want[0], np.load(self.path("oa.npy")))
        np.testing.assert_array_equal(want[1], np.load(self.path("ob.npy")))

    def test_printed_counts_and_norms(self):
        a, b = noise((21, 30, 3), np.uint8, 8), noise((21, 30, 3), np.uint8, 9)
        fa, fb = self.save("a.npy", a), self.save("b.npy", b)
        out = tool("computehisto", "--key", "0,10,128,255", fa, check=DONE).stdout
        want = [np.count_nonzero((a[..., c] >= lo) & (a[..., c] < hi))
                for c in range(3) for lo, hi in [(0, 10), (10, 128), (128, 255)]]
        self.assertEqual(want, [int(v) for v in out.split()])
        self.assertEqual(3, len(out.splitlines()))
        out = tool("computehisto", "--coi", 2, fa, check=DONE).stdout
        self.assertEqual(np.bincount(a[..., 1].ravel(), minlength=256).tolist(),
                         [int(v) for v in out.split()])
        ia, ib = LIB.image(a), LIB.image(b)
        for name, code in [("c", 1), ("l1", 2), ("l2", 4), ("l2,relative", 12)]:
            with self.subTest(normType=name):
                printed = float(tool("norm", "--normType", name, fa, fb, check=DONE).stdout)
                self.assertEqual(LIB.lib.moxNorm(ia, ib, code), printed)
        LIB.lib.moxDeallocate(ia, 15)
        LIB.lib.moxDeallocate(ib, 15)

    def test_palette_bitmap(self):
        needs_bmp(self)
        g = noise((9, 14), np.uint8, 6)
        out = self.path("p.bmp")
        tool("converttodib", "--dither", "fs", "--paletteConversion", "medcut",
             self.save("g.npy", g), out, check=DONE)
        with open(out, "rb") as f:
            self.assertEqual(8, int.from_bytes(f.read(30)[28:30], "little"))  # bits per pixel
        np.testing.assert_array_equal(g, self.npy("copy", out))  # a grey palette keeps greys


class TilesAndThreads(Temp):
    """The same bytes whatever the tiling and the number of threads: two
    sources, a destination alone, bits, geometry, a change of channels, a
    colour model and an alpha channel."""

    RUNS = [["--tile", "8,8"], ["--tile", "16,40"], ["--threads", "3"],
            ["--threads", "4", "--tile", "8,16"], ["--threads", "2", "--tile", "64,64"]]
    CASES = [("add", [], [np.uint8, np.uint8], 1), ("set", ["--fillValue", 5], [np.int16], 1),
             ("copy", ["--depth", "1u"], [np.uint8], 1),
             ("rotate", ["--angle", 4500, "--xCenter", 30, "--yCenter", 20, "--interpolate",
                         "linear"], [np.uint8], 3),
             ("graytocolor", ["--fractR", 0.9], [np.uint16], 1), ("hsv2rgb", [], [np.uint8], 3),
             ("premultiplyalpha", ["--alphaValue", -1], [np.uint8], 4)]

    def test_identical_output(self):
        for op, options, dtypes, channels in self.CASES:
            files = [self.save("in%d.npy" % i, noise((45, 70, channels), t, i))
                     for i, t in enumerate(dtypes)]
            for roi in [[], ["--roi", "5,3,50,33"]]:
                plain = self.npy(op, *options, *roi, *files)
                for run in self.RUNS:
                    with self.subTest(op=op, roi=roi, run=run):
                        np.testing.assert_array_equal(plain, self.npy(op, *options, *roi, *run,
                                                                      *files))


class GalleryCommands(Temp):
    """Every gallery picture's command line is one the tool takes."""

    def test_every_command_parses(self):
        found = []
        for path in sorted(glob.glob(os.path.join(SAMPLES, "..", "examples", "gallery_*.c"))):
            with open(path) as f:
                text = re.sub(r"/\*.*?\*/", "", f.read(), flags=re.S)
            # Adjacent literals are one string.
            for run in re.finditer(r'"(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*', text):
                value = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', run.group(0)))
                if value.startswith("moxpx "):
                    found.append((os.path.basename(path), value))
        self.assertGreater(len(found), 50)
        for path, command in found:
            words = command.split()
            with self.subTest(file=path, command=command):
                help_text = tool(words[1], "--help", check=DONE).stdout
                for word in words[2:]:
                    if word.startswith("--"):
                        self.assertIn("  %s " % word, help_text)
                # In an empty folder the whole line is taken (options, values, number
                # of files) and only reading the first input fails.
                done = tool(*words[1:], cwd=self.dir)
                self.assertEqual(FILE_FAILURE, done.returncode, done.stderr)
                self.assertEqual(os.listdir(self.dir), [])


class Transforms(Temp):
    def test_raw_against_the_library_and_back(self):
        g = noise((16, 32), np.uint8, 5)
        for op, fn, back in [("realfft2d", "moxRealFft2D", ["ccsfft2d"]),
                             ("dct2d", "moxDCT2D", ["dct2d", "--flags", "inverse"])]:
            with self.subTest(op=op):
                raw = self.npy(op, "--raw", 1, self.save("g.npy", g))
                want, = LIB.run(plain(fn, 1, None), [g], [g.astype(np.int32)])
                np.testing.assert_array_equal(want, raw)
                again = self.npy(*back, self.save("s.npy", raw)).astype(int)
                self.assertLessEqual(np.abs(again - g).max(), 0 if op == "realfft2d" else 1)
        self.assertEqual(255, self.npy("dct2d", self.path("g.npy"))[0, 0])

    def test_log_magnitude_view(self):
        # Even and odd sides unpack differently; one row or column is a 1D transform.
        for shape in [(16, 32), (15, 21), (16, 21), (15, 32), (1, 8), (9, 1)]:
            with self.subTest(shape=shape):
                g = noise(shape, np.uint8, 8)
                view = self.npy("realfft2d", self.save("g.npy", g))
                self.assertEqual(np.uint8, view.dtype)
                self.assertEqual(255, view[shape[0] // 2, shape[1] // 2])  # the zero frequency
                f = np.fft.fftshift(np.fft.fft2(g.astype(float)))
                # the spectrum's parts are rounded to whole numbers before the view
                m = np.log1p(np.hypot(np.round(f.real), np.round(f.imag)))
                want = np.floor((m - m.min()) / (m.max() - m.min()) * 255 + 0.5).astype(int)
                self.assertLessEqual(np.abs(view.astype(int) - want).max(), 1)


class Files(Temp):
    def test_round_trips(self):
        cases = [(".png", noise(s, t, 7)) for t in (np.uint8, np.uint16)
                 for s in [(5, 7), (5, 7, 2), (5, 7, 3), (5, 7, 4)]]
        cases += [(".bmp", noise(s, np.uint8, 9))
                  for s in [(5, 7), (5, 7, 3), (5, 7, 4), (6, 1, 3)]]
        # Values beyond 16 bits saturate into the file.
        cases += [(".png", np.array([[-5, 70000, 300]], np.int32), [[0, 65535, 300]])]
        for ext, a, *want in cases:
            with self.subTest(ext=ext, dtype=a.dtype.name, shape=a.shape):
                if ext == ".bmp":
                    needs_bmp(self)
                tool("copy", self.save("a.npy", a), self.path("a" + ext), check=DONE)
                np.testing.assert_array_equal(want[0] if want else a,
                                              self.npy("copy", self.path("a" + ext)))

    def test_sample_photographs_and_info(self):
        """The samples (24-bit, bottom-up, blue first) read as top-down RGB pictures."""
        for shape, model in [((12, 20), "1 channel, GRAY"), ((12, 20, 3), "3 channels, RGB")]:
            tool("copy", self.save("a.npy", noise(shape, np.uint8, 1)), self.path("a.jpg"),
                 check=DONE)
            self.assertEqual("%s: 20x12, depth 8u, %s\n" % (self.path("a.jpg"), model),
                             tool("info", self.path("a.jpg"), check=DONE).stdout)
        needs_bmp(self)
        for name in ("astronaut", "chelsea", "coffee"):
            with self.subTest(name=name):
                path = os.path.join(SAMPLES, name + ".bmp")
                with open(path, "rb") as f:
                    data = f.read()
                offset, w, h = (int.from_bytes(data[i:i + 4], "little", signed=True)
                                for i in (10, 18, 22))
                step = (w * 3 + 3) // 4 * 4
                rows = np.frombuffer(data, np.uint8, step * h, offset).reshape(h, step)
                want = rows[::-1, :w * 3].reshape(h, w, 3)[:, :, ::-1]
                np.testing.assert_array_equal(want, self.npy("copy", path))
                self.assertEqual("%s: %dx%d, depth 8u, 3 channels, RGB\n" % (path, w, h),
                                 tool("info", path, check=DONE).stdout)


# (arguments, "@name" for a file of the test's folder; exit status; text of the
# one line the tool writes to stderr)
G, GG, G_PNG = ["@g.npy", "@o.npy"], ["@g.npy", "@g.npy", "@o.npy"], ["@g.npy", "@o.png"]
RGB_O = ["@c.npy", "@o.npy"]
FAILURES = [
    (["sharpen", *G], USAGE, "no operation \"sharpen\""),
    (["adds", "--value", "ten", *G], USAGE, "--value wants a whole number"),
    (["adds", "--value", "4294967296", *G], USAGE, "--value wants a whole number"),
    (["lshifts", "--nShift", "-1", *G], USAGE, "--nShift wants a whole number"),
    (["adds", "--valu", "3", *G], USAGE, "has no option --valu"),
    (["adds", "@g.npy"], USAGE, "takes 2 files, not 1"),
    (["adds", *GG], USAGE, "takes 2 files, not 3"),
    (["adds", "@g.npy", "@o.npy", "--value"], USAGE, "--value wants a value"),
    (["add", "--roi", "1,2,3", *GG], USAGE, "--roi wants 4 numbers"),
    (["add", "--roi", "1,2,-3,4", *GG], USAGE, "--roi wants a whole number"),
    (["add", "--roi", "9,0,3,3", *GG], USAGE, "starts outside the image"),
    (["add", "--tile", "8", *GG], USAGE, "--tile wants 2 numbers"),
    (["add", "--threads", "0", *GG], USAGE, "--threads wants a whole number"),
    (["add", "--depth", "12u", *GG], USAGE, "--depth takes 1u, 8u"),
    (["realfft2d", "--flags", "sideways", *G], USAGE, "--flags takes forward, inverse"),
    (["realfft2d", "--threads", "2", *G_PNG], USAGE, "--threads"),
    (["realfft2d", "--raw", 1, *G_PNG], USAGE, "write a .npy file"),
    (["exchange", "--batch", "@.", "@."], USAGE, "no batch form"),
    (["applycolortwist", "--cTwist", "1,2,3", *RGB_O], USAGE, "16 numbers"),
    (["contraststretch", "--value", "1,2", *RGB_O], USAGE, "--value wants one number"),
    (["histoequalize", "--key", "5", *RGB_O], USAGE, "at least two"),
    (["histoequalize", "--key", "9:3", *RGB_O], USAGE, "A <= B"),
    (["histoequalize", "--key", "0:99999999", *RGB_O], USAGE, "at most"),
    (["zoom", "--xU", 100000, "--yU", 100000, *RGB_O], USAGE, "cannot be made"),
    (["zoom", "--interpolate", "bicubic", *RGB_O], USAGE, "nn, linear, cubic"),
    (["convolve2d", "--kernel", "3,3,1,1,0:1,2", *RGB_O], USAGE, "nCols*nRows values"),
    (["convolve2d", "--kernel", "2,1,5,0,0:1,2", *RGB_O], USAGE, "makes no such kernel"),
    (["norm", "@c.npy", "@c.npy", "--normType", "l3"], USAGE, "c, l1, l2, relative"),
    (["add", "@g.npy", "@w.npy", "@o.npy"], LIBRARY_FAILURE,
     "moxpx: moxAdd: (srcImageB->depth != dstImage->depth) [moxadd:1092] (Bad argument)"),
    (["add", "--tile", "12,12", *GG], LIBRARY_FAILURE, "moxAdd: Tile size is invalid [moxadd:"),
    (["not", "--depth", "1u", *RGB_O], LIBRARY_FAILURE,  # a header text's lines
     "moxNot: For image depth 1U channel's number is not equal one ["),
    (["applycolortwist", "--scalingValue", 40, *RGB_O], LIBRARY_FAILURE, "moxCreateColorTwist"),
    (["convolve2d", *RGB_O], LIBRARY_FAILURE, "moxConvolve2D"),
    (["not", "@missing.png", "@o.png"], FILE_FAILURE, "missing.png: cannot open it"),
    (["not", "@text.png", "@o.png"], FILE_FAILURE, "text.png: not an image"),
    (["not", "@cut.png", "@o.png"], FILE_FAILURE, "cut.png: bad PNG"),
    (["not", "@f.npy", "@o.png"], FILE_FAILURE, "f.npy: npy values of type <f4"),
    (["not", "@wide.npy", "@o.png"], FILE_FAILURE, "wide.npy: an npy image is an array"),
    (["not", "@empty.png", "@o.png"], FILE_FAILURE, "empty.png: the file is empty"),
    (["copy", "@rgba.npy", "@o.tif"], FILE_FAILURE, "no format"),
    (["copy", "@rgba.npy", "@no/such/dir/o.png"], FILE_FAILURE, "cannot create"),
    (["copy", "@rgba.npy", "@o.jpg"], FILE_FAILURE, "1 or 3 channels"),
]


class Failures(Temp):
    """Bad options, files and calls: their status, one line naming the cause,
    and no file written."""

    def test_failures(self):
        for name, shape, dtype in [("g", (8, 8), np.uint8), ("c", (8, 8, 3), np.uint8),
                                   ("w", (8, 8), np.uint16), ("rgba", (4, 4, 4), np.uint8),
                                   ("f", (3, 3), np.float32), ("wide", (3, 3, 3, 3), np.uint8)]:
            np.save(self.path(name + ".npy"), np.ones(shape, dtype))
        tool("copy", self.save("big.npy", noise((30, 30, 3), np.uint8, 1)), self.path("a.png"),
             check=DONE)
        with open(self.path("a.png"), "rb") as f:
            cut = f.read(60)
        for name, data in [("text.png", b"not a picture\n"), ("cut.png", cut), ("empty.png", b"")]:
            with open(self.path(name), "wb") as f:
                f.write(data)
        before = sorted(os.listdir(self.dir))
        for args, status, text in FAILURES:
            with self.subTest(args=args):
                done = tool(*[self.path(a[1:]) if str(a).startswith("@") else a for a in args],
                            check=status)
                self.assertTrue(done.stderr.startswith("moxpx: "), done.stderr)
                self.assertIn(text, done.stderr)
                self.assertEqual(1, done.stderr.count("\n"))
                self.assertEqual(before, sorted(os.listdir(self.dir)))


class CommandLine(Temp):
    def test_help_and_examples(self):
        """Every listed operation has help, and its example line runs as written."""
        for name, picture in [("photo", noise((32, 48, 3), np.uint8, 1)),
                              ("other", noise((32, 48, 3), np.uint8, 2)),
                              ("bits", noise((32, 48), np.uint8, 3) // 128 * 255),
                              ("photo-alpha", noise((32, 48, 4), np.uint8, 4))]:
            tool("copy", self.save(name + ".npy", picture), self.path(name + ".png"), check=DONE)
        tool("realfft2d", "--raw", 1, self.path("photo.npy"), self.path("spectrum.npy"),
             check=DONE)
        names = [line.split()[0] for line in tool("list", check=DONE).stdout.splitlines()]
        self.assertIn("info", names)
        for name in names[:-1]:
            with self.subTest(name=name):
                text = tool(name, "--help", check=DONE).stdout
                self.assertIn("usage: moxpx " + name, text)
                self.assertIn("example:\n  moxpx " + name + " ", text)
                example = text.split("example:\n  ")[1].split("\n")[0].split()
                tool(*example[1:], check=DONE, cwd=self.dir)


class Batch(Temp):
    def folder(self, arrays):
        os.mkdir(self.path("in"))
        for name, a in arrays.items():
            np.save(self.path(os.path.join("in", name)), a)
        return self.path("in"), self.path("out")

    def test_every_image_of_a_folder(self):
        arrays = {"a.npy": noise((6, 9), np.uint8, 1), "b.npy": noise((7, 5, 3), np.uint8, 2),
                  "c.npy": noise((4, 4), np.uint8, 3)}
        src, out = self.folder(arrays)
        with open(os.path.join(src, "notes.txt"), "w") as f:
            f.write("skipped\n")
        done = tool("xors", "--value", 255, "--batch", src, out, check=DONE)
        self.assertEqual(["1/3 a.npy", "2/3 b.npy", "3/3 c.npy"], done.stderr.splitlines())
        self.assertEqual(sorted(arrays), sorted(os.listdir(out)))
        for name, a in arrays.items():
            np.testing.assert_array_equal(255 - a, np.load(os.path.join(out, name)))

    def test_further_inputs_and_failures(self):
        a = noise((6, 9), np.uint8, 1)
        src, out = self.folder({"a.npy": a, "b.npy": noise((6, 9), np.uint16, 1)})
        other = self.save("o.npy", np.full((6, 9), 1, np.uint8))
        done = tool("add", other, "--batch", src, out, check=LIBRARY_FAILURE)
        self.assertIn("moxAdd: (srcImageB->depth != dstImage->depth)", done.stderr)
        self.assertEqual(["a.npy"], os.listdir(out))
        np.testing.assert_array_equal(np.minimum(a.astype(int) + 1, 255),
                                      np.load(os.path.join(out, "a.npy")))
        # On a terminal the counts become a bar, redrawn in place.
        master, slave = pty.openpty()
        done = subprocess.run([TOOL, "not", "--batch", src, out], stderr=slave)
        os.close(slave)
        screen = os.read(master, 4096).decode()
        os.close(master)
        self.assertEqual(DONE, done.returncode)
        self.assertIn("\r[###############...............] 1/2 a.npy", screen)
        self.assertIn("\r[##############################] 2/2 b.npy", screen)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    TOOL, LIBRARY = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    LIB = Library(LIBRARY)
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:])
