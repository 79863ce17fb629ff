#!/usr/bin/env python3
"""Tests of the moxpx command-line tool.

Every sub-command runs on small images and is compared with the same call
made directly on the shared library (through the Python package of this
tree, which its own tests check); tiled and threaded runs must give the same
bytes as plain ones; bad files and bad options end with their exit status
and a message that names the problem.

Usage: cli_test.py TOOL LIBRARY [unittest options]
"""

import os
import pty
import subprocess
import sys
import tempfile
import unittest

import numpy as np

TOOL = moxpx = None
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
SAMPLES = os.path.join(ROOT, "samples")
DONE, LIBRARY_FAILURE, USAGE, FILE_FAILURE = 0, 1, 2, 3
DEPTHS = [np.uint8, np.int8, np.uint16, np.int16, np.int32]


def tool(*args, check=None, cwd=None):
    done = subprocess.run([TOOL] + [str(a) for a in args], capture_output=True, text=True, cwd=cwd)
    if check is not None and done.returncode != check:
        raise AssertionError("moxpx %s: status %d, wanted %d\n%s" % (
            " ".join(map(str, args)), done.returncode, check, done.stderr))
    return done


def noise(shape, dtype, seed):
    info = np.iinfo(dtype)
    return np.random.default_rng(seed).integers(info.min, info.max, shape, dtype, True)


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


def call(name, *args, **kw):
    """The package's function for the arguments that follow the images."""
    return lambda *images: getattr(moxpx, name)(*images, *args, **kw)


def case(op, options, reference, dtypes=(np.uint8,), shape=(19, 27, 3)):
    return op, options, reference, dtypes, shape


# The point sub-commands (name, options, sources, direct call), each on one
# depth in turn, grey and colour in turn.
POINT_OPS = [
    ("add", [], 2, call("add")), ("multiply", [], 2, call("multiply")),
    ("subtract", [], 2, call("subtract")),
    ("subtract", ["--reverse", 1], 2, call("subtract", reverse=True)),
    ("and", [], 2, call("and_")), ("or", [], 2, call("or_")), ("xor", [], 2, call("xor")),
    ("adds", ["--value", -40], 1, call("add_s", -40)),
    ("subtracts", ["--value", 7, "--reverse", 1], 1, call("subtract_s", 7, True)),
    ("multiplys", ["--value", 3], 1, call("multiply_s", 3)),
    ("ands", ["--value", "0x5A"], 1, call("and_s", 0x5A)),
    ("ors", ["--value", 33], 1, call("or_s", 33)), ("xors", ["--value", -1], 1, call("xor_s", -1)),
    ("lshifts", ["--nShift", 3], 1, call("lshift_s", 3)),
    ("rshifts", ["--nShift", 33], 1, call("rshift_s", 33)),
    ("square", [], 1, call("square")), ("abs", [], 1, call("abs")),
    ("not", [], 1, call("not_")), ("copy", [], 1, call("copy")),
    ("set", ["--fillValue", 300], 1, lambda a: moxpx.set(a.copy(), 300)),
]
SEPIA = [34, 137, 70, 0, 43, 176, 89, 0, 48, 197, 101, 0, 0, 0, 0, 0]
SOBEL_X, SOBEL_Y = [-1, 0, 1, -2, 0, 2, -1, 0, 1], [-1, -2, -1, 0, 0, 0, 1, 2, 1]
U16, S16, GREY = (np.uint16,), (np.int16,), (19, 27)
WINDOW = ["--nCols", 5, "--nRows", 3, "--anchorX", 1, "--anchorY", 2]
OPS = [case(op, options, reference, (DEPTHS[k % 5],) * n, (19, 27, 3)[:2 + k % 2])
       for k, (op, options, n, reference) in enumerate(POINT_OPS)]
