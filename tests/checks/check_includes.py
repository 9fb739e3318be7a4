"""Includes point one way, as ALLOWED says. Headers of C libraries and of the system stay in source files of the
platform and the hosts, and in headers private to their folder. usage: check_includes.py SOURCE_FOLDER"""
import re
import sys
from pathlib import Path

BASE = {"platform/errors", "platform/progress", "platform/text"}
PACKAGE = BASE | {"platform/files", "platform/zip", "platform/opc"}
ALLOWED = {  # a folder and what it may include beside itself
    "platform/text": set(),
    "platform/progress": set(),
    "platform/errors": {"platform/text"},
    "platform/files": BASE,
    "platform/arrays": BASE,
    "platform/zobs": BASE | {"platform/arrays"},
    "platform/zip": BASE | {"platform/files"},
    "platform/opc": PACKAGE,
    "platform/processes": BASE | {"platform/files"},
    "platform/sql": BASE | {"platform/files"},
    "platform/repository": BASE | {"platform/files", "platform/zip", "platform/sql"},
    "platform/export_file": PACKAGE | {"platform/repository"},
    "platform/tables": BASE | {"platform/files", "platform/zip"},
    "platform/recording": PACKAGE | {"platform/repository", "platform/export_file", "platform/tables"},
    "platform/hdf5": BASE | {"platform/files", "platform/tables"},
    "platform/samples": PACKAGE | {"platform/repository", "platform/export_file", "platform/tables"},
    "platform/recovery": PACKAGE | {"platform/repository", "platform/export_file"},
    "platform/filter": BASE,
    "platform/session_index": PACKAGE | {"platform/repository", "platform/export_file", "platform/samples", "platform/sql",
                                         "platform/filter", "platform/arrays", "platform/processes"},
}
PLATFORM = set(ALLOWED)
ALLOWED["package"] = PLATFORM
ALLOWED["metadata"] = PLATFORM | {"package"}
ALLOWED["queries"] = ALLOWED["assets"] = PLATFORM | {"package", "metadata"}
ALLOWED["fileclass"] = PLATFORM | {"package", "metadata", "queries", "assets"}
ALLOWED["entry"] = ALLOWED["fileclass"] | {"fileclass"}
MODULE = set(ALLOWED) - PLATFORM

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"(?!generated/)([^"]+)"|<([^>]+)>)', re.MULTILINE)
# What ends in .h between angle brackets is a header of C, unless it belongs to one of these C++ libraries or gives
# names to the processor's instructions.
FOREIGN = re.compile(r"(?!(?:Poco|boost|fmt|pybind11)/|[a-z]mmintrin\.h).*\.h$")


class Tree:
    """The source files, the files of the tree that each includes, and the foreign headers."""

    def __init__(self, root):
        self.root, self.own, self.foreign = root, {}, {}
        for path in sorted([*root.glob("src/**/*.[ch]*"), *root.glob("hosts/**/*.[ch]*")]):
            if path.suffix in (".h", ".cpp", ".hpp"):
                found = INCLUDE.findall(path.read_text(encoding="utf-8"))
                self.own[path] = {name: self.resolve(path, name) for name, _ in found if name}
                self.foreign[path] = [name for _, name in found if name and FOREIGN.match(name)]

    def resolve(self, path, name):
        files = (folder / name for folder in (path.parent, self.root / "src", self.root))
        return next((file.resolve() for file in files if file.is_file()), None)

    def area(self, path):
        """The folder that the rules speak of: the longest known one, or "hosts/NAME"."""
        parts = path.relative_to(self.root).parts
        if parts[0] == "hosts":
            return "/".join(parts[:2])
        return next((area for area in ("/".join(parts[1:3]), parts[1]) if area in ALLOWED), None)

    def headers_of(self, path, seen):
        """`path` and every file of the tree that it brings along."""
        seen.add(path)
        for target in self.own[path].values():
            if target in self.own and target not in seen:
                self.headers_of(target, seen)
        return seen


def problems_of(tree, path):
    area = tree.area(path)
    if area is None:
        yield "lies in a folder that the order of includes does not know"
        return
    allowed = ALLOWED.get(area, PLATFORM) | {area}
    for name, target in tree.own[path].items():
        if target not in tree.own:
            yield f'includes "{name}", which is no source'
        elif tree.area(target) not in allowed:
            yield f'includes "{name}", but {area} must not include {tree.area(target)}'
    for name in tree.foreign[path] if area in MODULE else ():
        yield f"includes <{name}>: the module leaves that to the platform"
    for header in sorted(tree.headers_of(path, set())):
        if tree.area(header) != area:
            for name in tree.foreign[header]:
                yield f"reaches <{name}> through {header.relative_to(tree.root)}, private to its folder"


def main(root):
    tree = Tree(Path(root).resolve())
    problems = [(path, problem) for path in tree.own for problem in problems_of(tree, path)]
    print(*(f"{path.relative_to(tree.root)}: {problem}" for path, problem in problems), sep="\n")
    return 1 if problems or not tree.own else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
