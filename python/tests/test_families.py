"""The operation families beyond arithmetic, each checked where the loaded
library exports it (the package binds what the library has)."""

import numpy as np
import pytest

import moxpx
from conftest import needs, rand


def scaled(a, b, bits):
    p = a.astype(np.int64) * b
    return ((p + 1 + (p >> bits)) >> bits).astype(a.dtype)


def threshold(a, t):
    info = np.iinfo(a.dtype)
    return np.where(a < t, info.min, info.max)


A8, B8 = rand((9, 20, 3)), rand((9, 20, 3))
A16, B16 = rand((9, 20, 3), np.uint16), rand((9, 20, 3), np.uint16)
RGBA, OPAQUE = rand((30, 40, 4)), rand((5, 8, 4))
OPAQUE[..., 3] = 255
SQUARE, GREY = rand((9, 9)), rand((12, 10))
S16, I32 = rand((7, 13), np.int16), rand((7, 13), np.int32)
BITS = rand((5, 21)) < 128

# (the functions the row needs, the call, the result wanted)
KNOWN = [
    ("multiply_scale", lambda: moxpx.multiply_scale(A8, B8), lambda: scaled(A8, B8, 8)),
    ("multiply_scale", lambda: moxpx.multiply_scale(A16, B16), lambda: scaled(A16, B16, 16)),
    ("multiply_s_scale", lambda: moxpx.multiply_s_scale(A8, 77), lambda: scaled(A8, 77, 8)),
    ("multiply_s_scale", lambda: moxpx.multiply_s_scale(A16, 77), lambda: scaled(A16, 77, 16)),
    ("pre_multiply_alpha", lambda: moxpx.parallel(moxpx.pre_multiply_alpha, RGBA.copy(),
                                                  tile=(16, 8)),
     lambda: moxpx.pre_multiply_alpha(RGBA.copy())),
    # An opaque source over anything is itself.
    ("alpha_composite_c", lambda: moxpx.alpha_composite_c(OPAQUE, RGBA[:5, :8], 0, 255, 255)[
        ..., :3], lambda: OPAQUE[..., :3]),
    ("threshold", lambda: moxpx.threshold(A8[..., 0], 100), lambda: threshold(A8[..., 0], 100)),
    ("threshold", lambda: moxpx.threshold(S16, -5), lambda: threshold(S16, -5)),
    ("threshold", lambda: moxpx.threshold(I32, 0), lambda: threshold(I32, 0)),
    ("apply_color_twist", lambda: moxpx.apply_color_twist(A8, np.eye(4, dtype=int)[:3] * 16,
                                                          scaling=4), lambda: A8),
    # Factors whose steps (1/2, 1/4) are exact in the fixed-point positions.
    ("zoom", lambda: moxpx.zoom(A8, 2, 4), lambda: A8.repeat(4, axis=0).repeat(2, axis=1)),
    ("zoom", lambda: moxpx.zoom(A8, 1, 1, "cubic"), lambda: A8),
    ("decimate", lambda: moxpx.decimate(GREY, (1, 2), (1, 2), "linear"), lambda: GREY[::2, ::2]),
    ("mirror", lambda: moxpx.mirror(A16, 0), lambda: A16[::-1]),
    ("mirror", lambda: moxpx.mirror(A16, 1), lambda: A16[:, ::-1]),
    ("mirror", lambda: moxpx.mirror(A16, -1), lambda: A16[::-1, ::-1]),
    ("rotate", lambda: moxpx.rotate(SQUARE, 36000, 4, 4), lambda: SQUARE),
    ("rotate", lambda: moxpx.rotate(SQUARE, 18000, 4, 4), lambda: SQUARE[::-1, ::-1]),
    ("convert", lambda: moxpx.convert(A8, np.int16), lambda: A8.astype(np.int16)),
    ("convert", lambda: moxpx.convert(GREY > 100, np.uint8), lambda: np.where(GREY > 100, 255, 0)),
    ("convert", lambda: moxpx.convert(GREY, bool), lambda: GREY != 0),
    ("bitonal_to_gray", lambda: moxpx.bitonal_to_gray(BITS, 10, 200),
     lambda: np.where(BITS, 200, 10)),
    # Bin i to i: the bin number of every value.
    ("contrast_stretch", lambda: moxpx.contrast_stretch(A8, np.arange(0, 257, 16), np.arange(16)),
     lambda: A8 // 16),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 24)), lambda: A8),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 32)), lambda: A8),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(GREY, 8), channels=1), lambda: GREY),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 24, bmp=True), order="BGR"),
     lambda: A8[..., ::-1]),
    # moxpx.parallel gives its images the colour model the operation reads.
    ("rgb2hsv hsv2rgb",
     lambda: moxpx.parallel(moxpx.hsv2rgb, moxpx.rgb2hsv(RGBA[..., :3]), tile=(16, 8), threads=2),
     lambda: moxpx.hsv2rgb(moxpx.rgb2hsv(RGBA[..., :3]))),
]


