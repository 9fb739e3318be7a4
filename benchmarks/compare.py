"""Measures tavlox beside what people would use instead, in turns on the same files, and how time grows with the work.

A run of all rows at full size writes what it found into benchmarks/README.md, between two marks, and draws
docs/benchmarks.svg. A new row is one entry of ROWS or GROWTH.
"""
import argparse
import fcntl
import os
import re
import shlex
import shutil
import signal
import statistics
import sys
import time
from dataclasses import astuple, dataclass
from pathlib import Path

import picture
from inputs import Inputs, output_of

SOURCES = Path(__file__).resolve().parents[1]
BEGIN, END = "<!-- measured: begin -->\n", "<!-- measured: end -->\n"
ROUNDS, MOST_ROUNDS, SHORT = 5, 25, 3  # a row goes on for SHORT seconds, until it has had MOST_ROUNDS
TURNS, CALLS = 3, 3  # of growing work: processes of each size, and calls in each
LINEAR = 1.2


@dataclass(frozen=True)
class Row:
    """One work of size `n`, by us and by a peer. The first word of a command is a program of ours, a peer or any other;
    {out} is an empty folder, {base} a small session in it, {kind} what Inputs.make_kind makes of this size. "each"
    before an operation of the program `calls` asks what that takes for one of `n` items."""
    name: str
    work: str
    n: int
    ours: str
    peer: str = ""
    than: str = ""


@dataclass(frozen=True)
class Growth:
    """An operation of the program `calls` on more and more items."""
    name: str
    work: str
    item: str
    operation: str
    sizes: tuple


