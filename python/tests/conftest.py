# The tests run against the package of this source tree (python/moxpx) and the
# library that MOXPX_LIBRARY names (CTest sets it), else the build tree's.
import os
import sys

import numpy as np
import pytest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
import moxpx  # noqa: E402

RNG = np.random.default_rng(7)


def rand(shape, dtype=np.uint8):
    """Values over the whole range of the type."""
    info = np.iinfo(dtype)
    return RNG.integers(info.min, info.max, size=shape, endpoint=True, dtype=dtype)


def needs(*names):
    """Skips where the loaded library lacks one of the functions."""
    missing = [n for n in names if not hasattr(moxpx, n)]
    return pytest.mark.skipif(bool(missing), reason="the library lacks %s" % ", ".join(missing))
