"""What Python adds to the registered class `tavlox.io.File`."""

from __future__ import annotations

import math
import os
from collections.abc import Sequence
from html import escape
from typing import TYPE_CHECKING, Any, TypeVar

from tavlox._classes import Registered, additions
from tavlox._errors import Error
from tavlox._records import LISTS, MOST_ROWS, Record, Records, html_table, shown

if TYPE_CHECKING:
    from types import TracebackType

    import numpy as np
    import numpy.typing as npt

    from tavlox._samples import Run, Samples

Self = TypeVar("Self", bound="Session")

# What a notebook shows of runs and signals.
_RUN_FIELDS = ("id", "Name", "Model", "StartTime", "StopTime", "Status")
_SIGNAL_FIELDS = ("Name", "RunOrderIndex", "StoredUnits", "DataType", "SampleTime", "FullBlockPath")


class Session(Registered):
    """A file can be used in a `with` statement, at whose end what was read of it is given up."""

    def __init__(self, *inputs: Any) -> None:
        super().__init__(*inputs)
        # The module knows the file by this name from now on, whatever folder the process changes to.
        self._path = os.path.abspath(os.fsdecode(inputs[0]))

    def close(self) -> None:
        """Gives up what was read of the file. It cannot be used afterwards; closing it again does nothing."""
        self.__dict__.pop("_made", None)

    @property
    def closed(self) -> bool:
        return "_made" not in self.__dict__

    @property
    def _object(self) -> Any:
        if self.closed:
            raise ValueError(f"{self!r} is closed")
        return super()._object

    def __enter__(self: Self) -> Self:
        self._object
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self._path,)

    def __repr__(self) -> str:
        path = self.__dict__.get("_path", "")
        return f"{type(self).__module__}.{type(self).__qualname__}({path!r})"

    def samples(self, run: Run | Sequence[Run], signals: str | Sequence[str] | None = None,
                grid: str | float | None = None, *, start: float = -math.inf, stop: float = math.inf) -> Samples:
        """The recorded values of a run, or of several, as a data frame whose attribute `units` has the units.

        A run is named by its identifier or its name. Only the columns of the wanted signals are read, and only the
        times from `start` to `stop` (seconds). Runs of different times are refused unless `grid` says how they come
        together: "union" has every time of any of them, "step" equal steps, the shortest mean step of any of them, and
        a number a step in seconds. Between samples floating-point numbers go straight, all others keep their value;
        outside of a run there is none (NaN).
        """
        from tavlox import _samples

        self._object  # raises if this is closed
        return _samples.read(self._path, run, signals, grid, start, stop)

    def plot(self, run: Run | Sequence[Run], signals: str | Sequence[str] | None = None,
             grid: str | float | None = None, *, start: float = -math.inf, stop: float = math.inf,
             axes: Any = None) -> Any:
        """Draws what `samples` gives, with a pair of axes for each unit, or in the given ones; gives the axes."""
        from tavlox import _samples

        return _samples.plot(self.samples(run, signals, grid, start=start, stop=stop), axes)

    def _repr_html_(self) -> str:
        try:
            return self._html()
        except (Error, ValueError) as error:
            return f"<p><b>{escape(repr(self))}</b>: {escape(str(error))}</p>"

    def _html(self) -> str:
        file: Any = self
        ids, signals = file.getAllRunIDs(), file.getAllSignalsInfo()
        runs = [file.getRunInfo(int(number)) for number in ids[:MOST_ROWS]]
        files = [entry for entry in file.list() if entry.FullPath.startswith("/user/")]
        return "".join([
            f"<p><b>{escape(shown(file.Filename))}</b><br>{escape(shown(file.Description))}</p>",
            _folded("Runs", runs, _RUN_FIELDS, len(ids)),
            _folded("Signals", signals, _SIGNAL_FIELDS, len(signals)),
            _folded("User files", files, ("FullPath", "Type"), len(files)),
        ])


def _folded(title: str, records: Sequence[Record], fields: Sequence[str], count: int) -> str:
    rows = [[record[name] for name in fields] for record in records[:MOST_ROWS]]
    return f"<details><summary>{title} ({count})</summary>{html_table(fields, rows, count)}</details>"


# A structure array with one element, and a column with one number, come as a record and as a number by themselves. What
# is a list by its nature must not, or a loop over it would fail for a session with one run.

def _column(answer: Any) -> npt.NDArray[np.int32]:
    import numpy as np

    return np.atleast_1d(np.asarray(answer, dtype=np.int32))


def _several(answer: Any) -> Records:
    return Records(answer._structure.with_lists(LISTS))


def _one(answer: Any) -> Record:
    return answer  # type: ignore[no-any-return]


Session.answers = {"getAllRunIDs": _column, "getRunInfo": _one, "getAllSignalsInfo": _several,
                   "getSignalInfoByName": _several, "list": _several}
Session.documents = {
    "getAllRunIDs": "The identifiers of all runs, in their order.",
    "getRunInfo": "What is known of the run of this identifier.",
    "getAllSignalsInfo": "What is known of every signal.",
    "getSignalInfoByName": "The same of the signals of exactly this name, in every run.",
    "setFileDescription": "Sets the description and saves the file at once.",
    "addFile": "Stores a file, or the files that lie directly in a folder. Options: Path, the folder in the package that "
               'they go to; Replace="enable", to replace what is there under the same name.',
    "getFile": "Copies an entry, or all of a folder of the package, to disk and gives the paths of the files written. "
               "Option: OutputPath, the folder that they go to.",
    "list": "The entries of the package, or those that match: an absolute path of the package is a file or a whole "
            "folder, any other text the name of a file in whatever folder.",
    "deleteFile": "Removes what `list` finds for this text from the package.",
}
additions["tavlox.io.File"] = Session
