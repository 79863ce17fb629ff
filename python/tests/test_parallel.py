"""moxpx.parallel: one destination tile per call on several threads gives the
single call's result, from arrays and from raw files."""

import os
import re

import numpy as np
import pytest

import moxpx
from conftest import rand
from moxpx import RawFile

@pytest.mark.parametrize("op, args, tile, threads", [
    (moxpx.add, (rand((70, 100)), rand((70, 100))), (32, 16), 3),  # tiles cut the image
    (moxpx.add, (rand((64, 96)), rand((64, 96))), (96, 8), 2),  # strips handed out in place
    (moxpx.subtract, (rand((33, 41, 3), np.int16), rand((33, 41, 3), np.int16), True), (8, 24), 4),
    (moxpx.add, (rand((40, 40), np.uint16), 1000), (24, 8), 2),  # the scalar form
    (moxpx.rshift_s, (rand((40, 48), np.int8), 3), (48, 40), 2),  # a single tile
])
def test_tiles_on_threads_equal_the_single_call(op, args, tile, threads):
    np.testing.assert_array_equal(moxpx.parallel(op, *args, tile=tile, threads=threads),
                                  op(*args))


TWO = (rand((60, 80, 3), np.int16), rand((60, 80, 3), np.int16))


@pytest.mark.parametrize("op, args, coi", [(moxpx.add, TWO, 2), (moxpx.add, TWO, None),
                                           (moxpx.set, (-7,), 2)])
def test_regions_cut_tiles_and_leave_the_rest(op, args, coi):
    # The region's edges cut tiles: pixels of those tiles outside it stay.
    out, want = np.full((60, 80, 3), 9, np.int16), np.full((60, 80, 3), 9, np.int16)
    region = dict(roi=(5, 7, 50, 40), coi=coi)
    if op is moxpx.set:  # written in place: the tiled image is the one returned
        op(want, *args, **region)
        assert moxpx.parallel(op, out, *args, tile=(16, 8), threads=2, **region) is out
    else:
        op(*args, out=want, **region)
        moxpx.parallel(op, *args, tile=(16, 16), threads=2, out=out, **region)
    np.testing.assert_array_equal(out, want)


@pytest.mark.parametrize("call, error, match", [
    (lambda a: moxpx.parallel(moxpx.add, a, a.astype(np.int16), tile=(16, 16), threads=2),
     moxpx.MoxError, "depth"),
    (lambda a: moxpx.parallel(moxpx.add, a, a, tile=(12, 16), threads=2), moxpx.MoxError,
     "Tile size is invalid"),
    (lambda a: moxpx.parallel(moxpx.dct2d, a, tile=(16, 16)), ValueError, "mapping"),
    (lambda a: moxpx.parallel(moxpx.set, a, 1, out=a.copy()), ValueError, "in place"),
])
def test_library_failures_and_refusals_raise(call, error, match):
    with pytest.raises(error, match=match):
        call(rand((32, 32)))


def mapped_kib(path):
    """Resident kB of this process's mappings of a file (from /proc/self/smaps)."""
    with open("/proc/self/smaps") as f:
        blocks = re.split(r"\n(?=[0-9a-f]+-[0-9a-f]+ )", f.read())
    return sum(int(re.search(r"^Rss:\s+(\d+)", b, re.M).group(1)) for b in blocks
               if b.split("\n", 1)[0].endswith(path))


def test_raw_files_in_and_out_let_their_pages_go(tmp_path):
    a, side = rand((2048, 2048)), 2048
    src, dst, other = (str(tmp_path / n) for n in ("a.raw", "out.raw", "b.raw"))
    a.tofile(src)
    with RawFile(src, a.shape) as s, RawFile(dst, a.shape, mode="w+") as d:
        moxpx.parallel(moxpx.xor, s, a[::-1].copy(), tile=(side, 32), threads=2, out=d)
        # The whole of both files went through the mappings; little stays.
        if os.path.exists("/proc/self/smaps"):
            assert mapped_kib(src) + mapped_kib(dst) < side * side // 1024 // 4
        moxpx.parallel(moxpx.add, s, 7, tile=(200, 136), threads=2,
                       out=RawFile(other, a.shape, mode="w+"))
    for name, want in [(dst, a ^ a[::-1]), (other, moxpx.add(a, 7))]:
        np.testing.assert_array_equal(np.fromfile(name, np.uint8).reshape(a.shape), want)
