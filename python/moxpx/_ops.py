"""The operations: one table entry per exported operation, and the runner
that turns arrays into headers, calls the library and hands back arrays."""

import ctypes
import inspect
import numbers

import numpy as np

from . import _lib
from ._image import Image, geometry, packed_pointer, plain_pointer

INTERPOLATIONS = {"nn": 0, "nearest": 0, "linear": 1, "cubic": 2}


def _inter(v):
    if isinstance(v, str):
        try:
            return INTERPOLATIONS[v.lower()]
        except KeyError:
            raise ValueError("interpolation is 'nn', 'linear' or 'cubic', not %r" % v) from None
    return int(v)


def _pair(v):
    if v is None:
        return None
    x, y = v
    return (ctypes.c_int * 2)(_int(x), _int(y))


def _int(v):
    v = int(v)
    if not -0x80000000 <= v <= 0x7FFFFFFF:
        raise OverflowError("%d does not fit the library's 32-bit argument" % v)
    return v


def _uint(v):
    v = int(v)
    if not -0x80000000 <= v <= 0xFFFFFFFF:
        raise OverflowError("%d does not fit the library's 32-bit argument" % v)
    return v & 0xFFFFFFFF


_CONVERT = {
    "int": _int,
    "uint": _uint,
    "float": float,
    "bool": lambda v: 1 if v else 0,
    "inter": _inter,
    "pair": _pair,
}


def image_of(a, roi, coi, written=False, model=None, alpha=False):
    """An Image for an argument: an Image passes as it is (its own ROI).
    alpha: the last channel of an array of 2 or 4 channels is its alpha."""
    if type(a) is Image:
        if written and not a.written:
            raise ValueError("an Image the library writes must be made with written=True")
        return a
    model, _, order = (model or "").partition("/")
    img = Image(a, roi, coi, written=written, model=model or None, order=order or None)
    if alpha and img.channels in (2, 4):
        img.header.alphaChannel = img.channels
    return img


def like_sources(srcs):
    """The default destination: the common region of the sources, with the
    first source's type and working channels. Sources are Images or whole
    arrays."""
    first = srcs[0]
    if type(first) is np.ndarray:
        shape = first.shape
        h, w = shape[0], shape[1]
        for s in srcs:
            if type(s) is not np.ndarray:
                break
            h, w = min(h, s.shape[0]), min(w, s.shape[1])
        else:
            return h, w, shape[2] if len(shape) == 3 else 1, first.dtype
    g = [geometry(s) for s in srcs]
    return min(x[3] for x in g), min(x[2] for x in g), g[0][4], g[0][5]


def new_array(h, w, c, dtype, planar=False):
    if planar:
        return np.zeros((c, h, w), dtype)
    return np.zeros((h, w) if c == 1 else (h, w, c), dtype)


