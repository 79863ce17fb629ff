"""The packed spectrum of the real FFT, unpacked into complex numbers and
packed back.

A packed h x w spectrum holds the w // 2 + 1 columns of non-negative
frequencies u of the conjugate-symmetric spectrum F(v, u) of a real h x w
image in h * w real numbers:
  - columns 2k-1 and 2k (for 1 <= k, 2k < w): Re and Im of F(v, k), every row v;
  - column 0, and for an even w column w-1: the real sequences F(v, 0) and
    F(v, w/2) packed along the rows in the same way: row 0 Re F(0), rows
    2v-1 and 2v Re and Im of F(v) (2v < h), and for an even h row h-1
    Re F(h/2).
The library's forward transform has exponent sign +1, so for a real image
`unpack_spectrum(moxpx.real_fft2d(x))` equals `numpy.conj(numpy.fft.rfft2(x))`
up to the rounding of the result to integers.
"""

import numpy as np


def _real_column(c):
    """The full complex sequence packed in a real column."""
    h = c.shape[0]
    z = np.zeros(h, complex)
    z[0] = c[0]
    m = (h - 1) // 2
    if m:
        z[1:m + 1] = c[1:2 * m:2] + 1j * c[2:2 * m + 1:2]
        z[h - m:] = np.conj(z[1:m + 1][::-1])
    if h % 2 == 0 and h > 1:
        z[h // 2] = c[h - 1]
    return z


def _pack_column(z, h):
    c = np.zeros(h)
    c[0] = z[0].real
    m = (h - 1) // 2
    if m:
        c[1:2 * m:2] = z[1:m + 1].real
        c[2:2 * m + 1:2] = z[1:m + 1].imag
    if h % 2 == 0 and h > 1:
        c[h - 1] = z[h // 2].real
    return c


def unpack_spectrum(packed):
    """The complex spectrum (rows, columns // 2 + 1), shaped like
    numpy.fft.rfft2's result, that a packed spectrum (rows, columns) holds."""
    p = np.asarray(packed, dtype=np.float64)
    if p.ndim != 2:
        raise ValueError("a packed spectrum is a 2-d array (one channel)")
    h, w = p.shape
    z = np.zeros((h, w // 2 + 1), complex)
    k = (w - 1) // 2
    if k:
        z[:, 1:k + 1] = p[:, 1:2 * k:2] + 1j * p[:, 2:2 * k + 1:2]
    z[:, 0] = _real_column(p[:, 0])
    if w % 2 == 0 and w > 1:
        z[:, w // 2] = _real_column(p[:, w - 1])
    return z


def pack_spectrum(spectrum, width=None, dtype=None):
    """Packs a conjugate-symmetric spectrum shaped like numpy.fft.rfft2's
    result (rows, width // 2 + 1) into the library's packed layout (rows,
    width). width: the image's width (default: the even one, 2 * (columns - 1)).
    dtype: round to nearest into this type (default: float64, unrounded)."""
    z = np.asarray(spectrum, dtype=complex)
    if z.ndim != 2:
        raise ValueError("a spectrum is a 2-d array (one channel)")
    h, n = z.shape
    w = 2 * (n - 1) if width is None else int(width)
    if w // 2 + 1 != n or w < 1:
        raise ValueError("a spectrum of %d columns does not belong to a width of %d" % (n, w))
    p = np.zeros((h, w))
    k = (w - 1) // 2
    if k:
        p[:, 1:2 * k:2] = z[:, 1:k + 1].real
        p[:, 2:2 * k + 1:2] = z[:, 1:k + 1].imag
    p[:, 0] = _pack_column(z[:, 0], h)
    if w % 2 == 0 and w > 1:
        p[:, w - 1] = _pack_column(z[:, w // 2], h)
    if dtype is None:
        return p
    info = np.iinfo(dtype)
    return np.clip(np.rint(p), info.min, info.max).astype(dtype)
