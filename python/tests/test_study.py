import pytest

import zeltrasdf


def test_reads_results_with_quoting_and_empty_fields(tmp_path):
    runs = tmp_path / "runs"
    runs.mkdir()
    (runs / "results.csv").write_text(
        "design,length,material,deflection,status,reason\n"
        "1,1,steel,0.25,ok,\n"
        '2,1.5,"alu, cast",,failed,"solver said ""no"""\n'
        "3,2,007,1e-3,pending,\n")
    (tmp_path / "beam.toml").write_text('[study]\nname = "beam"\nruns = "runs"\n')
    study = zeltrasdf.load_study(runs)
    assert study["columns"] == ["design", "length", "material", "deflection", "status", "reason"]
    assert study["designs"] == [
        {"design": 1, "length": 1, "material": "steel", "deflection": 0.25, "status": "ok", "reason": ""},
        {"design": 2, "length": 1.5, "material": "alu, cast", "deflection": None, "status": "failed",
         "reason": 'solver said "no"'},
        {"design": 3, "length": 2, "material": "007", "deflection": 0.001, "status": "pending",
         "reason": ""},
    ]
    assert zeltrasdf.load_study(tmp_path / "beam.toml")["designs"] == study["designs"]
    assert zeltrasdf.load_study(runs / "results.csv")["designs"] == study["designs"]


@pytest.mark.parametrize("text", [
    "",
    "a,b\n1,2\n",
    "design,status,reason\n1,ok\n",
    "design,status,reason\nx,ok,\n",
])
def test_refuses_what_is_not_a_results_table(tmp_path, text):
    (tmp_path / "results.csv").write_text(text)
    with pytest.raises(ValueError):
        zeltrasdf.load_study(tmp_path)


def test_missing_results(tmp_path):
    with pytest.raises(FileNotFoundError):
        zeltrasdf.load_study(tmp_path)
