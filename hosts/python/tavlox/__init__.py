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

from tavlox import _host
from tavlox._classes import load
from tavlox._errors import Error
from tavlox._records import Record, Records
from tavlox._session import Session

if TYPE_CHECKING:
    from tavlox._sessions import Sessions

__all__ = ["Error", "Record", "Records", "Session", "load", "record", "sessions"]


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
             batch: int = 50) -> Sessions:
    """Many packages, to be asked all at once: their files, runs, signals and samples as Dask data frames.

    `paths` is a package, a folder with packages (`*.tavlox`), a pattern (`nights/**/*.tavlox`), the address of a remote one,
    or several of these. Folders are listed now, and packages opened when a frame is computed. Unreadable packages are rows
    of the frame `errors()`; with errors="raise" the first of them is raised instead. A partition has at most `batch`
    packages, and fewer where they are large.
    """
    from tavlox import _sessions

    return _sessions.Sessions(paths, errors, batch)


if not os.path.isdir(_host.catalog_folder()):
    warnings.warn(f"the texts of messages are missing; looked in {_host.catalog_folder()}", RuntimeWarning, 2)
# Beside the platform's library, unless somebody has another one.
load(os.environ.get("TAVLOX_MODULE") or _host.installed_module("tavlox_io"))
