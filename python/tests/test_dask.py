"""moxpx.dask: block by block equals the whole-image call, for point
operations (map_blocks) and neighbourhood operations (map_overlap with the
image's border rule)."""

import numpy as np
import pytest

import moxpx
from conftest import rand

da = pytest.importorskip("dask.array")
import moxpx.dask as mdask  # noqa: E402


@pytest.mark.parametrize("op, args, kw, tile", [
    (moxpx.add, (rand((90, 70)), rand((90, 70))), {}, None),
    (moxpx.subtract, (rand((50, 64, 3), np.int16), rand((50, 64, 3), np.int16), True), {}, None),
    (moxpx.add, (rand((40, 40), np.uint16), 999), {}, None),
    (moxpx.not_, (rand((40, 48, 3)),), {"coi": 2}, None),  # one channel of three
    (moxpx.xor, (rand((64, 64)), rand((64, 64))), {}, (32, 16)),  # tile= sets the chunks
])
def test_point_operations_block_by_block(op, args, kw, tile):
    # The first image is a dask array of blocks of 24 x 16, the others join in.
    images = [da.from_array(args[0], chunks=(16, 24) + args[0].shape[2:]), *args[1:]]
    got = mdask.apply(op, *images, tile=tile, **kw)
    want = op(*args, **kw)
    assert got.dtype == want.dtype and got.shape == want.shape
    assert (got.chunks[1][0], got.chunks[0][0]) == (tile or (24, 16))
    np.testing.assert_array_equal(got.compute(scheduler="threads"), want)


@pytest.mark.skipif(not hasattr(moxpx, "blur"), reason="the library has no moxBlur yet")
@pytest.mark.parametrize("border", [None, ("constant", 40), "replicate", "reflect", "wrap"])
def test_neighbourhood_operations_overlap_their_blocks(border):
    # Blocks of 10 x 12 and a 5 x 3 window anchored off centre: every block
    # reads its neighbours' pixels, and the image's edges take the border rule.
    x = rand((45, 37))
    got = mdask.apply(moxpx.blur, da.from_array(x, chunks=(10, 12)), 5, 3, 2, 1, border=border)
    want = moxpx.blur(moxpx.Image(x, border=border) if border else x, 5, 3, 2, 1)
    np.testing.assert_array_equal(got.compute(), want)


def test_regions_are_refused():
    with pytest.raises(ValueError, match="slice"):
        mdask.apply(moxpx.not_, da.zeros((8, 8), np.uint8), roi=(0, 0, 4, 4))