@pytest.mark.parametrize("name, call, want", KNOWN, ids=[row[0] for row in KNOWN])
def test_known_results(name, call, want):
    if not all(hasattr(moxpx, n) for n in name.split()):
        pytest.skip("the library lacks " + name)
    np.testing.assert_array_equal(call(), want())


@needs("pre_multiply_alpha")
def test_premultiplication_in_place_by_the_last_channel():
    rgba = RGBA.copy()
    want = rgba.copy()
    want[..., :3] = scaled(rgba[..., :3], rgba[..., 3:], 8)
    assert moxpx.pre_multiply_alpha(rgba) is rgba
    np.testing.assert_array_equal(rgba, want)
    with pytest.raises(moxpx.MoxError):  # three channels: no alpha to multiply by
        moxpx.pre_multiply_alpha(A8)


@needs("alpha_composite")
def test_composition_by_alpha_images():
    a, b = A8[:5, :8], B8[:5, :8]
    opaque, clear = np.full((5, 8), 255, np.uint8), np.zeros((5, 8), np.uint8)
    alpha = np.zeros((5, 8), np.uint8)
    np.testing.assert_array_equal(moxpx.alpha_composite(a, b, "over", opaque, clear, alpha), a)
    np.testing.assert_array_equal(alpha, 255)  # the result's alpha, written in place
    np.testing.assert_array_equal(moxpx.alpha_composite(a, b, "over", clear, opaque), b)


@needs("norm")
def test_norms():
    a, b = S16, rand((7, 13), np.int16)
    d = a.astype(np.float64) - b
    assert moxpx.norm(a, b, "c") == np.abs(d).max()
    assert moxpx.norm(a, b, "l1") == np.abs(d).sum()
    assert moxpx.norm(a, b, "l2") == pytest.approx(np.sqrt((d * d).sum()))
    assert moxpx.norm(a, None, "l1") == np.abs(a.astype(np.float64)).sum()


@needs("color_to_gray")
def test_grey_of_grey_pixels_is_their_value():
    got = moxpx.color_to_gray(np.repeat(SQUARE[..., None], 3, axis=2))
    assert got.shape == SQUARE.shape
    assert np.abs(got.astype(int) - SQUARE).max() <= 1


@needs("rgb2hsv", "hsv2rgb", "rgb2hls", "hls2rgb")
@pytest.mark.parametrize("there, back", [("rgb2hsv", "hsv2rgb"), ("rgb2hls", "hls2rgb")])
def test_colour_models_go_and_come_back(there, back):
    rgb = RGBA[:16, :16, :3]
    mid = getattr(moxpx, there)(rgb)
    assert mid.shape == rgb.shape and mid[..., 0].max() < 180  # hue in half degrees
    # Hue in steps of 2 degrees moves a channel by up to 255 * 2/60, plus truncations.
    assert np.abs(getattr(moxpx, back)(mid).astype(int) - rgb).max() <= 12


@needs("reduce_bits")
def test_two_levels_without_dither():
    assert set(np.unique(moxpx.reduce_bits(SQUARE, 0, 0, 2))) <= {0, 255}


@needs("compute_histo", "histo_equalize")
def test_histograms():
    edges = np.arange(0, 257, 16)
    counts = moxpx.compute_histo(A8, edges)
    assert counts.shape == (3, 16)
    for c in range(3):
        np.testing.assert_array_equal(counts[c], np.histogram(A8[..., c], edges)[0])
    np.testing.assert_array_equal(moxpx.compute_histo(A8, edges, coi=2),
                                  np.histogram(A8[..., 1], edges)[0])
    eq = moxpx.histo_equalize(A8, np.arange(257))
    assert eq.shape == A8.shape and eq.max() >= 250


@needs("to_dib")
def test_bitmap_file_header():
    bmp = moxpx.to_dib(A8, 24, bmp=True)
    assert bmp[:2] == b"BM" and int.from_bytes(bmp[2:6], "little") == len(bmp)
    with pytest.raises(ValueError):
        moxpx.to_dib(A8, 16)
