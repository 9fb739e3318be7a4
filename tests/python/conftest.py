import pathlib

import numpy
import pandas
import pytest

import tavlox


def frame(rows=5, step=0.5):
    """Three signals of different types over an even time."""
    index = pandas.Index(numpy.arange(rows) * step, name="time")
    data = {"speed": numpy.linspace(0, 1 / 3, rows), "gear": numpy.arange(rows, dtype="int32"),
            "on": numpy.arange(rows) % 2 == 0, 'odd, "name"': numpy.full(rows, numpy.nan)}
    return pandas.DataFrame(data, index=index)


@pytest.fixture
def session(tmp_path: pathlib.Path):
    """A session of two runs of different times."""
    path = tmp_path / "Größe <b>.tavlox"

    tavlox.record(path, {"fast": frame(), "slow": frame(3, 1.0)}, metadata={"Model": "car <1>", "slow": {"Tag": "s"}})
    return path
