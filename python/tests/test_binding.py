"""The binding: arrays to headers and back, the operation table, regions,
in-place operations and errors."""

import os
import subprocess
import sys

import numpy as np
import pytest

import moxpx
from conftest import rand

INT_TYPES = [np.uint8, np.int8, np.uint16, np.int16, np.int32]


def sat(x, dtype):
    info = np.iinfo(dtype)
    return np.clip(x, info.min, info.max).astype(dtype)


def wide(x):
    return x.astype(np.int64)


@pytest.mark.parametrize("dtype", INT_TYPES)
def test_every_type_is_its_depth(dtype):
    # Every function's arguments are compared with the tool's own calls in
    # the command-line tests; here each type reaches the library as its depth.
    a, b = rand((13, 21, 3), dtype), rand((13, 21, 3), dtype)
    got = moxpx.subtract(a, b)
    assert got.dtype == dtype and got.shape == a.shape
    np.testing.assert_array_equal(got, sat(wide(a) - b, dtype))
    np.testing.assert_array_equal(moxpx.multiply_s(a, -3), sat(wide(a) * -3, dtype))
    np.testing.assert_array_equal(moxpx.not_(a), ~a)


def test_scalar_second_argument_calls_the_scalar_form():
    a = np.full((4, 8), 200, np.uint8)
    np.testing.assert_array_equal(moxpx.add(a, 100), 255)
    np.testing.assert_array_equal(moxpx.subtract(a, 50, reverse=True), 0)
    np.testing.assert_array_equal(moxpx.subtract(a, 50), 150)
    np.testing.assert_array_equal(moxpx.and_(a, 0x0F), 200 & 0x0F)
    np.testing.assert_array_equal(moxpx.add_s(np.zeros((4, 8), np.int32), -2**31), -2**31)


def test_bool_arrays_are_one_bit_images():
    a, b = rand((5, 37)) < 128, rand((5, 37)) < 128
    np.testing.assert_array_equal(moxpx.xor(a, b), a ^ b)
    np.testing.assert_array_equal(moxpx.add(a, b), a | b)
    np.testing.assert_array_equal(moxpx.not_(a, roi=(3, 1, 30, 3)), ~a[1:4, 3:33])
    out = a.copy()
    moxpx.not_(a, out=out, roi=(3, 1, 30, 3))
    a[1:4, 3:33] = ~a[1:4, 3:33]
    np.testing.assert_array_equal(out, a)


Z8 = np.zeros((8, 16), np.uint8)


@pytest.mark.parametrize("array, copied", [
    (Z8, False), (np.zeros((8, 20, 3), np.uint16)[2:6, 4:10], False),  # rows of 120 bytes
    (np.zeros((8, 15), np.uint8), True),  # 15-byte rows
    (Z8[:, 1:9], True), (Z8[:, ::2], True), (Z8[::-1], True),  # misaligned, apart, backwards
    (np.zeros((8, 16, 3), np.uint8)[..., :2], True)])  # channels apart
def test_aligned_arrays_are_described_in_place_and_others_copied(array, copied):
    h = moxpx.Image(array).header
    assert moxpx.Image(array).copied == copied and h.widthStep % 4 == 0
    assert copied or (h.imageData, h.widthStep) == (array.ctypes.data, array.strides[0])
    assert h.imageSize == h.widthStep * array.shape[0]


def test_views_give_the_results_of_copies_and_writing_leaves_their_arrays_alone():
    parent, other = rand((40, 50, 3), np.int16), rand((40, 50, 3), np.int16)
    for sl in [np.s_[3:20, 4:30], np.s_[::2, 5:], np.s_[10:, :-7], np.s_[:, 1:2]]:
        a, b = parent[sl], other[sl]
        np.testing.assert_array_equal(moxpx.add(a, b), sat(wide(a) + b, np.int16))
    # Rows of a view of a wider array are not contiguous: the bytes between
    # them belong to the array and must not be written.
    out, want = np.full((40, 100, 3), 7, np.int16), sat(wide(parent) + other, np.int16)
    moxpx.add(parent, other, out=out[:, :50])
    np.testing.assert_array_equal(out[:, :50], want)
    np.testing.assert_array_equal(out[:, 50:], 7)
    moxpx.set(out[:, 25:75], 1)
    np.testing.assert_array_equal(out[:, :25], want[:, :25])
    assert (out[:, 25:75] == 1).all() and (out[:, 75:] == 7).all()


def test_planar_images():
    a = rand((3, 8, 12), np.uint8)
    img = moxpx.Image(a, planar=True)
    assert not img.copied and img.header.dataOrder == 1 and img.header.nChannels == 3
    np.testing.assert_array_equal(moxpx.not_(img), ~a)  # planar again, (3, 8, 12)


@pytest.mark.parametrize("call, error, match", [
    (lambda: moxpx.not_(np.zeros((4, 4), np.float32)), TypeError, None),
    (lambda: moxpx.not_(np.zeros((4, 4), np.int64)), TypeError, None),
    (lambda: moxpx.not_(np.zeros((4, 4), ">i2")), TypeError, None),
    (lambda: moxpx.not_(np.zeros((2, 2, 2, 2), np.uint8)), ValueError, None),
    (lambda: moxpx.Image(np.lib.stride_tricks.as_strided(np.zeros(1, np.uint8), (70000, 70000),
                                                         (0, 0))),
     ValueError, "more than a MoxImage header"),
    (lambda: moxpx.not_(np.zeros((4, 8), np.uint8), out=np.broadcast_to(np.uint8(0), (4, 8))),
     ValueError, "read-only"),
    (lambda: moxpx.add_s(np.zeros((4, 8), np.int32), 2**32 + 5), OverflowError, None),
    (lambda: moxpx.add(*[np.zeros((4, 8), np.int32)] * 2, mapping=(2**31, 0)), OverflowError,
     None),
    (lambda: moxpx.pack_spectrum(np.zeros((4, 3)), width=8), ValueError, None),
    (lambda: moxpx.real_fft2d(np.ones((1, 1), np.uint8)), moxpx.MoxError, "No calculations"),
])
def test_unsupported_arguments_are_refused(call, error, match):
    with pytest.raises(error, match=match):
        call()


