"""Finding and declaring the shared SDF library for ctypes.

The library is looked for, in this order:
1. the path in the environment variable ZELTRASDF_LIBRARY (the build tree:
   ``ZELTRASDF_LIBRARY=build/libzeltra-sdf.so.0.1``);
2. the path written into ``_where.py`` when the package was installed by
   ``cmake --install`` (relative to this folder);
3. the dynamic loader's own search (``libzeltra-sdf.so.0.1``), e.g. a library
   installed into a system folder.
"""

import ctypes
import os

ENV_VAR = "ZELTRASDF_LIBRARY"
SONAME = "libzeltra-sdf.so.0.1"


def _candidates():
    env = os.environ.get(ENV_VAR)
    if env:
        # An explicit choice is never silently replaced by another library.
        return [env], True
    found = []
    try:
        from . import _where  # written at install time
        here = os.path.dirname(os.path.abspath(__file__))
        found.append(os.path.normpath(os.path.join(here, _where.LIBRARY_RELATIVE)))
    except ImportError:
        pass
    found.append(SONAME)
    return found, False


def load():
    names, explicit = _candidates()
    errors = []
    for name in names:
        if explicit and not os.path.exists(name):
            raise ImportError(f"zeltrasdf: {ENV_VAR}={name} names no file")
        try:
            return _declare(ctypes.CDLL(name))
        except OSError as exc:
            errors.append(f"{name}: {exc}")
    raise ImportError("zeltrasdf: the SDF library was not found (set " + ENV_VAR +
                      " to the path of " + SONAME + "); tried " + "; ".join(errors))


c_int = ctypes.c_int
c_char_p = ctypes.c_char_p
c_void_p = ctypes.c_void_p
P = ctypes.POINTER
I64 = ctypes.c_int64
I32 = ctypes.c_int32


def _declare(lib):
    sigs = {
        "Sdf_Open": (c_int, [P(c_int), c_char_p, c_char_p, c_char_p, c_char_p]),
        "Sdf_Close": (c_int, [c_int, c_char_p]),
        "Sdf_Write": (c_int, [c_int]),
        "Sdf_Flush": (c_int, [c_int]),
        "Sdf_Set_Opts": (c_int, [c_char_p]),
        "Sdf_Free": (c_int, [c_void_p]),
        "Sdf_Get_Type": (c_int, [c_int, c_char_p, P(c_int), P(c_int)]),
        "Sdf_Get_Elen": (c_int, [c_int, c_char_p, P(c_int)]),
        "Sdf_Get_Dims64": (c_int, [c_int, c_char_p, P(I64)]),
        "Sdf_Get_Val": (c_int, [c_int, c_char_p, c_void_p]),
        "Sdf_Get_Cval": (c_int, [c_int, c_char_p, P(c_void_p), P(c_int)]),
        "Sdf_Write_Var": (c_int, [c_int, c_char_p, c_int, c_void_p, c_char_p, c_char_p]),
        "Sdf_Write_Char": (c_int, [c_int, c_char_p, c_char_p, c_char_p]),
        "Sdf_Get_Units": (c_int, [c_int, c_char_p, P(c_void_p)]),
        "Sdf_Get_Desc": (c_int, [c_int, c_char_p, P(c_void_p)]),
        "Sdf_Put_Units": (c_int, [c_int, c_char_p, c_char_p]),
        "Sdf_Put_Desc": (c_int, [c_int, c_char_p, c_char_p]),
        "Sdf_Exists": (c_int, [c_int, c_char_p]),
        "Sdf_Delete": (c_int, [c_int, c_char_p]),
        "Sdf_List": (c_int, [c_int, c_char_p, P(c_void_p), P(c_int)]),
        "Sdf_Define_Array64": (c_int, [c_int, c_char_p, c_int, c_int, P(I64), c_char_p, c_char_p]),
        "Sdf_Read_Array64": (c_int, [c_int, c_char_p, P(c_void_p), P(I64), I64, P(I64)]),
        "Sdf_Write_Array64": (c_int, [c_int, c_char_p, c_void_p, P(I64), I64]),
        "Sdf_Read_Carray64": (c_int, [c_int, c_char_p, P(c_void_p), P(I64), I64, P(I64)]),
        "Sdf_Write_Carray64": (c_int, [c_int, c_char_p, P(c_char_p), P(I64), I64]),
        "Sdf_Read_Slice64": (c_int, [c_int, c_char_p, P(c_void_p), P(I64), P(I64), P(I64),
                                     P(I32), P(I64), P(I64)]),
        "Sdf_Write_Slice64": (c_int, [c_int, c_char_p, c_void_p, P(I64), P(I64), P(I64),
                                      P(I32), P(I64)]),
        "Sdf_Read_Cslice64": (c_int, [c_int, c_char_p, P(c_void_p), P(I64), P(I64), P(I64),
                                      P(I32), P(I64), P(I64)]),
        "ZU_errNext": (c_void_p, [c_char_p, P(c_int)]),
        "ZU_errStrTS": (c_void_p, [c_char_p, c_void_p, c_void_p, c_int]),
        "ZU_errClear": (None, [c_char_p, c_int]),
    }
    for name, (res, args) in sigs.items():
        fn = getattr(lib, name)
        fn.restype = res
        fn.argtypes = args
    return lib