OPS += [
    case("zoom", ["--xU", 2, "--xL", 1, "--yU", 5, "--yL", 3, "--interpolate", "cubic"],
         call("zoom", 2, (5, 3), "cubic"), S16, (13, 9)),
    case("decimate", ["--xU", 3, "--xL", 8, "--yU", 1, "--yL", 2, "--interpolate", "linear"],
         call("decimate", (3, 8), (1, 2), "linear"), U16, (40, 48, 3)),
    case("mirror", ["--flipAxis", -1], call("mirror", -1), (np.int32,), (11, 17, 3)),
    case("rotate", ["--angle", 3000, "--xCenter", 10, "--yCenter", 7, "--interpolate", "cubic"],
         lambda a: moxpx.rotate(a, 3000, 10, 7, "cubic", out=a.copy())),
    case("colortogray", [], call("color_to_gray"), U16),
    case("graytocolor", ["--fractR", 1.0, "--fractG", 0.5, "--fractB", 0.25],
         lambda a: moxpx.gray_to_color(a, 1.0, 0.5, 0.25), shape=GREY),
    case("rgb2hsv", [], call("rgb2hsv")), case("hsv2rgb", [], call("hsv2rgb"), U16),
    case("rgb2hls", [], call("rgb2hls"), U16), case("hls2rgb", [], call("hls2rgb")),
    case("applycolortwist", ["--cTwist", ",".join(map(str, SEPIA)), "--scalingValue", 8,
                             "--offset", 5],
         lambda a: moxpx.apply_color_twist(a, np.reshape(SEPIA, (4, 4)), 8, 5, out=a.copy()),
         U16, (19, 27, 4)),  # the alpha channel stays
    case("multiplysscale", ["--value", 160], call("multiply_s_scale", 160), U16),
    case("multiplyscale", [], call("multiply_scale"), (np.uint8, np.uint8)),
    case("premultiplyalpha", [], lambda a: moxpx.pre_multiply_alpha(a.copy()), shape=(19, 27, 4)),
    case("premultiplyalpha", ["--alphaValue", 100],
         lambda a: moxpx.pre_multiply_alpha(a.copy(), 100), U16, (19, 27, 2)),
    case("alphacomposite", ["--compositeType", "atop", "--divideMode", 1],
         call("alpha_composite", "atop", divide=True), (np.uint8, np.uint8), (19, 27, 4)),
    case("alphacompositec", ["--compositeType", "over", "--aA", 96, "--aB", 200, "--premulAlpha",
                             1], call("alpha_composite_c", 0, 96, 200, True), U16 * 2),
    case("threshold", ["--threshold", -5], call("threshold", -5), S16),
    case("histoequalize", ["--key", "16,100:110,200"],
         call("histo_equalize", [16, *range(100, 111), 200])),
    case("contraststretch", ["--key", "0,64,192,256", "--value", "0,128,224", "--factor",
                             "131072,49152,32768", "--interpolateType", "inter"],
         call("contrast_stretch", [0, 64, 192, 256], [0, 128, 224], [131072, 49152, 32768])),
    case("contraststretch", ["--key", "0,64,192,256", "--value", "9,8,7"],
         call("contrast_stretch", [0, 64, 192, 256], [9, 8, 7])),  # without factors
    case("convolve2d", ["--kernel", "3,3,1,1,1:" + ",".join(map(str, SOBEL_X)), "--kernel",
                        "3,3,0,2,1:" + ",".join(map(str, SOBEL_Y)),
                        "--combineMethod", "sumsqroot"],
         call("convolve2d", [np.reshape(SOBEL_X, (3, 3)), np.reshape(SOBEL_Y, (3, 3))],
              "sumsqroot", [(1, 1), (0, 2)], 1), S16, GREY),
    case("convolvesep2d", ["--xKernel", "5,1,2,0,4:1,4,6,4,1", "--yKernel", "1,3,0,0,1:1,0,1"],
         call("convolve_sep2d", [1, 4, 6, 4, 1], [1, 0, 1], 2, 0, 4, 1), U16),
]
OPS += [case(op, WINDOW, call(fn, 5, 3, 1, 2))
        for op, fn in [("blur", "blur"), ("minfilter", "min_filter"), ("maxfilter", "max_filter"),
                       ("medianfilter", "median_filter")]]
OPS += [case(op, ["--nIterations", 2], call(op, 2), U16, GREY)
        for op in ["erode", "dilate", "open", "close"]]
OPS += [case("reducebits", ["--noise", 30, "--ditherType", dither, "--levels", 3],
             call("reduce_bits", 30, code, 3)) for dither, code in [("fs", 1), ("bayer", 4)]]

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
    (["bitonaltogray", "--ZeroScale", 40, "--OneScale", 220], BITS, np.where(BITS, 220, 40)),
]


class Operations(Temp):
    """Each sub-command against the direct call with the same arguments."""

    def test_against_the_library(self):
        for op, options, reference, dtypes, shape in OPS:
            arrays = [noise(shape, t, seed + 3) for seed, t in enumerate(dtypes)]
            files = [self.save("in%d.npy" % i, a) for i, a in enumerate(arrays)]
            with self.subTest(op=op, options=options, dtypes=dtypes):
                np.testing.assert_array_equal(reference(*arrays), self.npy(op, *options, *files))

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
                want = moxpx.add(a, b, roi=roi, coi=coi or None, out=a.copy())
                np.testing.assert_array_equal(want, got)
        tool("exchange", "--roi", "2,1,8,5", *files, self.path("oa.npy"), self.path("ob.npy"),
             check=DONE)
        want = moxpx.exchange(a.copy(), b.copy(), roi=(2, 1, 8, 5))
        np.testing.assert_array_equal(want, [np.load(self.path(n)) for n in ("oa.npy", "ob.npy")])

    def test_printed_counts_and_norms(self):
        a, b = noise((21, 30, 3), np.uint8, 8), noise((21, 30, 3), np.uint8, 9)
        fa, fb = self.save("a.npy", a), self.save("b.npy", b)
        keys = [0, 10, 128, 255]
        for options, want in [(["--key", ",".join(map(str, keys))], moxpx.compute_histo(a, keys)),
                              (["--coi", 2], moxpx.compute_histo(a, np.arange(257), coi=2)[None])]:
            out = tool("computehisto", *options, fa, check=DONE).stdout
            self.assertEqual(want.tolist(), [list(map(int, r.split())) for r in out.splitlines()])
        for name, kind in [("c", ["c"]), ("l1", ["l1"]), ("l2", []), ("l2,relative", ["l2", 1])]:
            with self.subTest(normType=name):
                printed = float(tool("norm", "--normType", name, fa, fb, check=DONE).stdout)
                self.assertEqual(moxpx.norm(a, b, *kind), printed)

    def test_palette_bitmap(self):
        needs_bmp(self)
        g = noise((9, 14), np.uint8, 6)
        tool("converttodib", "--dither", "fs", "--paletteConversion", "medcut",
             self.save("g.npy", g), self.path("p.bmp"), check=DONE)
        with open(self.path("p.bmp"), "rb") as f:
            self.assertEqual(8, int.from_bytes(f.read(30)[28:30], "little"))  # bits per pixel
        np.testing.assert_array_equal(g, self.npy("copy", self.path("p.bmp")))  # greys stay


