"""numpy arrays described by MoxImage headers."""

import ctypes
import struct
import weakref

import numpy as np

from . import _lib
from ._lib import MoxImage, MoxROI

DEPTHS = {
    np.dtype(np.uint8): _lib.DEPTH_8U,
    np.dtype(np.int8): _lib.DEPTH_8S,
    np.dtype(np.uint16): _lib.DEPTH_16U,
    np.dtype(np.int16): _lib.DEPTH_16S,
    np.dtype(np.int32): _lib.DEPTH_32S,
    np.dtype(np.bool_): _lib.DEPTH_1U,
}

BORDERS = {"constant": 0, "replicate": 1, "reflect": 2, "wrap": 3}

_INT_MAX = 0x7FFFFFFF
_ALIGN = 4


def _step(width, bits, channels):
    """Row step of the layout rule for 4-byte alignment."""
    return ((width * bits * channels + 31) & ~31) >> 3


def _root_end(a):
    """One past the last byte of the memory that holds `a`'s data."""
    base = a
    while isinstance(base.base, np.ndarray):
        base = base.base
    return np.byte_bounds(base)[1]


def shape_of(a, planar=False):
    """(height, width, channels) of an array read as an image."""
    if a.ndim == 2:
        return a.shape[0], a.shape[1], 1
    if a.ndim == 3:
        if planar:
            return a.shape[1], a.shape[2], a.shape[0]
        return a.shape[0], a.shape[1], a.shape[2]
    raise ValueError("an image is a 2-d array (rows, columns) or a 3-d array "
                     "(rows, columns, channels); got %d dimensions" % a.ndim)


def roi_record(roi, coi, width, height):
    """A MoxROI from roi=(x, y, width, height) (the whole image when None) and
    a channel of interest (1-based); None when neither is given."""
    if roi is None and not coi:
        return None
    x, y, w, h = (0, 0, width, height) if roi is None else (int(v) for v in roi)
    values = (int(coi or 0), x, y, h, w)
    if any(not -0x80000000 <= v <= 0x7FFFFFFF for v in values):
        raise OverflowError("a region of interest beyond 32-bit numbers: %r" % (roi,))
    return MoxROI(*values)


_pointers = {}


def data_pointer(a):
    """The address of an array's first element. Asking numpy costs
    microseconds, so the answer is kept while the array lives (an array's
    buffer only moves when it is resized, which changes its shape)."""
    key = id(a)
    e = _pointers.get(key)
    if e is not None and e[0]() is a and e[1] == a.shape:
        return e[2]
    p = address(a)
    _pointers[key] = (weakref.ref(a, lambda _, key=key: _pointers.pop(key, None)), a.shape, p)
    return p


def address(a):
    """The address of an array's first element, by the quicker way where
    the array is writable."""
    f = a.flags
    if f.writeable and f.c_contiguous and a.size:
        return ctypes.addressof(ctypes.c_char.from_buffer(a))
    return a.ctypes.data


_SIZE = ctypes.sizeof(MoxImage)
# The header's fields in order, for building one in a single step.
_RECORD = struct.Struct("@iiiiI4s4siiiiiPPPPiPi4i4iP")
assert _RECORD.size == _SIZE
_GRAY = b"GRAY"
_RGB = b"RGB"


