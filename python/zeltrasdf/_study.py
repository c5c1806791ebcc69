"""Reading the results of a `portal-run` study (results.csv)."""

import csv
import os
import re

_NUMBER = re.compile(r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?|[+-]?(inf|nan)", re.IGNORECASE)
_INT = re.compile(r"[+-]?\d+")
_TEXT_COLUMNS = ("status", "reason")


def _value(text):
    if text == "":
        return None
    if _INT.fullmatch(text):
        # Kept as text when a leading zero would be lost ("007").
        stripped = text.lstrip("+-")
        if len(stripped) > 1 and stripped.startswith("0"):
            return text
        return int(text)
    if _NUMBER.fullmatch(text):
        return float(text)
    return text


def _results_path(path):
    path = os.fspath(path)
    if os.path.isdir(path):
        return os.path.join(path, "results.csv")
    if path.endswith(".toml"):
        import tomllib
        with open(path, "rb") as fh:
            study = tomllib.load(fh)
        runs = study.get("study", {}).get("runs", "runs")
        if not os.path.isabs(runs):
            runs = os.path.join(os.path.dirname(os.path.abspath(path)), runs)
        return os.path.join(runs, "results.csv")
    return path


def load_study(path):
    """The results of a study as plain Python structures.

    path: the runs folder, its results.csv, or the study's .toml file (its
    [study] runs folder is used). Returns a dict: "path" the CSV read,
    "columns" the header in order, "designs" one dict per row in design
    order, mapping each column to its value: "design" an int, "status" and
    "reason" text, other fields an int or float when the whole field is a
    number (an integer with a leading zero stays text), None when empty, else
    the text. Raises FileNotFoundError for a missing file and ValueError for
    a file that isn't a results table (no "design"/"status" columns, rows
    with another field count, a design that isn't a number).
    """
    csv_path = _results_path(path)
    with open(csv_path, newline="", encoding="utf-8") as fh:
        rows = list(csv.reader(fh, strict=True))
    if not rows:
        raise ValueError(f"{csv_path}: empty, not a study's results")
    columns = rows[0]
    for required in ("design", "status", "reason"):
        if required not in columns:
            raise ValueError(f"{csv_path}: no '{required}' column, not a study's results")
    designs = []
    for line, row in enumerate(rows[1:], start=2):
        if len(row) != len(columns):
            raise ValueError(f"{csv_path}:{line}: {len(row)} fields, the header has {len(columns)}")
        record = {}
        for col, text in zip(columns, row):
            if col == "design":
                if not _INT.fullmatch(text):
                    raise ValueError(f"{csv_path}:{line}: design {text!r} is not a number")
                record[col] = int(text)
            elif col in _TEXT_COLUMNS:
                record[col] = text
            else:
                record[col] = _value(text)
        designs.append(record)
    return {"path": csv_path, "columns": columns, "designs": designs}
