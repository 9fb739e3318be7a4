"""Plays the recorded calls of a save against a disk that keeps, loses and tears what was not synced.

usage: crash_states.py [STATES]

Every command is recorded once. The power may fail after each of its calls: of a file that was not synced since, every
512-byte sector written is there or not, its size and attributes are old or new; what happened to a name is there or
not until the folder was synced. Each such state has to show the package as it was or as it was to be, and only the
latter once the program said so. Last, the recordings are spoiled, which has to be noticed."""

import os
import random
import re
import sys
import tempfile
import time
from collections import Counter, namedtuple
from pathlib import Path

from trial_folder import COMMANDS, PROGRAM, content, copied, make, parts, skip_without_strace, undisturbed

RECORDED = ("add", "replace", "delete", "describe", "record", "record-force")
SECTOR, SEED = 512, 20_000_229
SYNCS = ("fsync", "fdatasync")
# Calls that do not change what is in a file, where it is found or what is kept of it here. Others have to be modelled.
HARMLESS = set("""access execve faccessat2 fadvise64 fchown fcntl fgetxattr flistxattr flock fremovexattr fstat
    fstatfs getcwd getdents64 lstat mmap newfstatat pread64 readlink readlinkat stat statx utimensat""".split())

Call = namedtuple("Call", "name arguments result text")
Fate = namedtuple("Fate", "keeps choose")  # whether a change reached the disk; which of several sizes or files did
ALL, NOTHING = Fate(lambda: True, lambda values: values[-1]), Fate(lambda: False, lambda values: values[0])


def random_fate():
    """With more or less luck each: fair coins alone would never lose a single sector of a hundred."""
    luck = random.random()
    return Fate(lambda: random.random() < luck, random.choice)