class Image:
    """A MoxImage header over a numpy array.

    The header points at the array's own buffer when the layout allows it:
    channels and pixels packed, rows 4-byte aligned with a row step that is a
    multiple of 4 (and, for an image the library writes, no bytes between one
    row's end and the next row). Otherwise the pixels are copied into a
    private buffer, and an image the library writes is copied back by
    `finish()`. Boolean arrays are 1-bit images and always copied (the
    library packs eight pixels to a byte).

    array: (rows, columns) or (rows, columns, channels); with planar=True
    (channels, rows, columns), one plane per channel.
    roi: (x, y, width, height) region of interest; coi: channel of interest
    (1-based, 0 for all). alpha: 1-based alpha channel (0 for none).
    model: the colour model ("RGB", "HSV", "HLS", ...; default "GRAY" for
    one channel, else "RGB"); order: the channel order ("RGB" or "BGR").
    border: "constant", "replicate", "reflect", "wrap", or (mode, constant),
    for all four sides (used by neighbourhood operations).
    written: the library will write this image.
    """

    __slots__ = ("array", "header", "roi", "planar", "written", "copied", "_buffer", "_view",
                 "height", "width", "channels", "pointer", "__weakref__")

    def __init__(self, array, roi=None, coi=0, planar=False, alpha=0, border=None,
                 written=False, model=None, order=None):
        a = array if type(array) is np.ndarray else np.asarray(array)
        depth = DEPTHS.get(a.dtype)
        if depth is None or not a.dtype.isnative:
            raise TypeError("moxpx images are uint8, int8, uint16, int16, int32 or bool "
                            "arrays in native byte order; got %s" % a.dtype)
        if written and not a.flags.writeable:
            raise ValueError("the array the result goes to is read-only")
        shape = a.shape
        if a.ndim == 2 and not planar:
            h, w, c = shape[0], shape[1], 1
        else:
            h, w, c = shape_of(a, planar)
        self.array, self.planar, self.written = a, planar, written
        self.height, self.width, self.channels = h, w, c
        self._buffer = self._view = None
        self.copied = False
        if roi is None and not coi:
            self.roi = None
            roi_at = 0
        else:
            self.roi = roi_record(roi, coi, w, h)
            roi_at = ctypes.addressof(self.roi)
        if model is None:
            model = _GRAY if c == 1 else _RGB
        elif type(model) is str:
            model = model.encode("ascii")
        if order is None:
            order = _GRAY if c == 1 else _RGB
        elif type(order) is str:
            order = order.encode("ascii")
        ptr = step = size = 0
        # The common case: a packed array with aligned rows of whole words.
        if a.flags.c_contiguous and depth != _lib.DEPTH_1U and not planar and h and w:
            step = a.strides[0] if h > 1 else w * c * a.itemsize
            size = step * h
            if step % _ALIGN == 0 and size <= _INT_MAX:
                ptr = data_pointer(a)
                if ptr % _ALIGN:
                    ptr = 0
        hdr = self.header = MoxImage.from_buffer_copy(_RECORD.pack(
            _SIZE, 0, c, int(alpha), depth, model, order, 1 if planar else 0, 0, _ALIGN, h, w,
            roi_at, 0, 0, 0, size if ptr else 0, ptr, step if ptr else 0, 0, 0, 0, 0, 0, 0, 0,
            0, 0))
        self.pointer = ctypes.byref(hdr)
        if border is not None:
            mode, const = (border, 0) if isinstance(border, (str, int)) else border
            mode = BORDERS[mode] if isinstance(mode, str) else int(mode)
            for i in range(4):
                hdr.borderMode[i], hdr.borderConst[i] = mode, int(const)
        if ptr:
            return
        self._point(a, depth, h, w, c)

    def _point(self, a, depth, h, w, c):
        hdr = self.header
        bits = depth & ~_lib.DEPTH_SIGN
        planes = c if self.planar else 1
        per_row = 1 if self.planar else c
        row_bytes = (w * bits * per_row + 7) >> 3
        if bits > 1 and h > 0 and w > 0:
            item = a.itemsize
            if self.planar:
                dense = a.strides[2] == item and a.strides[0] == a.strides[1] * h
                step = a.strides[1]
            else:
                dense = a.strides[1] == item * c and (a.ndim == 2 or a.strides[2] == item)
                step = a.strides[0]
            ptr = data_pointer(a)
            if (dense and step >= row_bytes and step % _ALIGN == 0 and ptr % _ALIGN == 0
                    and (step == row_bytes or not self.written)):
                size = step * h * planes
                if size <= _INT_MAX and (step == row_bytes or ptr + size <= _root_end(a)):
                    hdr.imageData = ptr
                    hdr.widthStep = step
                    hdr.imageSize = size
                    return
        # A private buffer laid out by the layout rule.
        step = _step(w, bits, per_row)
        size = step * h * planes
        if size > _INT_MAX:
            raise ValueError("an image of %d bytes is more than a MoxImage header can hold"
                             % size)
        buf = np.zeros(max(size, 1), np.uint8)
        self._buffer = buf
        self.copied = True
        rows = buf[:size].reshape(planes * h, step) if size else buf[:0].reshape(0, step)
        if bits == 1:
            self._view = rows
            rows[:, :row_bytes] = np.packbits(a.reshape(h, w), axis=1)
        else:
            v = rows[:, :row_bytes].view(a.dtype)
            v = v.reshape(c, h, w) if self.planar else v.reshape(h, w, c)
            self._view = v
            np.copyto(v, a.reshape(v.shape))
        hdr.imageData = buf.ctypes.data
        hdr.widthStep = step
        hdr.imageSize = size

    def finish(self):
        """Copies the pixels of a copied image that the library wrote back
        into its array."""
        if not (self.written and self.copied):
            return
        a = self.array
        if self.header.depth == _lib.DEPTH_1U:
            bits = np.unpackbits(self._view, axis=1, count=self.width).astype(bool)
            np.copyto(a, bits.reshape(a.shape))
        else:
            np.copyto(a, self._view.reshape(a.shape))

    def rect(self):
        """(x, y, width, height) of the ROI clipped to the image."""
        if self.roi is None:
            return 0, 0, self.width, self.height
        r = self.roi
        return (r.xOffset, r.yOffset, max(0, min(r.width, self.width - r.xOffset)),
                max(0, min(r.height, self.height - r.yOffset)))

    def work_channels(self):
        return 1 if self.roi is not None and self.roi.coi else self.channels


