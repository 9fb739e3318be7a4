"""Many sessions asked at once, as Dask data frames. Needs Dask and pandas, and fsspec for remote packages."""

from __future__ import annotations

import glob
import importlib
import math
import os
import tempfile
import warnings
from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass, replace
from itertools import chain
from typing import TYPE_CHECKING, Any, NamedTuple, Union

import numpy as np
import pandas as pd  # type: ignore[import]

from tavlox import _host
from tavlox._errors import Error
from tavlox._index import search
from tavlox.io import File

if TYPE_CHECKING:
    import numpy.typing as npt

    from tavlox._samples import Run

# Dask says that it is typed and is so only in parts; here it is untyped as a whole.
def _dask(module: str) -> Any:
    """A part of Dask. Not loaded with this module: processes that read partitions need none, and it takes a second."""
    return importlib.import_module(f"dask.{module}")


Paths = Union[str, "os.PathLike[str]", Iterable[Union[str, "os.PathLike[str]"]]]
Rows = tuple[int, dict[str, Any]]
"""How many rows a package gives, and by the names of columns their values."""

_KEYS = {"Filename": "object", "RunID": "int32", "RunOrderIndex": "int32"}

# The columns of every frame and their types, which hold without a look into any package.
_FILES = {"Filename": "object", "Description": "object", "LastModified": "datetime64[ns]", "Version": "object",
          "Compression": "object", "NumRuns": "int32", "NumSignals": "int32", "ContainsView": "bool",
          "ContainsComparison": "bool"}
_RUNS = {**_KEYS, **dict.fromkeys((
    "Name", "Description", "Tag", "DateCreated", "RunIndex", "Model", "SimMode", "StartTime", "StopTime", "BrinVersion",
    "ModelVersion", "UserID", "MachineName", "Platform", "TaskName", "SolverType", "SolverName", "SolverStepSize", "Status",
    "StopEventSource", "StopEventDescription", "ExecutionErrors", "ExecutionWarnings", "ModelInitializationTime",
    "ModelExecutionTime", "ModelTerminationTime", "ModelTotalElapsedTime", "UserString"), "object"),
    "RunIndex": "int32", **dict.fromkeys((
        "StartTime", "StopTime", "ModelInitializationTime", "ModelExecutionTime", "ModelTerminationTime",
        "ModelTotalElapsedTime"), "float64")}
_SIGNALS = {**_KEYS, **dict.fromkeys((
    "Name", "Domain", "Description", "DisplayUnits", "StoredUnits", "DataType", "Complexity", "ComplexFormat", "SampleTime",
    "Model", "FullBlockPath", "BlockName", "PortIndex", "Dimensions", "Channel", "RootSource", "TimeSource",
    "DataSource"), "object"), "PortIndex": "int32"}
_SAMPLES = {**_KEYS, "Run": "object", "Signal": "object", "Units": "object", "Time": "float64", "Value": "float64"}
_ERRORS = {"Filename": "object", "Identifier": "object", "Message": "object"}

# A partition is to be of about 100 MB. Without an index nothing is known of a file before it is read but its size. Rows
# take at most about this many times the size of the package that they come from: its texts are compressed and its
# numbers digits.
_PARTITION = 100_000_000  # bytes
_GROWTH = 25
# With an index the number of rows is known. These are the bytes of one, texts included, which many rows share.
_ROW = {"files": 700, "runs": 2000, "signals": 1000, "samples": 60}
# How many packages a partition has at most, if nothing is said: so few that there is work for many.
_MOST, _MOST_INDEXED = 50, 1000

# How often a file is read anew that others save meanwhile.
_TRIES = 20


class Package(NamedTuple):
    """What is known of a package from the listing."""

    path: str
    """Absolute, or the address of a remote one."""
    size: int
    """Bytes; 0 where there is no such file."""
    state: str
    """Is another once the file was changed."""
    rows: dict[str, int] | None = None
    """How many it gives to each frame, if that is known."""

    def bytes_in(self, frame: str) -> int:
        """About what its rows take there."""
        if self.rows is None:
            return self.size * _GROWTH
        # Failures are few, but found by reading everything else.
        frames = [frame] if frame in _ROW else ["runs", "signals"]
        return sum(self.rows[name] * _ROW[name] for name in frames)


# ---- Which packages ----

def _is_remote(path: str) -> bool:
    return "://" in path


def _state(path: str) -> Any:
    """What tells two versions of a file apart: a save gives a new file. None if there is none."""
    try:
        known = os.stat(path)
    except (OSError, ValueError):
        return None
    return known.st_dev, known.st_ino, known.st_size, known.st_mtime_ns


