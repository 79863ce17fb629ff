"""Installs the package with the shared library built beside it: the file
MOXPX_LIBRARY names, else the one in the source tree's build/ folder. Without
either, the installed package looks for the library at run time (MOXPX_LIBRARY,
then the system's search path)."""

import os
import shutil
import sys

from setuptools import setup
from setuptools.command.build_py import build_py

NAME = {"win32": "moxpx.dll", "darwin": "libmoxpx.dylib"}.get(sys.platform, "libmoxpx.so")


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        here = os.path.dirname(os.path.abspath(__file__))
        found = os.environ.get("MOXPX_LIBRARY") or os.path.join(here, "..", "build", NAME)
        if os.path.exists(found):
            shutil.copy2(found, os.path.join(self.build_lib, "moxpx", NAME))
        else:
            print("moxpx: no built library at %s; the package will look for one at run time"
                  % found)


setup(cmdclass={"build_py": BuildWithLibrary})
