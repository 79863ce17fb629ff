"""Operations that take records besides images: convolution kernels, colour
twists, alpha images, lookup tables and packed bitmaps. Each builds its records, calls, and
releases them."""

import ctypes
import inspect
import struct

import numpy as np

from . import _lib
from ._image import Image
from ._ops import Op, _int, image_of, run

COMBINE = {"sum": 0, "sumsq": 1, "sumsqroot": 2, "max": 3, "min": 4}
COMPOSITE = {"over": 0, "in": 1, "out": 2, "atop": 3, "xor": 4, "plus": 5}


def _int32(values):
    """An int32 array of integer values that fit 32 bits."""
    v = np.asarray(values)
    if v.dtype.kind not in "iub":
        raise TypeError("kernel and matrix entries are integers")
    if v.size and (v.min() < -0x80000000 or v.max() > 0x7FFFFFFF):
        raise OverflowError("an entry does not fit 32 bits")
    return np.ascontiguousarray(v, dtype=np.int32)


def _kernel(values, anchor, shift, shape=None):
    """A library kernel from an integer array (rows, columns); the anchor
    defaults to the centre."""
    v = _int32(values)
    if shape is not None:
        v = v.reshape(shape)
    if v.ndim != 2 or v.size == 0:
        raise ValueError("a kernel is a non-empty 2-d array of integers")
    rows, cols = v.shape
    ax, ay = (cols // 2, rows // 2) if anchor is None else (int(anchor[0]), int(anchor[1]))
    k = _lib.call(_lib.functions["moxCreateConvKernel"], cols, rows, ax, ay,
                  v.ctypes.data_as(ctypes.POINTER(ctypes.c_int)), _int(shift))
    if not k:
        raise MemoryError("moxCreateConvKernel returned no kernel")
    return k


def _kernel_list(kernels):
    """One kernel (a 2-d array or nested lists) or a list of them."""
    if isinstance(kernels, (list, tuple)) and kernels and np.ndim(kernels[0]) == 2:
        return list(kernels)
    return [kernels]


def _extent(n, anchor):
    a = n // 2 if anchor is None else int(anchor)
    return max(a, n - 1 - a)


def _convolve_reach(v):
    my = mx = 0
    ks = _kernel_list(v["kernels"])
    for k, a in zip(ks, v["anchors"] or [None] * len(ks)):
        rows, cols = np.shape(k)
        my = max(my, _extent(rows, None if a is None else a[1]))
        mx = max(mx, _extent(cols, None if a is None else a[0]))
    return my, mx


def _separable_reach(v):
    my = 0 if v["y_kernel"] is None else _extent(np.size(v["y_kernel"]), v["y_anchor"])
    mx = 0 if v["x_kernel"] is None else _extent(np.size(v["x_kernel"]), v["x_anchor"])
    return my, mx


def convolve2d(image, kernels, combine="sum", anchors=None, shift=0, *, out=None, roi=None,
               coi=None):
    """Convolves with one kernel (a 2-d integer array) or a list of up to 100,
    each result shifted right by `shift` and the results combined ("sum",
    "sumsq", "sumsqroot", "max", "min") before saturation. anchors: one (x, y)
    per kernel (default: their centres). Pixels outside the image are read by
    its border rule (moxpx.Image(..., border=...))."""
    ks = _kernel_list(kernels)
    anchors = anchors or [None] * len(ks)
    made = []
    try:
        for values, anchor in zip(ks, anchors):
            made.append(_kernel(values, anchor, shift))
        array = (ctypes.POINTER(_lib.MoxConvKernel) * len(made))(*made)
        method = COMBINE[combine] if isinstance(combine, str) else int(combine)
        return run("moxConvolve2D", [image], [array, len(made), method], out=out, roi=roi,
                   coi=coi)
    finally:
        for k in made:
            _lib.functions["moxDeleteConvKernel"](k)


def convolve_sep2d(image, x_kernel=None, y_kernel=None, x_anchor=None, y_anchor=None,
                   x_shift=0, y_shift=0, *, out=None, roi=None, coi=None):
    """Convolves with a row kernel, then a column kernel (1-d integer arrays;
    either may be None), each shifted right by its own shift."""
    made = []
    try:
        xk = yk = None
        if x_kernel is not None:
            v = np.asarray(x_kernel).ravel()
            xk = _kernel(v, None if x_anchor is None else (x_anchor, 0), x_shift,
                         (1, v.size))
            made.append(xk)
        if y_kernel is not None:
            v = np.asarray(y_kernel).ravel()
            yk = _kernel(v, None if y_anchor is None else (0, y_anchor), y_shift,
                         (v.size, 1))
            made.append(yk)
        return run("moxConvolveSep2D", [image], [xk, yk], out=out, roi=roi, coi=coi)
    finally:
        for k in made:
            _lib.functions["moxDeleteConvKernel"](k)


def apply_color_twist(image, matrix, scaling=0, offset=0, *, out=None, roi=None, coi=None,
                      mapping=None):
    """Applies a colour matrix (3 x 4 or 4 x 4 integers, each divided by
    2**scaling; the fourth column is added) to the three colour channels, plus
    offset; results are kept within offset's band."""
    m = np.zeros((4, 4), np.int32)
    given = _int32(matrix)
    if given.ndim != 2 or given.shape[0] not in (3, 4) or given.shape[1] != 4:
        raise ValueError("a colour matrix is 3 x 4 or 4 x 4")
    m[:given.shape[0], :given.shape[1]] = given
    twist = _lib.call(_lib.functions["moxCreateColorTwist"],
                      m.ctypes.data_as(ctypes.POINTER(ctypes.c_int)), _int(scaling))
    if not twist:
        raise MemoryError("moxCreateColorTwist returned no record")
    try:
        return run("moxApplyColorTwist", [image], [twist, _int(offset)], out=out, roi=roi,
                   coi=coi, mapping=mapping)
    finally:
        _lib.functions["moxDeleteColorTwist"](twist)


def alpha_composite(a, b, kind="over", alpha_a=None, alpha_b=None, alpha_out=None,
                    premultiplied=False, divide=False, *, out=None):
    """Porter-Duff composition of a and b ("over", "in", "out", "atop", "xor",
    "plus"). The alphas are the given alpha images, else the images' own
    (the last of 2 or 4 channels), else opaque; alpha_out receives the
    result's alpha when given."""
    t = COMPOSITE[kind] if isinstance(kind, str) else int(kind)
    # The sources carry their own alpha (the last of 2 or 4 channels); the
    # alpha images are plain ones.
    ia, ib = image_of(a, None, None, alpha=True), image_of(b, None, None, alpha=True)
    return run("moxAlphaComposite", [ia, ib, alpha_a, alpha_b, alpha_out],
               [t, 1 if premultiplied else 0, 1 if divide else 0], out=out, alpha=True)


def _per_channel(tables, n, name):
    """One int32 array per processed channel: a 1-d array for all, or one each."""
    if tables is None:
        return [None] * n
    if np.ndim(tables) == 1:
        return [_int32(tables)] * n
    tables = [_int32(t) for t in tables]
    if len(tables) != n:
        raise ValueError("%s: one table for each of the %d processed channels" % (name, n))
    return tables


def _luts(image, keys, values=None, factors=None, interpolate=0):
    """The lookup tables of the processed channels of an Image, with the
    arrays behind them (kept alive by the caller), and each table's values."""
    n = image.work_channels()
    keys = _per_channel(keys, n, "keys")
    values = _per_channel(values, n, "values")
    factors = _per_channel(factors, n, "factors")
    luts, keep, counts = [], [], []
    ptr = ctypes.POINTER(ctypes.c_int)
    for k, v, f in zip(keys, values, factors):
        num = k.size - 1
        if k.ndim != 1 or num < 1:
            raise ValueError("keys are at least two bin edges")
        vv = np.zeros(num + 1, np.int32)
        if v is not None:
            vv[:min(v.size, num + 1)] = v[:num + 1]
        ff = None if f is None else np.ascontiguousarray(f)
        lut = _lib.MoxLUT(num, k.ctypes.data_as(ptr), vv.ctypes.data_as(ptr),
                          ff.ctypes.data_as(ptr) if ff is not None else None, interpolate)
        keep += [k, vv, ff, lut]
        luts.append(ctypes.pointer(lut))
        counts.append(vv[:num])
    return (ctypes.POINTER(_lib.MoxLUT) * n)(*luts), keep, counts


def compute_histo(image, bins, *, roi=None, coi=None):
    """Counts each processed channel's values into bins: bins are the num + 1
    increasing edges (bin i holds key[i] <= v < key[i+1]), for all channels or
    one array per channel. Returns the counts, (num,) for one channel, else
    (channels, num)."""
    img = image_of(image, roi, coi)
    luts, keep, counts = _luts(img, bins)
    run("moxComputeHisto", [img], [luts])
    return counts[0].copy() if len(counts) == 1 else np.array(counts)


def contrast_stretch(image, keys, values, factors=None, *, out=None, roi=None, coi=None):
    """Maps each processed channel through a lookup table: bin i (keys[i] <= v
    < keys[i+1]) to values[i], or with factors (slopes with 16 fraction bits)
    to values[i] + ((v - keys[i]) * factors[i] + 2**15 >> 16). Values outside
    every bin stay."""
    img = image_of(image, roi, coi)
    luts, keep, _ = _luts(img, keys, values, factors, 0 if factors is None else 1)
    return run("moxContrastStretch", [img], [luts], out=out, roi=roi, coi=coi)


def histo_equalize(image, bins, *, out=None, roi=None, coi=None):
    """Equalizes each processed channel's histogram over the bins (edges as
    for compute_histo)."""
    img = image_of(image, roi, coi)
    luts, keep, _ = _luts(img, bins)
    return run("moxHistoEqualize", [img], [luts], out=out, roi=roi, coi=coi)


_FILE_HEADER = struct.Struct("<2sIHHI")  # "BM", file size, 0, 0, offset of the rows
PALETTES = {"none": 0, "cube": 0, "populate": 1, "medcut": 2}


def _info(data):
    """The info header, palette and rows of a bitmap, with or without the
    file header of a .bmp file."""
    b = bytes(data)
    if b[:2] == b"BM" and len(b) >= _FILE_HEADER.size:
        b = b[_FILE_HEADER.size:]
    if len(b) < ctypes.sizeof(_lib.MoxBitmapInfoHeader):
        raise ValueError("a bitmap starts with a 40-byte info header")
    buf = ctypes.create_string_buffer(b, len(b))
    return buf, ctypes.cast(buf, ctypes.POINTER(_lib.MoxBitmapInfoHeader))


def from_dib(data, channels=3, dtype=np.uint8, order="RGB"):
    """The pixels of a packed bitmap (info header, palette and rows; the file
    header of a .bmp file may come first) as an array (rows from the top,
    `channels` 1, 3 or 4 in `order`, values converted to dtype)."""
    buf, dib = _info(data)
    w, h = dib.contents.biWidth, abs(dib.contents.biHeight)
    if w <= 0 or h <= 0 or w * h > 1 << 31:
        raise ValueError("a bitmap of %d x %d pixels" % (w, dib.contents.biHeight))
    a = np.zeros((h, w) if channels == 1 else (h, w, channels), dtype)
    img = Image(a, written=True, order=order if channels > 1 else None)
    _lib.call(_lib.functions["moxConvertFromDIB"], dib, img.pointer)
    img.finish()
    return a


def to_dib(image, bits=24, dither=0, palette="none", bmp=False):
    """The image's ROI as a packed bitmap of 8 (with a palette: a grey ramp,
    or for colour "none" the 3-3-2 cube, "populate" the most frequent colours
    or "medcut" a median cut), 24 or 32 bits per pixel, bottom-up; bytes
    of the info header, palette and rows, with the file header of a .bmp file
    first when bmp=True. dither: the dither of pixels mapped to a palette."""
    img = image if type(image) is Image else Image(image)
    w, h = img.rect()[2:]
    bits = int(bits)
    if bits not in (8, 24, 32):
        raise ValueError("bitmaps are written with 8, 24 or 32 bits per pixel")
    entries = 256 if bits == 8 else 0
    row = (w * bits // 8 + 3) & ~3
    head = ctypes.sizeof(_lib.MoxBitmapInfoHeader)
    size = head + 4 * entries + row * h
    if size > 0x7FFFFFFF:
        raise ValueError("a bitmap of %d bytes is too large" % size)
    buf = ctypes.create_string_buffer(size)
    dib = ctypes.cast(buf, ctypes.POINTER(_lib.MoxBitmapInfoHeader))
    d = dib.contents
    d.biSize, d.biWidth, d.biHeight, d.biPlanes, d.biBitCount = head, w, h, 1, bits
    method = PALETTES[palette] if isinstance(palette, str) else int(palette)
    _lib.call(_lib.functions["moxConvertToDIB"], img.pointer, dib, int(dither), method)
    data = buf.raw
    if bmp:
        data = _FILE_HEADER.pack(b"BM", _FILE_HEADER.size + size, 0, 0,
                                 _FILE_HEADER.size + head + 4 * entries) + data
    return data


def _describe(f, cname, margin=None):
    f.op = Op(f.__name__, cname, "sd", margin=margin)
    f.bind = inspect.signature(f).bind
    return f


_describe(convolve2d, "moxConvolve2D", _convolve_reach)
_describe(convolve_sep2d, "moxConvolveSep2D", _separable_reach)
_describe(apply_color_twist, "moxApplyColorTwist")
_describe(alpha_composite, "moxAlphaComposite")

_describe(from_dib, "moxConvertFromDIB")
_describe(to_dib, "moxConvertToDIB")
_describe(compute_histo, "moxComputeHisto")
_describe(contrast_stretch, "moxContrastStretch")
_describe(histo_equalize, "moxHistoEqualize")

FUNCTIONS = {f.__name__: f for f in (convolve2d, convolve_sep2d, apply_color_twist,
                                     alpha_composite, compute_histo, contrast_stretch,
                                     histo_equalize, from_dib, to_dib)}
