"""moxpx operations on dask arrays, block by block.

`apply(moxpx.add, x, y)` returns a dask array whose blocks are the operation's
results on the matching blocks of x and y. Point operations run with
`map_blocks`; neighbourhood operations (filters, morphology) run with
`map_overlap`, each block grown by the operation's margin and the image's
outer edge filled by the same border rule the library would apply, so the
result equals the whole-image call. The graph runs wherever dask runs it: on
the threads of this process, or on the workers of a `distributed` cluster
(each worker imports moxpx and loads its own library).
"""

import dask.array as da
import numpy as np

from ._image import BORDERS, Image
from ._ops import image_arguments, resolve

# How dask fills the outside of the image for each border mode of the library.
_BOUNDARY = {"replicate": "nearest", "reflect": "reflect", "wrap": "periodic"}


def _boundary(border):
    if border is None:
        return 0, None
    mode, const = (border, 0) if isinstance(border, (str, int)) else border
    if not isinstance(mode, str):
        mode = {v: k for k, v in BORDERS.items()}[int(mode)]
    if mode == "constant":
        return const, border
    return _BOUNDARY[mode], border


def apply(op, *args, tile=None, border=None, **kw):
    """Applies a moxpx function to dask arrays block by block and returns a
    dask array (compute it, or hand it on).

    args: the function's arguments; images are dask arrays or numpy arrays
    (made dask arrays with the first image's blocks); whole numbers are
    scalars. tile=(width, height): the block size (the chunk size of the rows
    and columns; channels stay in one block); default: the first image's own
    chunks. border: for neighbourhood operations, the border rule of the
    image's edge ("constant", "replicate", "reflect", "wrap", or (mode,
    constant); default constant 0). kw: the function's keywords (coi, ...);
    roi= is not taken, slice the dask array instead.
    """
    if "roi" in kw or "out" in kw:
        raise ValueError("moxpx.dask.apply takes whole arrays: slice them instead of roi=, "
                         "and use the returned array instead of out=")
    op = resolve(op, args)
    entry = getattr(op, "op", None)
    bound = op.bind(*args, **kw)
    image_names, images = image_arguments(bound)
    first = next((x for x in images if isinstance(x, da.Array)), None)
    if first is None:
        first = da.from_array(np.asarray(images[0]))
    if tile is not None:
        chunks = (int(tile[1]), int(tile[0])) + tuple(first.shape[2:])
    else:
        chunks = first.chunks[:2] + tuple((s,) for s in first.shape[2:])
    blocks = [da.asarray(x).rechunk(chunks) for x in images]

    rest = {k: v for k, v in bound.arguments.items() if k not in image_names}

    # What a block's result looks like: run the function on a small block.
    probe_in = [np.zeros((8, 8) + x.shape[2:], x.dtype) for x in blocks]
    probe = op(*probe_in, **rest) if entry is None or entry.margin is None else None

    boundary, rule = _boundary(border)

    def block_fn(*bs):
        bs = [np.ascontiguousarray(b) for b in bs]
        if rule is not None:  # the images carry the border rule
            bs = [Image(b, border=rule) for b in bs]
        return op(*bs, **rest)

    if entry is not None and entry.margin is not None:
        my, mx = entry.margin(bound.arguments)
        depth = {0: my, 1: mx}
        for axis in range(2, blocks[0].ndim):
            depth[axis] = 0
        bnd = {axis: boundary for axis in depth}
        return da.map_overlap(block_fn, *blocks, depth=depth, boundary=bnd,
                              dtype=blocks[0].dtype, trim=True)

    if probe.shape[:2] != (8, 8):
        raise ValueError("moxpx.dask.apply runs operations whose result has the size of "
                         "their sources (point operations and neighbourhood filters)")
    drop = tuple(range(probe.ndim, blocks[0].ndim))
    new = tuple(range(blocks[0].ndim, probe.ndim))
    out_chunks = blocks[0].chunks[:2] + tuple((s,) for s in probe.shape[2:])
    return da.map_blocks(block_fn, *blocks, dtype=probe.dtype, chunks=out_chunks,
                         drop_axis=drop or None, new_axis=new or None,
                         meta=np.empty((0,) * probe.ndim, probe.dtype))
