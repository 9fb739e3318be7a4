"""The reference: what the module registers, what the Python package adds to it, the help of the commands and the texts
of the errors, as one page. papers_test.py --write puts it into docs/reference.md."""

import inspect
import json
import re
import subprocess
import tempfile
from pathlib import Path

HEAD = """# Reference

Everything that scripts can use: the class and the function that the module registers, as Python has them, what the Python package
adds, the commands, and the errors. `./dev papers` makes this page of the built module and program; do not change it by hand. How to
work with all of it is told in the [guide](guide.md).

- [The class `tavlox.io.File`](#the-class-tavloxiofile)
- [The function `tavlox.io.getCompression`](#the-function-tavloxiogetcompression)
- [The package `tavlox`](#the-package-tavlox)
- [The commands](#the-commands)
- [Errors](#errors)
"""


def signature(function):
    """As stubs have it: annotations are texts, and defaults of optional inputs of no interest."""
    shown = re.sub("'([^']*)'", r"\1", str(inspect.signature(function))).replace("Ellipsis", "...")
    return shown.replace("(self, /, ", "(").replace("(self, /)", "()").replace("(self, ", "(").replace("(self)", "()")


def member(prefix, name, function, given=""):
    text = inspect.getdoc(function) or ""
    return f"#### `{name}`\n\n```python\n{prefix}{name}{signature(function)}\n```\n\n{text}\n{given}"


def fields(records):
    """The fields of records as a paragraph, with the types of their values in Python."""
    shown = (f"`{name}` ({type(value).__name__.replace('ndarray', 'array')})" for name, value in records.items())
    return f"\nFields: {', '.join(shown)}.\n"


def class_page(described, file_class, answers):
    lines = [f"## The class `{described['identifier']}`\n\n{inspect.getdoc(file_class)}\n\n### Properties\n",
             "| name | type | |\n|---|---|---|"]
    for one in described["properties"]:
        lines.append(f"| `{one['name']}` | {one['type']} | {one['description']} |")
    lines.append("\n### Methods\n\nThe first line of a text is the signature as it is registered; the object comes first there.\n")
    lines += [member("file.", one["name"], getattr(file_class, one["name"]), answers.get(one["name"], ""))
              for one in described["methods"]]
    lines.append("### Added in Python\n")
    added = file_class.__mro__[1]
    lines += [member("file.", name, function) for name, function in vars(added).items()
              if inspect.isfunction(function) and not name.startswith("_")]
    return "\n".join(lines)


def commands_page(program):
    overview = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
    names = re.findall(r"^  (\w+) ", overview.partition("\nCommands:\n")[2].partition("\n\n")[0], re.MULTILINE)
    pages = [f"## The commands\n\n```text\n{overview}```\n"]
    for name in names:
        text = subprocess.run([program, name, "--help"], capture_output=True, text=True, check=True).stdout
        pages.append(f"### `tavlox {name}`\n\n```text\n{text}```\n")
    return "\n".join(pages)


def errors_page(catalog):
    lines = ["## Errors\n\nBy identifier, with the text; `{0}`, `{1}` … stand for the error's arguments.\n",
             "| identifier | text |\n|---|---|"]
    for path in sorted(catalog.glob("*.json"), key=lambda path: path.stem.lower()):
        for key, text in json.loads(path.read_text(encoding="utf-8")).items():
            cell = re.sub(r"([|<*_])", r"\\\1", text).replace("\n", " ")
            lines.append(f"| `{path.stem}:{key}` | {cell} |")
    return "\n".join(lines) + "\n"


def answers_of(sources):
    """The fields that methods answer with, by the method's name."""
    import tavlox.io

    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "session.tavlox")
        tavlox.record(path, {"nominal": sources / "examples/rc_filter/nominal.csv"})
        file = tavlox.io.File(path)
        return {"getRunInfo": fields(file.getRunInfo(1)), "getAllSignalsInfo": fields(file.getAllSignalsInfo()[0]),
                "list": fields(file.list()[0])}


def reference(program, sources):
    import tavlox.io
    from tavlox import _host

    [space] = [inner for top in _host.namespaces() for inner in top["inner"] if inner["name"] == "tavlox.io"]
    [function] = space["functions"]
    pages = [HEAD, class_page(space["classes"][0], tavlox.io.File, answers_of(sources)),
             f"## The function `tavlox.io.{function['name']}`\n",
             member("tavlox.io.", function["name"], getattr(tavlox.io, function["name"])),
             "## The package `tavlox`\n",
             *(member("tavlox.", name, getattr(tavlox, name)) for name in ("record", "load")),
             *(f"#### `{name}`\n\n{inspect.getdoc(getattr(tavlox, name))}\n" for name in ("Error", "Records", "Record")),
             commands_page(program), errors_page(sources / "catalog/en")]
    return "\n".join(pages)


if __name__ == "__main__":
    import sys

    print(reference(Path(sys.argv[1]), Path(sys.argv[2])), end="")
