"""The FFT's packed spectrum against numpy.fft, and the DCT against its
definition."""

import numpy as np
import pytest

import moxpx

RNG = np.random.default_rng(11)
SIZES = [(1, 8), (8, 1), (2, 2), (4, 4), (5, 7), (6, 10), (9, 16), (16, 12), (7, 1), (1, 9)]


@pytest.mark.parametrize("h, w", SIZES)
def test_forward_spectrum_is_the_conjugate_of_numpys(h, w):
    x = RNG.integers(0, 256, (h, w)).astype(np.uint8)
    got = moxpx.unpack_spectrum(moxpx.real_fft2d(x))
    want = np.conj(np.fft.rfft2(x))
    # Each packed value is the exact one rounded to an integer.
    assert np.abs(got.real - want.real).max() <= 0.5 + 1e-6
    assert np.abs(got.imag - want.imag).max() <= 0.5 + 1e-6


@pytest.mark.parametrize("h, w", SIZES)
def test_pack_and_unpack_are_inverse(h, w):
    p = RNG.integers(-1000, 1000, (h, w)).astype(np.float64)
    z = moxpx.unpack_spectrum(p)
    assert z.shape == (h, w // 2 + 1)
    np.testing.assert_array_equal(moxpx.pack_spectrum(z, w), p)
    # What unpack builds is the spectrum of a real image.
    x = np.fft.irfft2(z, s=(h, w))
    np.testing.assert_allclose(np.fft.rfft2(x), z, atol=1e-9)


@pytest.mark.parametrize("h, w", [(8, 8), (6, 10), (5, 7), (1, 16)])
def test_a_packed_numpy_spectrum_transforms_back_to_the_image(h, w):
    x = RNG.integers(-500, 500, (h, w)).astype(np.int32)
    # The packed values are rounded to integers: each is within 1/2 of the
    # exact one, so each sample back is within 1/2 of x before its own rounding.
    packed = moxpx.pack_spectrum(np.conj(np.fft.rfft2(x)), w, dtype=np.int32)
    assert np.abs(moxpx.ccs_fft2d(packed) - x).max() <= 1
    # Unscaled, the inverse is width * height times larger.
    big = moxpx.ccs_fft2d(packed, scale=False)
    assert np.abs(big - x * (w * h)).max() <= w * h / 2 + 1
    # An exactly representable spectrum comes back exactly.
    z = np.zeros((h, w // 2 + 1), complex)
    z[0, 0] = 3 * w * h
    np.testing.assert_array_equal(moxpx.ccs_fft2d(moxpx.pack_spectrum(z, w, np.int32)), 3)


def test_result_type_and_channels():
    x = RNG.integers(0, 256, (8, 8, 3)).astype(np.uint8)
    packed = moxpx.real_fft2d(x, dtype=np.int16)
    assert packed.dtype == np.int16 and packed.shape == x.shape
    one = moxpx.real_fft2d(x, coi=2)
    np.testing.assert_array_equal(one[..., 1], moxpx.real_fft2d(np.ascontiguousarray(x[..., 1])))
    assert (one[..., [0, 2]] == 0).all()


def test_transform_failures_raise():
    with pytest.raises(moxpx.MoxError, match="No calculations"):
        moxpx.real_fft2d(np.ones((1, 1), np.uint8))
    with pytest.raises(moxpx.MoxError, match="Error in input data"):
        moxpx.real_fft2d(np.ones((4, 4), np.uint8), out=np.zeros((4, 4, 2), np.int32))
    with pytest.raises(ValueError):
        moxpx.pack_spectrum(np.zeros((4, 3)), width=8)


def dct_matrix(n):
    k = np.arange(n)[:, None]
    m = np.cos(np.pi * (2 * np.arange(n)[None, :] + 1) * k / (2 * n)) * np.sqrt(2.0 / n)
    m[0] /= np.sqrt(2.0)
    return m


def test_dct_matches_the_orthonormal_definition_and_inverts():
    x = RNG.integers(0, 256, (8, 12)).astype(np.int16)
    want = dct_matrix(8) @ x @ dct_matrix(12).T
    got = moxpx.dct2d(x)
    assert np.abs(got - want).max() <= 0.5 + 1e-6
    back = moxpx.dct2d(got, inverse=True)
    assert np.abs(back.astype(int) - x).max() <= 2