_headers = {}


def plain_pointer(a, written=False):
    """The header of a whole array that needs no copy, as a pointer
    argument, or None when the array needs an Image of its own. Headers are
    kept while their arrays live, so a call with the same arrays again
    builds nothing."""
    key = id(a)
    e = _headers.get(key)
    if (e is not None and e[0]() is a and e[1] == a.shape and e[2] == a.strides and
            e[3] is a.dtype):
        if written and not a.flags.writeable:
            raise ValueError("the array the result goes to is read-only")
        return e[4]
    p = packed_pointer(a, written)
    if p is None:
        return None
    _headers[key] = (weakref.ref(a, lambda _, key=key: _headers.pop(key, None)), a.shape,
                     a.strides, a.dtype, p)
    return p


def packed_pointer(a, written=False):
    """The header of a whole C-contiguous array with aligned rows of whole
    words, as a pointer argument; None for any other array."""
    depth = DEPTHS.get(a.dtype)
    if (depth is None or depth == _lib.DEPTH_1U or not a.flags.c_contiguous or
            not a.dtype.isnative or (written and not a.flags.writeable)):
        return None
    shape = a.shape
    if len(shape) == 2:
        h, w, c = shape[0], shape[1], 1
    elif len(shape) == 3:
        h, w, c = shape
    else:
        return None
    step = w * c * a.itemsize
    if not h or step % _ALIGN or step * h > _INT_MAX:
        return None
    ptr = address(a)
    if ptr % _ALIGN:
        return None
    model = _GRAY if c == 1 else _RGB
    return ctypes.byref(MoxImage.from_buffer_copy(_RECORD.pack(
        _SIZE, 0, c, 0, depth, model, model, 0, 0, _ALIGN, h, w, 0, 0, 0, 0, step * h, ptr,
        step, 0, 0, 0, 0, 0, 0, 0, 0, 0)))


def geometry(s):
    """(x, y, width, height, working channels, dtype, planar) of an Image or
    of a whole array."""
    if type(s) is np.ndarray:
        return (0, 0, s.shape[1], s.shape[0], s.shape[2] if s.ndim == 3 else 1, s.dtype, False)
    x, y, w, h = s.rect()
    return x, y, w, h, s.work_channels(), s.array.dtype, s.planar
