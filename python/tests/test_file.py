import json
import os
import subprocess

import numpy as np
import pytest

import zeltrasdf

SHAPES = {1: (4,), 2: (4, 3), 3: (4, 3, 2)}


def expected(tag, rank):
    """The C fixture's formula: element (i, j, k) is i + 10 j + 100 k."""
    grid = np.indices(SHAPES[rank]).astype(np.int64)
    v = sum(g * 10 ** n for n, g in enumerate(grid))
    return {
        "int": v.astype(np.int32), "int64": v * 1000000000, "log": v % 3 == 0,
        "real": (v + 0.5).astype(np.float32), "dble": v + 0.25,
        "cmpx": (v - 1j * v).astype(np.complex64), "dcmpx": v + 0.5j * v,
    }[tag]


DTYPES = {"int": np.int32, "int64": np.int64, "log": np.bool_, "real": np.float32,
          "dble": np.float64, "cmpx": np.complex64, "dcmpx": np.complex128}


@pytest.mark.parametrize("rank", [1, 2, 3])
@pytest.mark.parametrize("tag", sorted(DTYPES))
def test_reads_arrays_the_c_library_wrote(c_written, tag, rank):
    with zeltrasdf.open(c_written) as f:
        a = f[f"a_{tag}_{rank}"]
        info = f.info(f"a_{tag}_{rank}")
    assert a.dtype == DTYPES[tag] and a.shape == SHAPES[rank]
    np.testing.assert_array_equal(a, expected(tag, rank))
    assert info.shape == SHAPES[rank] and info.units == "N" and info.description == "array"


def test_reads_scalars_and_texts_the_c_library_wrote(c_written):
    with zeltrasdf.open(c_written) as f:
        got = {k: f[k] for k in f.keys() if k.startswith("s_")}
        assert f.info("s_dble") == ("s_dble", "double", (), "kg", "a double")
        assert f.info("s_text").description == "a text"
        texts = f["a_char_2"]
    assert got == {"s_int": -7, "s_int64": 5000000000, "s_log": True, "s_real": 1.5,
                   "s_dble": 3.25, "s_cmpx": 1 - 2j, "s_dcmpx": 0.5 + 4j, "s_text": "hello world"}
    assert type(got["s_int64"]) is np.int64 and type(got["s_real"]) is np.float32
    np.testing.assert_array_equal(texts, [["alpha", "", "e"], ["be", "delta four", "f"]])


@pytest.mark.parametrize("index", [
    (slice(1, 3), 2, 1),
    (slice(None), slice(0, 3, 2), 0),
    (slice(None, None, -1), 1, slice(None)),
    (-1, slice(None), slice(None)),
    (Ellipsis, 1),
    (slice(3, 1), 0, 0),
])
@pytest.mark.parametrize("tag", ["dble", "log", "cmpx", "int64"])
def test_slices_match_numpy_indexing(c_written, tag, index):
    with zeltrasdf.open(c_written) as f:
        part = f.read(f"a_{tag}_3", index)
    want = expected(tag, 3)[index]
    assert part.shape == want.shape and part.dtype == want.dtype
    np.testing.assert_array_equal(part, want)


def test_slice_of_a_text_array(c_written):
    with zeltrasdf.open(c_written) as f:
        np.testing.assert_array_equal(f.read("a_char_2", (slice(None), 1)), ["", "delta four"])
        np.testing.assert_array_equal(f.read("a_char_2", (1, slice(0, 3, 2))), ["be", "f"])


VALUES = [
    np.arange(6, dtype=np.int32).reshape(2, 3),
    np.arange(24, dtype=np.int64).reshape(2, 3, 4) * 10 ** 11,
    np.array([True, False, True]),
    np.linspace(0, 1, 12, dtype=np.float32).reshape(3, 4),
    np.random.default_rng(1).standard_normal((3, 2, 5)),
    np.array([1 + 2j, 3 - 4j], dtype=np.complex64),
    np.arange(4) * (1 - 1j),
    np.array([["a", "bb"], ["ccc", ""]]),
    np.asfortranarray(np.arange(20.0).reshape(4, 5)),
    np.arange(20.0).reshape(4, 5)[:, ::2],
]


@pytest.mark.parametrize("value", VALUES, ids=[f"{v.dtype}-{v.shape}" for v in VALUES])
def test_round_trip_and_the_tool_agrees(tmp_path, sdf_tool, value):
    path = tmp_path / "rt.sdf"
    with zeltrasdf.open(path, "w") as f:
        f.write("v", value, units="m/s", description="speed")
    with zeltrasdf.open(path) as f:
        back = f["v"]
        assert f.info("v")[2:] == (value.shape, "m/s", "speed")
    assert back.dtype == value.dtype or value.dtype.kind == "U"
    np.testing.assert_array_equal(back, value)
    # The library's own tool reads the file: value[i][j] is element (i, j).
    out = subprocess.run([sdf_tool, "export", "--json", str(path)], check=True,
                         capture_output=True, text=True).stdout
    var = json.loads(out)["variables"][0]
    assert var["dims"] == list(value.shape) and var["units"] == "m/s"
    tool = np.array(var["value"])
    if value.dtype.kind == "c":
        tool = tool[..., 0] + 1j * tool[..., 1]
    np.testing.assert_array_equal(tool.astype(value.dtype) if value.dtype.kind != "U" else tool, value)


