"""Columns of cases, from pandas frames and dicts, as the text of a case file."""

from collections.abc import Mapping

import numpy as np

from ._core import _write_columns


def case_bytes(frame):
    """The text of a case file with a column for each column of a DataFrame or a dict of sequences.

    Entries are names or numbers of states, values of continuous nodes, dicts or sequences of weights (one
    for each state); None and nan mean that it is not known. The columns IDnum and NumCases are number and
    weight of the case."""
    names = [str(name) for name in frame.keys()]
    columns = [_column(frame[key]) for key in frame.keys()]
    rows = {len(column[0] if isinstance(column, tuple) else column) for column in columns}
    if len(rows) > 1:
        raise ValueError("the columns have different lengths")
    count = rows.pop() if rows else 0
    if "IDnum" not in names:  # its comma shows the delimiter where there is a single column
        names.insert(0, "IDnum")
        columns.insert(0, np.arange(count, dtype=np.int64))
    return _write_columns(names, columns, count)


def _column(values):
    if hasattr(values, "cat"):
        return values.cat.codes.to_numpy(np.int64), [_word(word) for word in values.cat.categories]
    array = values.to_numpy() if hasattr(values, "to_numpy") else _as_array(values)
    if array.dtype.kind in "iu":
        return np.ascontiguousarray(array, np.int64)
    if array.dtype.kind == "f":
        return np.ascontiguousarray(array, np.float64)
    return _coded(array)


def _as_array(values):
    array = np.asarray(values, dtype=object) if not isinstance(values, np.ndarray) else values
    if array.ndim != 1:  # rows of weights
        held = np.empty(len(values), dtype=object)
        held[:] = [*values]
        return held
    if array.dtype == object and all(isinstance(value, (int, float)) and not isinstance(value, bool) for value in array):
        kind = np.int64 if all(isinstance(value, int) for value in array) else np.float64
        return array.astype(kind)
    return array


def _coded(array):
    """(codes, words) of a column of anything: each different word once."""
    codes, words, known = np.empty(len(array), np.int64), [], {}
    for row, value in enumerate(array):
        if _is_missing(value):
            codes[row] = -1
            continue
        word = _word(value)
        code = known.get(word)
        if code is None:
            code = known[word] = len(words)
            words.append(word)
        codes[row] = code
    return codes, words


def _is_missing(value):
    return value is None or value != value or type(value).__name__ in ("NAType", "NaTType")


def _word(value):
    if isinstance(value, Mapping):
        raise TypeError("weights of states are given as a sequence in a column, in the order of the states")
    if isinstance(value, (list, tuple, np.ndarray)):
        return "{" + ";".join(repr(float(weight)) for weight in value) + "}"
    if isinstance(value, (float, np.floating)) and float(value).is_integer():
        return str(int(value))
    return str(value)
