#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/<family>/.

Bitmaps: the start of each sample picture (without its file header) and a few
small ones of every kind the reader knows. The other families read their
images and arguments from plain bytes, so a few fixed pseudo-random inputs
of different lengths start them off.
"""
import os
import random
import struct

here = os.path.dirname(os.path.abspath(__file__))
root = os.path.dirname(here)
families = ["dib", "header", "pointop", "geom", "filter", "color", "stats", "transform"]


def info(width, height, bits, compression=0, size_image=0, colours=0, header=40):
    h = struct.pack("<IiiHHIIiiII", header, width, height, 1, bits, compression, size_image,
                    2835, 2835, colours, 0)
    return h + bytes(header - 40)


def rows(width, height, bits, seed):
    r = random.Random(seed)
    step = (width * bits + 31) // 32 * 4
    return bytes(r.randrange(256) for _ in range(step * height))


def palette(n, gray):
    return b"".join(bytes((i, i, i, 0) if gray else (i, 255 - i, (i * 7) & 255, 0)) for i in range(n))


def bitmaps():
    out = {}
    for name in ("astronaut", "chelsea", "coffee"):
        with open(os.path.join(root, "samples", name + ".bmp"), "rb") as f:
            out["sample_" + name] = f.read()[14:14 + 1500]
    out["gray8"] = info(5, 3, 8) + palette(256, True) + rows(5, 3, 8, 1)
    out["colour4_topdown"] = info(7, -4, 4, colours=16) + palette(16, False) + rows(7, 4, 4, 2)
    out["mono1"] = info(13, 5, 1) + palette(2, True) + rows(13, 5, 1, 3)
    out["rgb24"] = info(6, 4, 24) + rows(6, 4, 24, 4)
    out["bgra32_v5"] = info(3, 3, 32, 3, header=124)[:40] + struct.pack(
        "<IIII", 0xFF0000, 0xFF00, 0xFF, 0xFF000000) + bytes(124 - 56) + rows(3, 3, 32, 5)
    out["rgb565"] = info(5, 2, 16, 3) + struct.pack("<III", 0xF800, 0x07E0, 0x001F) + rows(5, 2, 16, 6)
    rle8 = bytes([3, 7, 0, 3, 1, 2, 9, 0, 0, 2, 5, 0, 0, 0, 1])
    out["rle8"] = info(6, 3, 8, 1, len(rle8), 16) + palette(16, False) + rle8
    rle4 = bytes([4, 0x12, 0, 4, 0x34, 0x56, 0, 0, 0, 1])
    out["rle4"] = info(4, 2, 4, 2, len(rle4), 16) + palette(16, True) + rle4
    return out


def main():
    for family in families:
        d = os.path.join(here, "corpus", family)
        os.makedirs(d, exist_ok=True)
        if family == "dib":
            seeds = bitmaps()
        else:
            r = random.Random(family)
            seeds = {"bytes%d" % n: bytes(r.randrange(256) for _ in range(n)) for n in (16, 200, 2000)}
        for name, data in seeds.items():
            with open(os.path.join(d, name), "wb") as f:
                f.write(data)


if __name__ == "__main__":
    main()