class TilesAndThreads(Temp):
    """The same bytes whatever the tiling and the number of threads, on each
    path of the tool's driver."""

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


class Transforms(Temp):
    def test_raw_against_the_library_and_back(self):
        g = noise((16, 32), np.uint8, 5)
        for op, reference, back in [("realfft2d", moxpx.real_fft2d, ["ccsfft2d"]),
                                    ("dct2d", moxpx.dct2d, ["dct2d", "--flags", "inverse"])]:
            with self.subTest(op=op):
                raw = self.npy(op, "--raw", 1, self.save("g.npy", g))
                np.testing.assert_array_equal(reference(g, dtype=np.int32), raw)
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
                    want = moxpx.from_dib(f.read())  # the library's reading of the bitmap
                np.testing.assert_array_equal(want, self.npy("copy", path))
                h, w = want.shape[:2]
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
]
FAILURES += [(["not", "@" + name, "@o.png"], FILE_FAILURE, name + ": " + text) for name, text in [
    ("missing.png", "cannot open it"), ("text.png", "not an image"), ("cut.png", "bad PNG"),
    ("f.npy", "npy values of type <f4"), ("wide.npy", "an npy image is an array"),
    ("empty.png", "the file is empty")]]
FAILURES += [(["copy", "@rgba.npy", "@" + name], FILE_FAILURE, text) for name, text in [
    ("o.tif", "no format"), ("no/such/dir/o.png", "cannot create"), ("o.jpg", "1 or 3 channels")]]


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
    def test_every_image_of_a_folder(self):
        arrays = {"a.npy": noise((6, 9), np.uint8, 1), "b.npy": noise((6, 9), np.uint16, 2),
                  "c.npy": noise((7, 5, 3), np.uint8, 3)}
        os.mkdir(self.path("in"))
        for name, a in arrays.items():
            np.save(self.path("in/" + name), a)
        with open(self.path("in/notes.txt"), "w") as f:
            f.write("skipped\n")
        done = tool("xors", "--value", 255, "--batch", self.path("in"), self.path("x"), check=DONE)
        self.assertEqual(["1/3 a.npy", "2/3 b.npy", "3/3 c.npy"], done.stderr.splitlines())
        self.assertEqual(sorted(arrays), sorted(os.listdir(self.path("x"))))
        for name, a in arrays.items():
            np.testing.assert_array_equal(a ^ 255, np.load(self.path("x/" + name)))
        # A further input goes with every image; the first failure ends the run.
        other = self.save("o.npy", np.full((6, 9), 1, np.uint8))
        done = tool("add", other, "--batch", self.path("in"), self.path("s"),
                    check=LIBRARY_FAILURE)
        self.assertIn("moxAdd: (srcImageB->depth != dstImage->depth)", done.stderr)
        self.assertEqual(["a.npy"], os.listdir(self.path("s")))
        np.testing.assert_array_equal(np.minimum(arrays["a.npy"].astype(int) + 1, 255),
                                      np.load(self.path("s/a.npy")))
        # On a terminal the counts become a bar, redrawn in place.
        master, slave = pty.openpty()
        done = subprocess.run([TOOL, "not", "--batch", self.path("in"), self.path("n")],
                              stderr=slave)
        os.close(slave)
        screen = os.read(master, 4096).decode()
        os.close(master)
        self.assertEqual(DONE, done.returncode)
        self.assertIn("\r[##########....................] 1/3 a.npy", screen)
        self.assertIn("\r[##############################] 3/3 c.npy", screen)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    TOOL = os.path.abspath(sys.argv[1])
    os.environ["MOXPX_LIBRARY"] = os.path.abspath(sys.argv[2])
    sys.path.insert(0, os.path.join(ROOT, "python"))
    import moxpx
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:])
