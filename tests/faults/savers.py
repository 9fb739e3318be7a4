"""Several processes save into one package at the same time, and none of their changes is lost.

usage: savers.py [CHANGES]

Two savers, then four, make so many changes together. Each adds, replaces and deletes files of its own, and knows by
the exit codes what the package must hold at the end. Every change must succeed: the program itself waits for the
others and tries again (--wait)."""

import random
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from trial_folder import PACKAGE, PROGRAM, command, copied, make, parts

LISTS = ("[Content_Types].xml", "_rels/.rels")  # These change with what is stored.


class Saver:
    def __init__(self, number, folder):
        self.random, self.folder = random.Random(number), folder
        self.names = [f"of{number}-{index}.txt" for index in range(4)]
        self.stored, self.saved, self.wrong = {}, 0, []

    def change(self):
        name = self.random.choice(self.names)
        if name in self.stored and self.random.random() < 0.4:
            if self.save("delete", name):
                del self.stored[name]
            return
        data = f"{name} {self.random.random()}\n".encode() * self.random.randint(1, 400)
        (self.folder / name).write_bytes(data)
        if self.save("add", name, *["--replace"] * (name in self.stored)):
            self.stored[name] = data

    def save(self, what, name, *options):
        ran = command([PROGRAM, what, PACKAGE, name, *options], self.folder)
        if ran.returncode:
            self.wrong.append(f"{what} {name}: {ran.stderr.strip()}")
        else:
            self.saved += 1
        return ran.returncode == 0


def content(folder):
    found = parts((folder / PACKAGE).read_bytes())
    if isinstance(found, str):
        sys.exit(f"{PACKAGE}: {found}")
    return {name: data for name, data in found.items() if name not in LISTS}


def differences(found, expected):
    return [f"{name}: not as it was left" for name in {*found, *expected} if found.get(name) != expected.get(name)]


def compete(folder, number, changes):
    before, files = content(folder), {path.name for path in folder.iterdir()}
    savers = [Saver(index, folder) for index in range(number)]
    with ThreadPoolExecutor(number) as pool:
        list(pool.map(lambda saver: [saver.change() for _ in range(changes // number)], savers))
    expected = {f"user/{name}": data for saver in savers for name, data in saver.stored.items()}
    wrong = [line for saver in savers for line in saver.wrong] + differences(content(folder), {**before, **expected})
    listed = command([PROGRAM, "list", PACKAGE, "/user"], folder).stdout.split()
    wrong += [f"{name}: not listed" for name in expected if f"/{name}" not in listed]
    known = files.union(*(saver.names for saver in savers))
    wrong += [f"{path.name}: left behind" for path in folder.iterdir() if path.name not in known]
    print(f"{number} savers: {sum(saver.saved for saver in savers)} changes saved")
    return wrong


def add_at_once(folder, number):
    """Each of many processes adds one file, and all succeed."""
    expected = content(folder) | {f"user/{index}.txt": b"%d\n" % index * 100 for index in range(number)}
    for index in range(number):
        (folder / f"{index}.txt").write_bytes(b"%d\n" % index * 100)
    with ThreadPoolExecutor(number) as pool:
        runs = list(pool.map(lambda index: command([PROGRAM, "add", PACKAGE, f"{index}.txt"], folder), range(number)))
    return [run.stderr for run in runs if run.returncode] + differences(content(folder), expected)


def main():
    changes = int(sys.argv[1]) if sys.argv[1:] else 1_000
    with tempfile.TemporaryDirectory(prefix="tavlox-savers-") as room:
        prepared, wrong = make(Path(room) / "prepared"), []
        for number in (2, 4):
            wrong += compete(copied(prepared, Path(room) / f"{number}"), number, changes)
        wrong += add_at_once(copied(prepared, Path(room) / "at-once"), 12)
    print("\n".join(wrong[:20]) or "nothing lost")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
