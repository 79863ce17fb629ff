#!/usr/bin/env python3
"""Tests of bench_table.py on made-up benchmark reports."""

import contextlib
import io
import json
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import bench_table  # noqa: E402


def entry(name, ms, unit="ms", run_type="iteration", error=None):
    e = {"name": name, "run_name": name, "run_type": run_type, "time_unit": unit,
         "cpu_time": ms, "real_time": ms * 2}
    if error:
        e.update(error_occurred=True, error_message=error)
    return e


def table(*entries):
    rows, _ = bench_table.collect({"benchmarks": list(entries)})
    return bench_table.build_table(rows)


def cell(header, lines, row, column):
    return next(l for l in lines if l[0] == row)[header.index(column)]


class ParseName(unittest.TestCase):
    def test_names(self):
        cases = [
            ("BM_moxpx_Add/8U_4096x4096x1", ("moxpx", "Add", "8U_4096x4096x1", "")),
            ("BM_moxpx_Add/8U_4096x4096x1_tiled256",
             ("moxpx", "Add", "8U_4096x4096x1", "tiled256")),
            ("BM_moxpx_AddSTiles/8U_8192x8192x3_threads2/real_time",
             ("moxpx", "AddSTiles", "8U_8192x8192x3", "threads2")),
            ("BM_opencv_RShiftS/16U_1024x1024x3", ("opencv", "RShiftS", "16U_1024x1024x3", "")),
            ("BM_fftw_RealFft2D/32S_256x256x1/repeats:3", ("fftw", "RealFft2D", "32S_256x256x1", "")),
            ("BM_Add/8U", None),
            ("something else", None),
        ]
        for name, want in cases:
            with self.subTest(name=name):
                self.assertEqual(want, bench_table.parse_name(name))


class Collect(unittest.TestCase):
    def test_keeps_the_best_run_in_milliseconds(self):
        rows, failures = bench_table.collect({"benchmarks": [
            entry("BM_moxpx_Add/c", 3.0), entry("BM_moxpx_Add/c", 2.0),
            entry("BM_moxpx_Add/c", 2.5),
            entry("BM_moxpx_Add/c", 0.1, run_type="aggregate"),
            entry("BM_floor_Add/c", 1500.0, unit="us"),
            entry("BM_opencv_Add/c", 4e6, unit="ns"),
        ]})
        self.assertEqual({}, failures)
        self.assertEqual({"moxpx": 2.0, "floor": 1.5, "opencv": 4.0}, rows[("Add", "c")])

    def test_real_time_on_request(self):
        rows, _ = bench_table.collect({"benchmarks": [entry("BM_moxpx_Add/c", 3.0)]}, "real_time")
        self.assertEqual(6.0, rows[("Add", "c")]["moxpx"])

    def test_failures_are_kept_apart(self):
        rows, failures = bench_table.collect({"benchmarks": [
            entry("BM_moxpx_Add/c_tiled64", 1.0, error="the result differs from the plain loop"),
            entry("BM_moxpx_Add/c", 1.0)]})
        self.assertEqual({"BM_moxpx_Add/c_tiled64": "the result differs from the plain loop"},
                         failures)
        self.assertEqual({"moxpx": 1.0}, rows[("Add", "c")])


