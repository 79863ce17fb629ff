"""moxpx.dask: block by block equals the whole-image call, for point
operations (map_blocks) and neighbourhood operations (map_overlap with the
image's border rule)."""

import numpy as np
import pytest

import moxpx
from conftest import rand

da = pytest.importorskip("dask.array")
import moxpx.dask as mdask  # noqa: E402


@pytest.mark.parametrize("op, args, kw", [
    (moxpx.add, (rand((90, 70)), rand((90, 70))), {}),
    (moxpx.subtract, (rand((50, 64, 3), np.int16), rand((50, 64, 3), np.int16), True), {}),
    (moxpx.add, (rand((40, 40), np.uint16), 999), {}),
    (moxpx.not_, (rand((40, 48, 3)),), {"coi": 2}),  # one channel of three
])
def test_point_operations_block_by_block(op, args, kw):
    images = [da.from_array(a, chunks=(16, 24) + a.shape[2:]) if isinstance(a, np.ndarray)
              else a for a in args]
    got = mdask.apply(op, *images, **kw)
    want = op(*args, **kw)
    assert got.dtype == want.dtype and got.shape == want.shape
    np.testing.assert_array_equal(got.compute(scheduler="threads"), want)


def test_tile_sets_the_chunks_and_arrays_join_in():
    a, b = rand((64, 64)), rand((64, 64))
    got = mdask.apply(moxpx.xor, da.from_array(a, chunks=64), b, tile=(32, 16))
    assert got.chunks == ((16,) * 4, (32,) * 2)
    np.testing.assert_array_equal(got.compute(), a ^ b)


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


def test_on_a_local_cluster():
    distributed = pytest.importorskip("distributed")
    import dask
    x, y = rand((128, 96)), rand((128, 96))
    # A busy machine starts the cluster slowly: wait for it generously.
    with dask.config.set({"distributed.comm.timeouts.connect": "120s",
                          "distributed.deploy.lost-worker-timeout": "120s"}), \
            distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=False,
                                     dashboard_address=None) as cluster, \
            distributed.Client(cluster, timeout=120) as client:
        got = client.compute(mdask.apply(moxpx.add, da.from_array(x, chunks=32), y)).result()
    np.testing.assert_array_equal(got, moxpx.add(x, y))