class File:
    """What is on the disk for certain, and the changes since: (offset, bytes), (None, size) or (attribute, value)."""

    def __init__(self, data, attributes):
        self.data, self.attributes, self.pending = data, attributes, []

    def after(self, fate):
        if not self.pending:
            return self.data, self.attributes
        data, attributes, sizes = bytearray(self.data), dict(self.attributes), [len(self.data)]
        for where, what in self.pending:
            if isinstance(where, str):
                attributes.update({where: what} if fate.keeps() else {})
            elif where is None:
                sizes.append(what)
                del data[what if fate.keeps() else len(data):]
            else:
                end = where + len(what)
                sizes.append(max(sizes[-1], end))
                data.extend(bytes(max(0, end - len(data))))
                for start in range(where // SECTOR * SECTOR, end, SECTOR):
                    if fate.keeps():
                        first, last = max(start, where), min(start + SECTOR, end)
                        data[first:last] = what[first - where:last - where]
        size = fate.choose(sizes)
        return bytes(data[:size].ljust(size, b"\0")), attributes

    def sync(self):
        (self.data, self.attributes), self.pending = self.after(ALL), []


class Disk:
    """The files of one folder, and the descriptors of the program that was recorded there."""

    def __init__(self, folder, initial):
        self.folder, self.opened, self.positions = folder, {"AT_FDCWD": self}, Counter()
        # The files that a name may lead to: what is synced first, the newest last, None for no file.
        self.names = {name: [File(*state)] for name, state in initial.items()}

    def state(self, fate, names):
        files = {name: fate.choose(self.names.get(name, [None])) for name in names}
        return {name: file and file.after(fate) for name, file in files.items()}

    def sync(self):
        self.names = {name: files[-1:] for name, files in self.names.items()}

    def files(self, folder, path):
        """All that a name may lead to, None for what lies elsewhere."""
        name = os.path.relpath(os.path.join(self.folder, unquoted(path).decode()), self.folder)
        is_here = self.opened.get(folder) is self and name.split("/")[0] != ".."
        return self if is_here and name == "." else self.names.setdefault(name, [None]) if is_here else None

    def open(self, folder, path, flags, mode="0"):
        files = self.files(folder, path)
        if not isinstance(files, list):
            return files
        if files[-1] is None:
            files.append(File(b"", {"mode": int(mode, 8) & ~0o022}))
        elif "O_TRUNC" in flags:
            files[-1].pending.append((None, 0))
        return files[-1]

    def play(self, call):
        name, words, result = call.name, call.arguments, int(call.result)
        file = self.opened.get(words[0])
        if name in ("rename", "unlink"):
            name, words = f"{name}at", [word for path in words for word in ("AT_FDCWD", path)]
        if name == "open":  # as the sanitizers do
            name, words = "openat", ["AT_FDCWD", *words]
        if name == "openat":
            self.opened[call.result], self.positions[call.result] = self.open(*words), 0
        elif name in ("renameat", "renameat2"):
            self.files(*words[2:4]).append(self.files(*words[:2])[-1])
            self.files(*words[:2]).append(None)
        elif name == "unlinkat":
            self.files(*words[:2]).append(None)
        elif name == "close":
            self.opened.pop(words[0], None)
        elif name not in HARMLESS and (file or words[0].startswith('"')):
            self.change(file, call, words, result)

    def change(self, file, call, words, result):
        if call.name in SYNCS:
            file.sync()
        elif call.name in ("read", "write", "lseek"):
            position = self.positions[words[0]]
            self.positions[words[0]] = result if call.name == "lseek" else position + result
            file.pending += [(position, unquoted(words[1])[:result])] if call.name == "write" else []
        elif call.name == "pwrite64":
            file.pending.append((int(words[3]), unquoted(words[1])[:result]))
        elif call.name == "copy_file_range":
            source, target = (int(words[at].strip("[]")) for at in (1, 3))
            self.opened[words[2]].pending.append((target, file.after(ALL)[0][source:source + result]))
        elif call.name == "ioctl" and words[1] == "FICLONE":
            file.pending += [(None, 0), (0, self.opened[words[2]].after(ALL)[0])]
        elif call.name == "ftruncate":
            file.pending.append((None, int(words[1])))
        elif call.name == "fchmod":
            file.pending.append(("mode", int(words[1], 8)))
        elif call.name == "fsetxattr":
            file.pending.append((unquoted(words[1]).decode(), unquoted(words[2])))
        else:
            sys.exit(f"not modelled: {call.text[:200]}")


def unquoted(word):
    return bytes.fromhex(word.strip('"').replace("\\x", ""))


def shown(state):
    """What a reader finds, in the form that `content` has."""
    return state and (parts(state[0]), state[1])


class Recording:
    """The calls of one command that succeeded, and the package before and after."""

    def __init__(self, name, prepared):
        self.name, self.target, self.folder = name, COMMANDS[name][1], copied(prepared, prepared.with_name(name))
        self.initial = {path.name: (path.read_bytes(), content(path)[1] if path.suffix == ".tavlox" else {})
                        for path in self.folder.iterdir() if path.is_file()}
        log = self.folder.with_suffix(".calls")
        # Texts in hexadecimal digits: then a comma can only separate arguments.
        undisturbed(["strace", "-o", log, "-xx", "-s", "9999999", "-e", "trace=%file,%desc", PROGRAM, *COMMANDS[name]],
                    self.folder)
        lines = [re.match(r"(\w+)\((.*)\) += (\d+)", line) for line in log.read_text().splitlines()]
        self.calls = [Call(line[1], line[2].split(", "), line[3], line[0]) for line in lines if line]
        self.before, self.after = shown(self.initial.get(self.target)), content(self.folder / self.target)
        disk, self.syncs = Disk(self.folder, self.initial), {"file": [], "folder": []}
        for index, call in enumerate(self.calls):
            if call.name in SYNCS:
                self.syncs["folder" if disk.opened[call.arguments[0]] is disk else "file"].append(index)
            disk.play(call)
        if shown(disk.state(ALL, [self.target])[self.target]) != self.after:
            sys.exit(f"{name}: the calls played do not give what the program wrote")

    def states(self, calls, random_states):
        """After each call that did something, states of the disk: (call, whether the package may look so)."""
        disk, has_said = Disk(self.folder, self.initial), False
        for call in calls:
            disk.play(call)
            has_said |= call is calls[-1] or call.name == "write" and call.arguments[0] == "1"
            if call.name in HARMLESS | {"read", "lseek"} and not has_said:
                continue
            for fate in (ALL, NOTHING, *(random_fate() for _ in range(random_states))):
                found = shown(disk.state(fate, [self.target])[self.target])
                yield call, found == self.after or found == self.before and not has_said

    def spoiled(self):
        """The same calls with a mistake in them."""
        for what, syncs in self.syncs.items():
            yield f"no sync of the {what}", [call for index, call in enumerate(self.calls) if index not in syncs]
        last = max(index for index, call in enumerate(self.calls) if call.name.startswith("rename"))
        late = [self.calls[index] for index in self.syncs["file"]]
        early = [call for index, call in enumerate(self.calls[:last + 1]) if index not in self.syncs["file"]]
        yield "renamed before the sync", early + late + self.calls[last + 1:]


def main():
    wanted = int(sys.argv[1]) if sys.argv[1:] else 12_000
    skip_without_strace()
    random.seed(SEED)
    failures, count, started = [], 0, time.monotonic()
    with tempfile.TemporaryDirectory(prefix="tavlox-crash-") as room:
        prepared = make(Path(room) / "prepared")
        recordings = [Recording(name, prepared) for name in RECORDED]
        moments = sum(1 for recording in recordings for _ in recording.states(recording.calls, 0)) // 2
        for recording in recordings:
            for call, is_right in recording.states(recording.calls, wanted // moments):
                count += 1
                if not is_right:
                    failures.append(f"{recording.name}: neither old nor new, or lost, after {call.text[:100]}")
            failures += [f"{recording.name}: nothing was noticed in a recording with {what}"
                         for what, calls in recording.spoiled()
                         if all(is_right for _, is_right in recording.states(calls, 30))]
    print(f"{count} states (seed {SEED}) of {len(recordings)} commands, {time.monotonic() - started:.1f} s")
    print("\n".join(failures[:20]) or "nothing unexpected")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
