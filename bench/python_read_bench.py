#!/usr/bin/python3
"""Reading SDF files from Python (zeltrasdf) against NumPy reading raw bytes.

Run with Debian's interpreter and the library of a build tree:

    ZELTRASDF_LIBRARY=build/libzeltra-sdf.so.0.1 PYTHONPATH=python \\
        /usr/bin/python3 bench/python_read_bench.py [MiB]

Two cases, each timed in the same run against a baseline, best of several
rounds (the page cache warm for both):
- one double array of 256 MiB: f["x"] against numpy.fromfile of the same
  values as raw bytes (target: a rate ratio of at least 0.8);
- 10,000 double scalars: f[name] each against numpy.fromfile of 8 bytes at
  each value's offset of a raw file (one call per value, as the scalars are).
Prints the rates and the ratios (zeltrasdf rate / baseline rate).
"""

import os
import shutil
import sys
import tempfile
import time

import numpy as np

import zeltrasdf


def best(fn, rounds):
    times = []
    for _ in range(rounds):
        t0 = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t0)
    return min(times)


def main():
    mib = int(sys.argv[1]) if len(sys.argv) > 1 else 256
    n = mib * 1024 * 1024 // 8
    nscalars = 10000
    work = tempfile.mkdtemp(prefix="zeltra_pybench_")
    try:
        data = np.random.default_rng(7).standard_normal(n)
        raw = os.path.join(work, "x.raw")
        sdf = os.path.join(work, "x.sdf")
        data.tofile(raw)
        with zeltrasdf.open(sdf, "w") as f:
            f["x"] = data
            for i in range(nscalars):
                f[f"s{i}"] = float(data[i])
        data[:nscalars].tofile(os.path.join(work, "s.raw"))

        with zeltrasdf.open(sdf) as f:
            got = f["x"]
            if not np.array_equal(got, data):
                sys.exit("python_read_bench: the array read back differs")
            del got
            t_sdf = best(lambda: f["x"], 5)
            t_raw = best(lambda: np.fromfile(raw, dtype="<f8"), 5)
            names = [f"s{i}" for i in range(nscalars)]
            if [f[k] for k in names[:100]] != list(data[:100]):
                sys.exit("python_read_bench: the scalars read back differ")
            t_sdf_s = best(lambda: [f[k] for k in names], 3)
        sraw = os.path.join(work, "s.raw")
        t_raw_s = best(lambda: [np.fromfile(sraw, dtype="<f8", count=1, offset=8 * i)
                                for i in range(nscalars)], 3)

        size = n * 8 / 2**20
        print(f"array {size:.0f} MiB: zeltrasdf {size / t_sdf:8.0f} MiB/s, "
              f"numpy.fromfile {size / t_raw:8.0f} MiB/s, ratio {t_raw / t_sdf:.2f} (target >= 0.8)")
        print(f"{nscalars} scalars: zeltrasdf {nscalars / t_sdf_s:8.0f} /s, "
              f"numpy.fromfile {nscalars / t_raw_s:8.0f} /s, ratio {t_raw_s / t_sdf_s:.2f}")
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