@pytest.mark.parametrize("value,dtype,kind", [
    (7, np.int64, "int64"), (np.int32(-3), np.int32, "int"), (True, np.bool_, "logical"),
    (2.5, np.float64, "double"), (np.float32(0.25), np.float32, "real"),
    (1 - 1j, np.complex128, "double complex"), (np.complex64(2j), np.complex64, "complex"),
])
def test_scalars_round_trip(tmp_path, value, dtype, kind):
    path = tmp_path / "s.sdf"
    with zeltrasdf.open(path, "w") as f:
        f["x"] = value
        f.set_units("x", "K")
    with zeltrasdf.open(path) as f:
        got = f["x"]
        assert f.info("x") == ("x", kind, (), "K", "")
    assert got == value and type(got) is dtype


def test_write_replace_append_delete_and_text(tmp_path, sdf_tool):
    path = tmp_path / "g.sdf"
    with zeltrasdf.open(path, "w") as f:
        f["t"] = np.zeros((2, 2))
        f.append("t", np.arange(4.0).reshape(2, 2))
        f["t2"] = np.array(["x"])
        with pytest.raises(ValueError):
            f.append("t2", ["yy"])  # longer than the elements: never cut
        f["t2"] = np.array(["x", "yy"])
        f.append("t2", ["z"])
        f["note"] = "first"
        f["note"] = "second, replaced"
        f.set_description("note", "a note")
        f["gone"] = 1
        del f["gone"]
        with pytest.raises(ValueError):
            f.append("t", [1.0, 2.0, 3.0])  # not whole rows of 2
    with zeltrasdf.open(path, "r+") as f:
        f.append("t", [9.0, 9.0])
    with zeltrasdf.open(path) as f:
        assert sorted(f) == ["note", "t", "t2"] and "gone" not in f and "t" in f and len(f) == 3
        assert f.get("gone", "absent") == "absent" and f.get("note") == "second, replaced"
        np.testing.assert_array_equal(f["t"], [[0, 0, 0, 1, 9], [0, 0, 2, 3, 9]])
        np.testing.assert_array_equal(f["t2"], ["x", "yy", "z"])
        assert f["note"] == "second, replaced" and f.description("note") == "a note"
    dump = subprocess.run([sdf_tool, "dump", str(path), "note"], check=True,
                          capture_output=True, text=True).stdout
    assert '"second, replaced"' in dump


def test_errors_carry_the_library_code(tmp_path):
    with pytest.raises(zeltrasdf.SdfError) as e:
        zeltrasdf.open(tmp_path / "missing.sdf")
    assert e.value.code == 3034 and "missing.sdf" in e.value.message

    path = tmp_path / "e.sdf"
    with zeltrasdf.open(path, "w") as f:
        f["x"] = np.arange(3.0)
    with pytest.raises(zeltrasdf.SdfError) as e:
        zeltrasdf.open(path, "x")
    assert e.value.code == 3035
    with zeltrasdf.open(path) as f:
        with pytest.raises(zeltrasdf.SdfError) as e:
            f["nothing"]
        assert e.value.code == 3010 and "nothing" in str(e.value)
        with pytest.raises(zeltrasdf.SdfError) as e:
            f["y"] = 1.0
        assert e.value.code == 3002
        with pytest.raises(IndexError):
            f.read("x", (3,))
    with pytest.raises(ValueError):
        f.keys()  # closed

    not_sdf = tmp_path / "text.sdf"
    not_sdf.write_bytes(b"just some text, not an SDF file\n" * 100)
    with pytest.raises(zeltrasdf.SdfError) as e:
        zeltrasdf.open(not_sdf)
    assert e.value.code == 3050


def _flip_bytes(data):
    data = bytearray(data)
    for pos in range(16, min(len(data), 4096), 7):  # the header and the tables
        data[pos] ^= 0x5A
    return bytes(data)


@pytest.mark.parametrize("damage,code", [
    (_flip_bytes, 3051),
    (lambda d: d[:100], 3080),
    (lambda d: b"", 3050),
], ids=["flipped", "cut-short", "empty"])
def test_damaged_file_is_refused_with_its_code(tmp_path, damage, code):
    path = tmp_path / "c.sdf"
    with zeltrasdf.open(path, "w") as f:
        f["x"] = np.arange(1000.0)
    path.write_bytes(damage(path.read_bytes()))
    with pytest.raises(zeltrasdf.SdfError) as e:
        with zeltrasdf.open(path) as f:
            f["x"]
    assert e.value.code == code and str(path) in e.value.message


def test_the_lock_keeps_a_second_writer_out(tmp_path):
    path = tmp_path / "l.sdf"
    script = ("import sys, zeltrasdf\n"
              "try:\n    zeltrasdf.open(sys.argv[1], 'r+')\n"
              "except zeltrasdf.SdfError as e:\n    print(e.code)\n")
    with zeltrasdf.open(path, "w") as f:
        f["x"] = 1
        f.flush()
        out = subprocess.run([os.sys.executable, "-c", script, str(path)], check=True,
                             capture_output=True, text=True, env=os.environ).stdout
    assert out.strip() == "3037"


@pytest.mark.parametrize("index,value", [
    ((slice(1, 3), 2, 1), [7.0, 8.0]),
    ((slice(None), slice(0, 3, 2), 0), np.arange(8.0).reshape(4, 2)),
    ((slice(None, None, -1), 1, slice(None)), np.arange(8.0).reshape(4, 2)),
    ((Ellipsis, 1), -1.0),
    ((0, 0, 0), 42.0),
])
def test_slice_writes_match_numpy_assignment(tmp_path, index, value):
    path = tmp_path / "w.sdf"
    want = np.arange(24.0).reshape(4, 3, 2)
    with zeltrasdf.open(path, "w") as f:
        f["x"] = want
        f.write_slice("x", index, value)
    want[index] = value
    with zeltrasdf.open(path) as f:
        np.testing.assert_array_equal(f["x"], want)
        with pytest.raises(ValueError):
            f.write_slice("x", (0,), [1.0, 2.0, 3.0, 4.0])  # doesn't broadcast to 3x2
