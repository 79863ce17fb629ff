"""moxpx for Python: numpy arrays in, numpy arrays out.

Every operation of the library that this build exports is a function here
(moxpx.add, moxpx.zoom, moxpx.real_fft2d, ...). Arrays are described by MoxImage
headers that point at their own buffers wherever the layout allows (see
moxpx.Image). Calls release the GIL, so Python threads run operations in
parallel; each thread reports failures as moxpx.MoxError and never ends the
process. moxpx.parallel runs one operation tile by tile on several threads;
moxpx.dask applies operations to dask arrays block by block.
"""

import numbers as _numbers

import numpy as _np

from ._lib import MoxError, MoxImage, MoxROI, MoxTileInfo, MoxTileCallBack, lib, library_path
from ._image import Image
from ._ops import FUNCTIONS as _FUNCTIONS, run, raw, available
from . import _ops, structs as _structs
from .packing import pack_spectrum, unpack_spectrum

__version__ = "1.3.3"

_exported = []
for _name, _fn in _FUNCTIONS.items():
    if available(_fn):
        globals()[_name] = _fn
        _exported.append(_name)
for _fn in (_ops.zoom, _ops.decimate, _ops.real_fft2d, _ops.ccs_fft2d, _ops.dct2d,
            _ops.convert, _ops.norm) + tuple(_structs.FUNCTIONS.values()):
    if available(_fn):
        globals()[_fn.__name__] = _fn
        _exported.append(_fn.__name__)


def _with_scalar(name, scalar_name):
    image_op = _FUNCTIONS[name]
    scalar_op = _FUNCTIONS[scalar_name]

    def f(a, b, *args, **kw):
        if type(b) is int or (not isinstance(b, _np.ndarray) and
                              isinstance(b, _numbers.Integral)):
            return scalar_op(a, int(b), *args, **kw)
        return image_op(a, b, *args, **kw)
    f.__name__ = f.__qualname__ = name
    f.__doc__ = image_op.__doc__.replace(
        "\n\nCalls", "\n\nWith a whole number as b, calls the scalar form (%s).\n\nCalls"
        % scalar_name, 1)
    f.op = image_op.op
    f.bind = image_op.bind
    f.scalar_form = scalar_op
    return f


for _name in ("add", "subtract", "multiply", "and_", "or_", "xor"):
    _scalar = _name.rstrip("_") + "_s"
    if _name in _exported and available(_FUNCTIONS[_scalar]):
        globals()[_name] = _with_scalar(_name, _scalar)

from ._parallel import parallel, RawFile  # noqa: E402

__all__ = sorted(_exported) + [
    "MoxError", "Image", "MoxImage", "MoxROI", "MoxTileInfo", "MoxTileCallBack", "lib",
    "library_path", "run", "raw", "available", "pack_spectrum", "unpack_spectrum",
    "parallel", "RawFile"]
