import json
import os
import signal
import sqlite3
import subprocess
import time
import zipfile

from program import COLD, HOT, PROGRAM, ProgramTest


class ManyFiles(ProgramTest):
    def folder_of_sessions(self):
        (self.folder / "nightly/old").mkdir(parents=True)
        for name, tables in [("nightly/a", {"hot": HOT}), ("nightly/b", {"cold": COLD, "hot": HOT}),
                             ("nightly/old/c", {"cold": COLD})]:
            self.record(f"{name}.tavlox", **tables)
        self.write("nightly/damaged.tavlox", b"PK no package")
        self.write("nightly/notes.txt", "no package")

    def test_one_question_to_many_packages(self):
        self.folder_of_sessions()
        a, b, c = (str(self.folder / f"nightly/{name}.tavlox") for name in ("a", "b", "old/c"))
        for jobs in ("1", "3"):
            output, errors = self.run_program("runs", "-r", "nightly", "--json", "--jobs", jobs, exit_code=1)
            self.assertEqual([(run["Filename"], run["RunID"], run["Name"]) for run in json.loads(output)],
                             [(a, 1, "hot"), (b, 1, "cold"), (b, 2, "hot"), (c, 1, "cold")])
            self.assertEqual(list(json.loads(output)[0])[:2], ["Filename", "RunID"])
            self.assertIn("damaged.tavlox", json.loads(errors)["error"]["message"])
        output, _ = self.run_program("signals", "nightly", "--where", "Name like 'v*' and StoredUnits = 'V'", exit_code=1)
        self.assertEqual([line.split("\t")[:2] for line in output.splitlines()], [[a, "1"], [b, "1"], [b, "2"]])
        self.assertEqual([json.loads(self.output_of("info", "--json", a, c))[i]["NumRuns"] for i in (0, 1)], [1, 1])
        self.assertEqual(len(self.output_of("list", a, c).splitlines()), 2 * len(self.output_of("list", a).splitlines()))
        # What stood behind a single file before still does.
        self.assertEqual(self.output_of("runs", b, "2"), self.output_of("runs", b, "--id", "2"))
        self.assertEqual(self.output_of("list", a, "/session/runs.json"),
                         self.output_of("list", a, "--search", "/session/runs.json"))
        (self.folder / "empty").mkdir()
        self.write("begun.sqlite", b"")
        for words, identifier, exit_code in [
                (["runs", "empty"], "tavlox:cli:NoPackages", 1),
                (["runs", "nightly", "--where", "SolverNam = 'x'"], "filter:where:UnknownField", 2),
                (["runs", a, "--jobs", "0"], "tavlox:cli:NotAJobCount", 2),
                (["runs", a, "--id", "x"], "tavlox:cli:NotARunID", 2),
                (["index", "nightly"], "tavlox:index:NoOutput", 2),
                (["search", "none.sqlite"], "tavlox:index:NotFound", 1),
                (["search", "begun.sqlite"], "tavlox:index:NotFound", 1),
                (["search", a], "tavlox:index:NotAnIndex", 1)]:
            self.assertEqual(self.error_of(*words, exit_code=exit_code)["identifier"], identifier)

    def index(self, exit_code=3):
        return list(json.loads(self.run_program("--json", "index", "nightly", "-o", "i.sqlite", exit_code=exit_code)[0])
                    .values())[1:]

    def test_the_life_of_an_index(self):
        self.folder_of_sessions()
        # Older than the clocks of file systems are coarse.
        time.sleep(2.1)
        self.assertEqual(self.index(), [4, 0, 0, 0, 1])
        self.assertEqual(self.index(), [0, 0, 4, 0, 1])
        self.assertEqual([(record["Name"], record["Minimum"], record["Maximum"], record["SampleCount"])
                          for record in self.json_of("search", "i.sqlite", "V(OU", "--where", "Filename like '*/a.tavlox'")],
                         [("v(out)", 0, 0.75, 3)])
        self.assertEqual(self.json_of("search", "i.sqlite", 'no-such "word'), [])
        shown = {json.dumps(run) for run in json.loads(self.run_program("runs", "-r", "nightly", "--json", exit_code=1)[0])}
        self.assertEqual({json.dumps(run) for run in self.json_of("search", "i.sqlite", "--in", "runs")}, shown)
        shown = json.loads(self.run_program("signals", "-r", "nightly", "--json", exit_code=1)[0])
        found = self.json_of("search", "i.sqlite")
        self.assertEqual([{name: record[name] for name in shown[0]} for record in found], shown)
        bad = self.json_of("search", "i.sqlite", "--in", "files", "--where", "Error is not empty")
        self.assertEqual([record["Filename"].rsplit("/")[-1] for record in bad], ["damaged.tavlox"])

        (self.folder / "nightly/old/c.tavlox").unlink()
        (self.folder / "nightly/damaged.tavlox").unlink()
        self.record("nightly/damaged.tavlox", mended=HOT)
        self.assertEqual(self.index(exit_code=0), [0, 1, 2, 1, 0])
        self.assertEqual(self.names_in_folder(), ["i.sqlite", "nightly"])
        with sqlite3.connect(self.folder / "i.sqlite") as database:
            database.execute("INSERT INTO words (words) VALUES ('integrity-check')")
            used = "SELECT text FROM files UNION SELECT text FROM runs UNION SELECT text FROM signals"
            self.assertEqual(database.execute(f"SELECT count(*) FROM texts WHERE row NOT IN ({used})").fetchone(), (0,))
            database.execute("PRAGMA user_version = 7")
        self.assertEqual(self.error_of("index", "nightly", "-o", "i.sqlite")["identifier"], "tavlox:index:OtherVersion")
        # Neither another file nor an index goes for nothing.
        self.assertEqual(self.error_of("index", "nightly", "-o", "nightly/notes.txt")["identifier"], "tavlox:index:NotAnIndex")
        self.assertEqual((self.folder / "nightly/notes.txt").read_text(), "no package")
        (self.folder / "empty").mkdir()
        self.assertEqual(self.error_of("index", "empty", "-o", "new.sqlite")["identifier"], "tavlox:index:NoPackages")
        self.assertFalse((self.folder / "new.sqlite").exists())

    def test_two_indexers_and_one_that_is_killed(self):
        self.folder_of_sessions()
        start = lambda: subprocess.Popen([PROGRAM, "index", "nightly", "-o", "i.sqlite"], cwd=self.folder,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        killed = start()
        time.sleep(0.02)
        os.kill(killed.pid, signal.SIGKILL)
        killed.wait()
        both = [start(), start()]
        self.assertEqual([indexer.wait() for indexer in both], [3, 3])
        self.assertEqual(len(self.json_of("search", "i.sqlite", "--in", "runs")), 4)
        # Whoever is about to write at the very start of an update is waited for.
        with sqlite3.connect(self.folder / "i.sqlite") as other:
            other.execute("BEGIN IMMEDIATE")
            waiting = start()
            time.sleep(0.3)
            self.assertIsNone(waiting.poll())
        self.assertEqual(waiting.wait(), 3)

    def test_damaged_packages_among_many(self):
        (self.folder / "nightly").mkdir()
        self.record("sound.tavlox", hot=HOT)
        self.write("damaged", (self.folder / "sound.tavlox").read_bytes()[:1000])
        names = [f"{number:03}.tavlox" for number in range(1000)]
        for number, name in enumerate(names):
            os.link(self.folder / ("damaged" if number % 10 == 0 else "sound.tavlox"), self.folder / "nightly" / name)
        output, errors = self.run_program("runs", "nightly", exit_code=1)
        sound = [str(self.folder / "nightly" / name) for number, name in enumerate(names) if number % 10]
        self.assertEqual([line.partition("\t")[0] for line in output.splitlines()], sound)
        self.assertEqual(errors.count("tavlox: error: "), 100)
        self.assertEqual(self.index(), [1000, 0, 0, 0, 100])
        self.assertEqual(len(self.json_of("search", "i.sqlite", "--in", "runs")), 900)

    def test_a_package_that_ends_its_process(self):
        """What there is to say of it is more than a file may hold. No other package is lost with it."""
        self.record("sound.tavlox", hot=HOT)
        (self.folder / "nightly").mkdir()
        for name in "abcdefgh":
            os.link(self.folder / "sound.tavlox", self.folder / f"nightly/{name}.tavlox")
        with zipfile.ZipFile(self.folder / "sound.tavlox") as package:
            items = {name: package.read(name) for name in package.namelist()}
        [run] = json.loads(items["session/runs.json"])
        # Not too large for the database of the session: that would be an error like others.
        run["metadata"] = {"Description": "\1" * 300_000}
        described = b"<dc:description>%s</dc:description></cp:coreProperties>" % (b"x" * 2_000_000)
        items["docProps/core.xml"] = items["docProps/core.xml"].replace(b"</cp:coreProperties>", described)
        (self.folder / "nightly/b.tavlox").unlink()
        self.write_package("nightly/b.tavlox", {**items, "session/runs.json": json.dumps([run])})
        sound = [str(self.folder / f"nightly/{name}.tavlox") for name in "acdefgh"]
        for words, filenames in [
                (["runs", "nightly"], lambda: [run["Filename"] for run in json.loads(output)]),
                (["index", "nightly", "-o", "i.sqlite"],
                 lambda: [run["Filename"] for run in self.json_of("search", "i.sqlite", "--in", "runs")])]:
            output, errors = self.run_program("--json", *words, "--jobs", "1", exit_code=1, largest_file=1_500_000)
            self.assertEqual(filenames(), sound)
            error = json.loads(errors.splitlines()[-1])["error"]
            self.assertEqual(error["identifier"].rsplit(":")[-1], "ProcessEnded")
            self.assertTrue(error["arguments"][0].endswith("nightly/b.tavlox"), error)
        [bad] = self.json_of("search", "i.sqlite", "--in", "files", "--where", "Error is not empty")
        self.assertEqual([bad["Filename"], bad["Error"]], [error["arguments"][0], error["identifier"]])
        # Tried again although it did not change.
        self.assertEqual(self.index(exit_code=0)[-1], 0)

    def test_a_disk_that_fills_up(self):
        self.folder_of_sessions()
        for number in range(40):
            os.link(self.folder / "nightly/b.tavlox", self.folder / f"nightly/more {number}.tavlox")
        reached = set()
        for kibibytes in (1, 40, 150, 250):
            said = self.run_program("--json", "index", "nightly", "-o", "i.sqlite", exit_code=1, largest_file=kibibytes << 10)[1]
            for line in said.splitlines():
                self.assertIn(json.loads(line)["error"]["identifier"], ("sqldb:shared:Failed", "tavlox:index:ProcessEnded"))
            with sqlite3.connect(self.folder / "i.sqlite") as database:
                self.assertEqual(database.execute("PRAGMA integrity_check").fetchall(), [("ok",)])
                if not database.execute("SELECT count(*) FROM sqlite_schema").fetchone()[0]:
                    continue
                halves = "SELECT count(*) FROM files WHERE NumSignals != (SELECT count(*) FROM signals WHERE file = files.row)"
                self.assertEqual(database.execute(halves).fetchone(), (0,))
                reached.add(database.execute("SELECT count(*) FROM files").fetchone()[0])
        self.assertTrue(any(0 < count < 44 for count in reached), reached)
        self.assertEqual(sum(self.index()[:3]), 44)
