"""Recorded simulation sessions in Python.

`tavlox.io.File(path)` opens a session; its class, like everything in `tavlox.io`, is what the module `tavlox_io.so`
registers with the object system. `tavlox.record` makes a session, and every failure is a `tavlox.Error`. The variable
TAVLOX_MODULE may name another file of the module than the installed one.
"""

from __future__ import annotations

import os
import warnings
from collections.abc import Iterable, Mapping
from typing import TYPE_CHECKING, Any

from tavlox import _host, _index
from tavlox._classes import load
from tavlox._errors import Error
from tavlox._index import Indexed
from tavlox._records import Record, Records
from tavlox._session import Session

if TYPE_CHECKING:
    from tavlox._index import Path
    from tavlox._sessions import Sessions

__all__ = ["Error", "Indexed", "Record", "Records", "Session", "index", "load", "record", "search", "sessions"]


def record(path: str | os.PathLike[str], runs: Mapping[str, Any], *, metadata: Mapping[str, Any] | None = None,
           units: Mapping[str, str] | None = None, description: str = "", replace: bool = False) -> None:
    """Makes a session at `path`, with a run for each entry of `runs`: a data frame, or the path of a table that
    the program `tavlox record` takes without options. What had to be assumed of a table is told in a warning.

    The index of a data frame is the time, in seconds or as timedeltas, and each column a signal. `units` has the units
    of the signals of data frames by their names; a frame that `File.samples` gave has its own. `File.samples` gives
    back an equal frame. `metadata` has the fields of every run by the names of `File.getRunInfo` ("Model",
    "SolverName"); an entry named like a run has those of that run. An existing file is kept unless it is to be
    replaced.
    """
    from tavlox import _samples

    _samples.record(path, runs, metadata or {}, units or {}, description, replace)


def sessions(paths: str | os.PathLike[str] | Iterable[str | os.PathLike[str]], *, errors: str = "rows",
             batch: int | None = None) -> Sessions:
    """Many packages, to be asked all at once: their files, runs, signals and samples as Dask data frames.

    `paths` is a package, a folder with packages (`*.tavlox`), a pattern (`nights/**/*.tavlox`), the address of a remote one,
    an index, which stands for the packages in it, or several of these. Folders are listed now, and packages opened when a
    frame is computed. Unreadable packages are rows of the frame `errors()`; with errors="raise" the first of them is raised
    instead. A partition is of about 100 MB at most, and has at most `batch` packages: if that is not given 50, or 1,000 of
    an index, which tells how many rows they will have.
    """
    from tavlox import _sessions

    return _sessions.Sessions(paths, errors, batch)


def index(folders: Path | Iterable[Path], index: Path, *, jobs: int | None = None) -> Indexed:
    """Puts all packages below the folders into one SQLite file, or brings that up to date, in `jobs` processes (by
    default as many as there are cores). The program `tavlox index` does the same; docs/session_index.md describes the
    tables. Packages that cannot be read are in the index with their error. What keeps it from being complete is told in
    warnings. A file that is no index is never replaced.
    """
    return _index.update(folders, index, jobs)


def search(index: Path, text: str = "", *, subject: str = "signals", where: str = "") -> Records:
    """What an index has of signals, runs or files (`subject`) whose texts have all words of `text`, as words or, from
    three letters on, as pieces of words, in any case. `where` is a condition on the fields, as the program
    `tavlox search` takes it: "StoredUnits != 'rad/s' and Maximum > 300".
    """
    return _index.search(index, text, subject, where)


if not os.path.isdir(_host.catalog_folder()):
    warnings.warn(f"the texts of messages are missing; looked in {_host.catalog_folder()}", RuntimeWarning, 2)
# Beside the platform's library, unless somebody has another one.
load(os.environ.get("TAVLOX_MODULE") or _host.installed_module("tavlox_io"))
