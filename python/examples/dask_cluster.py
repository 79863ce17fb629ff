"""A moxpx operation on a dask cluster, block by block.

Starts a distributed.LocalCluster of worker processes on this machine, adds
two large images held as dask arrays in blocks of 1024 x 1024, and checks the
result against the whole-image call. On a real cluster only the address
changes: `Client("tcp://scheduler:8786")` instead of the LocalCluster, with
moxpx (and its library) installed on every worker.

    python3 dask_cluster.py [side] [workers]
"""

import sys

import dask.array as da
import numpy as np
from distributed import Client, LocalCluster

import moxpx
import moxpx.dask


def main():
    side = int(sys.argv[1]) if len(sys.argv) > 1 else 4096
    workers = int(sys.argv[2]) if len(sys.argv) > 2 else 2
    with LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None) as cluster, \
            Client(cluster) as client:
        # Images made on the workers, block by block.
        x = da.random.randint(0, 256, (side, side), chunks=1024).astype(np.uint8)
        y = da.random.randint(0, 256, (side, side), chunks=1024).astype(np.uint8)
        x, y = client.persist([x, y])
        result = moxpx.dask.apply(moxpx.add, x, y, tile=(1024, 1024))
        got = result.compute()
        want = moxpx.add(x.compute(), y.compute())
        print("%d x %d on %d workers, %d blocks: %s the whole-image call" % (
            side, side, workers, result.npartitions,
            "equal to" if np.array_equal(got, want) else "DIFFERENT FROM"))
        return 0 if np.array_equal(got, want) else 1


if __name__ == "__main__":
    sys.exit(main())