class Targets(unittest.TestCase):
    CASE = "8U_4096x4096x1"

    def test_add_against_floor_and_peer(self):
        cases = [  # moxpx, floor, opencv -> marks of the two ratios, misses
            (1.20, 1.0, 1.5, "1.20+", "0.80+", 0),
            (1.25, 1.0, 1.25, "1.25+", "1.00+", 0),
            (1.40, 1.0, 1.0, "1.40!", "1.40!", 2),
        ]
        for mox, floor, cv, want_floor, want_cv, n_misses in cases:
            with self.subTest(mox=mox):
                header, lines, misses = table(
                    entry("BM_moxpx_Add/" + self.CASE, mox), entry("BM_floor_Add/" + self.CASE, floor),
                    entry("BM_opencv_Add/" + self.CASE, cv))
                row = "Add/" + self.CASE
                self.assertEqual(want_floor, cell(header, lines, row, "moxpx/floor"))
                self.assertEqual(want_cv, cell(header, lines, row, "moxpx/opencv"))
                self.assertEqual(n_misses, len(misses))

    def test_only_the_named_case_has_the_floor_target(self):
        header, lines, misses = table(entry("BM_moxpx_Add/8U_1024x1024x3", 3.0),
                                      entry("BM_floor_Add/8U_1024x1024x3", 1.0))
        self.assertEqual("3.00", cell(header, lines, "Add/8U_1024x1024x3", "moxpx/floor"))
        self.assertEqual([], misses)

    def test_tiled_against_plain(self):
        header, lines, misses = table(
            entry("BM_moxpx_Not/c", 2.0), entry("BM_moxpx_Not/c_tiled64", 4.0),
            entry("BM_moxpx_Not/c_tiled256", 2.8))
        self.assertEqual(["operation/case", "moxpx ms", "tiled64 ms", "tiled256 ms",
                          "tiled64/plain", "tiled256/plain"], header[:4] + header[-2:])
        self.assertEqual("2.00", cell(header, lines, "Not/c", "tiled64/plain"))
        self.assertEqual("1.40!", cell(header, lines, "Not/c", "tiled256/plain"))
        self.assertEqual(["Not/c: tiled256/plain 1.40 > 1.30"], misses)

    def test_threads_against_one_thread(self):
        header, lines, misses = table(
            entry("BM_moxpx_AddSTiles/c", 8.0), entry("BM_moxpx_AddSTiles/c_tiled64", 9.0),
            # entries that ask for it by their wall-clock time (entry() makes
            # it twice the CPU time)
            entry("BM_moxpx_AddSTiles/c_threads2/real_time", 2.2),
            entry("BM_moxpx_AddSTiles/c_threads16/real_time/repeats:2", 0.5))
        self.assertEqual(["tiled64/plain", "threads2/plain", "threads16/plain"], header[-3:])
        self.assertEqual("0.55", cell(header, lines, "AddSTiles/c", "threads2/plain"))
        self.assertEqual("0.12", cell(header, lines, "AddSTiles/c", "threads16/plain"))
        self.assertEqual([], misses)

    def test_fft_against_its_peers(self):
        header, lines, misses = table(
            entry("BM_moxpx_RealFft2D/c", 5.0), entry("BM_fftw_RealFft2D/c", 2.0),
            entry("BM_opencv_RealFft2D/c", 6.0))
        self.assertEqual("2.50!", cell(header, lines, "RealFft2D/c", "moxpx/fftw"))
        self.assertEqual("0.83+", cell(header, lines, "RealFft2D/c", "moxpx/opencv"))
        self.assertEqual(1, len(misses))

    def test_missing_entries_show_a_dash(self):
        header, lines, _ = table(entry("BM_moxpx_RShiftS/c", 1.0), entry("BM_floor_RShiftS/c", 1.0),
                                 entry("BM_opencv_Add/c", 1.0))
        self.assertEqual("-", cell(header, lines, "RShiftS/c", "moxpx/opencv"))
        self.assertEqual("-", cell(header, lines, "Add/c", "moxpx ms"))


class ExitStatus(unittest.TestCase):
    def run_main(self, entries, *options):
        with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as f:
            json.dump({"benchmarks": entries}, f)
        try:
            out = io.StringIO()
            with contextlib.redirect_stdout(out):
                status = bench_table.main(["--json", f.name] + list(options))
            return status, out.getvalue()
        finally:
            os.unlink(f.name)

    def test_status(self):
        slow = [entry("BM_moxpx_Add/c", 3.0), entry("BM_moxpx_Add/c_tiled256", 9.0)]
        broken = [entry("BM_moxpx_Add/c", 1.0, error="status -5: moxAdd [moxadd:1091]: x")]
        cases = [
            ("a missed target is only shown", slow, [], 0, "targets missed"),
            ("--check fails on a missed target", slow, ["--check"], 1, "tiled256/plain 3.00"),
            ("a failed entry always fails", broken, [], 1, "moxadd:1091"),
            ("markdown", slow, ["--markdown"], 0, "| Add/c |"),
        ]
        for what, entries, options, want, text in cases:
            with self.subTest(what):
                status, out = self.run_main(entries, *options)
                self.assertEqual(want, status)
                self.assertIn(text, out)


if __name__ == "__main__":
    unittest.main()