def _matching(pattern: str) -> list[str]:
    """Local paths that match; `**` stands for any number of folders, also for none."""
    try:
        system = importlib.import_module("fsspec").filesystem("file")
    except ImportError:
        return glob.glob(pattern, recursive=True)
    # There `**` stands for at least one folder.
    return [name for one in {pattern, pattern.replace("/**/", "/")} for name in system.glob(one)]


def _is_hidden(name: str, pattern: str) -> bool:
    """Whether a file, or a folder on the way to it, is hidden and not named in the pattern. Files that are being saved
    have such temporaries beside them."""
    return any(part.startswith(".") for part in set(name.split(os.sep)) - set(pattern.split(os.sep)))


def _local(path: str) -> list[Package]:
    path = os.path.abspath(os.path.expanduser(path.removeprefix("file://")))
    if _is_index(path):
        return _indexed(path)
    names = [path]
    if os.path.isdir(path):
        names = [os.path.join(path, name) for name in os.listdir(path) if name.endswith(".tavlox")]
    elif glob.has_magic(path) and not os.path.lexists(path):
        names = _matching(path)
    names = [name for name in names if name == path or not _is_hidden(name, path) and not os.path.isdir(name)]
    states = [(name, _state(name)) for name in sorted(names)]
    return [Package(name, state[2] if state else 0, str(state)) for name, state in states]


def _is_index(path: str) -> bool:
    try:
        with open(path, "rb") as file:
            return file.read(16) == b"SQLite format 3\0"
    except (OSError, ValueError):
        return False


def _indexed(path: str) -> list[Package]:
    """What an index knows; none of the packages is looked at."""
    files = search(path, "", "files", "")
    counts = zip(files["NumRuns"].tolist(), files["NumSignals"].tolist(), files["SampleCount"].tolist())
    return [Package(name, int(size), f"{size} {modified}", {"files": 1, "runs": runs, "signals": signals, "samples": int(samples)})
            for name, size, modified, (runs, signals, samples)
            in zip(files["Filename"], files["Size"], files["LastModified"], counts)]


def _remote(address: str) -> list[Package]:
    system, path = importlib.import_module("fsspec.core").url_to_fs(address)
    # A question mark of the web begins a query.
    if any(sign in path for sign in ("*[" if path.startswith("http") else "*[?")):
        found = system.glob(path, detail=True)
    elif not path.endswith(".tavlox") and system.isdir(path):
        found = system.glob(f"{path.rstrip('/')}/*.tavlox", detail=True)
    else:
        try:
            found = {path: system.info(path)}
        except FileNotFoundError:
            found = {path: {}}
    return [Package(system.unstrip_protocol(name), int(found[name].get("size") or 0), str(found[name]))
            for name in sorted(found)]


def _listed(paths: Paths) -> list[Package]:
    """Every package once, in the order of what was given, and within a folder or pattern by name."""
    packages: dict[str, Package] = {}
    for given in [paths] if isinstance(paths, (str, os.PathLike)) else paths:
        path = os.fspath(given)
        found = _remote(path) if _is_remote(path) and not path.startswith("file://") else _local(path)
        if not found:
            warnings.warn(f"there is no package in or like {path!r}", RuntimeWarning, 4)
        packages |= {package.path: package for package in found}
    return list(packages.values())


# ---- One package ----

def _steadily(path: str, read: Callable[[str], Any]) -> Any:
    """What `read` makes of a local file, all of it from one version of the file."""
    for _ in range(_TRIES):
        before = _state(path)
        try:
            made = read(path)
        except Error:
            # A file that was replaced between two calls may lack what the first of them named.
            if _state(path) == before:
                raise
        else:
            if _state(path) == before:
                return made
    raise OSError(f"{path!r} was saved by other programs again and again while it was read")


def _read(path: str, read: Callable[[str], Any]) -> Any:
    if not _is_remote(path):
        return _steadily(path, read)
    with tempfile.TemporaryDirectory(prefix="tavlox-") as folder:
        system, name = importlib.import_module("fsspec.core").url_to_fs(path)
        copy = os.path.join(folder, "copy.tavlox")
        system.get_file(name, copy)
        try:
            return read(copy)
        except Exception as error:
            error.add_note(f"{copy} was a copy of {path}")
            raise


def _files(path: str, columns: Sequence[str]) -> Rows:
    with File(path) as file:
        file.NumRuns  # reads all properties, so that whether a file has a row does not depend on the columns
        return 1, {name: [getattr(file, name)] for name in columns}


def _runs(path: str, columns: Sequence[str]) -> Rows:
    with File(path) as file:
        ids = file.getAllRunIDs()
        records = [file.getRunInfo(int(run))._asdict() for run in ids]
    rows: dict[str, Any] = {"RunID": ids}
    if "RunOrderIndex" in columns:
        rows["RunOrderIndex"] = [order for _, order, _ in _host.list_runs(path, False)]
    return len(ids), rows | {name: [record[name] for record in records] for name in columns if name not in _KEYS}