LIBZIP = "libzip: open and stat of every entry, neither content types nor relationships"
ROWS = [
    Row("start", "`tavlox --version`, start of the program", 1, "tavlox --version"),
    Row("open-10k", "`info` on {n} parts", 10_000, "tavlox info {parts}", "list_entries {parts}", LIBZIP),
    Row("open-100k", "`info` on {n} parts", 100_000, "tavlox info {parts}", "list_entries {parts}", LIBZIP),
    Row("open-utc", "`info` on {n} parts", 100_000, "tavlox info {parts}", "list_entries {parts} utc",
        "libzip as above, told that the time zone is UTC"),
    Row("audit-100k", "`info` on {n} parts", 100_000, "tavlox info {parts}", "list_entries {parts} check",
        "libzip as above, also comparing directory and local headers, as `info` does"),
    Row("list", "`list` of {n} parts with their types", 10_000, "tavlox list {parts}", "python3 -m zipfile -l {parts}",
        "Python's zipfile, names and sizes"),
    Row("properties", "`info` on {n} signals, nine properties", 400_000, "tavlox info {session}",
        "count_signals {session}", "libzip and RapidJSON SAX, counting runs and signals"),
    Row("load", "`runs FILE 1` on {n} signals, loading them", 400_000, "tavlox runs {session} 1",
        "load_into_sqlite {session} {out}/database", "libzip, RapidJSON DOM and inserting the columns into SQLite"),
    Row("signals", "loading and `getAllSignalsInfo`, {n} signals", 100_000, "calls 1 records {session}",
        "python3 {peers}/read_signals.py {session}", "Python's json into a list of dictionaries"),
    Row("records", "`getAllSignalsInfo` alone, {n} signals, for each", 1_000_000, "each records {session}"),
    Row("json", "`signals --json`, {n} signals", 100_000, "tavlox signals {session} --json",
        "python3 {peers}/read_signals.py {session} --json", "Python reading and writing the same JSON"),
    Row("add", "`add` of {n} small files, synced", 10_000, "tavlox add {base} {small}", "zip -qr {base} {small}",
        "`zip -r`, which syncs nothing"),
    Row("add-python", "`add` of {n} small files, synced", 10_000, "tavlox add {base} {small}",
        "python3 -m zipfile -c {out}/small.zip {small}", "Python's zipfile, which syncs nothing"),
    Row("get", "`get` of {n} small files", 10_000, "tavlox get {added} /user -o {out}/get",
        "unzip -q {added} user/* -d {out}/unzip", "`unzip`"),
    Row("get-python", "`get` of {n} small files", 10_000, "tavlox get {added} /user -o {out}/get",
        "python3 -m zipfile -e {added} {out}/zipfile", "Python's zipfile"),
    Row("add-csv", "`add` of {n} MB of CSV, synced", 100, "tavlox add {base} {csv}", "zip -q -6 {out}/csv.zip {csv}",
        "`zip -6`, which syncs nothing"),
    Row("get-csv", "`get` of {n} MB of CSV", 500, "tavlox get {packed} table.csv -o {out}/get",
        "inflate {packed} user/table.csv {out}/table.csv", "the fastest inflater alone (ISA-L)"),
    Row("append", "`add` of 1 MiB to {n} MiB, synced", 1024, "tavlox add {large} {mebibyte}",
        """sh -c 'cp "$0" "$1" && sync "$1"' {large} {out}/copy""", "`cp` and `sync`"),
    Row("index", "`index` of {n} packages of 10 runs and 100 signals", 2000, "tavlox index {nights} -o {out}/index",
        "python3 {peers}/index_sessions.py {nights} {out}/tables", "Python's zipfile, json and sqlite3, the same texts in FTS5"),
    Row("index-apart", "`index` of {n} such packages", 2000, "tavlox index {nights} -o {out}/index",
        """sh -c 'for night in "$1"/*; do "$0" index "$night" -o "$2-${night##* }" --jobs 1 & done; wait' {tavlox} {nights} {out}/index""",
        "as many processes as there are folders, each with an index of its own"),
    Row("index-again", "`index` of {n} such packages again", 2000, "tavlox index {nights} -o {indexed}",
        "tavlox index {nights} -o {out}/index", "the first time"),
    Row("sessions", "`sessions(…).runs().compute()` of {n} such packages", 2000, "python3 {peers}/runs_by_dask.py {nights}",
        "python3 {peers}/runs_by_hand.py {nights}", "the same by `multiprocessing`"),
]
GROWTH = [
    Growth("grow-open", "opening", "part", "properties {thirds}", (10_000, 100_000, 262_142)),
    Growth("grow-properties", "nine properties", "signal", "properties {session}", (10_000, 100_000, 1_000_000)),
    Growth("grow-load", "loading", "signal", "load {session}", (10_000, 100_000, 1_000_000)),
    Growth("grow-records", "`getAllSignalsInfo`", "signal", "records {session}", (10_000, 100_000, 1_000_000)),
    Growth("grow-add", "adding small files", "file", "add {tiny} {small}", (100, 1_000, 10_000)),
    Growth("grow-get", "extracting small files", "file", "get {added}", (100, 1_000, 10_000)),
]


@dataclass
class Figures:
    """Medians of some rounds, or what one round took."""
    cpu: float  # seconds, user and system
    elapsed: float  # seconds
    memory: float  # bytes, at the peak

    @classmethod
    def median(cls, rounds):
        return cls(*map(statistics.median, zip(*map(astuple, rounds))))


