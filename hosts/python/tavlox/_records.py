"""Structure arrays as sequences of records with columns."""

from __future__ import annotations

from collections.abc import Iterator, Mapping, Sequence
from html import escape
from typing import TYPE_CHECKING, Any, Union, overload

from tavlox import _host

if TYPE_CHECKING:
    import numpy.typing as npt
    import pandas as pd  # type: ignore[import]

LISTS = frozenset({"Dimensions", "Channel"})
"""Fields of signals that are lists of numbers, also where there is one number."""
MOST_ROWS = 50
"""What a notebook shows of a table."""


def from_host(structure: _host.Structure) -> Union[Record, Records]:
    """A structure array with one element is a record, any other a sequence of such."""
    return Record(structure, 0) if len(structure) == 1 else Records(structure)


class Record(Mapping[str, Any]):
    """One structure: fields by attribute (`run.Name`) and by key (`run["Name"]`), in their order."""

    __slots__ = ("_structure", "_index")

    def __init__(self, structure: _Structure, index: int) -> None:
        self._structure, self._index = structure, index

    def __getitem__(self, name: str) -> Any:
        try:
            field = self._structure.names.index(name)
        except ValueError:
            raise KeyError(name) from None
        return self._structure.value(self._index, field)

    def __getattr__(self, name: str) -> Any:
        # Names with underscores are asked for by Python itself, also before there are fields (when copying).
        if name.startswith("_") or name not in self._structure.names:
            raise AttributeError(f"the record has no field {name!r}; it has {', '.join(self._structure.names)}")
        return self[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._structure.names)

    def __len__(self) -> int:
        return len(self._structure.names)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._structure.names]

    def _asdict(self) -> dict[str, Any]:
        # Looking each name up would take longer than the values.
        return {name: self._structure.value(self._index, field) for field, name in enumerate(self._structure.names)}

    def __repr__(self) -> str:
        return f"Record({', '.join(f'{name}={value!r}' for name, value in self.items())})"

    def _repr_html_(self) -> str:
        return html_table(["Field", "Value"], list(self.items()))

    def __reduce__(self) -> tuple[Any, ...]:
        return Record, (_Columns({name: [value] for name, value in self.items()}, 1), 0)


class Records(Sequence[Record]):
    """A structure array: `records[0]` is a record, `records["Name"]` or `records.Name` a column.

    A column is a NumPy array, of numbers where every element has one, else of objects. It is made when it is first
    asked for, and can be read only.
    """

    def __init__(self, structure: _Structure) -> None:
        self._structure = structure
        self._made: dict[str, npt.NDArray[Any]] = {}

    @property
    def columns(self) -> tuple[str, ...]:
        """The names of the fields, in their order."""
        return self._structure.names

    def __len__(self) -> int:
        return len(self._structure)

    @overload
    def __getitem__(self, which: int) -> Record: ...
    @overload
    def __getitem__(self, which: slice) -> list[Record]: ...
    @overload
    def __getitem__(self, which: str) -> npt.NDArray[Any]: ...
    def __getitem__(self, which: Union[int, slice, str]) -> Any:
        if isinstance(which, str):
            return self._column(which)
        indices = range(len(self))[which]
        if isinstance(indices, int):
            return Record(self._structure, indices)
        return [Record(self._structure, index) for index in indices]

    def __getattr__(self, name: str) -> npt.NDArray[Any]:
        if name.startswith("_") or name not in self.columns:
            raise AttributeError(f"the records have no field {name!r}; they have {', '.join(self.columns)}")
        return self._column(name)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self.columns]

    def _column(self, name: str) -> npt.NDArray[Any]:
        if name not in self._made:
            if name not in self.columns:
                raise KeyError(name)
            column = self._new_column(name)
            column.flags.writeable = False
            self._made[name] = column
        return self._made[name]

    def _new_column(self, name: str) -> npt.NDArray[Any]:
        return self._structure.column(self.columns.index(name))

    def to_pandas(self) -> pd.DataFrame:
        """A data frame of its own with all columns, also when there are no records."""
        import pandas as pd

        # The arrays are made for the frame and belong to nobody else.
        return pd.DataFrame({name: self._new_column(name) for name in self.columns}, copy=False)

    def __repr__(self) -> str:
        return f"Records({len(self)} of {', '.join(self.columns)})"

    def _repr_html_(self) -> str:
        rows = [list(record.values()) for record in self[:MOST_ROWS]]
        return html_table(self.columns, rows, len(self))

    def __reduce__(self) -> tuple[Any, ...]:
        return Records, (_Columns({name: self[name] for name in self.columns}, len(self)),)


class _Columns:
    """What stands for the host's structure array in records that were unpickled."""

    def __init__(self, columns: dict[str, Any], size: int) -> None:
        self.names, self._columns, self._size = tuple(columns), columns, size

    def __len__(self) -> int:
        return self._size

    def value(self, index: int, field: int) -> Any:
        value = self._columns[self.names[field]][index]
        return value.item() if hasattr(value, "item") and getattr(value, "ndim", 0) == 0 else value

    def column(self, field: int) -> Any:
        return self._columns[self.names[field]].copy()


_Structure = Union[_host.Structure, _Columns]


def html_table(headings: Sequence[str], rows: Sequence[Sequence[Any]], count: Union[int, None] = None) -> str:
    """A table for a notebook, every text escaped; `count` is how many rows there are in all."""
    lines = ["<table><tr>", *(f"<th>{escape(heading)}</th>" for heading in headings), "</tr>"]
    for row in rows[:MOST_ROWS]:
        lines += ["<tr>", *(f"<td>{escape(shown(value))}</td>" for value in row), "</tr>"]
    left = (len(rows) if count is None else count) - min(len(rows), MOST_ROWS)
    return "".join([*lines, "</table>", f"<p>… and {left} more</p>" if left > 0 else ""])


def shown(value: Any) -> str:
    """A cell's text, cut where it is too long for one."""
    text = value if isinstance(value, str) else str(value)
    text = text.encode("utf-8", "replace").decode("utf-8")
    return text if len(text) <= 200 else text[:200] + "…"
