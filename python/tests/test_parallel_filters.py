"""moxpx.parallel on neighbourhood operations: per-tile regions over the
shared pixels give the single call's result; and the convolution wrappers
against the raw library calls."""

import ctypes

import numpy as np
import pytest

import moxpx
from conftest import needs, rand

A = rand((53, 71, 3))
K3 = [[1, -2, 1], [2, 5, -2], [0, 3, 1]]
BORDERS = [None, "reflect", ("constant", 200), "mixed"]


def with_border(a, border, **region):
    if border is None:
        return a
    img = moxpx.Image(a, border="wrap" if border == "mixed" else border, **region)
    if border == "mixed":  # one side replicates: morphology goes step by step
        img.header.borderMode[2] = 1
    return img


CASES = [  # (operation, arguments after the image)
    ("convolve2d", (K3,), {"shift": 2}),
    ("blur", (3, 3, 1, 1), {}),
    ("median_filter", (5, 3, 1, 2), {}),
    ("erode", (2,), {}),
    ("open", (2,), {}),
]


@needs("convolve2d", "blur", "median_filter", "erode", "open")
@pytest.mark.parametrize("border", BORDERS)
@pytest.mark.parametrize("name, args, kw", CASES)
@pytest.mark.parametrize("tile, region", [((13, 7), {}), ((24, 11), {"roi": (5, 3, 57, 41)}),
                                          ((9, 64), {"coi": 2}),
                                          ((16, 5), {"roi": (1, 8, 40, 33), "coi": 3})])
def test_tiles_on_threads_equal_the_single_call(name, args, kw, border, tile, region):
    op = getattr(moxpx, name)
    src = with_border(A, border, **region)  # an Image has its own region; out= takes roi=
    want, got = np.full_like(A, 7), np.full_like(A, 7)  # pixels outside the region stay
    op(src, *args, out=want, **region, **kw)
    assert moxpx.parallel(op, src, *args, tile=tile, threads=3, out=got, **region, **kw) is got
    np.testing.assert_array_equal(got, want)
    np.testing.assert_array_equal(moxpx.parallel(op, src, *args, tile=tile, threads=2, **kw),
                                  op(src, *args, **kw))


@needs("close", "blur")
def test_planar_sources_give_planar_results():
    src = moxpx.Image(np.ascontiguousarray(A.transpose(2, 0, 1)), planar=True, border="wrap")
    for op, args in ((moxpx.close, (2,)), (moxpx.blur, (3, 3, 1, 1))):
        np.testing.assert_array_equal(moxpx.parallel(op, src, *args, tile=(16, 8), threads=2),
                                      op(src, *args))


@needs("convolve2d", "convolve_sep2d")
def test_convolution_wrappers_equal_the_raw_calls():
    def kernel(values, cols, rows, ax, ay, shift):
        v = np.ascontiguousarray(values, np.int32)
        return moxpx.raw("moxCreateConvKernel", cols, rows, ax, ay,
                         v.ctypes.data_as(ctypes.POINTER(ctypes.c_int)), shift)

    a = rand((31, 46, 3), np.int16)  # rows of whole words: the headers point at the arrays
    k1, k2 = kernel(K3, 3, 3, 0, 2, 1), kernel([[1] * 5], 5, 1, 3, 0, 1)
    xk, yk = kernel([1, 2, 1], 3, 1, 1, 0, 2), kernel([1, 3, 3, 1], 1, 4, 0, 2, 3)
    try:
        for cname, args, got in [
                ("moxConvolve2D", [(ctypes.POINTER(moxpx._lib.MoxConvKernel) * 2)(k1, k2), 2, 3],
                 moxpx.convolve2d(a, [K3, [[1] * 5]], "max", [(0, 2), (3, 0)], 1)),
                ("moxConvolveSep2D", [xk, yk], moxpx.convolve_sep2d(a, [1, 2, 1], [1, 3, 3, 1],
                                                                    1, 2, 2, 3))]:
            want = np.zeros_like(a)
            moxpx.raw(cname, moxpx.Image(a).pointer, moxpx.Image(want, written=True).pointer,
                      *args)
            np.testing.assert_array_equal(got, want)
    finally:
        for k in (k1, k2, xk, yk):
            moxpx.raw("moxDeleteConvKernel", k)