class Bench:
    def __init__(self, inputs, scale):
        self.inputs, self.scale = inputs, scale

    def scaled(self, n):
        return max(1, round(n * self.scale))

    def process(self, command, n):
        """One whole process."""
        words = self.inputs.words(command, n)
        if "{out}" in command or "{base}" in command:
            os.sync()  # What the turn before left to be written is not this one's to wait for.
        cpu, elapsed, memory, code = self.inputs.run("measure", *words).split()
        if code != "0":
            sys.exit(f"bench: ended with {code}: {shlex.join(words)}")
        return Figures(float(cpu), float(elapsed), float(memory))

    def calls(self, operation, n, count):
        """Each call of one process, divided by the number of items."""
        lines = self.inputs.run(*self.inputs.words(f"calls {count} {operation}", n)).splitlines()
        return [Figures(*(float(word) / n for word in line.split())) for line in lines]

    def growing(self, growth):
        """Figures of each size. The sizes take turns, so that whatever else the machine does meets all of them."""
        sizes = [*map(self.scaled, growth.sizes)]
        rounds = {n: [] for n in sizes}
        for _ in range(TURNS):
            for n in sizes:
                rounds[n] += self.calls(growth.operation, n, CALLS)
        return [(n, Figures.median(rounds[n])) for n in sizes]

    def row(self, row):
        """Figures of ours and of the peer, or of ours and None."""
        n = self.scaled(row.n)
        if row.ours.startswith("each "):
            return Figures.median(self.calls(row.ours.removeprefix("each "), n, ROUNDS)), None
        commands = [row.ours, row.peer] if row.peer else [row.ours]
        for command in commands:
            self.inputs.words(command, n)  # The time that it takes to make them is not the row's.
        rounds, start = [], time.monotonic()
        while len(rounds) < ROUNDS or (len(rounds) < MOST_ROUNDS and time.monotonic() - start < SHORT):
            rounds.append([self.process(command, n) for command in commands])
        ours, *peer = map(Figures.median, zip(*rounds))
        return ours, peer[0] if peer else None


def seconds(value):
    unit, factor = next((pair for pair in (("s", 1), ("ms", 1e3)) if value * pair[1] >= 1), ("µs", 1e6))
    return f"{value * factor:.{2 if value * factor < 10 else 1 if value * factor < 100 else 0}f} {unit}"


def size(value):
    return f"{value:,.0f} B" if value < 1e5 else f"{value / 1e6:,.{1 if value < 1e7 else 0}f} MB"


def work_of(row, bench):
    return row.work.format(n=f"{bench.scaled(row.n):,}")


def table_of_rows(results, bench):
    lines = ["| work | the peer | ours | peer | ratio | elapsed | memory, ours | peer |",
             "|---|---|--:|--:|--:|--:|--:|--:|"]
    for row, ours, peer in results:
        cells = [work_of(row, bench), row.than or "–", seconds(ours.cpu), "–", "–", "–", size(ours.memory), "–"]
        if peer:
            cells[3:6] = seconds(peer.cpu), f"**{ours.cpu / peer.cpu:.2f}**", f"{ours.elapsed / peer.elapsed:.2f}"
            cells[7] = size(peer.memory)
        lines.append(f"| {' | '.join(cells)} |")
    return "\n".join(lines) + "\n"


def table_of_growth(results):
    lines = ["| work | items | time an item | times the least among fewer | memory an item |", "|---|--:|--:|--:|--:|"]
    for growth, figures in results:
        least = figures[0][1].cpu
        for n, each in figures:
            mark = "" if each.cpu <= LINEAR * least else ": **not linear**"
            lines.append(f"| {growth.work} | {n:,} {growth.item}s | {seconds(each.cpu)} | {each.cpu / least:.2f}{mark} "
                         f"| {size(each.memory)} |")
            least = min(least, each.cpu)
    return "\n".join(lines) + "\n"


def surroundings(inputs):
    """Where it is measured, with the versions of everything that takes part."""
    packages = {"libzip": "libzip4", "RapidJSON": "rapidjson-dev", "SQLite": "libsqlite3-0", "ISA-L": "libisal2",
                "expat": "libexpat1", "simdjson": "libsimdjson-dev", "zip": "zip", "unzip": "unzip",
                "coreutils": "coreutils"}
    versions = [f"{name} {inputs.run('dpkg-query', '-W', '-f', '${source:Upstream-Version}', package)}"
                for name, package in packages.items()]
    compiler = re.search(r"CMAKE_CXX_COMPILER:\w+=(.*)", (inputs.builds / "CMakeCache.txt").read_text())[1]
    processor = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text() + "model name: not known")[1]
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 1e9
    return (f"On {time.strftime('%d %B %Y').lstrip('0')}, with {inputs.run('tavlox', '--version').strip()}, "
            f"{inputs.run(compiler, '--version').splitlines()[0]}, {', '.join(versions)}, "
            f"Python {sys.version.split()[0]}; {processor}, {len(os.sched_getaffinity(0))} cores, {memory:.0f} GB, "
            f"Linux {os.uname().release}, files on {inputs.run('stat', '-f', '-c', '%T', inputs.folder).strip()}.")


