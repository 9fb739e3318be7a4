"""A session to change, the program that changes it, and a reader of the result that shares nothing with the program."""

import contextlib
import functools
import io
import os
import random
import re
import shutil
import subprocess
import sys
import time
import zipfile
import zlib
from pathlib import Path

PROGRAM = os.environ.get("TAVLOX_PROGRAM") or str(Path(__file__).resolve().parents[2] / "build/release/bin/tavlox")
ENVIRONMENT = {**os.environ, "TZ": "UTC", "ASAN_OPTIONS": "detect_leaks=0"}  # leaks cannot be looked for below strace
os.umask(0o022)

PACKAGE = "s.tavlox"
COMMANDS = {
    "add": ["add", PACKAGE, "new.bin"],
    "replace": ["add", PACKAGE, "a.txt", "--replace"],
    "delete": ["delete", PACKAGE, "kept.bin"],
    "describe": ["describe", PACKAGE, "another description"],
    "record": ["record", "n.tavlox", "hot.csv"],
    "record-force": ["record", PACKAGE, "hot.csv", "--force"],
    "get": ["get", PACKAGE, "/user", "-o", "out"],
    "get-force": ["get", PACKAGE, "/user", "-o", "old", "--force"],
}


def again(name):
    """The next command of its kind, which sweeps what a killed one left."""
    is_save = not name.startswith(("get", "record"))
    return ["describe", PACKAGE, "the next save"] if is_save else [*dict.fromkeys([*COMMANDS[name], "--force"])]


def command(words, folder):
    """Runs a program and gives what it said. One that hangs is killed, with what it started."""
    return subprocess.run(["timeout", "--signal=KILL", "60", *words], cwd=folder, env=ENVIRONMENT, errors="replace",
                          stdin=subprocess.DEVNULL, capture_output=True)


def undisturbed(words, folder):
    if (ran := command(words, folder)).returncode:
        sys.exit(f"{words}, undisturbed: {ran.stderr}")


def identifier(said):
    """What stands in brackets at the end of an error's line."""
    return (re.findall(r"\[([\w:]+)\]$", said, re.MULTILINE) or [""])[0]


@functools.lru_cache(32)
def parts(data):
    """Every item of a package with its data, or what is wrong with it. zipfile compares the checksums."""
    try:
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            names = archive.namelist()
            return {name: archive.read(name) for name in names} if len(names) == len(set(names)) else "a name twice"
    except (zipfile.BadZipFile, zlib.error, EOFError, ValueError, NotImplementedError) as error:
        return f"torn: {error}"


def content(path):
    """What a file holds: a package in its parts, with its mode and extended attributes."""
    if path.is_dir():
        return "a folder"
    if path.suffix != ".tavlox":
        return path.read_bytes()
    kept = {name: os.getxattr(path, name) for name in os.listxattr(path)}
    return parts(path.read_bytes()), {"mode": path.stat().st_mode & 0o7777, **kept}


def make(folder):
    """A small session with two files stored in it, and what the commands above read."""
    noise = random.Random(1)
    (folder / "old/user").mkdir(parents=True)
    (folder / "hot.csv").write_text("time [s],v(out) [V]\n0,0\n0.1,0.5\n")
    (folder / "a.txt").write_bytes(noise.randbytes(3000))
    (folder / "kept.bin").write_bytes(noise.randbytes(70_000) + bytes(70_000))
    undisturbed([PROGRAM, "record", PACKAGE, "hot.csv", "--description", "one description"], folder)
    undisturbed([PROGRAM, "add", PACKAGE, "a.txt", "kept.bin"], folder)
    (folder / "kept.bin").unlink()
    (folder / "a.txt").write_bytes(b"newer than the one in the package\n" * 100)
    (folder / "new.bin").write_bytes(noise.randbytes(40_000) + bytes(40_000))
    (folder / "old/user/a.txt").write_bytes(b"older than the one in the package\n" * 200)
    (folder / PACKAGE).chmod(0o640)
    with contextlib.suppress(OSError):  # Not every file system has them.
        os.setxattr(folder / PACKAGE, "user.note", b"to be kept")
    # As after a clock was set back: a save has to set a stamp that is later all the same.
    os.utime(folder / PACKAGE, (time.time() + 86_400,) * 2)
    return folder


def copied(folder, to):
    shutil.copytree(folder, to, copy_function=shutil.copy2)
    # The program reads a file again that changed a moment ago. Old enough, it makes the same calls in every run.
    time.sleep(0.05)
    return to


def skip_without_strace():
    if shutil.which("strace") and command(["strace", "-o", "/dev/null", "true"], "/").returncode == 0:
        return
    print("skipped: strace is missing, or may not trace here (ptrace)")
    sys.exit(77)