def _signals(path: str, columns: Sequence[str]) -> Rows:
    with File(path) as file:
        records = file.getAllSignalsInfo()
    rows: dict[str, Any] = {name: records[name] for name in columns if name not in ("Filename", "RunID")}
    if "RunID" in columns:
        runs = _host.list_runs(path, True)
        counts = [count for _, _, count in runs if count is not None]
        if counts:
            # The module answers run by run, in the order of the run list.
            rows["RunID"] = np.repeat([run for run, _, _ in runs], counts)
        else:
            by_order = {order: run for run, order, _ in runs}
            rows["RunID"] = [by_order[order] for order in records["RunOrderIndex"].tolist()]
    for name in {"Dimensions", "Channel"} & rows.keys():
        rows[name] = _tuples(rows[name])
    return len(records), rows


def _tuples(lists: npt.NDArray[Any]) -> npt.NDArray[Any]:
    """Unlike arrays these can be compared and grouped by. Equal ones are one object."""
    known: dict[tuple[int, ...], tuple[int, ...]] = {}
    made = (tuple(one.tolist()) for one in lists)
    return np.fromiter((known.setdefault(one, one) for one in made), dtype=object, count=len(lists))


def _samples(path: str, columns: Sequence[str], runs: list[str] | None, are_identifiers: bool,
             signals: list[str] | None, start: float, stop: float) -> Rows:
    counts: list[int] = []
    pieces: list[tuple[Any, ...]] = []
    for run, order, name, times, recorded in _host.read_each(path, runs, are_identifiers, signals, start, stop):
        for signal, units, values in recorded:
            counts.append(len(times))
            pieces.append((run, order, name, signal, units, times, values))
    names = ("RunID", "RunOrderIndex", "Run", "Signal", "Units", "Time", "Value")
    rows: dict[str, Any] = {}
    for place, name in enumerate(names):
        if name not in columns:
            continue
        values = [piece[place] for piece in pieces]
        if name in ("Time", "Value"):
            rows[name] = _joined(values, "float64")
        else:
            rows[name] = np.repeat(np.array(values, dtype=_SAMPLES[name]), np.array(counts, dtype=int))
    return sum(counts), rows


def _everything(path: str, samples: bool) -> None:
    """Asks all that the frames ask, for the sake of its failures."""
    for table in (_files, _runs, _signals):
        table(path, ["RunOrderIndex"] if table is not _files else [])
    if samples:
        _samples(path, [], None, False, None, -math.inf, math.inf)


def _message(error: BaseException) -> str:
    """An error with those that led to it."""
    causes = error.causes if isinstance(error, Error) else ()
    return " because: ".join([str(error) or repr(error), *map(_message, causes)])


# ---- Frames ----

@dataclass(frozen=True)
class _Batch:
    """The packages of one partition. Not a list: in a graph of Dask's a list of texts may mean other things."""

    paths: tuple[str, ...]


@dataclass(frozen=True)
class _Reader:
    """Makes a partition of a batch. A class since Dask has no way to tell a function which columns are wanted."""

    types: dict[str, str]
    read: Callable[..., Any]
    question: tuple[Any, ...]
    raises: bool
    columns: list[str]

    def project_columns(self, columns: Iterable[str]) -> _Reader:
        return replace(self, columns=list(columns))

    def __call__(self, batch: _Batch) -> pd.DataFrame:
        read = [(path, self.rows(path)) for path in batch.paths]
        counts = np.array([count for _, (count, _) in read], dtype=int)
        columns: dict[str, Any] = {}
        for name in self.columns:
            if name == "Filename":
                columns[name] = np.repeat(np.array([path for path, _ in read], dtype=object), counts)
            else:
                columns[name] = _joined([rows[name] for _, (count, rows) in read if count], self.types[name])
        return pd.DataFrame(columns, index=pd.RangeIndex(sum(counts)), columns=self.columns, copy=False)

    def rows(self, path: str) -> Rows:
        try:
            made: Rows = _read(path, lambda local: self.read(local, self.columns, *self.question))
        except MemoryError:
            raise  # not the package's fault
        except Exception:
            if self.raises:
                raise
            return 0, {}
        if _is_remote(path) and "LastModified" in made[1]:
            made[1]["LastModified"] = [""]  # that of the copy says nothing
        return made


class _FailureReader(_Reader):
    def rows(self, path: str) -> Rows:
        try:
            _read(path, lambda local: self.read(local, *self.question))
        except MemoryError:
            raise
        except Exception as error:
            identifier = error.identifier if isinstance(error, Error) else type(error).__name__
            return 1, {"Identifier": [identifier], "Message": [_message(error)]}
        return 0, {}