def between_marks(document, text):
    """The document with another text between its marks."""
    before, _, rest = document.partition(BEGIN)
    _, mark, after = rest.partition(END)
    if not mark:
        sys.exit(f"bench: the document has lost its marks {BEGIN.strip()} and {END.strip()}")
    return f"{before}{BEGIN}\n{text}\n{END}{after}"


def replace(path, text):
    """Whole or not at all."""
    new = path.with_name(path.name + ".new")
    new.write_text(text, encoding="utf-8")
    os.replace(new, path)


def measure_all(bench, rows, growth):
    results = []
    for row in rows:
        print(f"{work_of(row, bench)} …", file=sys.stderr)
        results.append((row, *bench.row(row)))
    grown = []
    for one in growth:
        print(f"{one.work}, growing …", file=sys.stderr)
        grown.append((one, bench.growing(one)))
    return results, grown


def publish(options, bench, text, results):
    document = between_marks(options.readme.read_text(encoding="utf-8"), text)
    bars = [(work_of(row, bench), row.than, ours.cpu / peer.cpu) for row, ours, peer in results if peer]
    drawn = picture.draw(bars)
    replace(options.readme, document)
    replace(options.picture, drawn)


def run(options, rows, growth):
    """Measures and prints; publishes what a whole run found. What would stop it at the end is looked for first."""
    start, is_whole = time.monotonic(), not options.row and options.scale == 1
    bench = Bench(Inputs(options.builds / "bench-data", options.builds), options.scale)
    with bench.inputs:
        if is_whole:
            between_marks(options.readme.read_text(encoding="utf-8"), "")
        where = surroundings(bench.inputs)
        results, grown = measure_all(bench, rows, growth)
        text = "\n".join([table_of_rows(results, bench)] * bool(results) + [table_of_growth(grown)] * bool(grown))
        text += f"\n{where} All of it took {(time.monotonic() - start) / 60:.1f} minutes.\n"
        if is_whole:
            publish(options, bench, text, results)
        print(text, end="")


def parse(words):
    parser = argparse.ArgumentParser(prog="./dev bench", allow_abbrev=False,
                                     description="Measures tavlox beside what people would use instead.")
    parser.add_argument("row", nargs="*", metavar="ROW", help="only rows with this in their name; only prints them")
    parser.add_argument("--list", action="store_true", help="print the names of the rows")
    parser.add_argument("--scale", type=float, default=1, metavar="TIMES", help="so many times the work; only prints")
    for name, place in (("builds", "build/release"), ("readme", "benchmarks/README.md"),
                        ("picture", "docs/benchmarks.svg")):
        parser.add_argument(f"--{name}", type=Path, default=SOURCES / place, help=argparse.SUPPRESS)
    return parser.parse_args(words)


def main(words, rows=ROWS, growth=GROWTH):
    options = parse(words)
    chosen = [[entry for entry in entries if not options.row or any(name in entry.name for name in options.row)]
              for entries in (rows, growth)]
    if options.list or not any(chosen):
        print(*(entry.name for entry in [*rows, *growth]), sep="\n")
        sys.exit(0 if options.list else "bench: there are only the rows above")
    with open(options.builds / "bench.lock", "w") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            sys.exit("bench: another run is under way; two at a time would measure each other")
        if shutil.disk_usage(options.builds).free < options.scale * 6e9:
            sys.exit(f"bench: {options.builds} needs {options.scale * 6:.1f} GB of free disk for a while")
        run(options, *chosen)


if __name__ == "__main__":
    # Ended from outside, it tidies up as after Ctrl-C.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.default_int_handler)
    try:
        main(sys.argv[1:])
    except KeyboardInterrupt:
        sys.exit("bench: interrupted, nothing was written")
    except OSError as error:
        sys.exit(f"bench: {error}")
