import csv
import fcntl
import io
import json
import os
import pty
import random
import signal
import struct
import subprocess
import termios

from program import COLD, HOT, PROGRAM, ProgramTest

UTF8 = {"LC_ALL": "C.UTF-8"}


class Samples(ProgramTest):
    def rows(self, *words):
        return list(csv.reader(io.StringIO(self.output_of("export", "s.tavlox", *words))))

    def test_what_is_recorded_is_exported_plotted_and_compared(self):
        """A long run with two spikes, and the same run with one of them gone."""
        noise = random.Random(1)
        lines = [f"{i * 1e-4:.4f},{noise.gauss(0, 1):.9g},{i % 2}" for i in range(20_000)]
        lines[7_001] = "0.7001,50.25,0"
        lines[7_002] = "0.7002,-40.5,1"
        table = "\n".join(["time [s],v(out) [V],n", *lines, ""])
        self.record(long=table)
        self.assertEqual(self.output_of("export", "s.tavlox"), table)
        # A table that was exported is recorded again as the same signals.
        self.output_of("export", "s.tavlox", "-o", "again.csv")
        self.output_of("record", "again.tavlox", "again.csv")
        self.run_program("compare", "s.tavlox", "again.tavlox")

        plot = self.output_of("plot", "s.tavlox", "--signal", "v*", environment=UTF8)
        self.assertIn("long: v(out) [V]  min -40.5 at 0.7002 s, max 50.25 at 0.7001 s, 20000 samples\n", plot)
        # Both spikes, a little right of a third of the width, from the top of the plot to its bottom.
        shown = [line.split("\u2502")[1] for line in plot.splitlines() if "\u2502" in line]
        self.assertEqual({len(line) for line in shown}, {68})
        self.assertTrue(set("".join(shown)) <= {chr(0x2800 + dots) for dots in range(256)})
        self.assertTrue(all(line[23] != "\u2800" for line in shown))
        self.assertEqual(shown[0].strip("\u2800"), shown[0][23])
        statistics = self.json_of("plot", "s.tavlox", "--signal", "v*")
        self.assertEqual((statistics[0]["Maximum"], statistics[0]["MinimumTime"]), (50.25, 0.7002))

        self.write("lost.csv", table.replace("0.7001,50.25,0", "0.7001,0,0"))
        self.output_of("record", "lost.tavlox", "lost.csv")
        output, _ = self.run_program("compare", "s.tavlox", "lost.tavlox", "--abs", "1", exit_code=3)
        self.assertEqual(output, "1\tn\tequal\t0\t0\t0\t0\t0\n1\tv(out)\tdifferent\t50.25\t0.7001\t50.25\t0\t50.25\n")
        self.write("limits", "# of the second\n*\tabs=1\nv(out) rel=1e-9 abs=50.25\n")
        answer = self.json_of("compare", "s.tavlox", "lost.tavlox", "--tolerances", "limits")
        self.assertEqual([signal["Tolerance"]["Rel"] for signal in answer["Runs"][0]["Signals"]], [0, 1e-9])
        self.assertTrue(answer["Equal"])
        self.write("limits", "v(out) abs=-1\n")
        self.assertEqual(self.error_of("compare", "s.tavlox", "lost.tavlox", "--tolerances", "limits")["arguments"][1:],
                         ["1", "abs=-1"])
        self.assertTrue(self.output_of("report", "s.tavlox", "-o", "s.html").endswith("/s.html\n"))
        self.run_program("delete", "s.tavlox", "/session/data", "--force")
        self.assertEqual(self.error_of("plot", "s.tavlox")["identifier"], "tavlox:samples:NoneRecorded")

    def test_runs_are_joined_only_as_one_says(self):
        self.record()
        self.assertEqual(self.error_of("export", "s.tavlox")["identifier"], "tavlox:export:OtherTimes")
        self.assertEqual(self.rows("--run", "2"), [line.split(",") for line in COLD.splitlines()])
        joined = ["time [s]", "hot: v(out) [V]", "hot: i(r1) [A]", "cold: v(out) [V]"]
        headings, *rows = self.rows("--grid", "union", "--to", "0.03")
        self.assertEqual(headings, joined)
        self.assertEqual([[f"{float(cell):.9g}" for cell in row] for row in rows],
                         [["0", "0", "0", "nan"], ["0.01", "0.05", "0.0001", "0"], ["0.02", "0.1", "0.0002", "1"]])
        self.assertEqual(self.rows("--step", "0.1", "--signal", "*out*"),
                         [[joined[0], joined[1], joined[3]], ["0", "0", "nan"], ["0.1", "0.5", "nan"], ["0.2", "0.75", "nan"]])
        lines = self.output_of("export", "s.tavlox", "--json", "--long", "--from", "0.05").splitlines()
        self.assertEqual([list(json.loads(line).values()) for line in lines],
                         [[1, 0.1, "v(out) [V]", 0.5], [1, 0.1, "i(r1) [A]", 1e-3], [1, 0.2, "v(out) [V]", 0.75],
                          [1, 0.2, "i(r1) [A]", 5e-4], [2, 0.05, "v(out) [V]", None]])
        for words, identifier, exit_code in [
                (["--run", "9"], "tavlox:samples:NoSuchRun", 1), (["--signal", "x*"], "tavlox:samples:NoSuchSignal", 1),
                (["--from", "soon"], "tavlox:cli:NotANumber", 2), (["--grid", "step"], "tavlox:export:StepMissing", 2),
                (["-o", "s.tavlox", "--force"], "tavlox:cli:OutputIsFile", 1),
                (["-o", "/dev/null", "--run", "1", "--force"], "tavlox:cli:OutputNotAFile", 1),
                (["-o", "limits", "--run", "1"], "tavlox:cli:OutputFileExists", 1)]:
            self.write("limits", "kept")
            error = self.error_of("export", "s.tavlox", *words, exit_code=exit_code)
            self.assertEqual((error["identifier"], (self.folder / "limits").read_text()), (identifier, "kept"))
        reader, writer = os.pipe()
        os.close(reader)
        done = subprocess.run([PROGRAM, "export", "s.tavlox", "--run", "1"], cwd=self.folder, stdout=writer, stderr=subprocess.PIPE, timeout=60)
        os.close(writer)
        self.assertEqual((done.returncode, done.stderr), (-signal.SIGPIPE, b""))
        self.output_of("export", "s.tavlox", "--run", "1", "-o", "limits", "--force")
        self.assertEqual((self.folder / "limits").read_text(), HOT)
        self.output_of("record", "s.tavlox", "-", "--append", "--name", "hot", input=HOT.encode())
        self.assertEqual(self.rows("--run", "1", "--run", "3", "--signal", "v*")[0],
                         ["time [s]", "hot (run 1): v(out) [V]", "hot (run 3): v(out) [V]"])

    def test_runs_signals_and_samples_can_be_joined(self):
        self.record()
        runs = {run["RunID"]: run for run in self.json_of("runs", "s.tavlox")}
        places = [(s["RunID"], s["SamplesPart"], s["SamplesColumn"]) for s in self.json_of("signals", "s.tavlox")]
        self.assertEqual(places, [(1, "/session/data/1.csv", 2), (1, "/session/data/1.csv", 3), (2, "/session/data/2.csv", 2)])
        self.assertEqual([runs[run]["SamplesPart"] for run, *_ in places], [part for _, part, _ in places])
        named = self.json_of("signals", "s.tavlox", "--name", "v(out)")
        self.assertEqual([(signal["RunID"], signal["SamplesColumn"]) for signal in named], [(1, 2), (2, 2)])
        for part, table in [("/session/data/1.csv", HOT), ("/session/data/2.csv", COLD)]:
            self.assertEqual(self.output_of("get", "s.tavlox", part, "-o", "-"), table)
        error = self.error_of("get", "s.tavlox", "/session/data", "-o", "-")
        self.assertEqual((error["identifier"], error["arguments"][1]), ("tavlox:get:OneEntryOnly", "2"))
        old = os.umask(0o027)
        self.addCleanup(os.umask, old)
        written = self.output_of("get", "s.tavlox", "/session/data/2.csv", "/session/runs.json", "-o", "out").splitlines()
        self.assertEqual([path.rsplit("/out/")[1] for path in written], ["session/data/2.csv", "session/runs.json"])
        modes = [(self.folder / "out" / path).stat().st_mode & 0o777 for path in ("", "session", "session/data", "session/data/2.csv")]
        self.assertEqual(modes, [0o750, 0o750, 0o750, 0o640])

    def test_differences_that_are_no_values_are_told(self):
        self.record("a.tavlox", hot=HOT, cold=COLD)
        self.record("b.tavlox", hot=HOT.replace("[A]", "[mA]"), warm=COLD)
        output, _ = self.run_program("compare", "a.tavlox", "b.tavlox", exit_code=3)
        self.assertEqual([line.split("\t")[:3] for line in output.splitlines()],
                         [["2", "", "run only in A"], ["2", "", "run only in B"], ["1", "i(r1)", "other units"],
                          ["1", "v(out)", "equal"]])
        self.output_of("compare", "a.tavlox", "b.tavlox", "--run", "2")
        output, _ = self.run_program("compare", "a.tavlox", "b.tavlox", "--run", "1:2", "--signal", "v*", exit_code=3)
        self.assertEqual(output.splitlines()[-1].split("\t")[2], "other span")

    def test_curves_of_one_plot_are_told_apart(self):
        self.record(up="t [s],v [V],i [A]\n0,0,5\n1,1,5\n2,2,5\n", down="t [s],v [V]\n1,2\n3,0\n", copy="t [s],v [V]\n1,2\n3,0\n")
        plots = self.output_of("plot", "s.tavlox", environment=UTF8).split("\n\n")
        self.assertEqual([len(plots), plots[1].startswith("up: i [A]  min 5 at 0 s")], [2, True])
        title, *legend = plots[0].splitlines()[:4]
        self.assertEqual([title, *(line.split("  min")[0] for line in legend)], ["v [V]", "  * up", "  + down", "  o copy"])
        shown = [line.split("|")[1] for line in plots[0].splitlines() if "|" in line]
        # One axis of times: what goes up ends at two thirds, what goes down begins at one third; two that are equal take turns.
        self.assertEqual([shown[0].rindex("*"), shown[-1].index("*"), "*" in shown[0][48:]], [45, 0, False])
        self.assertEqual({min(line.find(mark) for line in shown if mark in line) for mark in "+o"}, {22, 23})
        by = lambda how: [plot.splitlines()[0] for plot in self.output_of("plot", "s.tavlox", "--by", how, environment=UTF8).split("\n\n")]
        self.assertEqual(by("unit"), ["V", by("curve")[1]])
        self.assertEqual([line.split("  min")[0] for line in by("curve")], ["up: v [V]", "up: i [A]", "down: v [V]", "copy: v [V]"])
        coloured = self.output_of("plot", "s.tavlox", "--color", "always", environment=UTF8)
        self.assertIn("\x1b[31m\u2501\u2501\x1b[0m down", coloured)
        self.assertRegex(coloured, "\u2502.*\x1b\\[3[12]m[\u2801-\u28ff]")
        self.assertEqual(self.error_of("plot", "s.tavlox", "--by", "colour", exit_code=2)["identifier"], "tavlox:plot:UnknownGrouping")

    def test_a_plot_fits_the_terminal_and_what_it_can_show(self):
        self.record()
        for environment, blank, words in [(UTF8, "\u2800", []), (UTF8, " ", ["--ascii"]), ({"LC_ALL": "C"}, " ", [])]:
            ours, theirs = pty.openpty()
            fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 50, 60, 0, 0))
            subprocess.run([PROGRAM, "plot", "s.tavlox", "--run", "2", *words], stdout=theirs, cwd=self.folder, timeout=60,
                           check=True, env={**os.environ, **environment, "NO_COLOR": "1"})
            os.close(theirs)
            lines = os.read(ours, 65536).decode().splitlines()
            os.close(ours)
            self.assertEqual({len(line) for line in lines[1:-1]}, {60})
            self.assertIn(blank * 2, lines[2])
            self.assertNotIn("\x1b", "".join(lines))
            self.assertEqual(all(ord(letter) < 128 for letter in "".join(lines)), blank == " ")
