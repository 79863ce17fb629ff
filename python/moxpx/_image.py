"""numpy arrays described by MoxImage headers."""

import ctypes

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
DTYPES = {depth: dtype for dtype, depth in DEPTHS.items()}

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
    r = MoxROI()
    r.coi = int(coi or 0)
    x, y, w, h = (0, 0, width, height) if roi is None else (int(v) for v in roi)
    r.xOffset, r.yOffset, r.width, r.height = x, y, w, h
    return r


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
    border: "constant", "replicate", "reflect", "wrap", or (mode, constant),
    for all four sides (used by neighbourhood operations).
    written: the library will write this image.
    """

    __slots__ = ("array", "header", "roi", "planar", "written", "copied", "_buffer", "_view",
                 "height", "width", "channels", "__weakref__")

    def __init__(self, array, roi=None, coi=0, planar=False, alpha=0, border=None,
                 written=False):
        a = array if isinstance(array, np.ndarray) else np.asarray(array)
        depth = DEPTHS.get(a.dtype)
        if depth is None or not a.dtype.isnative:
            raise TypeError("moxpx images are uint8, int8, uint16, int16, int32 or bool "
                            "arrays in native byte order; got %s" % a.dtype)
        if written and not a.flags.writeable:
            raise ValueError("the array the result goes to is read-only")
        h, w, c = shape_of(a, planar)
        self.array, self.planar, self.written = a, planar, written
        self.height, self.width, self.channels = h, w, c
        hdr = MoxImage()
        hdr.headerSize = ctypes.sizeof(MoxImage)
        hdr.nChannels = c
        hdr.alphaChannel = int(alpha)
        hdr.depth = depth
        hdr.colorModel = b"GRAY" if c == 1 else b"RGB"
        hdr.channelSeq = b"GRAY" if c == 1 else b"RGB"
        hdr.dataOrder = 1 if planar else 0
        hdr.align = _ALIGN
        hdr.height, hdr.width = h, w
        self.header = hdr
        self.roi = roi_record(roi, coi, w, h)
        if self.roi is not None:
            hdr.roi = ctypes.pointer(self.roi)
        if border is not None:
            mode, const = (border, 0) if isinstance(border, (str, int)) else border
            mode = BORDERS[mode] if isinstance(mode, str) else int(mode)
            for i in range(4):
                hdr.borderMode[i], hdr.borderConst[i] = mode, int(const)
        self._buffer = self._view = None
        self.copied = False
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
            ptr = a.ctypes.data
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

    @property
    def pointer(self):
        """The header as a pointer argument."""
        return ctypes.byref(self.header)

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
