"""The one exception type of this package, and the built-in ones that its errors are as well."""

from __future__ import annotations

import errno
import os
from typing import Any, Sequence

_DENIED = (errno.EACCES, errno.EPERM, errno.EROFS)

# What an error is by its identifier. Those of files are told apart further by the system's reason.
_KINDS: dict[str, type[Exception]] = {
    "Corvan:ObjectSystem:CannotLoadModule": ImportError,
    "Corvan:ObjectSystem:WrongInputCount": TypeError,
    "Corvan:ObjectSystem:WrongInputType": TypeError,
    "Corvan:InputParser:UnmatchedParameter": TypeError,
    "fl:filesystem:ImpossibleName": ValueError,
    "opc:package:NotFound": FileNotFoundError,
    "opc:package:PropertiesTooLarge": ValueError,
    "opc:save:FileGone": FileNotFoundError,
    "opc:save:FileAppeared": FileExistsError,
    "opc:save:FolderNotWritable": PermissionError,
    "opc:save:ReadOnly": PermissionError,
    "opc:xml:IllFormedText": ValueError,
    "opc:xml:UnwritableCharacter": ValueError,
    "export_file:session:FileExists": FileExistsError,
    "export_file:session:IllFormedText": ValueError,
    "export_file:session:TextTooLong": ValueError,
    "simulation_data_repository:sdr:NoSuchRun": LookupError,
    "tavlox:index:NotFound": FileNotFoundError,
    "tavlox:python:MixedTimes": ValueError,
    "tavlox:python:NoSuchRun": LookupError,
    "tavlox:python:NoSuchSignal": LookupError,
    "tavlox:python:SeveralRuns": LookupError,
    "tavlox:record:CannotReadTable": OSError,
    "samples:session:NoSamples": LookupError,
    "tavlox:general:FileNotFound": FileNotFoundError,
    "tavlox_io:general:EntryDoesNotExist": LookupError,
    "tavlox_io:general:InvalidOutputPath": OSError,
    "tavlox_io:general:UnableToClosePackage": OSError,
}
_NUMBERS: dict[type[Exception], int] = {
    FileNotFoundError: errno.ENOENT, FileExistsError: errno.EEXIST, PermissionError: errno.EACCES,
}
_OF_FILES = ("fl:filesystem:", "opc:save:", "opc:spool:")


class Error(Exception):
    """A failure that the module or this package reports.

    `identifier` names the kind of failure and never changes ("tavlox:general:FileNotFound"); `arguments` are what
    its text names, as texts; `causes` are the errors that led to it, the first of which is also `__cause__`. Where
    the failure is one that Python has an exception for, as FileNotFoundError, PermissionError, another OSError,
    LookupError, TypeError or ValueError, the error is that, too.
    """

    identifier: str
    arguments: tuple[str, ...]
    causes: tuple[Error, ...]

    def __str__(self) -> str:
        return f"{self._text} [{self.identifier}]"

    def __reduce__(self) -> tuple[Any, ...]:
        return _made, (self.identifier, self.arguments, self._text, self.causes)

    _text: str


Error.__module__ = "tavlox"
_types: dict[type[Exception], type[Error]] = {Exception: Error}


def _kind(identifier: str, arguments: Sequence[str], causes: Sequence[Error]) -> type[Exception]:
    if any(os.strerror(number) in arguments for number in _DENIED):
        return PermissionError
    if os.strerror(errno.ENOENT) in arguments:
        return FileNotFoundError
    kind = _KINDS.get(identifier)
    # A file that cannot be opened or saved is told by the error that led to it.
    if kind in (None, OSError):
        for special in (FileNotFoundError, PermissionError, OSError, LookupError, ValueError):
            if any(isinstance(cause, special) for cause in causes):
                return special
    # What a table or a condition must not hold.
    if kind is None and identifier.startswith(("tavlox:record:", "filter:where:")):
        return ValueError
    return kind or (OSError if identifier.startswith(_OF_FILES) else Exception)


def _made(identifier: str, arguments: tuple[str, ...], text: str, causes: tuple[Error, ...]) -> Error:
    kind = _kind(identifier, arguments, causes)
    if kind not in _types:
        # One class each, made when it is first needed: "except tavlox.Error" and "except OSError" both catch it.
        _types[kind] = type(f"{kind.__name__}", (Error, kind), {"__module__": "tavlox", "__doc__": Error.__doc__})
    error = _types[kind](text)
    error.identifier, error.arguments, error.causes, error._text = identifier, arguments, causes, text
    if isinstance(error, OSError):
        error.filename = arguments[0] if arguments else None
        number = _NUMBERS.get(kind)
        if number is not None:
            error.errno = number
    if causes:
        error.__cause__ = causes[0]
        for further in causes[1:]:
            error.add_note(f"also because: {further}")
    return error


def make(identifier: str, arguments: tuple[str, ...], text: str, causes: Sequence[tuple[Any, ...]]) -> Error:
    """The exception for an error of the platform; its causes are given as such arguments, too."""
    return _made(identifier, arguments, text, tuple(make(*cause) for cause in causes))
