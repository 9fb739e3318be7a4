"""The module exports its two entry points and nothing else, and nothing that is built is searched for in the folder
that somebody happens to be in.

usage: check_exports.py NM READELF MODULE FILE…
"""
import re
import subprocess
import sys

ENTRY_POINTS = {"CvInitialize_orra_tavlox_io", "CvTerminate_orra_orra_tavlox_io"}


def wrong_exports(nm, module):
    listing = subprocess.check_output([nm, "-D", "--defined-only", module], text=True)
    exported = {line.split()[-1].split("@")[0] for line in listing.splitlines()}
    for name in sorted(exported ^ ENTRY_POINTS):
        yield f"{module}: {'exports' if name in exported else 'does not export'} {name}"


def wrong_search_paths(readelf, file):
    """The loader takes an empty folder, and one that is no absolute path, from the current folder."""
    section = subprocess.check_output([readelf, "-d", file], text=True)
    for path in re.findall(r"R(?:UN)?PATH\).*\[(.*)\]", section):
        if not all(folder.startswith(("/", "$ORIGIN")) for folder in path.split(":")):
            yield f"{file}: libraries are looked for in the current folder: {path}"


def main(nm, readelf, module, *files):
    wrong = [*wrong_exports(nm, module)]
    for file in (module, *files):
        wrong += wrong_search_paths(readelf, file)
    print(*wrong, sep="\n")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
