#!/usr/bin/env python3
"""Runs moxpx_bench (or reads its JSON output) and prints the comparison table.

Entries are named BM_<peer>_<Op>/<case>[_tiled<N>|_threads<N>]. Entries with
the same <Op>/<case> are put on one row: the library's plain, tiled and
threaded (one destination tile per call on N threads) times, the plain
loop (floor) and every peer library, then the ratios library/floor,
library/peer, tiled/plain and threads/plain (time on N threads over time on
one). Ratios that have a target are marked: '+' meets
it, '!' misses it; the misses are listed under the table.

Exit status: 1 when an entry failed (the benchmark reports a wrong result or a
library error that way), or with --check when a target is missed; else 0.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

LIBRARY = "moxpx"
FLOOR = "floor"

# (operation, case, column, limit): ratio library/column (or column/plain for
# the tiledN and threadsN columns) must not exceed the limit. Patterns are regular
# expressions matched against the whole name.
TARGETS = [
    (r"Add", r"8U_4096x4096x1", FLOOR, 1.25),
    (r"Add", r"8U_4096x4096x1", "opencv", 1.0),
    (r".*", r".*", "tiled256", 1.3),
    (r"Convert8Uto16U|Convert16Uto8U", r".*", FLOOR, 1.2),
    (r".*(?i:fft).*", r".*", "fftw", 2.0),
    (r".*(?i:fft).*", r".*", "opencv", 1.0),
    (r"ColorToGray|GrayToColor", r"(8|16)U_2048x2048x3", FLOOR, 1.2),
    (r"RGB2HSV|HSV2RGB|RGB2HLS|HLS2RGB|ColorTwist", r"(8|16)U_2048x2048x3", "opencv", 1.0),
    (r"(Zoom|Decimate).*", r".*", "opencv", 1.0),
    (r"Mirror.*", r".*", FLOOR, 1.1),
    (r"Rotate.*", r".*", "opencv", 1.0),
    (r"Threshold|MultiplySScale|MultiplyScale|PreMultiplyAlpha", r"8U_(2048|4096)x.*", FLOOR, 1.2),
    (r"Threshold|MultiplySScale|MultiplyScale|PreMultiplyAlpha", r"8U_(2048|4096)x.*", "opencv", 1.0),
    (r"ComputeHisto|ContrastStretch|HistoEqualize|Norm.*", r"8U_(2048|4096)x.*", "opencv", 1.0),
    (r"AlphaComposite.*", r"8U_(2048|4096)x.*", "vips", 1.0),
]

NAME = re.compile(r"^BM_([A-Za-z0-9]+)_([A-Za-z0-9]+)/(.+?)(?:_((?:tiled|threads)\d+))?"
                  r"(?:/real_time|/repeats:\d+)*$")
# Columns of the library's own variants, set against its plain run.
VARIANTS = ("tiled", "threads")
UNIT_MS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def parse_name(name):
    """'BM_moxpx_Add/8U_4096x4096x1_tiled256' -> ('moxpx', 'Add', '8U_4096x4096x1', 'tiled256')."""
    m = NAME.match(name)
    if not m:
        return None
    peer, op, case, variant = m.groups()
    return peer, op, case, variant or ""


def column_of(peer, variant):
    return variant or peer


def is_variant(col):
    return col.startswith(VARIANTS)


def collect(report, time_key="cpu_time"):
    """Best time (ms) per (op, case) and column; failures as {name: message}.

    Repetitions of one entry keep their minimum: on a shared machine the
    fastest run is the one least disturbed."""
    rows, failures = {}, {}
    for entry in report.get("benchmarks", []):
        if entry.get("run_type", "iteration") != "iteration":
            continue
        name = entry.get("run_name") or entry.get("name", "")
        parsed = parse_name(name)
        if parsed is None:
            continue
        if entry.get("error_occurred"):
            failures[name] = entry.get("error_message", "failed")
            continue
        peer, op, case, tile = parsed
        if tile and peer != LIBRARY:
            continue
        # Entries that ask for the wall clock (work spread over threads the
        # timing thread's own process time does not see) are read by it.
        key = "real_time" if "/real_time" in name else time_key
        ms = float(entry[key]) * UNIT_MS[entry.get("time_unit", "ns")]
        cells = rows.setdefault((op, case), {})
        col = column_of(peer, tile)
        cells[col] = min(ms, cells.get(col, ms))
    return rows, failures


def ratios(cells):
    """{column: ratio} of the library against every other column of a row."""
    out = {}
    plain = cells.get(LIBRARY)
    if plain is None:
        return out
    for col, ms in cells.items():
        if col == LIBRARY or ms <= 0:
            continue
        out[col] = ms / plain if is_variant(col) else plain / ms
    return out


def target_for(op, case, col):
    for op_re, case_re, target_col, limit in TARGETS:
        if target_col == col and re.fullmatch(op_re, op) and re.fullmatch(case_re, case):
            return limit
    return None


def variant_order(col):
    """tiled columns by tile size, then threads columns by thread count."""
    for i, kind in enumerate(VARIANTS):
        if col.startswith(kind):
            return (i, int(col[len(kind):]))
    return (-1, 0)


def build_table(rows):
    """Returns (header, lines, misses): text cells of the table and the misses."""
    tiles = sorted({c for cells in rows.values() for c in cells if is_variant(c)},
                   key=variant_order)
    peers = sorted({c for cells in rows.values() for c in cells}
                   - {LIBRARY, FLOOR} - set(tiles))
    time_cols = [LIBRARY] + tiles + [FLOOR] + peers
    ratio_cols = [FLOOR] + peers + tiles
    header = (["operation/case"] + [c + " ms" for c in time_cols]
              + ["%s/%s" % (LIBRARY, c) for c in [FLOOR] + peers]
              + ["%s/plain" % c for c in tiles])
    lines, misses = [], []
    for (op, case) in rows:  # in the program's own order
        cells = rows[(op, case)]
        r = ratios(cells)
        line = ["%s/%s" % (op, case)]
        line += ["%.3f" % cells[c] if c in cells else "-" for c in time_cols]
        for c in ratio_cols:
            if c not in r:
                line.append("-")
                continue
            limit = target_for(op, case, c)
            mark = ""
            if limit is not None:
                mark = "+" if r[c] <= limit else "!"
                if mark == "!":
                    what = "%s/plain" % c if is_variant(c) else "%s/%s" % (LIBRARY, c)
                    misses.append("%s/%s: %s %.2f > %.2f" % (op, case, what, r[c], limit))
            line.append("%.2f%s" % (r[c], mark))
        lines.append(line)
    return header, lines, misses


def format_text(header, lines):
    widths = [max(len(row[i]) for row in [header] + lines) for i in range(len(header))]
    def fmt(row):
        return "  ".join(cell.ljust(w) if i == 0 else cell.rjust(w)
                         for i, (cell, w) in enumerate(zip(row, widths)))
    return "\n".join([fmt(header), "  ".join("-" * w for w in widths)] + [fmt(r) for r in lines])


def format_markdown(header, lines):
    out = ["| " + " | ".join(header) + " |", "|" + "|".join("---" for _ in header) + "|"]
    out += ["| " + " | ".join(r) + " |" for r in lines]
    return "\n".join(out)


def default_bench():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    for build in ("build-bench", "build"):
        path = os.path.join(root, build, "bench", "moxpx_bench")
        if os.path.exists(path):
            return path
    return os.path.join(root, "build", "bench", "moxpx_bench")


def run_bench(args):
    """Runs the program `passes` times; the entries of all passes together.

    Separate passes spread the runs of one entry over the whole run, so a
    burst of other work on the machine spoils one sample, not all of them."""
    report = {"benchmarks": []}
    for _ in range(args.passes):
        report["benchmarks"] += run_pass(args)["benchmarks"]
    return report


def run_pass(args):
    fd, out_path = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    cmd = [args.bench, "--benchmark_out=" + out_path, "--benchmark_out_format=json",
           "--benchmark_min_time=%g" % args.min_time,
           "--benchmark_repetitions=%d" % args.repetitions]
    if args.filter:
        cmd.append("--benchmark_filter=" + args.filter)
    cmd += args.extra
    try:
        # The program's own console report and context are shown only when
        # asked for (on standard error), or when it fails; by default the
        # table is all that is printed.
        sys.stdout.flush()
        if args.progress:
            done = subprocess.run(cmd, stdout=sys.stderr)
        else:
            done = subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                  text=True)
        if done.returncode != 0:
            sys.stderr.write(done.stderr or "")
            sys.exit("bench_table: %s ended with status %d" % (args.bench, done.returncode))
        with open(out_path) as f:
            text = f.read()
        if not text.strip():
            sys.exit("bench_table: no benchmark matched" +
                     (" the filter %r" % args.filter if args.filter else ""))
        return json.loads(text)
    finally:
        os.unlink(out_path)


def main(argv=None):
    p = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    p.add_argument("--bench", default=None, help="the moxpx_bench program (default: build*/bench/)")
    p.add_argument("--json", help="read this --benchmark_format=json output instead of running")
    p.add_argument("--filter", help="regular expression of the entries to run")
    p.add_argument("--min-time", type=float, default=0.03, help="seconds per entry (default 0.03)")
    p.add_argument("--repetitions", type=int, default=2,
                   help="runs per entry and pass (default 2)")
    p.add_argument("--passes", type=int, default=3,
                   help="runs of the whole program; the best run of an entry is kept (default 3)")
    p.add_argument("--time", choices=("cpu", "real"), default="cpu", help="which time to compare")
    p.add_argument("--markdown", action="store_true", help="print a Markdown table")
    p.add_argument("--check", action="store_true", help="exit with status 1 when a target is missed")
    p.add_argument("--progress", action="store_true",
                   help="show the benchmark program's own report while it runs (on standard error)")
    p.add_argument("--quiet", action="store_true", help=argparse.SUPPRESS)  # the default now
    p.add_argument("extra", nargs="*", help="further options for moxpx_bench (after --)")
    args = p.parse_args(argv)

    if args.json:
        with open(args.json) as f:
            report = json.load(f)
    else:
        args.bench = args.bench or default_bench()
        if not os.path.exists(args.bench):
            sys.exit("bench_table: no %s; build the benchmarks first (see bench/README.md)"
                     % args.bench)
        report = run_bench(args)

    rows, failures = collect(report, args.time + "_time")
    header, lines, misses = build_table(rows)
    if lines:
        print((format_markdown if args.markdown else format_text)(header, lines))
        print("\ntimes: best %s time of the runs (wall clock for entries named /real_time), "
              "ms per call; ratios: + meets its target, ! misses it" % args.time)
    else:
        print("no entries")
    if misses:
        print("\ntargets missed:")
        for m in misses:
            print("  " + m)
    if failures:
        print("\nfailed entries:")
        for name, message in sorted(failures.items()):
            print("  %s: %s" % (name, message))
    if failures or (args.check and misses):
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
