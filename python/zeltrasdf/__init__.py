"""Python access to SDF files through the shared SDF library (ctypes).

    import zeltrasdf
    with zeltrasdf.open("results.sdf") as f:
        print(f.keys())
        x = f["x"]          # NumPy array, order='F': x[i, j] is element (i, j)
        part = f.read("x", (slice(0, 10), 3))

See docs/python.md.
"""

from ._file import (CHAR, COMPLEX, DCOMPLEX, DOUBLE, INT, INT64, LOGICAL, REAL, File, SdfError,
                    VarInfo, open)
from ._study import load_study

__all__ = ["open", "File", "SdfError", "VarInfo", "load_study", "CHAR", "INT", "INT64", "LOGICAL",
           "REAL", "DOUBLE", "COMPLEX", "DCOMPLEX"]
