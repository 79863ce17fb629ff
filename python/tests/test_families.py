"""What only the package does in the operation families (bool images, 3 x 4
matrices, tables without factors, alpha images, bitmaps, tiles), where the
library exports them; the command-line tests compare the other arguments
with the tool's own calls."""

import numpy as np
import pytest

import moxpx
from conftest import needs, rand


A8, B8 = rand((9, 20, 3)), rand((9, 20, 3))
RGBA, OPAQUE = rand((30, 40, 4)), rand((5, 8, 4))
OPAQUE[..., 3] = 255
GREY, S16 = rand((12, 10)), rand((7, 13), np.int16)
BITS = rand((5, 21)) < 128

# (the functions the row needs, the call, the result wanted)
KNOWN = [
    ("pre_multiply_alpha", lambda: moxpx.parallel(moxpx.pre_multiply_alpha, RGBA.copy(),
                                                  tile=(16, 8)),
     lambda: moxpx.pre_multiply_alpha(RGBA.copy())),
    # An opaque source over anything is itself.
    ("alpha_composite_c", lambda: moxpx.alpha_composite_c(OPAQUE, RGBA[:5, :8], 0, 255, 255)[
        ..., :3], lambda: OPAQUE[..., :3]),
    ("apply_color_twist", lambda: moxpx.apply_color_twist(A8, np.eye(4, dtype=int)[:3] * 16,
                                                          scaling=4), lambda: A8),
    # Factors whose steps (1/2, 1/4) are exact in the fixed-point positions.
    ("zoom", lambda: moxpx.zoom(A8, 2, 4), lambda: A8.repeat(4, axis=0).repeat(2, axis=1)),
    ("convert", lambda: moxpx.convert(A8, np.int16), lambda: A8.astype(np.int16)),
    ("convert", lambda: moxpx.convert(GREY > 100, np.uint8), lambda: np.where(GREY > 100, 255, 0)),
    ("convert", lambda: moxpx.convert(GREY, bool), lambda: GREY != 0),
    ("bitonal_to_gray", lambda: moxpx.bitonal_to_gray(BITS, 10, 200),
     lambda: np.where(BITS, 200, 10)),
    # Bin i to i: the bin number of every value.
    ("contrast_stretch", lambda: moxpx.contrast_stretch(A8, np.arange(0, 257, 16), np.arange(16)),
     lambda: A8 // 16),
    ("norm", lambda: moxpx.norm(S16, None, "l1"), lambda: np.abs(S16.astype(np.float64)).sum()),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 24)), lambda: A8),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 32)), lambda: A8),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(GREY, 8), channels=1), lambda: GREY),
    ("to_dib from_dib", lambda: moxpx.from_dib(moxpx.to_dib(A8, 24, bmp=True), order="BGR"),
     lambda: A8[..., ::-1]),
    # moxpx.parallel gives its images the colour model the operation reads.
    ("rgb2hsv hsv2rgb", lambda: moxpx.parallel(moxpx.hsv2rgb, moxpx.rgb2hsv(A8), tile=(16, 8),
                                               threads=2),
     lambda: moxpx.hsv2rgb(moxpx.rgb2hsv(A8))),
]


@pytest.mark.parametrize("name, call, want", KNOWN, ids=[row[0] for row in KNOWN])
def test_known_results(name, call, want):
    if not all(hasattr(moxpx, n) for n in name.split()):
        pytest.skip("the library lacks " + name)
    np.testing.assert_array_equal(call(), want())


@needs("pre_multiply_alpha")
def test_premultiplication_in_place_by_the_last_channel():
    rgba = RGBA.copy()
    assert moxpx.pre_multiply_alpha(rgba) is rgba and (rgba[..., 3] == RGBA[..., 3]).all()
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


@needs("to_dib")
def test_bitmap_file_header():
    bmp = moxpx.to_dib(A8, 24, bmp=True)
    assert bmp[:2] == b"BM" and int.from_bytes(bmp[2:6], "little") == len(bmp)
    with pytest.raises(ValueError):
        moxpx.to_dib(A8, 16)