def _joined(pieces: Sequence[Any], kind: str) -> Any:
    if kind.startswith("datetime"):
        texts = [text for piece in pieces for text in piece]
        return pd.to_datetime(pd.Series(texts, dtype=object), format="%d-%b-%Y %H:%M:%S", errors="coerce").to_numpy(kind)
    if all(isinstance(piece, list) for piece in pieces):
        return np.array(list(chain.from_iterable(pieces)), dtype=kind)
    return np.concatenate([np.asarray(piece, dtype=kind) for piece in pieces])


class Sessions:
    """Many packages. What its methods give are Dask data frames: nothing is opened before they are computed, on this
    machine or on those of a cluster, and an operation reads only the columns that it needs.

    Every frame has the column `Filename`; those of runs, signals and samples have `RunID` and `RunOrderIndex` as well, to
    join them by. Columns and their types are the same whatever the packages hold. Packages that cannot be read have no
    rows but those of `errors()`, unless they are to be raised.
    """

    def __init__(self, paths: Paths, errors: str, batch: int | None) -> None:
        if errors not in ("rows", "raise") or batch is not None and batch < 1:
            raise ValueError('errors is "rows" or "raise", and batch at least 1')
        _dask("dataframe")  # without it there are no frames: better told now
        self._packages, self._raises, self._most = _listed(paths), errors == "raise", batch

    @property
    def paths(self) -> list[str]:
        """The packages, as they were found when this object was made."""
        return [package.path for package in self._packages]

    def __len__(self) -> int:
        return len(self._packages)

    def __repr__(self) -> str:
        return f"<{len(self)} sessions>"

    def files(self) -> Any:
        """A row for each package, with the properties of `File`."""
        return self._frame("files", _Reader, _FILES, _files)

    def runs(self) -> Any:
        """A row for each run, with the fields of `File.getRunInfo`."""
        return self._frame("runs", _Reader, _RUNS, _runs)

    def signals(self) -> Any:
        """A row for each signal, with the fields of `File.getAllSignalsInfo`. `Dimensions` and `Channel` are tuples."""
        return self._frame("signals", _Reader, _SIGNALS, _signals)

    def samples(self, run: Run | Sequence[Run] | None = None, signal: str | Sequence[str] | None = None, *,
                start: float = -math.inf, stop: float = math.inf) -> Any:
        """A row for each recorded value of the runs (identifiers or names; all if none are given) and signals, at times
        from `start` to `stop` (seconds). Packages without such a run or signal have no rows."""
        runs = [run] if isinstance(run, (int, str, np.integer)) else None if run is None else list(run)
        by_name = runs is None or all(isinstance(one, str) for one in runs)
        if not (by_name or all(isinstance(one, (int, np.integer)) for one in runs or ())):
            raise TypeError("run is an identifier or a name, or a list either of identifiers or of names")
        signals = [signal] if isinstance(signal, str) else None if signal is None else list(signal)
        question = (runs and [str(one) for one in runs], not by_name, signals, float(start), float(stop))
        return self._frame("samples", _Reader, _SAMPLES, _samples, *question)

    def errors(self, *, samples: bool = False) -> Any:
        """A row for each package that could not be read in full, with the identifier and the text of the failure; for
        failures that are none of the module's, as those of a network, the identifier is the name of Python's exception.
        With `samples` all recorded values are read as well."""
        return self._frame("errors", _FailureReader, _ERRORS, _everything, samples)

    def _frame(self, label: str, reader: type[_Reader], types: dict[str, str], read: Callable[..., Any],
               *question: Any) -> Any:
        meta = pd.DataFrame({name: pd.Series(dtype=kind) for name, kind in types.items()})
        if not self._packages:
            return _dask("dataframe").from_pandas(meta, npartitions=1)
        # Changed files make another frame, not one that a cluster still holds.
        token = _dask("base").tokenize(label, self._packages, self._most, self._raises, question)
        parts = list(self._batches(label))
        return _dask("dataframe").from_map(reader(types, read, question, self._raises, list(types)), parts, meta=meta,
                                           label=label, token=token, enforce_metadata=False)

    def _batches(self, frame: str) -> Iterator[_Batch]:
        paths: list[str] = []
        size = 0
        for package in self._packages:
            most = self._most or (_MOST if package.rows is None else _MOST_INDEXED)
            more = package.bytes_in(frame)
            if paths and (len(paths) >= most or size + more > _PARTITION):
                yield _Batch(tuple(paths))
                paths, size = [], 0
            paths.append(package.path)
            size += more
        yield _Batch(tuple(paths))
