"""Recorded samples as data frames, and the other way round. Needs pandas, and for plots matplotlib."""

from __future__ import annotations

import math
import os
import re
import warnings
from collections.abc import Mapping, Sequence
from typing import Any, Union

import numpy as np
import pandas as pd  # type: ignore[import]

from tavlox import _host

Run = Union[int, str]

# By the data type that a signal was recorded with. Samples are read as doubles, and are these where that loses nothing.
_TYPES = {"single": "float32", "boolean": "bool", "logical": "bool",
          **{name: name for name in ("int8", "int16", "int32", "int64", "uint8", "uint16", "uint32", "uint64")}}


class Samples(pd.DataFrame):  # type: ignore[misc]
    """A data frame of recorded values. The index is the time in seconds, a column is a signal; if several runs were
    asked for, a column is (run, signal). `units` has the unit of every column, empty where it has none, and stays with
    what is made of the frame by selecting and computing."""

    _metadata = ["units"]
    units: dict[Any, str] = {}

    @property
    def _constructor(self) -> type[Samples]:
        return Samples

    def equals(self, other: object) -> bool:
        """Whether the values, names and types are the same, also in a frame without units."""
        return bool(pd.DataFrame(self).equals(other))


def read(path: str, run: Union[Run, Sequence[Run]], signals: Union[str, Sequence[str], None],
         grid: Union[str, float, None], start: float, stop: float) -> Samples:
    """See Session.samples."""
    runs = [run] if isinstance(run, (int, str, np.integer)) else list(run)
    by_name = all(isinstance(one, str) for one in runs)
    if not runs or not (by_name or all(isinstance(one, (int, np.integer)) for one in runs)):
        raise TypeError("run is an identifier or a name, or a list either of identifiers or of names")
    step = 0.0
    if isinstance(grid, (int, float)):
        grid, step = "step", float(grid)
    if grid not in (None, "union", "step") or not 0 <= step < math.inf:
        raise ValueError('grid is "union", "step" or a step in seconds')
    wanted = [signals] if isinstance(signals, str) else None if signals is None else list(signals)
    times, columns, heading = _host.read_samples(path, [str(one) for one in runs], not by_name, wanted, start, stop,
                                                 grid or "", step)
    index = pd.Index(times, name=re.sub(r"\s*\[[^\]]*\]$", "", heading))
    data = {place: _typed(column[4], column[3]) for place, column in enumerate(columns)}
    # The arrays were made for this frame.
    frame = Samples(data, index=index, copy=False)
    keys = [column[1] if len(runs) == 1 else column[:2] for column in columns]
    frame.columns = pd.Index(keys) if len(runs) == 1 else pd.MultiIndex.from_tuples(keys, names=["run", "signal"])
    frame.units = {key: column[2] for key, column in zip(keys, columns)}
    return frame


def _typed(values: Any, label: str) -> Any:
    if label not in _TYPES or not np.isfinite(values).all():
        return values
    with np.errstate(invalid="ignore"):
        exact = values.astype(_TYPES[label])
    return exact if (exact == values).all() else values


def plot(samples: Samples, axes: Any) -> Any:
    """See Session.plot."""
    from matplotlib import pyplot  # type: ignore[import]

    units = list(dict.fromkeys(samples.units.values()))
    if axes is None:
        axes = pyplot.subplots(len(units), sharex=True, squeeze=False, layout="constrained")[1][:, 0]
    for unit, one in zip(units, np.broadcast_to(np.asarray(axes, dtype=object), len(units))):
        for place, key in enumerate(samples.columns):
            if samples.units[key] != unit:
                continue
            values = samples.iloc[:, place]
            # What is no floating-point number takes no values between two samples.
            style = "default" if values.dtype.kind == "f" else "steps-post"
            label = key if isinstance(key, str) else ": ".join(key)
            # Values missing from a common grid are passed over, so that the line goes on behind them.
            values = values[values.notna()] if isinstance(key, tuple) else values
            one.plot(values.index, values, drawstyle=style, label=label)
        one.set_ylabel(unit)
        one.legend()
    np.ravel(axes)[-1].set_xlabel(f"{samples.index.name} [s]")
    return axes


def record(path: Union[str, os.PathLike[str]], runs: Mapping[str, Any], metadata: Mapping[str, Any],
           units: Mapping[str, str], description: str, replace: bool) -> None:
    """See tavlox.record."""
    shared = {key: value for key, value in metadata.items() if not isinstance(value, Mapping)}
    lost = [key for key in metadata if key not in shared and key not in runs]
    if lost:
        raise ValueError(f"there is metadata for {lost[0]!r}, but no such run")
    tables = []
    for name, table in runs.items():
        fields = [(key, str(value)) for key, value in {**shared, **metadata.get(name, {})}.items()]
        is_frame = isinstance(table, pd.DataFrame)
        tables.append((name, "" if is_frame else os.fspath(table), fields, _columns(name, table, units) if is_frame else []))
    for file, text in _host.record(os.fspath(path), tables, description, replace):
        warnings.warn(f"the table {file!r} was read with {text}", stacklevel=3)


Column = tuple[str, str, str, Any]
"""Name, unit, data type, values as doubles."""


def _columns(run: str, frame: Any, units: Mapping[str, str]) -> list[Column]:
    index, units = frame.index, {**units, **getattr(frame, "units", {})}
    if isinstance(index, pd.RangeIndex) and index.name is None:
        raise ValueError(f'the data frame of {run!r} has no times: its index must be the time, as after '
                         'frame.set_index("time")')
    if isinstance(index, pd.TimedeltaIndex):
        index = pd.Index(index.total_seconds(), name=index.name)
    columns = [(index.name or "time", "s", *_doubles(run, "the index", index))]
    for place, name in enumerate(frame.columns):
        if not isinstance(name, str) or not name:
            raise TypeError(f"the data frame of {run!r} has a column {name!r}; a column needs a text for a name")
        columns.append((name, units.get(name, ""), *_doubles(run, name, frame.iloc[:, place])))
    return columns


def _doubles(run: str, name: str, values: Any) -> tuple[str, Any]:
    kind = values.dtype.kind
    if kind not in "biuf" or values.dtype.itemsize > 8:
        raise TypeError(f"{name!r} of {run!r} is of {values.dtype}; samples are numbers")
    doubles = np.ascontiguousarray(values, dtype=np.float64)
    # Asked of the integers themselves: rounded to doubles they may seem to be within the limit.
    if kind in "iu" and len(values) and max(int(values.max()), -int(values.min())) > 2**53:
        raise ValueError(f"{name!r} of {run!r} has integers beyond 2**53, which would be rounded")
    labels = {"float64": "double", "float32": "single", "bool": "boolean"}
    return labels.get(str(values.dtype), str(values.dtype).lower()), doubles
