"""The operation families beyond arithmetic, each checked where the loaded
library exports it (the package binds what the library has)."""

import numpy as np
import pytest

import moxpx

RNG = np.random.default_rng(17)


def needs(*names):
    missing = [n for n in names if not hasattr(moxpx, n)]
    return pytest.mark.skipif(bool(missing), reason="the library lacks %s" % ", ".join(missing))


def rand(shape, dtype=np.uint8):
    info = np.iinfo(dtype)
    return RNG.integers(info.min, info.max, size=shape, endpoint=True, dtype=dtype)


def scaled(a, b, bits):
    p = a.astype(np.int64) * b
    return ((p + 1 + (p >> bits)) >> bits).astype(a.dtype)


# ------------------------------------------------------------------ alpha and statistics

@needs("multiply_s_scale", "multiply_scale")
@pytest.mark.parametrize("dtype, bits", [(np.uint8, 8), (np.uint16, 16)])
def test_scaled_products(dtype, bits):
    a, b = rand((9, 20, 3), dtype), rand((9, 20, 3), dtype)
    np.testing.assert_array_equal(moxpx.multiply_scale(a, b), scaled(a, b, bits))
    np.testing.assert_array_equal(moxpx.multiply_s_scale(a, 77), scaled(a, 77, bits))


@needs("pre_multiply_alpha")
def test_premultiplication_in_place_by_the_last_channel():
    rgba = rand((6, 8, 4))
    want = rgba.copy()
    want[..., :3] = scaled(rgba[..., :3], rgba[..., 3:], 8)
    assert moxpx.pre_multiply_alpha(rgba) is rgba
    np.testing.assert_array_equal(rgba, want)
    with pytest.raises(moxpx.MoxError):  # three channels: no alpha to multiply by
        moxpx.pre_multiply_alpha(rand((6, 8, 3)))


@needs("pre_multiply_alpha")
def test_premultiplication_tile_by_tile():
    rgba = rand((30, 40, 4))
    want = moxpx.pre_multiply_alpha(rgba.copy())
    np.testing.assert_array_equal(moxpx.parallel(moxpx.pre_multiply_alpha, rgba, tile=(16, 8)),
                                  want)


@needs("alpha_composite_c")
def test_an_opaque_source_over_anything_is_itself():
    a, b = rand((5, 8, 4)), rand((5, 8, 4))
    a[..., 3] = 255
    got = moxpx.alpha_composite_c(a, b, 0, 255, 255)
    np.testing.assert_array_equal(got[..., :3], a[..., :3])


@needs("alpha_composite")
def test_composition_by_alpha_images():
    a, b = rand((5, 8, 3)), rand((5, 8, 3))
    opaque, clear = np.full((5, 8), 255, np.uint8), np.zeros((5, 8), np.uint8)
    alpha = np.zeros((5, 8), np.uint8)
    got = moxpx.alpha_composite(a, b, "over", opaque, clear, alpha)
    np.testing.assert_array_equal(got, a)
    np.testing.assert_array_equal(alpha, 255)  # the result's alpha, written in place
    np.testing.assert_array_equal(moxpx.alpha_composite(a, b, "over", clear, opaque), b)


@needs("threshold")
@pytest.mark.parametrize("dtype, t", [(np.uint8, 100), (np.int16, -5), (np.int32, 0)])
def test_threshold(dtype, t):
    a = rand((7, 13), dtype)
    info = np.iinfo(dtype)
    np.testing.assert_array_equal(moxpx.threshold(a, t), np.where(a < t, info.min, info.max))


@needs("norm")
def test_norms():
    a, b = rand((6, 9), np.int16), rand((6, 9), np.int16)
    d = a.astype(np.float64) - b
    assert moxpx.norm(a, b, "c") == np.abs(d).max()
    assert moxpx.norm(a, b, "l1") == np.abs(d).sum()
    assert moxpx.norm(a, b, "l2") == pytest.approx(np.sqrt((d * d).sum()))
    assert moxpx.norm(a, None, "l1") == np.abs(a.astype(np.float64)).sum()


# ------------------------------------------------------------------ colour

@needs("color_to_gray")
def test_grey_of_grey_pixels_is_their_value():
    v = rand((5, 7))
    got = moxpx.color_to_gray(np.repeat(v[..., None], 3, axis=2))
    assert got.shape == (5, 7)
    assert np.abs(got.astype(int) - v).max() <= 1


@needs("rgb2hsv", "hsv2rgb", "rgb2hls", "hls2rgb")
@pytest.mark.parametrize("there, back", [("rgb2hsv", "hsv2rgb"), ("rgb2hls", "hls2rgb")])
def test_colour_models_go_and_come_back(there, back):
    rgb = rand((16, 16, 3))
    mid = getattr(moxpx, there)(rgb)
    assert mid.shape == rgb.shape and mid[..., 0].max() < 180  # hue in half degrees
    # Hue in steps of 2 degrees moves a channel by up to 255 * 2/60, plus truncations.
    assert np.abs(getattr(moxpx, back)(mid).astype(int) - rgb).max() <= 12


