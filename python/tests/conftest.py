# The tests run against the package of this source tree (python/moxpx) and the
# library that MOXPX_LIBRARY names (CTest sets it), else the build tree's.
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
