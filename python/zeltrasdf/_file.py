"""The file object: a mapping of variable names to NumPy values."""

import ctypes
from collections import namedtuple

import numpy as np

from ._lib import load as _load_library

_lib = _load_library()

CHAR, INT, INT64, LOGICAL, REAL, DOUBLE, COMPLEX, DCOMPLEX = 1, 11, 12, 15, 21, 22, 31, 32

# The library's type code -> (type name, NumPy dtype as stored).
_TYPES = {
    CHAR: ("char", None),
    INT: ("int", np.dtype("<i4")),
    INT64: ("int64", np.dtype("<i8")),
    LOGICAL: ("logical", np.dtype("<i4")),
    REAL: ("real", np.dtype("<f4")),
    DOUBLE: ("double", np.dtype("<f8")),
    COMPLEX: ("complex", np.dtype("<c8")),
    DCOMPLEX: ("double complex", np.dtype("<c16")),
}
_FROM_KIND = {
    ("i", 4): INT, ("i", 8): INT64, ("b", 1): LOGICAL, ("f", 4): REAL,
    ("f", 8): DOUBLE, ("c", 8): COMPLEX, ("c", 16): DCOMPLEX,
}

_MODES = {
    "r": ("OLD", "READ"),
    "r+": ("OLD", "WRITE"),
    "a": ("UNKNOWN", "WRITE"),
    "w-": ("NEW", "WRITE"),
    "x": ("NEW", "WRITE"),
    "w": ("FRESH", "WRITE"),
}

VarInfo = namedtuple("VarInfo", "name type shape units description")


class SdfError(Exception):
    """A failure the SDF library reported: ``code`` is the library's number
    (the most specific one it gave), ``message`` its text, ``returned`` the
    value the call gave back (e.g. 3000 for a failure passed up)."""

    def __init__(self, code, message, returned=None):
        self.code = code
        self.message = message
        self.returned = code if returned is None else returned
        super().__init__(f"SDF error {code}: {message}")


def _take_errors():
    """The records the library left in the error set, oldest first; clears them."""
    records = []
    index = ctypes.c_int(1)
    buf = ctypes.create_string_buffer(1024)
    while True:
        rec = _lib.ZU_errNext(b"*", ctypes.byref(index))
        if not rec:
            break
        _lib.ZU_errStrTS(b"$E", rec, buf, len(buf))
        number = int(buf.value or b"0")
        _lib.ZU_errStrTS(b"$R: $M", rec, buf, len(buf))
        records.append((number, buf.value.decode("utf-8", "replace")))
    _lib.ZU_errClear(b"*", 0)
    return records


def _clear_errors():
    _lib.ZU_errClear(b"*", 0)


def _check(rc, what):
    if rc == 0:
        return
    records = _take_errors()
    code = rc
    # A code passed up (3000, 2000) hides the specific one in the error set.
    specific = [n for n, _ in records if n not in (0, 2000, 3000)]
    if rc in (2000, 3000) and specific:
        code = specific[0]
    text = "; ".join(m for _, m in records) or "the library gave code %d" % rc
    raise SdfError(code, f"{what}: {text}", rc)


def _b(text):
    if text is None:
        return None
    return text.encode("utf-8")


def _take_string(ptr):
    """A string the library allocated: decoded and given back."""
    if not ptr.value:
        return ""
    text = ctypes.string_at(ptr.value).decode("utf-8", "replace")
    _lib.Sdf_Free(ptr)
    return text


def _dims64(values):
    arr = (ctypes.c_int64 * 8)()
    arr[0] = len(values)
    for k, v in enumerate(values):
        arr[k + 1] = v
    return arr


def _type_of_value(arr):
    if arr.dtype.kind in ("U", "S", "O"):
        return CHAR
    code = _FROM_KIND.get((arr.dtype.kind, arr.dtype.itemsize))
    if code is None:
        if arr.dtype.kind in ("i", "u"):
            # Smaller or unsigned integers go into INT64 when they fit there.
            if arr.dtype.kind == "u" and arr.dtype.itemsize == 8:
                raise TypeError("zeltrasdf: unsigned 64-bit integers have no SDF type")
            return INT64 if arr.dtype.itemsize >= 4 else INT
        raise TypeError(f"zeltrasdf: no SDF type for dtype {arr.dtype}")
    return code