def run(cname, images, scalars=(), *, out=None, roi=None, coi=None, mapping=None,
        dst=like_sources, layout=None, dst_planar=None, dst_region=False, models=None,
        alpha=False):
    """Runs one library operation.

    images: the image arguments that are not the destination, in C order, as
    arrays or Images (None for an optional one not given); `layout` spells the
    C argument order of images (s: source, d: destination, w: image written in
    place, m: the mapping, n: a null image, . a scalar in order; by default
    the operation's entry in LAYOUTS).
    dst: how to shape a new destination, given the source Images: a function
    returning (height, width, channels, dtype). dst_region: a new destination
    takes the roi and coi keywords too (it has the sources' size). models:
    the colour model of each image made from an array, in argument order
    ("MODEL/SEQUENCE" sets its channel sequence too);
    alpha: the last channel of arrays of 2 or 4 channels is their alpha.
    Returns the destination array, or the arrays written in place, or the
    function's own result when it has no image to return.
    """
    fn = _lib.functions.get(cname)
    if layout is None:
        layout = LAYOUTS[cname]
    if fn is None:
        raise NotImplementedError("%s is not in this build of the library (%s)"
                                  % (cname, _lib.library_path))
    it = iter(images)
    sc = iter(scalars)
    srcs, written, args = [], [], []
    dst_img = result_array = None
    plain = roi is None and not coi and not models and not alpha
    for i, k in enumerate(layout):
        if k == "s":
            img = next(it)
            if img is None:  # an optional image not given
                args.append(None)
                continue
            p = plain_pointer(img) if plain and type(img) is np.ndarray else None
            if p is None:
                if type(img) is not Image:
                    img = image_of(img, roi, coi, model=models[i] if models else None,
                                   alpha=alpha)
                p = img.pointer
            srcs.append(img)
            args.append(p)
        elif k == "w":
            img = next(it)
            if img is None:
                args.append(None)
                continue
            img = image_of(img, roi, coi, written=True, model=models[i] if models else None,
                           alpha=alpha)
            written.append(img)
            args.append(img.pointer)
        elif k == "d":
            if out is None:
                h, w, c, dtype = dst(srcs)
                if dst_planar is None:
                    planar = bool(srcs) and type(srcs[0]) is Image and srcs[0].planar
                else:
                    planar = bool(dst_planar)
                if plain and not planar:
                    result_array = new_array(h, w, c, dtype)
                    p = packed_pointer(result_array, True)
                    if p is not None:
                        args.append(p)
                        continue
                dst_img = Image(new_array(h, w, c, dtype, planar), planar=planar,
                                roi=roi if dst_region else None,
                                coi=coi if dst_region else None, written=True,
                                model=models[i] if models else None)
                if alpha and c in (2, 4):
                    dst_img.header.alphaChannel = c
            else:
                p = plain_pointer(out, True) if plain and type(out) is np.ndarray else None
                if p is not None:
                    args.append(p)
                    result_array = out
                    continue
                dst_img = image_of(out, roi, coi, written=True,
                                   model=models[i] if models else None, alpha=alpha)
            written.append(dst_img)
            args.append(dst_img.pointer)
        elif k == "m":
            args.append(_pair(mapping))
        elif k == "n":
            args.append(None)
        else:
            args.append(next(sc))
    result = _lib.call(fn, *args)
    for img in written:
        if img.copied:
            img.finish()
    if dst_img is not None:
        return dst_img.array
    if result_array is not None:
        return result_array
    if written:  # images changed in place
        return written[0].array if len(written) == 1 else tuple(w.array for w in written)
    return result


# ------------------------------------------------------------------ the table

class Op:
    """One exported operation in its plain form: `params` names the scalar
    arguments in C order as "name:kind" or "name:kind=default" (kinds: int,
    uint, float, bool, inter, pair); `layout` spells the C argument order (see
    `run`); `dst` shapes a new destination; `margin`, for neighbourhood
    operations, gives the (rows, columns) of source pixels a result pixel
    reads on either side, from the bound arguments; `models`, the colour
    model of each image argument made from an array, in C order; `alpha`,
    arrays of 2 or 4 channels carry alpha in their last one."""

    def __init__(self, name, cname, layout, params="", doc="", dst=like_sources, margin=None,
                 models=None, alpha=False):
        self.name, self.cname, self.layout, self.dst, self.doc = name, cname, layout, dst, doc
        self.margin, self.models, self.alpha = margin, models, alpha
        self.params = []
        for p in params.split():
            decl, _, default = p.partition("=")
            pname, _, kind = decl.partition(":")
            self.params.append((pname, kind, eval(default, {}) if default else inspect._empty))

    def function(self):
        """The Python function of the operation, with a plain signature."""
        n_images = sum(self.layout.count(k) for k in "sw")
        images = ["a", "b", "c"][:n_images] if n_images > 1 else ["image"]
        ns = {"_run": run, "_op": self, "_convert": [_CONVERT[k] for _, k, _ in self.params],
              "_defaults": [d for _, _, d in self.params]}
        params = list(images)
        for i, (p, _, d) in enumerate(self.params):
            params.append(p if d is inspect._empty else "%s=_defaults[%d]" % (p, i))
        keywords = (["out=None"] if "d" in self.layout else []) + ["roi=None", "coi=None"]
        if "m" in self.layout:
            keywords.append("mapping=None")
        passed = ["%s=%s" % (k.split("=")[0], k.split("=")[0]) for k in keywords]
        scalars = "".join("_convert[%d](%s), " % (i, p) for i, (p, _, _) in enumerate(self.params))
        code = ("def {name}({params}, *, {keywords}):\n"
                "    return _run(_op.cname, ({images}), ({scalars}), {passed}, dst=_op.dst,\n"
                "                layout=_op.layout, models=_op.models, alpha=_op.alpha)\n").format(
            name=self.name, params=", ".join(params), keywords=", ".join(keywords),
            images="".join(i + ", " for i in images), scalars=scalars,
            passed=", ".join(passed))
        exec(code, ns)
        f = ns[self.name]
        f.__doc__ = "%s\n\nCalls %s. %s" % (self.doc, self.cname, _COMMON_DOC)
        f.op = self
        f.bind = inspect.signature(f).bind
        return f


