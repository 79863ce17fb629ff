"""The FFT's packed spectrum against numpy.fft, its inverse, and the DCT."""

import numpy as np
import pytest

import moxpx
from conftest import RNG

# Odd and even sides pack differently; a single row or column is a 1D transform.
SIZES = [(1, 8), (8, 1), (2, 2), (4, 4), (5, 7), (6, 10), (9, 16), (16, 12), (7, 1), (1, 9)]


@pytest.mark.parametrize("h, w", SIZES)
def test_spectrum_against_numpy_packing_and_back(h, w):
    # The forward transform's exponent is +2 pi i: numpy's spectrum conjugated,
    # each packed value the exact one rounded to an integer.
    x = RNG.integers(0, 256, (h, w)).astype(np.uint8)
    d = moxpx.unpack_spectrum(moxpx.real_fft2d(x)) - np.conj(np.fft.rfft2(x))
    assert max(np.abs(d.real).max(), np.abs(d.imag).max()) <= 0.5 + 1e-6
    p = RNG.integers(-1000, 1000, (h, w)).astype(np.float64)
    z = moxpx.unpack_spectrum(p)
    assert z.shape == (h, w // 2 + 1)
    np.testing.assert_array_equal(moxpx.pack_spectrum(z, w), p)
    # Packed, each value is within 1/2 of the exact one, so each sample back is
    # within 1/2 of y before its own rounding; unscaled, w * h times larger.
    y = RNG.integers(-500, 500, (h, w)).astype(np.int32)
    packed = moxpx.pack_spectrum(np.conj(np.fft.rfft2(y)), w, dtype=np.int32)
    assert np.abs(moxpx.ccs_fft2d(packed) - y).max() <= 1
    assert np.abs(moxpx.ccs_fft2d(packed, scale=False) - y * (w * h)).max() <= w * h / 2 + 1
    # An exactly representable spectrum comes back exactly.
    dc = np.pad([[3.0 * w * h]], ((0, h - 1), (0, w // 2)))
    np.testing.assert_array_equal(moxpx.ccs_fft2d(moxpx.pack_spectrum(dc, w, np.int32)), 3)


def test_result_type_and_channels():
    x = RNG.integers(0, 256, (8, 8, 3)).astype(np.uint8)
    packed = moxpx.real_fft2d(x, dtype=np.int16)
    assert packed.dtype == np.int16 and packed.shape == x.shape
    one = moxpx.real_fft2d(x, coi=2)
    np.testing.assert_array_equal(one[..., 1], moxpx.real_fft2d(np.ascontiguousarray(x[..., 1])))
    assert (one[..., [0, 2]] == 0).all()


def test_dct_both_ways():
    # Orthonormal: the first coefficient is the sum over sqrt(w h).
    x = RNG.integers(0, 256, (8, 12)).astype(np.int16)
    got = moxpx.dct2d(x)
    assert abs(got[0, 0] - x.sum() / np.sqrt(96)) <= 0.5
    assert np.abs(moxpx.dct2d(got, inverse=True).astype(int) - x).max() <= 2
