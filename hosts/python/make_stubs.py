"""Writes a stub file for each namespace that the loaded module registers. usage: make_stubs.py PACKAGE_FOLDER"""

import sys
from pathlib import Path

def shown(signature):
    """A signature as a stub has it: annotations are texts there, and defaults of no interest."""
    return str(signature).replace("'", "").replace(" = Ellipsis", " = ...")


def document(text, indent):
    return f'{indent}"""{text}"""\n' if text else ""


def class_stub(described, made, classes):
    base = made.__mro__[1]
    lines = [f"class {made.__name__}({base.__name__}):\n", document(made.__doc__, "    ")]
    constructor = described["constructor"]
    if constructor:
        constructor = {**constructor, "inputs": ["self", *constructor["inputs"]], "outputs": []}
        signature = classes.signature_of(constructor, True)
        lines.append(f"    def __init__{shown(signature)}: ...\n")
    for one in described["properties"]:
        lines += ["    @property\n", f"    def {one['name']}(self) -> {classes.OUTPUTS[one['type']]}:\n",
                  document(one["description"], "        "), "        ...\n"]
    for one in described["methods"]:
        function = vars(made)[one["name"]]
        lines += [f"    def {one['name']}{shown(function.__signature__)}:\n", document(function.__doc__, "        "),
                  "        ...\n"]
    return "".join(lines)


def namespace_stub(described, module, classes):
    bases = {vars(module)[one["name"]].__mro__[1] for one in described["classes"]}
    lines = [f'"""{described["description"] or "What is registered in " + described["name"]}."""\n\n',
             "import os\nfrom typing import Any\n\nimport numpy as np\nimport numpy.typing as npt\n\n",
             "from tavlox._records import Record, Records\n",
             *sorted(f"from {base.__module__} import {base.__name__}\n" for base in bases), "\n"]
    lines += [class_stub(one, vars(module)[one["name"]], classes) for one in described["classes"]]
    for one in described["functions"]:
        function = vars(module)[one["name"]]
        lines += [f"def {one['name']}{shown(function.__signature__)}:\n", document(function.__doc__, "    "),
                  "    ...\n"]
    return "".join(lines)


def main(package):
    sys.path.insert(0, str(package.parent))
    from tavlox import _classes, _host

    for top in _host.namespaces():
        for inner in top["inner"]:
            text = namespace_stub(inner, sys.modules[inner["name"]], _classes)
            (package / f"{inner['name'].rpartition('.')[2]}.pyi").write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(Path(sys.argv[1]).resolve())
