"""Indexes of many sessions: one file that answers at once."""

from __future__ import annotations

import os
import warnings
from collections.abc import Iterable
from typing import NamedTuple, Union

from tavlox import _host
from tavlox._records import LISTS, Records

Path = Union[str, "os.PathLike[str]"]


class Indexed(NamedTuple):
    """What became of the packages of an index."""

    added: int
    changed: int
    unchanged: int
    removed: int
    unreadable: int
    """How many of all in the index have an error there."""


def update(folders: Union[Path, Iterable[Path]], index: Path, jobs: Union[int, None]) -> Indexed:
    """See tavlox.index."""
    if jobs is not None and jobs < 1:
        raise ValueError("jobs is at least 1")
    given = [folders] if isinstance(folders, (str, os.PathLike)) else folders
    made = _host.IndexUpdate([os.fspath(folder) for folder in given], os.fspath(index), jobs or 0)
    try:
        # Step by step, so that an interruption comes through in between.
        while made.step():
            pass
        for problem in made.problems():
            warnings.warn(problem, RuntimeWarning, 3)
        return Indexed(*made.counts())
    finally:
        made.close()


def search(index: Path, text: str, subject: str, where: str) -> Records:
    """See tavlox.search."""
    return Records(_host.search_index(os.fspath(index), text, subject, where).with_lists(LISTS))
