"""Commands and the files that they are measured on."""
import itertools
import os
import random
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

PEERS = Path(__file__).resolve().parent / "peers"


def output_of(words, **options):
    """What a command prints. Ended with all that it started if we are interrupted meanwhile; its failure ends us."""
    process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                               start_new_session=True, **options)
    try:
        output = process.communicate()[0]
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise
    if process.returncode != 0:
        sys.exit(f"bench: ended with {process.returncode}: {shlex.join(process.args)}")
    return output


class Inputs:
    """The files that are measured on, each made when it is first asked for. On leaving the context all are removed."""

    def __init__(self, folder, builds):
        self.folder, self.builds, self.made, self.count = folder, builds, {}, itertools.count()
        self.out = folder / "out"
        self.environment = {**os.environ, "TMPDIR": str(folder), "LC_ALL": "C.UTF-8",
                            "PYTHONPATH": str(next(builds.glob("lib/python3*/dist-packages"), ""))}

    def __enter__(self):
        shutil.rmtree(self.folder, ignore_errors=True)  # what a killed run left
        self.folder.mkdir()

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def program(self, name):
        if name == "python3":
            return sys.executable
        own = (self.builds / place / name for place in ("bin", "benchmarks"))
        return next((str(path) for path in own if path.is_file()), name)

    def run(self, *words):
        return output_of([self.program(words[0]), *map(str, words[1:])], env=self.environment)

    def words(self, command, n):
        """The command with every file that it names in place and a new output folder."""
        # Of the last one only large files go. A file system without a journal looks at each inode that was freed a
        # minute ago before it takes another: behind 10,000 deleted files, new ones take several times as long.
        for path in (path for path in self.out.rglob("*") if path.is_file() and path.stat().st_size > 1 << 20):
            path.unlink()
        out = self.out = self.folder / f"out-{next(self.count)}"
        out.mkdir()
        made = {"peers": lambda: PEERS, "out": lambda: out, "tavlox": lambda: self.program("tavlox"),
                "base": lambda: shutil.copy(self.file("tiny", 0), out / "base.tavlox"),
                # Another one each time, so that it can be added to the same package.
                "mebibyte": lambda: self.noise(out / f"added-{next(self.count)}.bin", 1)}
        place = lambda match: str(made[match[1]]() if match[1] in made else self.file(match[1], n))
        first, *words = (re.sub(r"\{(\w+)\}", place, word) for word in shlex.split(command))
        return [self.program(first), *words]

    def file(self, kind, n):
        if (kind, n) not in self.made:
            folder = self.folder / f"{kind}-{n}"
            folder.mkdir()
            self.made[kind, n] = getattr(self, f"make_{kind}")(folder, n)
        return self.made[kind, n]

    def make_parts(self, folder, n, every=1):
        self.run("make_packages", "parts", folder / "parts.tavlox", n, every)
        return folder / "parts.tavlox"

    def make_thirds(self, folder, n):
        # Every third is reached by a relationship: more than 100,000 of these are refused.
        return self.make_parts(folder, n, 3)

    def make_session(self, folder, n):
        self.run("make_packages", "session", folder / "session.tavlox", n)
        return folder / "session.tavlox"

    def make_tiny(self, folder, _):
        return self.make_session(folder, 100)

    def make_nights(self, folder, n):
        self.run("make_packages", "nights", folder, n)
        time.sleep(2.1)  # An index reads files again that were as new as its clock is coarse.
        return folder

    def make_indexed(self, folder, n):
        """An index of the nights that is up to date."""
        self.run("tavlox", "index", self.file("nights", n), "-o", folder / "nights.sqlite")
        return folder / "nights.sqlite"

    def make_small(self, folder, n):
        for i in range(n):
            (folder / f"run {i}.csv").write_text(f"time,value\n0,{i}\n")
        return folder

    def make_csv(self, folder, n):
        # Numbers as a simulation writes them. It is one MB repeated, which deflate cannot see: it looks back 32 KiB.
        numbers = random.Random(1)
        lines = (f"{i / 1000:.3f},{numbers.gauss(0, 1):.9g},{numbers.gauss(20, 5):.6f}\n" for i in itertools.count())
        block = "".join(itertools.islice(lines, 33_000)).encode()[:1_000_000]
        with open(folder / "table.csv", "wb") as file:
            file.writelines(itertools.repeat(block, n))
        return folder / "table.csv"

    def noise(self, path, mebibytes):
        block = random.Random(1).randbytes(1 << 20)
        with open(path, "wb") as file:
            file.writelines(itertools.repeat(block, mebibytes))
        return path

    def with_added(self, folder, added):
        package = shutil.copy(self.file("tiny", 0), folder / "package.tavlox")
        self.run("tavlox", "add", package, added)
        return package

    def make_added(self, folder, n):
        return self.with_added(folder, self.file("small", n))

    def make_packed(self, folder, n):
        return self.with_added(folder, self.file("csv", n))

    def make_large(self, folder, n):
        noise = self.noise(folder / "noise.bin", n)
        package = self.with_added(folder, noise)
        noise.unlink()
        return package