_COMMON_DOC = """Images are numpy arrays (rows, columns[, channels]) of uint8, int8,
uint16, int16, int32 or bool, or moxpx.Image objects for per-image regions.
roi=(x, y, width, height) and coi (1-based channel) apply to every image given;
a new result holds the common region (one channel with coi). out= writes
into an existing array. Raises moxpx.MoxError when the library refuses."""


def _one_channel(srcs):
    h, w, _, dtype = like_sources(srcs)
    return h, w, 1, dtype


def _three_channels(srcs):
    h, w, _, dtype = like_sources(srcs)
    return h, w, 3, dtype


def _box(v):
    return (max(v["anchor_y"], v["rows"] - 1 - v["anchor_y"]),
            max(v["anchor_x"], v["cols"] - 1 - v["anchor_x"]))


def _steps(k):
    return lambda v: (k * v["iterations"],) * 2


_BINARY = "ssdm"
_UNARY = "sdm"
_UNARY_SCALAR = "sd.m"

TABLE = [
    # arithmetic and logic
    Op("add", "moxAdd", _BINARY, doc="a + b, saturated."),
    Op("subtract", "moxSubtract", "ssd.m", "reverse:bool=False",
       doc="a - b (b - a with reverse), saturated."),
    Op("multiply", "moxMultiply", _BINARY, doc="a * b, saturated."),
    Op("and_", "moxAnd", _BINARY, doc="a AND b."),
    Op("or_", "moxOr", _BINARY, doc="a OR b."),
    Op("xor", "moxXor", _BINARY, doc="a XOR b."),
    Op("add_s", "moxAddS", _UNARY_SCALAR, "value:int", doc="image + value, saturated."),
    Op("subtract_s", "moxSubtractS", "sd..m", "value:int reverse:bool=False",
       doc="image - value (value - image with reverse), saturated."),
    Op("multiply_s", "moxMultiplyS", _UNARY_SCALAR, "value:int", doc="image * value, saturated."),
    Op("and_s", "moxAndS", _UNARY_SCALAR, "value:int", doc="image AND value."),
    Op("or_s", "moxOrS", _UNARY_SCALAR, "value:int", doc="image OR value."),
    Op("xor_s", "moxXorS", _UNARY_SCALAR, "value:int", doc="image XOR value."),
    Op("lshift_s", "moxLShiftS", _UNARY_SCALAR, "shift:uint",
       doc="image shifted left (count mod 32), not saturated."),
    Op("rshift_s", "moxRShiftS", _UNARY_SCALAR, "shift:uint",
       doc="image shifted right (count mod 32)."),
    Op("square", "moxSquare", _UNARY, doc="image * image, saturated."),
    Op("abs", "moxAbs", _UNARY, doc="|image| (the most negative value stays)."),
    Op("not_", "moxNot", _UNARY, doc="NOT image: every stored bit inverted."),
    # alpha
    Op("multiply_s_scale", "moxMultiplySScale", _UNARY_SCALAR, "value:int",
       doc="image * value / max, exactly rounded (uint8, uint16)."),
    Op("multiply_scale", "moxMultiplyScale", _BINARY,
       doc="a * b / max, exactly rounded (uint8, uint16)."),
    Op("pre_multiply_alpha", "moxPreMultiplyAlpha", "w.m", "alpha:int=-1", alpha=True,
       doc="Multiplies the colour channels by the alpha channel (the last of 2 or 4) in "
           "place, or by alpha >= 0, which then becomes the alpha. Returns the array."),
    Op("alpha_composite_c", "moxAlphaCompositeC", "ssd.....",
       "kind:int alpha_a:int alpha_b:int premultiplied:bool=False divide:bool=False", alpha=True,
       doc="Porter-Duff composition of a and b with constant alphas (kind: 0 over, 1 in, "
           "2 out, 3 atop, 4 xor, 5 plus)."),
    # neighbourhood filters and morphology
    Op("blur", "moxBlur", "sd....", "cols:int rows:int anchor_x:int anchor_y:int", margin=_box,
       doc="Mean over a cols x rows box whose anchor is (anchor_x, anchor_y)."),
    Op("min_filter", "moxMinFilter", "sd....", "cols:int rows:int anchor_x:int anchor_y:int", margin=_box,
       doc="Minimum over a box."),
    Op("max_filter", "moxMaxFilter", "sd....", "cols:int rows:int anchor_x:int anchor_y:int", margin=_box,
       doc="Maximum over a box."),
    Op("median_filter", "moxMedianFilter", "sd....",
       "cols:int rows:int anchor_x:int anchor_y:int", margin=_box,
       doc="Median over a box."),
    Op("erode", "moxErode", "sd.", "iterations:int=1", margin=_steps(1), doc="Erosion by a 3x3 square."),
    Op("dilate", "moxDilate", "sd.", "iterations:int=1", margin=_steps(1), doc="Dilation by a 3x3 square."),
    Op("open", "moxOpen", "sd.", "iterations:int=1", margin=_steps(2), doc="Erosion, then dilation."),
    Op("close", "moxClose", "sd.", "iterations:int=1", margin=_steps(2), doc="Dilation, then erosion."),
    # geometry (zoom and decimate: see below)
    Op("rotate", "moxRotate", "sd....m",
       "angle:int x_center:int y_center:int interpolation:inter='nn'",
       doc="Rotates by angle/100 degrees about (x_center, y_center); outside pixels are 0."),
    Op("mirror", "moxMirror", "sd.", "axis:int",
       doc="Mirrors about the horizontal (0), vertical (1) or both (-1) axes."),
    # colour
    Op("color_to_gray", "moxColorToGray", _UNARY, dst=_one_channel, doc="RGB to grey."),
    Op("gray_to_color", "moxGrayToColor", "sd...m",
       "fract_r:float fract_g:float fract_b:float", dst=_three_channels,
       # The grey source's sequence names the result's channel order: R, G, B.
       models=("GRAY/RGB", "RGB"),
       doc="Grey to RGB with the given fractions."),
    Op("rgb2hsv", "moxRGB2HSV", _UNARY, doc="RGB to HSV.", models=("RGB", "HSV")),
    Op("hsv2rgb", "moxHSV2RGB", _UNARY, doc="HSV to RGB.", models=("HSV", "RGB")),
    Op("rgb2hls", "moxRGB2HLS", _UNARY, doc="RGB to HLS.", models=("RGB", "HLS")),
    Op("hls2rgb", "moxHLS2RGB", _UNARY, doc="HLS to RGB.", models=("HLS", "RGB")),
    Op("reduce_bits", "moxReduceBits", "sd...", "noise:int=0 dither:int=0 levels:int=2",
       doc="Reduces to `levels` equally spaced levels, with dithering (0 none, 1 "
           "Floyd-Steinberg, 2 Jarvis-Judice-Ninke, 3 Stucki, 4 Bayer) and noise percent."),
    Op("bitonal_to_gray", "moxBitonalToGray", "sd..", "zero:int=0 one:int=255",
       dst=lambda s: like_sources(s)[:3] + (np.dtype(np.uint8),),
       doc="Expands a bool image: False to zero, True to one (uint8 unless out= says)."),
    # statistics
    Op("threshold", "moxThreshold", "sd.", "threshold:int",
       doc="Values below threshold to the type's minimum, the others to its maximum."),
    # data movement
    Op("copy", "moxCopy", _UNARY, doc="Copies the image (the ROI into the ROI of out=)."),
    Op("set", "moxSet", "w.m", "value:int",
       doc="Writes value, cut to the type, into the image in place. Returns the array."),
    Op("exchange", "moxExchange", "wwm",
       doc="Exchanges the contents of a and b in place. Returns (a, b)."),
]


