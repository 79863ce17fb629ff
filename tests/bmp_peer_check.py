"""Bitmap files between moxpx and an independent reader and writer (the
Python imaging library): files the library writes must decode to the pixels
the library meant, and files the other writer makes must load in the library
as that writer decoded them.

usage: bmp_peer_check.py MOXPX_TESTS WORK_FOLDER
"""
import os
import subprocess
import sys

from PIL import Image


def main():
    tests, work = sys.argv[1], sys.argv[2]
    out = os.path.join(work, "written")
    made = os.path.join(work, "made")
    for folder in (out, made):
        os.makedirs(folder, exist_ok=True)
    env = dict(os.environ, MOXPX_BMP_OUT=out, MOXPX_BMP_IN=made)

    # Files from the other writer: gray, palette, 1-bit, 24- and 32-bit.
    base = Image.new("RGB", (37, 23))
    base.putdata([((x * 7) % 256, (y * 11) % 256, (x * y) % 256)
                  for y in range(23) for x in range(37)])
    names = []
    for mode in ("1", "L", "P", "RGB", "RGBA"):
        im = base.convert(mode) if mode != "P" else base.quantize(colors=50)
        path = os.path.join(made, mode + ".bmp")
        im.save(path)
        with open(os.path.join(made, mode + ".rgb"), "wb") as f:
            f.write(Image.open(path).convert("RGB").tobytes())
        names.append(mode)
    with open(os.path.join(made, "list.txt"), "w") as f:
        f.write("\n".join(names) + "\n")

    run = subprocess.run([tests, "--gtest_filter=DibFiles.*"], env=env)
    if run.returncode != 0:
        print("moxpx_tests failed")
        return 1

    failed = 0
    checked = 0
    for name in sorted(os.listdir(out)):
        if not name.endswith(".bmp"):
            continue
        stem = name[:-4]
        got = Image.open(os.path.join(out, name))
        got.load()
        with open(os.path.join(out, stem + ".rgb"), "rb") as f:
            want = f.read()
        checked += 1
        if got.convert("RGB").tobytes() != want:
            print("differs:", name, got.mode, got.size)
            failed += 1
    print("%d passed, %d failed" % (checked - failed, failed))
    return 1 if failed or checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