def _stored(arr, code):
    """The array in the library's element layout, first index fastest."""
    if code == LOGICAL:
        arr = arr.astype("<i4")
    else:
        arr = arr.astype(_TYPES[code][1], copy=False)
    return np.ravel(arr, order="F")


class File:
    """An open SDF file; use ``zeltrasdf.open``."""

    def __init__(self, path, mode="r"):
        if mode not in _MODES:
            raise ValueError(f"zeltrasdf: mode {mode!r} is not one of {sorted(_MODES)}")
        status, intent = _MODES[mode]
        self.path = str(path)
        self.mode = mode
        self._ch = None
        ch = ctypes.c_int(0)
        _clear_errors()
        rc = _lib.Sdf_Open(ctypes.byref(ch), _b(self.path), b"BINARY", status.encode(), intent.encode())
        _check(rc, f"opening {self.path!r}")
        self._ch = ch.value

    # ---------------------------------------------------------------- life
    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __del__(self):
        # A file object dropped without close() still commits its changes.
        try:
            if self._ch is not None:
                self.close()
        except Exception:
            pass

    @property
    def closed(self):
        return self._ch is None

    def close(self):
        """Commits and closes; a second call does nothing."""
        if self._ch is None:
            return
        ch = self._ch
        rc = _lib.Sdf_Close(ch, b"KEEP")
        if rc not in (0, 2001):  # 2001: the lock file was gone already
            # A failed commit leaves the channel open (the library's rule).
            _check(rc, f"closing {self.path!r}")
        _clear_errors()
        self._ch = None

    def flush(self):
        """Writes what is modified to the file and to the disk."""
        _check(_lib.Sdf_Flush(self._channel()), "flush")

    def _channel(self):
        if self._ch is None:
            raise ValueError("zeltrasdf: the file is closed")
        return self._ch

    # ------------------------------------------------------------- mapping
    def keys(self):
        ch = self._channel()
        lst = ctypes.c_void_p()
        count = ctypes.c_int(0)
        _check(_lib.Sdf_List(ch, b"*", ctypes.byref(lst), ctypes.byref(count)), "listing")
        try:
            ptrs = ctypes.cast(lst, ctypes.POINTER(ctypes.c_char_p))
            return [ptrs[i].decode("utf-8", "replace") for i in range(count.value)]
        finally:
            _lib.Sdf_Free(lst)

    def __iter__(self):
        return iter(self.keys())

    def __len__(self):
        return len(self.keys())

    def __contains__(self, name):
        if not isinstance(name, str):
            return False
        # Exists also matches templates; only a plain name counts here.
        return name in self.keys() if any(c in name for c in "*?#") else \
            _lib.Sdf_Exists(self._channel(), _b(name)) == 1

    def get(self, name, default=None):
        """The value, or default when no variable has that name."""
        return self.read(name) if name in self else default

    def items(self):
        return [(k, self[k]) for k in self.keys()]

    def values(self):
        return [self[k] for k in self.keys()]

    def __getitem__(self, name):
        return self.read(name)

    def __setitem__(self, name, value):
        self.write(name, value)

    def __delitem__(self, name):
        self._require(name)
        _check(_lib.Sdf_Delete(self._channel(), _b(name)), f"deleting {name!r}")

    def _require(self, name):
        if not isinstance(name, str):
            raise TypeError("zeltrasdf: variable names are strings")
        if any(c in name for c in "*?#"):
            raise KeyError(name)

    # ------------------------------------------------------------- reading
    def _type(self, name):
        self._require(name)
        t = ctypes.c_int()
        a = ctypes.c_int()
        _check(_lib.Sdf_Get_Type(self._channel(), _b(name), ctypes.byref(t), ctypes.byref(a)),
               f"variable {name!r}")
        if t.value not in _TYPES:
            raise SdfError(3020, f"variable {name!r}: unknown type {t.value}")
        return t.value, bool(a.value)

    def _shape(self, name):
        dims = (ctypes.c_int64 * 8)()
        _check(_lib.Sdf_Get_Dims64(self._channel(), _b(name), dims), f"dimensions of {name!r}")
        rank = dims[0]
        if rank == 0:
            return (0,)
        return tuple(dims[k + 1] for k in range(rank))

    def info(self, name):
        """Type name, shape (() for a scalar), units and description."""
        code, is_array = self._type(name)
        shape = self._shape(name) if is_array else ()
        return VarInfo(name, _TYPES[code][0], shape, self.units(name), self.description(name))

    def list(self):
        """VarInfo of every variable, in table order."""
        return [self.info(n) for n in self.keys()]

    def units(self, name):
        p = ctypes.c_void_p()
        _check(_lib.Sdf_Get_Units(self._channel(), _b(name), ctypes.byref(p)), f"units of {name!r}")
        return _take_string(p)

    def description(self, name):
        p = ctypes.c_void_p()
        _check(_lib.Sdf_Get_Desc(self._channel(), _b(name), ctypes.byref(p)), f"description of {name!r}")
        return _take_string(p)

    def set_units(self, name, text):
        _check(_lib.Sdf_Put_Units(self._channel(), _b(name), _b(text or "")), f"units of {name!r}")

    def set_description(self, name, text):
        _check(_lib.Sdf_Put_Desc(self._channel(), _b(name), _b(text or "")), f"description of {name!r}")

    def read(self, name, index=None):
        """The value of a variable: a NumPy scalar (str for text) or an array
        of shape (d1, d2, ...) in Fortran order, so a[i, j] is element (i, j)
        of the file. ``index`` (a tuple of ints and slices) reads a part."""
        code, is_array = self._type(name)
        ch = self._channel()
        if not is_array:
            if index is not None:
                raise TypeError(f"zeltrasdf: {name!r} is a scalar; it takes no index")
            if code == CHAR:
                p = ctypes.c_void_p()
                n = ctypes.c_int()
                _check(_lib.Sdf_Get_Cval(ch, _b(name), ctypes.byref(p), ctypes.byref(n)), f"reading {name!r}")
                return _take_string(p)
            out = np.zeros(1, dtype=_TYPES[code][1])
            _check(_lib.Sdf_Get_Val(ch, _b(name), out.ctypes.data), f"reading {name!r}")
            return np.bool_(out[0] != 0) if code == LOGICAL else out[0]
        shape = self._shape(name)
        if index is not None:
            return self._read_slice(name, code, shape, index)
        total = int(np.prod(shape))
        if code == CHAR:
            strings = self._read_strings(name, total)
            return np.array(strings, dtype=str).reshape(shape, order="F") if total else \
                np.zeros(shape, dtype=str)
        out = np.empty(shape, dtype=_TYPES[code][1], order="F")
        if total:
            data = ctypes.c_void_p(out.ctypes.data)  # straight into the array's buffer
            start = _dims64([])
            nread = ctypes.c_int64()
            _check(_lib.Sdf_Read_Array64(ch, _b(name), ctypes.byref(data), start, total,
                                         ctypes.byref(nread)), f"reading {name!r}")
            if nread.value != total or data.value != out.ctypes.data:
                raise SdfError(2020, f"reading {name!r}: {nread.value} of {total} elements")
        return (out != 0) if code == LOGICAL else out

    def _read_strings(self, name, total):
        block = ctypes.c_void_p()
        start = _dims64([])
        nread = ctypes.c_int64()
        _check(_lib.Sdf_Read_Carray64(self._channel(), _b(name), ctypes.byref(block), start, total,
                                      ctypes.byref(nread)), f"reading {name!r}")
        try:
            ptrs = ctypes.cast(block, ctypes.POINTER(ctypes.c_char_p))
            if nread.value != total:
                raise SdfError(2020, f"reading {name!r}: {nread.value} of {total} elements")
            return [ptrs[i].decode("utf-8", "replace") for i in range(total)]
        finally:
            _lib.Sdf_Free(block)

    @staticmethod
    def _parse_index(name, shape, index):
        """NumPy-style index -> begin, end, step (ascending), the counts per
        dimension, which dimensions stay, which are turned around."""
        if not isinstance(index, tuple):
            index = (index,)
        if sum(1 for i in index if i is Ellipsis) > 1:
            raise IndexError("zeltrasdf: an index can only have a single ellipsis")
        if any(i is Ellipsis for i in index):
            k = index.index(Ellipsis)
            index = index[:k] + (slice(None),) * (len(shape) - len(index) + 1) + index[k + 1:]
        if len(index) > len(shape):
            raise IndexError(f"zeltrasdf: {len(index)} indices for {name!r} of rank {len(shape)}")
        index = index + (slice(None),) * (len(shape) - len(index))
        begin, end, step, counts, keep, flip = [], [], [], [], [], []
        for k, (ix, n) in enumerate(zip(index, shape)):
            if isinstance(ix, slice):
                r = range(*ix.indices(n))
                if r.step < 0:  # ascending in the file, turned around here
                    r = r[::-1]
                    flip.append(len(keep))
                keep.append(True)
            elif isinstance(ix, (int, np.integer)) and not isinstance(ix, bool):
                i = int(ix)
                if i < -n or i >= n:
                    raise IndexError(f"zeltrasdf: index {i} out of range for dimension {k} of {name!r} (extent {n})")
                i %= n
                r = range(i, i + 1)
                keep.append(False)
            else:
                raise TypeError(f"zeltrasdf: index {ix!r} is neither an int nor a slice")
            counts.append(len(r))
            if len(r):
                begin.append(r.start)
                end.append(r[-1])
                step.append(r.step)
        return begin, end, step, counts, keep, flip

    def _read_slice(self, name, code, shape, index):
        begin, end, step, counts, keep, flip = self._parse_index(name, shape, index)
        full = tuple(counts)
        final = tuple(c for c, kp in zip(counts, keep) if kp)
        total = int(np.prod(full))
        if total == 0:
            return np.zeros(final, dtype=str if code == CHAR else bool if code == LOGICAL else _TYPES[code][1])
        count = ctypes.c_int64()
        dims = (ctypes.c_int64 * 8)()
        tr = (ctypes.c_int32 * 8)()
        args = (_dims64(begin), _dims64(end), _dims64(step), tr, ctypes.byref(count), dims)
        if code == CHAR:
            block = ctypes.c_void_p()
            _check(_lib.Sdf_Read_Cslice64(self._channel(), _b(name), ctypes.byref(block), *args),
                   f"reading a slice of {name!r}")
            try:
                ptrs = ctypes.cast(block, ctypes.POINTER(ctypes.c_char_p))
                if count.value != total:
                    raise SdfError(2020, f"slice of {name!r}: {count.value} of {total} elements")
                out = np.array([ptrs[i].decode("utf-8", "replace") for i in range(total)], dtype=str)
            finally:
                _lib.Sdf_Free(block)
            out = out.reshape(full, order="F")
        else:
            out = np.empty(full, dtype=_TYPES[code][1], order="F")
            data = ctypes.c_void_p(out.ctypes.data)
            _check(_lib.Sdf_Read_Slice64(self._channel(), _b(name), ctypes.byref(data), *args),
                   f"reading a slice of {name!r}")
            if count.value != total or data.value != out.ctypes.data:
                raise SdfError(2020, f"slice of {name!r}: {count.value} of {total} elements")
            if code == LOGICAL:
                out = out != 0
        out = out.reshape(final, order="F")
        if flip:
            sl = [slice(None)] * out.ndim
            for k in flip:
                sl[k] = slice(None, None, -1)
            out = out[tuple(sl)]
        return out

    # ------------------------------------------------------------- writing
    def write(self, name, value, units=None, description=None):
        """Creates or replaces a variable: a str is a text scalar, a 0-d value
        a scalar, anything else an array of the value's shape (NumPy index
        order: the first index is the file's fastest). Python int goes to
        int64, float to double, complex to double complex, bool to logical."""
        self._require(name)
        ch = self._channel()
        if isinstance(value, (str, np.str_)):
            _check(_lib.Sdf_Write_Char(ch, _b(name), _b(str(value)), _b(description)), f"writing {name!r}")
            if units:
                self.set_units(name, units)
            return
        arr = np.asarray(value)
        code = _type_of_value(arr)
        if arr.ndim == 0:
            if code == CHAR:
                raise TypeError(f"zeltrasdf: {name!r}: a text scalar must be a str")
            buf = _stored(arr.reshape(1), code)
            _check(_lib.Sdf_Write_Var(ch, _b(name), code, buf.ctypes.data, _b(units), _b(description)),
                   f"writing {name!r}")
            return
        if arr.ndim > 7:
            raise ValueError(f"zeltrasdf: {name!r}: rank {arr.ndim} is above 7")
        if code == CHAR:
            strings = []
            for s in np.ravel(arr, order="F").tolist():
                if isinstance(s, str):
                    strings.append(s.encode("utf-8"))
                elif isinstance(s, bytes):
                    strings.append(s)
                else:
                    raise TypeError(f"zeltrasdf: {name!r}: {type(s).__name__} in a text array")
            clen = max([len(s) for s in strings] + [1])
        else:
            clen = 0
        _check(_lib.Sdf_Define_Array64(ch, _b(name), code, clen, _dims64(arr.shape), _b(units),
                                       _b(description)), f"defining {name!r}")
        if arr.size == 0:
            return
        start = _dims64([0] * arr.ndim)
        if code == CHAR:
            ptrs = (ctypes.c_char_p * len(strings))(*strings)
            _check(_lib.Sdf_Write_Carray64(ch, _b(name), ptrs, start, len(strings)), f"writing {name!r}")
        else:
            buf = _stored(arr, code)
            _check(_lib.Sdf_Write_Array64(ch, _b(name), buf.ctypes.data, start, buf.size),
                   f"writing {name!r}")

    def write_slice(self, name, index, value):
        """Writes value into part of an existing array, as NumPy's
        ``a[index] = value`` (value broadcast to the part's shape). Numeric
        arrays only; a slice never makes the array grow."""
        code, is_array = self._type(name)
        if not is_array:
            raise SdfError(3012, f"writing a slice of {name!r}: not an array")
        if code == CHAR:
            raise TypeError(f"zeltrasdf: {name!r}: slices of text arrays are not written")
        shape = self._shape(name)
        begin, end, step, counts, keep, flip = self._parse_index(name, shape, index)
        final = tuple(c for c, kp in zip(counts, keep) if kp)
        arr = np.asarray(value)
        if _type_of_value(arr) == CHAR:
            raise TypeError(f"zeltrasdf: text written into numeric {name!r}")
        part = np.broadcast_to(arr, final)
        if flip:
            sl = [slice(None)] * part.ndim
            for k in flip:
                sl[k] = slice(None, None, -1)
            part = part[tuple(sl)]
        total = int(np.prod(counts))
        if total == 0:
            return
        buf = _stored(part.reshape(tuple(counts)), code)
        count = ctypes.c_int64()
        tr = (ctypes.c_int32 * 8)()
        _check(_lib.Sdf_Write_Slice64(self._channel(), _b(name), buf.ctypes.data, _dims64(begin),
                                      _dims64(end), _dims64(step), tr, ctypes.byref(count)),
               f"writing a slice of {name!r}")
        if count.value != total:
            raise SdfError(2020, f"slice of {name!r}: {count.value} of {total} elements written")

    def append(self, name, value):
        """Grows an array along its last dimension by the elements of value:
        their count must be a whole number of the other dimensions' product."""
        code, is_array = self._type(name)
        if not is_array:
            raise SdfError(3012, f"appending to {name!r}: not an array")
        shape = self._shape(name)
        arr = np.asarray(value)
        lead = int(np.prod(shape[:-1])) if len(shape) > 1 else 1
        if arr.size % lead:
            raise ValueError(f"zeltrasdf: appending {arr.size} elements to {name!r} of shape {shape}: "
                             f"not a multiple of {lead}")
        if arr.size == 0:
            return
        ch = self._channel()
        start = _dims64([])  # rank 0: behind the last element
        if code == CHAR:
            strings = [str(s).encode("utf-8") for s in np.ravel(arr, order="F").tolist()]
            elen = ctypes.c_int()
            _check(_lib.Sdf_Get_Elen(ch, _b(name), ctypes.byref(elen)), f"element length of {name!r}")
            longest = max(len(s) for s in strings)
            if longest > elen.value:
                # The library would cut them; a cut text is a wrong result.
                raise ValueError(f"zeltrasdf: appending to {name!r}: a text of {longest} bytes "
                                 f"passes its element length {elen.value}")
            ptrs = (ctypes.c_char_p * len(strings))(*strings)
            _check(_lib.Sdf_Write_Carray64(ch, _b(name), ptrs, start, len(strings)), f"appending to {name!r}")
        else:
            if _type_of_value(arr) == CHAR:
                raise TypeError(f"zeltrasdf: text appended to numeric {name!r}")
            buf = _stored(arr, code)
            _check(_lib.Sdf_Write_Array64(ch, _b(name), buf.ctypes.data, start, buf.size),
                   f"appending to {name!r}")


def open(path, mode="r"):  # noqa: A001 - the package's entry point, as h5py's File
    """Opens an SDF file. mode: "r" read (must exist), "r+" read and write
    (must exist), "a" read and write (created when missing), "w-" or "x"
    create (must not exist), "w" create, replacing an existing file."""
    return File(path, mode)
