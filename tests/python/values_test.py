"""How values come out of a module and go into one, shown on a second module that the package has never heard of."""

import os
import pathlib
import pickle

import numpy as np
import pytest

import tavlox

tavlox.load(os.environ["VALUES_MODULE"])
import values  # noqa: E402  registered just now

TEXT = "\ufeffa\0\ud800z\U0001f600"


def same(given, expected):
    if isinstance(expected, np.ndarray):
        return (given.dtype, given.shape) == (expected.dtype, expected.shape) and (given == expected).all()
    return type(given) is type(expected) and given == expected


@pytest.mark.parametrize("name, expected", [
    ("nothing", None), ("text", TEXT), ("int", -3), ("float", 0.25), ("bool", True),
    ("row", np.array([1, 2], "int32")), ("matrix", np.array([[0, 2, 4], [1, 3, 5]], "uint16")),
    ("wide", np.zeros((0, 5), "float32"))])
def test_values_given(name, expected):
    assert same(getattr(values, name)(), expected)


@pytest.mark.parametrize("value, expected", [
    (TEXT, TEXT), ("Größe", "Größe"), (pathlib.Path("/a"), "/a"), (True, True), (7, 7), (2**40, 2**40), (0.5, 0.5),
    (np.int16(3), 3), (np.float64(0.5), 0.5), (np.bool_(False), False), (np.array([[1, 2], [3, 4.5]]),) * 2,
    (np.arange(3, dtype="uint8"), np.arange(3, dtype="uint8")), (np.arange(12, dtype="i8")[::3], np.arange(0, 12, 3))])
def test_values_taken(value, expected):
    assert same(values.echo(value), expected)


@pytest.mark.parametrize("value", [2**64, [1], b"bytes", object(), 1j, np.zeros((1, 1, 1)), None])
def test_values_refused(value):
    with pytest.raises(TypeError, match=r"Input 1 of echo\(any\) must be any"):
        values.echo(value)


def test_structures_and_cells():
    cells = values.cells()
    assert [type(row) for row in cells] == [list, list] and cells[0][1] == 0.5 and cells[1][0] == "below"
    record = values.record()
    assert (record.Number, record["Text"], list(record)) == (0.0, "even", ["Number", "Text", "Row"])
    assert record._asdict().keys() == {"Number", "Text", "Row"} and not hasattr(record, "Other")
    records = values.records()
    del record, cells
    assert same(records.Number, np.array([0, 0.5, 1, 1.5])) and records["Text"].tolist() == ["even", "odd"] * 2
    assert records["Text"][0] is records["Text"][2] and records[-1].Row.tolist() == [7, 7, 7] and len(records[1:]) == 3
    assert pickle.loads(pickle.dumps(records)).to_pandas()["Number"].dtype == float
    frame = records.to_pandas()
    frame.loc[0, "Number"] = 9  # the frame's own
    assert records.Number[0] == 0 and frame["Number"].dtype == float
    with pytest.raises(ValueError, match="read-only"):
        records.Number[0] = 1
    assert list(values.no_records().to_pandas().columns) == ["Number", "Text", "Row"]


def test_objects_and_descriptions():
    counter = values.Counter()
    assert type(counter.itself()) is values.Counter and values.Counter.__doc__ == "Counter()\n\nCounts nothing."
    assert str(values.Counter.itself.__signature__) == "(self, /) -> 'Any'" and values.echo.__doc__ == "echo(any)"
    with pytest.raises(tavlox.Error, match="UnexpectedFailure") as failure:
        values.fail()
    assert failure.value.__notes__ == ["in fail()"]