def test_roi_and_coi_keywords_apply_to_every_image():
    a, b = rand((20, 30, 3), np.uint8), rand((20, 30, 3), np.uint8)
    got = moxpx.add(a, b, roi=(5, 2, 10, 7), coi=2)
    np.testing.assert_array_equal(got, sat(wide(a[2:9, 5:15, 1]) + b[2:9, 5:15, 1], np.uint8))
    out = np.zeros_like(a)
    moxpx.add(a, b, out=out, roi=(5, 2, 10, 7), coi=2)
    want = np.zeros_like(a)
    want[2:9, 5:15, 1] = got
    np.testing.assert_array_equal(out, want)
    # An image's own region: the common region of it and b is 8 x 5.
    b = rand((10, 10), np.uint8)
    got = moxpx.add(moxpx.Image(a, roi=(4, 6, 8, 5), coi=3), b)
    np.testing.assert_array_equal(got, sat(wide(a[6:11, 4:12, 2]) + b[:5, :8], np.uint8))


def test_in_place_operations_return_their_arrays():
    a = np.zeros((6, 8, 3), np.int16)
    assert moxpx.set(a, -5, coi=2) is a
    assert (a[..., 1] == -5).all() and (a[..., [0, 2]] == 0).all()
    b = np.ones((6, 8, 3), np.int16)
    ra, rb = moxpx.exchange(a, b)
    assert ra is a and rb is b and (a == 1).all() and (b[..., 1] == -5).all()
    c = moxpx.copy(b, roi=(1, 1, 3, 2))
    assert c.shape == (2, 3, 3) and (c[..., 1] == -5).all()


def test_failures_raise_with_the_report_and_write_nothing():
    a = np.zeros((4, 8), np.uint8)
    out = np.full((4, 8), 3, np.uint8)
    with pytest.raises(moxpx.MoxError) as e:
        moxpx.add(a, a.astype(np.int16), out=out)
    err = e.value
    assert (err.status, err.function, err.file, err.line) == (-5, "moxAdd", "moxadd", 1092)
    assert err.message == "(srcImageB->depth != dstImage->depth)"
    assert (out == 3).all()
    with pytest.raises(moxpx.MoxError) as e:
        moxpx.not_(np.zeros((0, 8), np.uint8))
    assert "Image size is invalid" in e.value.message and e.value.function == "moxNot"
    with pytest.raises(moxpx.MoxError, match="nChSrc != nChDst"):
        moxpx.not_(np.zeros((4, 8, 3), np.uint8), out=a)
    # Raw calls take headers as they stand.
    src, dst = moxpx.Image(out), moxpx.Image(a, written=True)
    moxpx.raw("moxNot", src.pointer, dst.pointer, None)
    np.testing.assert_array_equal(a, 252)
    with pytest.raises(moxpx.MoxError):
        moxpx.raw("moxNot", src.pointer, None, None)


def test_threads_compute_at_once_and_raise_their_own_errors():
    # A new thread's library context starts in the mode that ends the process;
    # run in a child so that a regression cannot end the test run.
    code = """
import threading, numpy as np, moxpx
a = (np.arange(64 * 64) * 37 % 65536 - 32768).astype(np.int16).reshape(64, 64)
got = {}
def work(i):
    try:
        got[i] = moxpx.add(a, a.astype(np.uint8)) if i % 2 else bool(
            (moxpx.add(a, i) == np.clip(a.astype(int) + i, -32768, 32767)).all())
    except moxpx.MoxError as e:
        got[i] = e.line
threads = [threading.Thread(target=work, args=(i,)) for i in range(8)]
for t in threads: t.start()
for t in threads: t.join()
print(sorted(got.items()))
"""
    env = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(moxpx.__file__)))
    r = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                       timeout=60, env=env)
    assert r.returncode == 0, r.stderr
    assert r.stdout.strip() == str([(i, 1092 if i % 2 else True) for i in range(8)])


def test_every_table_entry_matches_its_c_signature():
    # Entries are written ahead of the library's operations: each one's
    # argument layout must agree with the C declaration, image for image.
    from moxpx import _lib, _ops
    image = _lib._IMG
    layouts = [(op.cname, op.layout) for op in _ops.TABLE] + list(_ops.LAYOUTS.items())
    for cname, layout in layouts:
        result, argtypes = _lib._SIGNATURES[cname]
        assert len(layout) == len(argtypes), cname
        for k, t in zip(layout, argtypes):  # n: a null pointer of either kind
            assert k in "sdw" and t is image or k not in "sdw" and (t is not image or k == "n"), \
                (cname, k, t)
            if k == "m":
                assert t is _lib._MAP, (cname, k, t)
    for op in _ops.TABLE:
        assert len(op.params) == op.layout.count("."), op.name
