#!/usr/bin/python3
"""The Python package beside the C library: per-call cost, large images,
threads, and memory over a raw file larger than what the run may hold.

    /usr/bin/python3 bench/python_bench.py --bench build-bench/bench/moxpx_bench

Runs the C entries BM_moxpx_AddForPython and BM_moxpx_AddTilesOnThreads of
moxpx_bench (bench/python_bench.cpp), times the same work through the package
(with the library beside moxpx_bench's build, build-bench/libmoxpx.so) and
prints one table with the targets: a call on 64x64 at most 20 us more than
the C call, a call on 4096x4096 within 5% of it, the speed-up of
moxpx.parallel on 8192x8192 8U with 1, 2 and all threads for an addition
(tiles through `mapping`) and a 3x3 blur (tiles as regions), and the peak
memory of moxpx.parallel over a 20000x20000 8U raw file read and written tile
by tile.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import timeit

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "python"))


def c_times(bench, min_time):
    out = subprocess.run([bench, "--benchmark_filter=AddForPython|AddTilesOnThreads",
                          "--benchmark_format=json", "--benchmark_min_time=%s" % min_time,
                          "--benchmark_repetitions=3", "--benchmark_report_aggregates_only=true"],
                         check=True, capture_output=True, text=True).stdout
    times = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") != "median":
            continue
        scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[b["time_unit"]]
        times[b["run_name"]] = b["real_time"] * scale
    return times


def best(f, number, repeat=5):
    return min(timeit.repeat(f, number=number, repeat=repeat)) / number


def python_times(np, moxpx):
    """Python calls, each beside the bare library call on the same headers
    (through ctypes, whose own cost is well under a microsecond), timed in
    turn so that a busy machine slows both alike."""
    rng = np.random.default_rng(1)
    t = {}
    add = moxpx._lib.functions["moxAdd"]
    for side, number, rounds in ((64, 2000, 20), (4096, 1, 40)):
        a, b = (rng.integers(0, 256, (side, side), dtype=np.uint8) for _ in range(2))
        out = np.empty_like(a)
        A, B, D = moxpx.Image(a), moxpx.Image(b), moxpx.Image(out, written=True)
        bare = lambda: add(A.pointer, B.pointer, D.pointer, None)  # noqa: E731
        runs = {"bare": bare, "add_out": lambda: moxpx.add(a, b, out=out),
                "add_new": lambda: moxpx.add(a, b)}
        for k in runs:
            t[k, side] = float("inf")
        for _ in range(rounds):  # short samples in turn; the best of each is kept
            for k, f in runs.items():
                t[k, side] = min(t[k, side], best(f, number, 1))
    a, b = (rng.integers(0, 256, (8192, 8192), dtype=np.uint8) for _ in range(2))
    out, blurred = np.empty_like(a), np.empty_like(a)
    runs = {}
    for n in thread_counts():
        runs["parallel", n] = lambda n=n: moxpx.parallel(
            moxpx.add, a, b, out=out, tile=(8192, 256), threads=n)
        runs["parallel_blur", n] = lambda n=n: moxpx.parallel(
            moxpx.blur, a, 3, 3, 1, 1, out=blurred, tile=(8192, 256), threads=n)
    runs["single", 8192] = lambda: moxpx.add(a, b, out=out)
    runs["single_blur", 8192] = lambda: moxpx.blur(a, 3, 3, 1, 1, out=blurred)
    for k in runs:
        t[k] = float("inf")
    for _ in range(8):
        for k, f in runs.items():
            t[k] = min(t[k], best(f, 1, 1))
    if not np.array_equal(out, moxpx.add(a, b)):
        raise SystemExit("moxpx.parallel differs from the single call")
    moxpx.parallel(moxpx.blur, a, 3, 3, 1, 1, out=blurred, tile=(8192, 256), threads=2)
    if not np.array_equal(blurred, moxpx.blur(a, 3, 3, 1, 1)):
        raise SystemExit("moxpx.parallel of the blur differs from the single call")
    return t


def thread_counts():
    """1, 2 and all cores."""
    return sorted({1, 2, os.cpu_count() or 1})


# The peak is the process's own high-water mark (VmHWM, in kB), which starts
# afresh at exec (the rusage maximum would carry the parent's over).
MEMORY_RUN = r"""
import sys, numpy as np, moxpx
src, dst, side = sys.argv[1], sys.argv[2], int(sys.argv[3])
with moxpx.RawFile(src, (side, side)) as s, moxpx.RawFile(dst, (side, side), mode="w+") as d:
    moxpx.parallel(moxpx.not_, s, out=d, tile=(side, 64), threads=2)
    peak = [l for l in open("/proc/self/status") if l.startswith("VmHWM")][0].split()[1]
    ok = all((d.array[y] == 255 - (y % 251)).all() for y in range(0, side, 997))
