#!/usr/bin/env python3
"""Every picture of the demo gallery made again with the command line shown
beside it.

The demo writes its gallery into a scratch folder; each figure's command
chain then runs in a folder of its own that holds the figure's photograph as
photo.bmp and the next sample photograph as other.bmp, and the out.bmp it
makes must decode to the very pixels of the gallery's picture.

Usage: gallery_test.py DEMO TOOL [names of figures]
"""

import html
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

import numpy as np
from PIL import Image

FIGURE = re.compile(r'<figure><img src="photo-([^"]+)"[^>]*><img src="([^"]+)\.bmp".*?'
                    r'<code>(.*?)</code><code>(.*?)</code></figure>')


def pixels(path):
    """The decoded picture as RGB values, grey pictures spread to three."""
    with Image.open(path) as im:
        return np.asarray(im.convert("RGB"))


def remake(tool, gallery, photos, photo, name, chain, work):
    """Runs the chain; returns what went wrong, or None."""
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    shutil.copy(os.path.join(gallery, "photo-" + photo), os.path.join(work, "photo.bmp"))
    other = photos[(photos.index(photo) + 1) % len(photos)]
    shutil.copy(os.path.join(gallery, "photo-" + other), os.path.join(work, "other.bmp"))
    for command in chain.split(" && "):
        words = shlex.split(command)
        if words[0] != "moxpx":
            return "not a moxpx command: " + command
        run = subprocess.run([tool] + words[1:], cwd=work, capture_output=True, text=True)
        if run.returncode != 0:
            return "%s ended with %d: %s" % (command, run.returncode, run.stderr.strip())
    if not os.path.exists(os.path.join(work, "out.bmp")):
        return "the chain makes no out.bmp"
    made, shown = pixels(os.path.join(work, "out.bmp")), pixels(os.path.join(gallery, name + ".bmp"))
    if made.shape != shown.shape:
        return "out.bmp is %s, the picture %s" % (made.shape, shown.shape)
    differ = np.any(made != shown, axis=2)
    if differ.any():
        y, x = np.argwhere(differ)[0]
        return "%d pixels differ, the first at x %d, y %d: %s, not %s" % (
            differ.sum(), x, y, made[y, x], shown[y, x])
    return None


def main():
    demo, tool, wanted = sys.argv[1], os.path.abspath(sys.argv[2]), sys.argv[3:]
    with tempfile.TemporaryDirectory() as scratch:
        gallery = os.path.join(scratch, "gallery")
        subprocess.run([demo, gallery], check=True, stdout=subprocess.DEVNULL)
        with open(os.path.join(gallery, "index.html"), encoding="utf-8") as page:
            figures = FIGURE.findall(page.read())
        photos = sorted({photo for photo, _, _, _ in figures})
        passed = failed = 0
        for photo, name, _, command in figures:
            if wanted and name not in wanted:
                continue
            trouble = remake(tool, gallery, photos, photo, name, html.unescape(command),
                             os.path.join(scratch, "work"))
            if trouble:
                print("FAIL %s (%s): %s" % (name, photo, trouble))
                failed += 1
            else:
                passed += 1
        print("%d passed, %d failed" % (passed, failed))
        return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