# ------------------------------------------------------------------ the hand-made ones

# The C argument order of the operations whose functions are written by hand.
LAYOUTS = {
    "moxZoom": "sd......", "moxDecimate": "sd......", "moxRealFft2D": "sd.n",
    "moxCcsFft2D": "sd.n", "moxDCT2D": "sd.", "moxConvert": "sd", "moxNorm": "ss.",
    "moxConvolve2D": "sd...", "moxConvolveSep2D": "sd..", "moxApplyColorTwist": "sd..m",
    "moxAlphaComposite": "ssd.ssw..", "moxComputeHisto": "s.", "moxContrastStretch": "sd.",
    "moxHistoEqualize": "sd.", "moxConvertFromDIB": ".d", "moxConvertToDIB": "s...",
}


def _factor(f):
    if isinstance(f, numbers.Integral):
        return _int(f), 1
    u, l = f
    return _int(u), _int(l)


def _resize(cname, doc):
    def f(image, x_factor, y_factor, interpolation="nn", point=None, *, out=None, roi=None,
          coi=None):
        xu, xl = _factor(x_factor)
        yu, yl = _factor(y_factor)

        def dst(srcs):
            h, w, c, dtype = like_sources(srcs)
            return (max(1, h * yu // max(yl, 1)), max(1, w * xu // max(xl, 1)), c, dtype)

        return run(cname, [image], [xu, xl, yu, yl, _inter(interpolation), _pair(point)],
                   out=out, roi=roi, coi=coi, dst=dst)
    f.__doc__ = doc + """

x_factor and y_factor are (numerator, denominator) pairs, or whole numbers
(destination size over source size); interpolation is 'nn', 'linear' or
'cubic'; point=(x, y) computes only that destination pixel. A new result has
the source region's size times the factors (rounded down)."""
    return f


zoom = _resize("moxZoom", "Enlarges the image (the region of interest) by rational factors.")
zoom.__name__ = "zoom"
decimate = _resize("moxDecimate", "Reduces the image (the region of interest) by rational "
                   "factors, in fixed point.")
decimate.__name__ = "decimate"

FFT_FORWARD, FFT_INVERSE, FFT_NOSCALE, FFT_USEALPHA = 1, 2, 4, 8


def _fft(cname, forward_default, default_type, doc):
    def f(image, *, inverse=not forward_default, scale=True, use_alpha=False,
          dtype=default_type, out=None, roi=None, coi=None):
        flags = (FFT_INVERSE if inverse else FFT_FORWARD)
        if inverse and not scale:
            flags |= FFT_NOSCALE
        if use_alpha:
            flags |= FFT_USEALPHA

        def dst(srcs):
            s = srcs[0] if type(srcs[0]) is Image else Image(srcs[0])
            return s.height, s.width, s.channels, np.dtype(dtype) if dtype is not None else s.array.dtype

        return run(cname, [image], [flags], out=out, roi=roi, coi=coi, dst=dst,
                   dst_region=True)
    f.__doc__ = doc + """

inverse: run the transform in the inverse direction (exponent sign -1),
scaled by 1/(width*height) unless scale=False; the forward direction has
exponent sign +1 and no scaling (so for a real image the forward spectrum is
the complex conjugate of numpy.fft.rfft2's). use_alpha: transform the alpha
channel too. Results are rounded to nearest and saturated to dtype (None: the
image's own). A new result has the whole image's size; the ROI of
roi= is transformed into the same place. The work tables belong to the
calling thread, so threads may transform at once."""
    return f


real_fft2d = _fft("moxRealFft2D", True, np.int32,
                  "Two-dimensional FFT of real samples into a packed spectrum (see "
                  "moxpx.unpack_spectrum for its layout).")
real_fft2d.__name__ = "real_fft2d"
ccs_fft2d = _fft("moxCcsFft2D", False, None,
                 "Two-dimensional FFT of a packed spectrum into real samples (inverse by "
                 "default).")
ccs_fft2d.__name__ = "ccs_fft2d"


def dct2d(image, *, inverse=False, dtype=None, out=None, roi=None, coi=None):
    """Orthonormal two-dimensional DCT-II of the image (inverse=True: its
    inverse), rounded to nearest and saturated to dtype (the image's own by
    default). A new result has the whole image's size."""

    def dst(srcs):
        s = srcs[0] if type(srcs[0]) is Image else Image(srcs[0])
        return s.height, s.width, s.channels, np.dtype(dtype) if dtype is not None else s.array.dtype

    return run("moxDCT2D", [image], [2 if inverse else 1], out=out, roi=roi, coi=coi, dst=dst,
               dst_region=True)


def convert(image, dtype, *, planar=None, out=None, roi=None, coi=None):
    """Converts to another type (values saturated; to and from bool: non-zero
    is True, True is the type's maximum) and, with planar=, between pixel and
    plane order."""
    def dst(srcs):
        h, w, c, _ = like_sources(srcs)
        return h, w, c, np.dtype(dtype)
    return run("moxConvert", [image], out=out, roi=roi, coi=coi, dst=dst, dst_planar=planar)


def norm(a, b=None, kind="l2", relative=False, *, roi=None, coi=None):
    """The C ('c', max |a-b|), L1 or L2 norm of a - b (of a alone when b is
    None), relative to the norm of b when relative=True."""
    kinds = {"c": 1, "l1": 2, "l2": 4}
    t = kinds[kind.lower()] if isinstance(kind, str) else int(kind)
    if relative:
        t |= 8
    if b is None:
        return run("moxNorm", [a], [t], roi=roi, coi=coi, layout="sn.")
    return run("moxNorm", [a, b], [t], roi=roi, coi=coi)


def resolve(op, args):
    """The function that runs for these arguments: the scalar form of
    moxpx.add and its kin when a whole number stands for the second image."""
    scalar = getattr(op, "scalar_form", None)
    if scalar is not None and len(args) > 1 and isinstance(args[1], numbers.Integral):
        return scalar
    return op


IMAGE_PARAMETERS = ("a", "b", "c", "image")


def image_arguments(bound):
    """The names and values of the image arguments of bound arguments."""
    names = [n for n in bound.signature.parameters if n in IMAGE_PARAMETERS]
    return names, [bound.arguments[n] for n in names]


def raw(cname, *args):
    """Calls an exported function as it stands (header pointers, ctypes
    arguments) and raises MoxError when it reports a failure."""
    fn = _lib.functions.get(cname) or getattr(_lib.lib, cname)
    return _lib.call(fn, *args)


def available(op):
    """True when the library exports the operation behind a function."""
    cname = getattr(getattr(op, "op", None), "cname", None) or _CNAMES.get(op)
    return cname is not None and _lib.has(cname)


_CNAMES = {zoom: "moxZoom", decimate: "moxDecimate", real_fft2d: "moxRealFft2D",
           ccs_fft2d: "moxCcsFft2D", dct2d: "moxDCT2D", convert: "moxConvert", norm: "moxNorm"}

FUNCTIONS = {op.name: op.function() for op in TABLE}
