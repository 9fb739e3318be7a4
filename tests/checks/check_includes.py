"""Includes point one way: entry, fileclass, {queries, assets}, metadata, package, platform, and inside the
platform down to text. Hosts see the platform only. Headers of C libraries and of the operating system
stay in source files of the platform and the hosts, and in headers that nothing outside their folder
reaches. What the build generates ("generated/…") is nobody's and includes nothing.

usage: check_includes.py SOURCE_FOLDER
"""
import re
import sys
from pathlib import Path

BASE = {"errors", "progress", "text"}
PLATFORM = {  # a folder and what it may include
    "platform/text": set(),
    "platform/progress": set(),
    "platform/errors": {"text"},
    "platform/files": BASE,
    "platform/arrays": BASE,
    "platform/zobs": BASE | {"arrays"},
    "platform/zip": BASE | {"files"},
    "platform/opc": BASE | {"files", "zip"},
    "platform/export_file": BASE | {"files", "zip", "opc"},
    "platform/repository": BASE | {"files", "zip", "opc"},
}
WHOLE_PLATFORM = set(PLATFORM)
ALLOWED = {area: {f"platform/{name}" for name in names} for area, names in PLATFORM.items()} | {
    "package": WHOLE_PLATFORM,
    "metadata": WHOLE_PLATFORM | {"package"},
    "queries": WHOLE_PLATFORM | {"package", "metadata"},
    "assets": WHOLE_PLATFORM | {"package", "metadata"},
    "fileclass": WHOLE_PLATFORM | {"package", "metadata", "queries", "assets"},
    "entry": WHOLE_PLATFORM | {"package", "metadata", "queries", "assets", "fileclass"},
}
MODULE = set(ALLOWED) - WHOLE_PLATFORM

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"(?!generated/)([^"]+)"|<([^>]+)>)', re.MULTILINE)
# What ends in .h between angle brackets is a header of C, unless it belongs to one of these C++ libraries.
FOREIGN = re.compile(r"(?!(?:Poco|boost|fmt|pybind11)/).*\.h$")


class Tree:
    """The source files and what each includes."""

    def __init__(self, root):
        self.root = root
        files = [path for folder in ("src", "hosts") for path in (root / folder).rglob("*.[ch]*")]
        self.files = sorted(path for path in files if path.suffix in (".h", ".cpp", ".hpp"))
        self.own, self.foreign = {}, {}
        for path in self.files:
            found = INCLUDE.findall(path.read_text(encoding="utf-8"))
            self.own[path] = [(name, self.resolve(path, name)) for name, _ in found if name]
            self.foreign[path] = [name for _, name in found if name and FOREIGN.match(name)]

    def resolve(self, path, name):
        for folder in (path.parent, self.root / "src", self.root):
            if (folder / name).is_file():
                return (folder / name).resolve()
        return None

    def area(self, path):
        """The folder that the rules speak of: the longest known one, or "hosts/NAME"."""
        relative = path.relative_to(self.root)
        if relative.parts[0] == "hosts":
            return "/".join(relative.parts[:2])
        folders = "/".join(relative.parts[1:-1])
        known = [area for area in ALLOWED if f"{folders}/".startswith(f"{area}/")]
        return max(known, key=len, default=None)

    def reached(self, path):
        """The foreign headers that `path` brings along, each with the file that names it."""
        found, seen, waiting = set(), {path}, [path]
        while waiting:
            file = waiting.pop()
            found |= {(name, file) for name in self.foreign[file]}
            targets = {target for _, target in self.own[file] if target in self.own}
            waiting += targets - seen
            seen |= targets
        return found


def may_include(area, target):
    if area == target:
        return True
    if area.startswith("hosts/"):
        return target in WHOLE_PLATFORM
    return target in ALLOWED[area]


def problems_of(tree, path):
    area = tree.area(path)
    if area is None:
        yield "lies in a folder that has no place in the order of includes"
        return
    for name, target in tree.own[path]:
        if target is None:
            yield f'includes "{name}", which does not exist'
        elif target not in tree.own:
            yield f'includes "{name}" from outside the sources'
        elif not may_include(area, tree.area(target) or "?"):
            yield f'includes "{name}", but {area} must not include {tree.area(target)}'
    if area in MODULE:
        for name in tree.foreign[path]:
            yield f"includes <{name}>: the module leaves that to the platform"
    for name, header in sorted(tree.reached(path)):
        if tree.area(header) != area:
            yield f"reaches <{name}> through {header.relative_to(tree.root)}, a header private to its folder"


def main(root):
    tree = Tree(Path(root).resolve())
    count = 0
    for path in tree.files:
        for problem in problems_of(tree, path):
            print(f"{path.relative_to(tree.root)}: {problem}")
            count += 1
    if not tree.files:
        print("there are no sources to check")
    return 0 if tree.files and count == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