print(int(peak) * 1024, int(ok))
"""


def memory(side, env):
    import numpy as np
    with tempfile.TemporaryDirectory(dir=os.environ.get("MOXPX_BENCH_DIR")) as tmp:
        src, dst = os.path.join(tmp, "src.raw"), os.path.join(tmp, "dst.raw")
        with open(src, "wb") as f:  # row y holds y mod 251, written in bands
            for y0 in range(0, side, 256):
                rows = np.arange(y0, min(y0 + 256, side), dtype=np.int64) % 251
                f.write(np.repeat(rows.astype(np.uint8)[:, None], side, axis=1).tobytes())
        r = subprocess.run([sys.executable, "-c", MEMORY_RUN, src, dst, str(side)], env=env,
                           check=True, capture_output=True, text=True)
        peak, ok = (int(v) for v in r.stdout.split())
        if not ok:
            raise SystemExit("moxpx.parallel over the raw file wrote wrong pixels")
        return peak, side * side


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--bench", required=True, help="the moxpx_bench program")
    p.add_argument("--library", help="libmoxpx.so for the package (default: beside the bench's "
                                     "build)")
    p.add_argument("--min-time", default="0.2", help="seconds per C entry")
    p.add_argument("--memory-side", type=int, default=20000)
    args = p.parse_args()
    lib = args.library or os.path.join(os.path.dirname(os.path.dirname(
        os.path.abspath(args.bench))), "libmoxpx.so")
    os.environ["MOXPX_LIBRARY"] = lib
    env = dict(os.environ, PYTHONPATH=os.path.join(os.path.dirname(HERE), "python"))
    import numpy as np
    import moxpx

    c = c_times(args.bench, args.min_time)
    py = python_times(np, moxpx)
    peak, size = memory(args.memory_side, env)

    def us(s):
        return "%.2f us" % (s * 1e6)

    def ms(s):
        return "%.1f ms" % (s * 1e3)

    c64, c4k = c["BM_moxpx_AddForPython/64"], c["BM_moxpx_AddForPython/4096"]
    b64, b4k = py["bare", 64], py["bare", 4096]
    rows = [
        ("add 64x64 8U, C (moxpx_bench)", "", us(c64), "", "", None),
        ("add 64x64 8U, out=", us(py["add_out", 64]), us(b64),
         "overhead %s" % us(py["add_out", 64] - b64), "<= 20 us",
         py["add_out", 64] - b64 <= 20e-6),
        ("add 64x64 8U, new result", us(py["add_new", 64]), us(b64),
         "overhead %s" % us(py["add_new", 64] - b64), "<= 20 us",
         py["add_new", 64] - b64 <= 20e-6),
        ("add 4096x4096 8U, C (moxpx_bench)", "", ms(c4k), "", "", None),
        ("add 4096x4096 8U, out=", ms(py["add_out", 4096]), ms(b4k),
         "ratio %.3f" % (py["add_out", 4096] / b4k), "<= 1.05",
         py["add_out", 4096] / b4k <= 1.05),
        ("add 4096x4096 8U, new result", ms(py["add_new", 4096]), ms(b4k),
         "ratio %.3f" % (py["add_new", 4096] / b4k), "", None),
    ]
    c1 = c["BM_moxpx_AddTilesOnThreads/1/real_time"]

    def threads(n):
        return "%d thread%s%s" % (n, "s" if n > 1 else "", " (all cores)" if n > 2 else "")

    for key, what in (("parallel", "add"), ("parallel_blur", "blur 3x3")):
        for n in thread_counts():
            cn = c.get("BM_moxpx_AddTilesOnThreads/%d/real_time" % n) if key == "parallel" else None
            rows.append(("parallel %s 8192x8192, %s" % (what, threads(n)), ms(py[key, n]),
                         ms(cn) if cn else "",
                         "speed-up %.2f%s" % (py[key, 1] / py[key, n],
                                              " (C %.2f)" % (c1 / cn) if cn else ""),
                         "", None))
        single = "single" if key == "parallel" else "single_blur"
        rows.append(("single %s 8192x8192" % what, ms(py[single, 8192]), "", "", "", None))
    rows.append(("parallel not %dx%d raw file" % (args.memory_side, args.memory_side),
                 "peak %d MiB" % (peak >> 20), "", "file %d MiB" % (size >> 20),
                 "far below the file", peak < size // 4))
    head = ("case", "Python", "C", "comparison", "target", "")
    print("C: the bare call on the same headers, timed in turn with the Python call; "
          "C (moxpx_bench): the same in Google Benchmark.")
    widths = [max(len(str(r[i])) for r in rows + [head]) for i in range(5)]
    line = "  ".join("%-" + str(w) + "s" for w in widths) + "  %s"
    print(line % head)
    for r in rows:
        print(line % (r[:5] + ({True: "+", False: "!", None: ""}[r[5]],)))
    print("library: %s; %d processors" % (moxpx.library_path, os.cpu_count()))


if __name__ == "__main__":
    main()
