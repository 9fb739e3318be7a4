"""Runs every command of the README and the guide, in the order of the text, and compares what it prints; and makes the
reference and compares that.

As a program it writes what the commands print today into the texts, and the reference: ./dev papers. Look at the
difference before you commit it.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM = Path(os.environ["TAVLOX_PROGRAM"])
SOURCES = Path(os.environ["TAVLOX_SOURCES"])
PAPERS = [SOURCES / "README.md", SOURCES / "docs/guide.md"]
REFERENCE = SOURCES / "docs/reference.md"
# Where there is one: not under the sanitizers.
PACKAGE = next(iter(PROGRAM.parents[1].glob("lib/python3*/dist-packages/tavlox/__init__.py")), None)
if PACKAGE:
    PAPERS.append(SOURCES / "docs/many_sessions.md")  # its commands show what its Python writes

# These set the machine up, or show what a person looks at.
NOT_RUN = re.compile(r"\$ (\./dev|man|sudo|xdg-open|jupyter) ")
# What differs from run to run, and what stands for it in the comparison.
VARYING = [(r"\d\d-[A-Z][a-z]{2}-\d{4} \d\d:\d\d:\d\d", "DATE"), (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(?:\.\d+)?Z", "DATE"),
           (r"\t\d{4,}\t", "\tOFFSET\t"), (r"out of \d+", "out of N")]
HOME = "/home/ada/tavlox"  # where the reader of the texts is said to be

# Runs one piece of Python after the other, all in one namespace, and tells what each prints: JSON in, JSON out.
CONSOLE = """
import contextlib, io, json, sys, traceback
names = {"__name__": "__main__"}
for line in sys.stdin:
    mode, source = json.loads(line)
    with contextlib.redirect_stdout(io.StringIO()) as printed, contextlib.redirect_stderr(printed):
        try:
            exec(compile(source, "text", mode), names)
        except Exception as error:
            print("Traceback (most recent call last):", "  ...", sep="\\n")
            print("".join(traceback.format_exception_only(error)), end="")
    print(json.dumps(printed.getvalue()), flush=True)
"""


def python_path():
    return str(PACKAGE.parents[1]) if PACKAGE else ""


class Reader:
    """A folder like a fresh clone with its release build, in which somebody tries what the texts say."""

    def __init__(self, folder):
        self.folder, self.console = folder, None
        build = PROGRAM.parents[1]
        for name in ("examples", "src", "docs"):
            (folder / name).symlink_to(SOURCES / name)
        (folder / "build").mkdir()
        (folder / "build/release").symlink_to(build)
        self.environment = {
            "PATH": f"{PROGRAM.parent}:/usr/bin:/bin", "HOME": str(folder), "TZ": "UTC", "LC_ALL": "C.UTF-8",
            "PYTHONPATH": python_path(), "PYTHONDONTWRITEBYTECODE": "1", "MPLBACKEND": "agg"}
        # What ./dev run has made before the reader types anything.
        self.answer("mkdir -p build/example && tavlox record build/example/rc_filter.tavlox examples/rc_filter/{nominal,hot,worst_case}.csv && "
                    'tavlox describe build/example/rc_filter.tavlox "Two-stage RC low-pass: in the worst case 2.5 V '
                    'comes 14 us later"')

    def answer(self, command, **options):
        done = subprocess.run(["bash", "-c", command], cwd=self.folder, env=self.environment, text=True, timeout=120,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
        return done.stdout.replace(str(self.folder), HOME)

    def answer_of_python(self, mode, source):
        if self.console is None:
            self.console = subprocess.Popen(["/usr/bin/python3", "-c", CONSOLE], cwd=self.folder, env=self.environment,
                                            text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        print(json.dumps([mode, source]), file=self.console.stdin, flush=True)
        return json.loads(self.console.stdout.readline()).replace(str(self.folder), HOME)

    def close(self):
        if self.console is not None:
            self.console.communicate(timeout=60)
        shutil.rmtree(self.folder)

    def try_block(self, language, block):
        """The block as it should stand there, with today's output."""
        if language in ("python", "pycon") and PACKAGE is None:
            return block
        if language == "python":
            # What it prints stands behind it, and should be nothing.
            return block + self.answer_of_python("exec", block)
        if language == "pycon":
            statements = re.findall(r"^((?:>>> .*\n)(?:\.\.\..*\n)*)((?:(?!>>> ).*\n)*)", block, re.MULTILINE)
            return "".join(
                typed + elided(output, self.answer_of_python("single", re.sub("^.{3} ?", "", typed, flags=re.MULTILINE)))
                for typed, output in statements)
        if language in ("cpp", "cmake", "text"):
            if language != "text":
                (self.folder / {"cpp": "host.cpp", "cmake": "CMakeLists.txt"}[language]).write_text(block)
            return block
        answered = ""
        for command, output in re.findall(r"^(\$ .*(?:\\\n.*)*)\n((?:(?!\$ ).*\n)*)", block, re.MULTILINE):
            if not NOT_RUN.match(command + " "):
                # What a sanitizer watches has to be compiled for it.
                command_line = command[2:].replace("g++", os.environ.get("TAVLOX_COMPILER", "g++"), 1)
                output = elided(output, self.answer(command_line))
            answered += f"{command}\n{output}"
        return answered


def steady(text):
    for pattern, name in VARYING:
        text = re.sub(pattern, name, text)
    return text


def elided(told, output):
    """What the text tells, if that is the output but for lines "..." that stand for any others; else the output.
    Empty lines behind it set commands apart."""
    told, gap = re.fullmatch(r"(.*?)(\n*)", told, re.DOTALL).groups()
    told, gap = (told + "\n", gap[1:]) if told else ("", gap)
    pattern = "".join("(?:.*\n)*?" if line == "...\n" else re.escape(line) for line in steady(told).splitlines(True))
    return (told if re.fullmatch(pattern, steady(output)) else output) + gap


def as_it_should_be(paper):
    """The paper's text with today's answers."""
    reader = Reader(Path(tempfile.mkdtemp(prefix="tavlox paper ")))
    try:
        return re.sub(r"^```(\w*)\n(.*?)^```", lambda block: f"```{block[1]}\n{reader.try_block(block[1], block[2])}```",
                      paper.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    finally:
        reader.close()


def reference():
    return subprocess.run(["/usr/bin/python3", "-B", SOURCES / "docs/make_reference.py", PROGRAM, SOURCES], check=True,
                          env={**os.environ, "PYTHONPATH": python_path()}, capture_output=True, text=True).stdout


class Papers(unittest.TestCase):
    maxDiff = None

    def test_every_command_does_what_the_text_says(self):
        for paper in PAPERS:
            with self.subTest(paper=paper.name):
                self.assertEqual(as_it_should_be(paper), paper.read_text(encoding="utf-8"))

    @unittest.skipIf(PACKAGE is None, "there is no Python package in this build")
    def test_the_reference_is_what_is_registered(self):
        self.assertEqual(reference(), REFERENCE.read_text(encoding="utf-8"))


if __name__ == "__main__":
    if sys.argv[1:] != ["--write"]:
        sys.exit(__doc__)
    for paper in PAPERS:
        paper.write_text(as_it_should_be(paper), encoding="utf-8")
    REFERENCE.write_text(reference(), encoding="utf-8")