@needs("apply_color_twist")
def test_the_identity_twist_copies_the_colours():
    rgb = rand((6, 9, 3))
    got = moxpx.apply_color_twist(rgb, np.eye(4, dtype=int)[:3] * 16, scaling=4)
    np.testing.assert_array_equal(got, rgb)


# ------------------------------------------------------------------ geometry

@needs("zoom")
def test_zoom_by_whole_factors_repeats_pixels():
    # Factors whose steps (1/2, 1/4) are exact in the fixed-point positions.
    a = rand((5, 7, 3))
    got = moxpx.zoom(a, 2, 4)
    assert got.shape == (20, 14, 3)
    np.testing.assert_array_equal(got, a.repeat(4, axis=0).repeat(2, axis=1))
    np.testing.assert_array_equal(moxpx.zoom(a, 1, 1, "cubic"), a)


@needs("decimate")
def test_decimation_by_two_takes_every_other_pixel():
    a = rand((12, 10))
    got = moxpx.decimate(a, (1, 2), (1, 2), "linear")
    np.testing.assert_array_equal(got, a[::2, ::2])


@needs("mirror")
@pytest.mark.parametrize("axis, flip", [(0, (0,)), (1, (1,)), (-1, (0, 1))])
def test_mirror(axis, flip):
    a = rand((6, 9, 3), np.int16)
    np.testing.assert_array_equal(moxpx.mirror(a, axis), np.flip(a, flip))


@needs("rotate")
def test_whole_turns_copy_and_half_turns_flip():
    a = rand((9, 9))
    np.testing.assert_array_equal(moxpx.rotate(a, 36000, 4, 4), a)
    np.testing.assert_array_equal(moxpx.rotate(a, 18000, 4, 4), a[::-1, ::-1])


# ------------------------------------------------------------------ depths

@needs("convert")
def test_conversions_between_types():
    a = rand((4, 8))
    np.testing.assert_array_equal(moxpx.convert(a, np.int16), a.astype(np.int16))
    np.testing.assert_array_equal(moxpx.convert(a > 100, np.uint8), np.where(a > 100, 255, 0))
    np.testing.assert_array_equal(moxpx.convert(a, bool), a != 0)


@needs("bitonal_to_gray")
def test_bitonal_expansion():
    bits = RNG.random((5, 21)) < 0.5
    np.testing.assert_array_equal(moxpx.bitonal_to_gray(bits, 10, 200), np.where(bits, 200, 10))


@needs("reduce_bits")
def test_two_levels_without_dither():
    got = moxpx.reduce_bits(rand((8, 8)), 0, 0, 2)
    assert set(np.unique(got)) <= {0, 255}


@needs("compute_histo", "contrast_stretch", "histo_equalize")
def test_histograms_and_lookup_tables():
    a = rand((20, 30, 3))
    edges = np.arange(0, 257, 16)
    counts = moxpx.compute_histo(a, edges)
    assert counts.shape == (3, 16)
    for c in range(3):
        np.testing.assert_array_equal(counts[c], np.histogram(a[..., c], edges)[0])
    np.testing.assert_array_equal(moxpx.compute_histo(a, edges, coi=2),
                                  np.histogram(a[..., 1], edges)[0])
    # Bin i to i: the bin number of every value.
    got = moxpx.contrast_stretch(a, edges, np.arange(16))
    np.testing.assert_array_equal(got, a // 16)
    eq = moxpx.histo_equalize(a, np.arange(257))
    assert eq.shape == a.shape and eq.max() >= 250


@needs("to_dib", "from_dib")
def test_bitmaps_go_and_come_back():
    rgb = rand((7, 13, 3))
    for bits in (24, 32):
        np.testing.assert_array_equal(moxpx.from_dib(moxpx.to_dib(rgb, bits)), rgb)
    gray = rand((5, 6))
    np.testing.assert_array_equal(moxpx.from_dib(moxpx.to_dib(gray, 8), channels=1), gray)
    bmp = moxpx.to_dib(rgb, 24, bmp=True)
    assert bmp[:2] == b"BM" and int.from_bytes(bmp[2:6], "little") == len(bmp)
    np.testing.assert_array_equal(moxpx.from_dib(bmp, order="BGR"), rgb[..., ::-1])
    with pytest.raises(ValueError):
        moxpx.to_dib(rgb, 16)


@needs("rgb2hsv", "hsv2rgb")
def test_colour_models_tile_by_tile():
    # moxpx.parallel gives its images the colour model the operation reads.
    rgb = rand((40, 50, 3))
    hsv = moxpx.rgb2hsv(rgb)
    np.testing.assert_array_equal(moxpx.parallel(moxpx.hsv2rgb, hsv, tile=(16, 8), threads=2),
                                  moxpx.hsv2rgb(hsv))
