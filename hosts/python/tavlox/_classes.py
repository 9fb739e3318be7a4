"""Python classes, functions and modules made of what is registered with the object system.

Nothing here knows a class by name, except for what this package adds to some: `additions`.
"""

from __future__ import annotations

import inspect
import os
import sys
import types
from collections.abc import Callable
from typing import Any, ClassVar

from tavlox import _host
from tavlox._errors import Error

Description = dict[str, Any]
Answer = Callable[[Any], Any]

additions: dict[str, type[Registered]] = {}
"""By the dotted name of a registered class, what its Python class is derived from instead of Registered. By the names
of methods, its `answers` say what is made of what the method gives, and its `documents` what it is good for."""

_classes: dict[str, type[Registered]] = {}

# How the types of signatures are annotated, as inputs and as outputs.
INPUTS = {"unicodeString": "str | os.PathLike[str]", "int32 scalar": "int", "logical scalar": "bool", "any": "Any"}
OUTPUTS = {**INPUTS, "unicodeString": "str"}


class Registered:
    """Base of the Python classes that stand for registered ones.

    An object holds the module's object, and can make it anew from what `__reduce__` says: so it can be pickled, and
    used in the child of a fork, where the module's object still belongs to the parent.
    """

    answers: ClassVar[dict[str, Answer]] = {}
    documents: ClassVar[dict[str, str]] = {}
    _identifier: ClassVar[str]
    _made: _host.Object

    def __init__(self, *inputs: Any) -> None:
        self._inputs = inputs
        self._made = _host.construct(self._identifier, inputs)

    @property
    def _object(self) -> _host.Object:
        if self._made.is_foreign:
            function, inputs = self.__reduce__()
            self._made = function(*inputs)._made
        return self._made

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), self._inputs


def from_host(made: _host.Object, identifier: str) -> Registered:
    """An object that a method gave."""
    one = _classes[identifier].__new__(_classes[identifier])
    one._made = made
    return one


def takes_pairs(member: Description) -> bool:
    """Whether inputs that may be left out are names with values: at least two of them, and an even number."""
    optional: int = member["optional"]
    return optional >= 2 and optional % 2 == 0


def signature_of(member: Description, is_method: bool, answer: Answer | None = None) -> inspect.Signature:
    """The signature of a registered method or function; inputs have no names there and are numbered."""
    kind = inspect.Parameter
    required = len(member["inputs"]) - member["optional"]
    parameters = [kind("self", kind.POSITIONAL_ONLY)] if is_method else []
    for number, type_name in enumerate(member["inputs"][is_method:], 1):
        default = kind.empty if number + is_method <= required else ...
        if default is ... and takes_pairs(member):
            break
        annotation = INPUTS.get(type_name, type_name)
        parameters.append(kind(f"input{number}", kind.POSITIONAL_ONLY, default=default, annotation=annotation))
    if takes_pairs(member):
        annotation = INPUTS.get(member["inputs"][-1], "Any")
        parameters.append(kind("pairs", kind.VAR_POSITIONAL, annotation=annotation))
        parameters.append(kind("options", kind.VAR_KEYWORD, annotation=annotation))
    output = OUTPUTS.get(member["outputs"][0], member["outputs"][0]) if member["outputs"] else "None"
    if answer is not None:
        output = answer.__annotations__["return"]
    return inspect.Signature(parameters, return_annotation=output)


def _call(name: str, call: Callable[..., Any], *inputs: Any) -> Any:
    """What the call gives. A failure that the module has no message for names no file: the inputs do."""
    try:
        return call(*inputs)
    except Error as error:
        if error.identifier == "tavlox:python:UnexpectedFailure":
            error.add_note(f"in {name}({', '.join(map(repr, inputs))})")
        raise


def _callable(member: Description, signature: inspect.Signature, module: str, call: Callable[..., Any],
              document: str | None = None) -> Callable[..., Any]:
    """A function that takes inputs by place, and options also as keywords, which are names and values then."""

    def function(*inputs: Any, **options: Any) -> Any:
        if options and not takes_pairs(member):
            raise TypeError(f"{member['signature']} takes no keyword {next(iter(options))!r}")
        for name, value in options.items():
            inputs += (name, value)
        return _call(member["name"], call, *inputs)

    function.__name__ = function.__qualname__ = member["name"]
    function.__module__ = module
    function.__doc__ = "\n\n".join(filter(None, (member["signature"], member["description"], document)))
    function.__signature__ = signature  # type: ignore[attr-defined]
    return function


def _method(member: Description, module: str, base: type[Registered]) -> Callable[..., Any]:
    answer = base.answers.get(member["name"])

    def call(self: Registered, *inputs: Any) -> Any:
        given = _host.call(self._object, member["name"], inputs)
        return given if answer is None else answer(given)

    return _callable(member, signature_of(member, True, answer), module, call, base.documents.get(member["name"]))


def _function(member: Description, module: str) -> Callable[..., Any]:
    def call(*inputs: Any) -> Any:
        return _host.call_function(module, member["name"], inputs)

    return _callable(member, signature_of(member, False), module, call)


def _property(member: Description) -> property:
    def read(self: Registered) -> Any:
        return _host.get_property(self._object, member["name"])

    return property(lambda self: _call(member["name"], read, self), doc=member["description"])


def _class(described: Description, module: str) -> type[Registered]:
    base = additions.get(described["identifier"], Registered)
    constructor = described["constructor"]
    added = None if base is Registered else base.__doc__
    texts = (constructor and constructor["signature"], described["description"], added)
    members: dict[str, Any] = {"__module__": module, "__doc__": "\n\n".join(filter(None, texts))}
    members["_identifier"] = described["identifier"]
    members |= {one["name"]: _property(one) for one in described["properties"]}
    members |= {one["name"]: _method(one, module, base) for one in described["methods"]}
    made = type(described["name"], (base,), members)
    _classes[described["identifier"]] = made
    return made


def _publish(described: Description, holder: types.ModuleType | None) -> None:
    name = described["name"]
    module = sys.modules.get(name)
    if module is None:
        module = sys.modules[name] = types.ModuleType(name, described["description"] or None)
    if holder is not None:
        setattr(holder, name.rpartition(".")[2], module)
    for one in described["classes"]:
        if one["identifier"] not in _classes:
            setattr(module, one["name"], _class(one, name))
    for one in described["functions"]:
        setattr(module, one["name"], _function(one, name))
    for inner in described["inner"]:
        _publish(inner, module)


def load(path: str | os.PathLike[str]) -> None:
    """Loads a module. What it registers can be imported afterwards, under the names of its namespaces."""
    _host.load(os.fspath(path))
    for described in _host.namespaces():
        _publish(described, None)
