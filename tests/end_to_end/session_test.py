import datetime
import fcntl
import json
import os
import pty
import shutil
import subprocess
import threading
import xml.etree.ElementTree as ElementTree
from pathlib import Path

from program import COLD, CONTENT_TYPES, HOT, PROGRAM, SOURCES, ProgramTest

NAMES = ["Filename", "Description", "LastModified", "Version", "Compression", "NumRuns", "NumSignals", "ContainsView",
         "ContainsComparison"]
DESCRIPTIONS = ["RC filter, three corners", "", " spaces kept ", "<&>\"'", "two\nlines\twith a tab\r\n",
                "\u00e9 \u03b8 \U0001f600", "-5 degrees", "info", "[draft]", "{}"]


class Life(ProgramTest):
    def test_the_library_that_reads_the_record_is_asked_for_only_then(self):
        libraries = Path(PROGRAM).parent.parent / "lib"
        shutil.copy(libraries / "libcorvan_platform.so.1", self.folder)
        (self.folder / "tavlox").mkdir()
        shutil.copy(libraries / "tavlox/tavlox_io.so", self.folder / "tavlox")
        self.record()
        elsewhere = {"LD_LIBRARY_PATH": str(self.folder)}
        self.run_program("list", "s.tavlox", environment=elsewhere)
        error = self.error_of("compression", "s.tavlox", environment=elsewhere)
        self.assertEqual(error["identifier"], "Corvan:ObjectSystem:CannotLoadModule")
        self.assertEqual(error["arguments"][0], str(self.folder / "tavlox/tavlox_io_json.so"))

    def lines_of(self, *words):
        return [line.split("\t") for line in self.output_of(*words).splitlines()]

    def test_what_is_recorded_is_found_by_another_reader_and_answered(self):
        self.write("hot.csv", HOT)
        os.utime(self.write("cold.csv", COLD), (0, 1763210669))
        recorded = self.output_of("record", "s.tavlox", "hot.csv", "cold.csv", "--description", "two corners")
        self.assertEqual(recorded, "1\thot\t2\t3\t0\t0.2\t0.1\n2\tcold\t1\t3\t0.01\t0.05\tvariable\n")
        parts = self.parts()
        self.assertEqual([parts[f"session/data/{run}.csv"].decode() for run in (1, 2)], [HOT, COLD])
        self.assertEqual(json.loads(parts["session/compression.json"]), {"CompressionType": "normal"})
        self.assertEqual(json.loads(parts["session/runs.json"])[1], {
            "id": 2, "runClassName": "Set", "name": "cold", "runNumber": 2, "dateCreated": "2025-11-15T12:44:29Z",
            "startTime": 0.01, "stopTime": 0.05, "samples": "/session/data/2.csv"})
        self.assertEqual(json.loads(parts["session/signals/2.json"]), [{
            "id": 3, "runID": 2, "name": "v(out)", "units": "V", "displayUnits": "V", "dataTypeLabel": "double",
            "complexity": 0, "dimensions": [1], "sampleTime": "variable", "rootSource": "cold.csv",
            "timeSource": "time [ms]", "dataSource": "v(out) [V]", "column": 2}])
        path = self.folder / "s.tavlox"
        written = datetime.datetime.fromtimestamp(path.stat().st_mtime, datetime.timezone.utc)
        values = [str(path.resolve()), "two corners", written.strftime("%d-%b-%Y %H:%M:%S"), "1.0", "normal", 2, 3, False, False]
        [info] = self.json_of("info", "s.tavlox")
        self.assertEqual(info.pop("LastModifiedUTC")[:19], written.strftime("%Y-%m-%dT%H:%M:%S"))
        self.assertEqual(list(info.items()), list(zip(NAMES, values)))
        shown = [str(value).lower() if isinstance(value, bool) else str(value) for value in values]
        self.assertEqual(self.lines_of("info", "s.tavlox"), [list(pair) for pair in zip(NAMES, shown)])
        self.assertEqual(self.output_of("compression", "s.tavlox"), "normal\n")

        runs = [(len(run), run["id"], run["Name"], run["StopTime"]) for run in self.json_of("runs", "s.tavlox", "2", "1")]
        self.assertEqual(runs, [(32, 2, "cold", 0.05), (32, 1, "hot", 0.2)])
        # The database that the runs are loaded into is a file there.
        temporary = self.folder / "temporary"
        temporary.mkdir()
        self.output_of("runs", "s.tavlox", environment={"TMPDIR": str(temporary)})
        self.assertEqual([path for path in temporary.rglob("*") if path.is_file()], [])
        self.assertEqual(self.lines_of("runs", "s.tavlox"), [["1", "1", "hot", "", "0", "0.2", ""], ["2", "2", "cold", "", "0.01", "0.05", ""]])
        signals = self.json_of("signals", "s.tavlox", "--name", "v(out)")
        self.assertEqual([(len(s), s["RootSource"], s["SampleTime"], s["Dimensions"]) for s in signals],
                         [(22, "hot.csv", "0.1", [1]), (22, "cold.csv", "variable", [1])])
        self.assertEqual([(name, units, kind) for _, _, name, units, kind, _ in self.lines_of("signals", "s.tavlox")],
                         [("v(out)", "V", "double"), ("i(r1)", "A", "double"), ("v(out)", "V", "double")])

    def test_real_results_are_recorded_whole(self):
        tables = sorted((SOURCES / "examples").glob("*/*.csv"))
        self.assertGreaterEqual(len(tables), 3)
        recorded = self.json_of("record", "s.tavlox", *map(str, tables))
        self.assertEqual([run["Name"] for run in recorded["Runs"]], [table.stem for table in tables])
        samples = [data for name, data in self.parts().items() if name.startswith("session/data/")]
        self.assertEqual(samples, [table.read_bytes() for table in tables])
        headings = [heading for table in tables for heading in table.read_text().splitlines()[0].split(",")[1:]]
        self.assertEqual([signal["DataSource"] for signal in self.json_of("signals", "s.tavlox")], headings)

    def test_runs_are_added_from_any_table_and_the_earlier_ones_stay(self):
        self.record(hot=HOT)
        before = self.parts()
        table = "t;v\n0;1,5\n0,1;2\n".encode("utf-16")
        output, errors = self.run_program("record", "s.tavlox", "-", "--append", "--name", "piped", "--set", "solvername=gear",
                                          "--set", "Status=done", "--time-unit", "ms", input=table)
        self.assertEqual(output, "2\tpiped\t1\t2\t0\t0.0001\t0.0001\n")
        self.assertRegex(errors, r'^tavlox: warning: .*"-" .* UTF-16 text, semicolons between cells, decimal commas\..*\n$')
        after = self.parts()
        changed = {"session/runs.json", "[Content_Types].xml", "_rels/.rels"}
        self.assertEqual({name: data for name, data in before.items() if name not in changed},
                         {name: after[name] for name in before if name not in changed})
        self.assertEqual(after["session/data/2.csv"], b"t [ms],v\n0,1.5\n0.1,2\n")
        self.assertEqual([(signal["id"], signal["column"]) for signal in json.loads(after["session/signals/2.json"])], [(3, 2)])
        run = self.json_of("runs", "s.tavlox", "2")[0]
        self.assertEqual([run[key] for key in ("Name", "SolverName", "Status", "RunIndex")], ["piped", "gear", "done", 2])
        self.assertEqual(self.output_of("check", "s.tavlox"), "s.tavlox: sound\n")

    def test_seconds_that_nobody_named_are_told_once(self):
        for name in "ab":
            self.write(name + ".csv", "t,v\n0,1\n")
        _, errors = self.run_program("record", "s.tavlox", "a.csv", "b.csv", "--json")
        self.assertEqual(json.loads(errors)["warning"]["arguments"], ["a.csv, b.csv"])

    def test_a_description_is_read_back_and_changes_nothing_else(self):
        self.record()
        before = self.parts()
        for text in DESCRIPTIONS:
            self.assertEqual(self.output_of("describe", "s.tavlox", "--", text), "")
            self.assertEqual(self.json_of("info", "s.tavlox")[0]["Description"], text)
            after = self.parts()
            root = ElementTree.fromstring(after["docProps/core.xml"])
            self.assertEqual(root.findtext("{http://purl.org/dc/elements/1.1/}description") or "", text)
            changed = {name for name in before.keys() | after.keys() if before.get(name) != after.get(name)}
            self.assertLessEqual(changed, {"docProps/core.xml", "_rels/.rels", "[Content_Types].xml"})

    def test_a_file_that_may_not_be_changed_is_left_alone(self):
        path = self.record()
        before, names = path.read_bytes(), self.names_in_folder()
        for mode, folder_mode, cause in [(0o444, 0o755, "ReadOnly"), (0o666, 0o555, "FolderNotWritable")]:
            path.chmod(mode)
            self.folder.chmod(folder_mode)
            error = self.error_of("describe", "s.tavlox", "changed", is_bound_by_modes=True)
            self.folder.chmod(0o755)
            self.assertEqual(error["identifier"], "tavlox_io:general:UnableToClosePackage")
            self.assertEqual([found["identifier"] for found in error["causes"]], ["opc:save:" + cause])
            self.assertEqual((path.read_bytes(), self.names_in_folder()), (before, names))

    def test_a_save_waits_for_another_program_as_long_as_it_is_told_to(self):
        words = ["describe", "s.tavlox", "text", "--wait"]
        with open(self.record(), "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            for save in (words, ["record", "s.tavlox", self.write("hot.csv", HOT).name, "--force", "--wait"]):
                error = self.error_of(*save, "0.2")
                self.assertIn("opc:save:InUse", [error["identifier"], *(cause["identifier"] for cause in error.get("causes", []))])
            threading.Timer(0.5, fcntl.flock, (file.fileno(), fcntl.LOCK_UN)).start()
            self.output_of(*words, "30")

    def test_a_hard_link_that_a_save_breaks_is_told_once(self):
        (self.folder / "other.tavlox").hardlink_to(self.record())
        for name in "ab":
            self.write(name, name)
        _, errors = self.run_program("add", "s.tavlox", "a", "b", "--json")
        self.assertEqual(json.loads(errors)["warning"]["identifier"], "tavlox:cli:HardLinksKeepOldFile")


class Answers(ProgramTest):
    def test_a_package_without_a_session_has_empty_ones(self):
        self.write_package("plain.tavlox", {"[Content_Types].xml": CONTENT_TYPES})
        [info] = self.json_of("info", "plain.tavlox")
        self.assertEqual([info[name] for name in NAMES[3:]], ["", "", 0, 0, False, False])
        self.assertEqual(self.output_of("compression", "plain.tavlox"), "\n")
        for command in ("runs", "signals"):
            self.assertEqual((self.json_of(command, "plain.tavlox"), self.output_of(command, "plain.tavlox")), ([], ""))
        self.assertEqual(self.error_of("runs", "plain.tavlox", "1")["hint"], "the file has no runs")

    def test_what_a_session_lost_is_told(self):
        self.record()
        output, errors = self.run_program("delete", "s.tavlox", "/session/runs.json", "--force")
        self.assertEqual(output, "/session/runs.json\n")
        self.assertRegex(errors, r"^tavlox: warning: .* /session/runs.json\. .* \[tavlox:cli:SessionPartsRemoved\]\n$")
        for words in ([], ["--name", "v(out)"]):
            output, errors = self.run_program("signals", "s.tavlox", *words)
            self.assertEqual(output, "")
            self.assertRegex(errors, r"^tavlox: warning: .* 3 signals .* \[tavlox:cli:SignalsLeftOut\]\n$")

    def test_one_file_that_fails_does_not_keep_the_others_from_being_answered(self):
        self.record("a.tavlox", hot=HOT)
        self.record("c.tavlox", cold=COLD)
        output, errors = self.run_program("info", "a.tavlox", "b.tavlox", "c.tavlox", exit_code=1)
        self.assertEqual([line.split("\t")[1].rsplit("/")[-1] for line in output.splitlines() if "Filename" in line],
                         ["a.tavlox", "c.tavlox"])
        self.assertEqual(errors, 'tavlox: error: The file "b.tavlox" does not exist. Check the name and the folder. '
                                 "[tavlox:general:FileNotFound]\n")
        self.assertEqual([info["NumSignals"] for info in self.json_of("info", "a.tavlox", "c.tavlox")], [2, 1])

    def test_an_unknown_run_is_told_with_the_runs_there_are_and_the_others_are_answered(self):
        self.record()
        output, errors = self.run_program("runs", "s.tavlox", "7", "2", "--", "-1", exit_code=1)
        self.assertEqual([line.split("\t")[0] for line in output.splitlines()], ["2"])
        lines = errors.splitlines()
        for line, run in zip(lines[::2], ["7", "-1"], strict=True):
            self.assertRegex(line, rf'^tavlox: error: There is no run {run} in "s\.tavlox"\. .* \[tavlox:samples:NoSuchRun\]$')
        self.assertEqual(lines[1::2], ["  hint: the file has the runs 1 and 2"] * 2)
        for count, there_are in [(1, "only the run 1"), (3, "the runs 1, 2 and 3"),
                                 (12, "the runs 1, 2, 3, 4, 5, 6, 7, 8, 9, 10 and 2 more")]:
            self.record(f"{count}.tavlox", **{f"r{run}": COLD for run in range(count)})
            error = self.error_of("runs", f"{count}.tavlox", "99")
            self.assertEqual((error["arguments"], error["hint"]), ([f"{count}.tavlox", "99"], "the file has " + there_are))

    def test_people_get_aligned_columns_and_colours_unless_they_refuse_them(self):
        self.write("hot.csv", HOT)
        shown = {}
        for no_color in ("1", ""):
            ours, theirs = pty.openpty()
            subprocess.run([PROGRAM, "record", "t.tavlox", "hot.csv", "--force"], stdout=theirs, cwd=self.folder,
                           env={**os.environ, "TERM": "xterm", "NO_COLOR": no_color}, timeout=60, check=True)
            os.close(theirs)
            shown[no_color] = os.read(ours, 4096).decode().replace("\r\n", "\n")
            os.close(ours)
        self.assertEqual(shown["1"], "id  Name  NumSignals  NumRows  StartTime  StopTime  SampleTime\n"
                                     "1   hot   2           3        0          0.2       0.1\n")
        self.assertTrue(shown[""].startswith("\x1b[1mid  Name"))
