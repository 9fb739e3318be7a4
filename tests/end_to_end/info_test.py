import datetime
import os
import pty
import subprocess
import unittest

from program import COLD, CONTENT_TYPES, HOT, PROGRAM, ProgramTest

NAMES = ["Filename", "Description", "LastModified", "Version", "Compression", "NumRuns", "NumSignals", "ContainsView",
         "ContainsComparison"]


class Info(ProgramTest):
    def test_the_nine_properties_of_a_recorded_session(self):
        path = self.record()
        written = datetime.datetime.fromtimestamp(path.stat().st_mtime, datetime.timezone.utc)
        values = [str(path.resolve()), "", written.strftime("%d-%b-%Y %H:%M:%S"), "1.0", "normal", 2, 3, False, False]
        info = self.json_of("info", "s.tavlox")
        self.assertEqual(list(info.items()), list(zip(NAMES, values)))
        lines = self.output_of("info", "s.tavlox").splitlines()
        shown = [str(value).lower() if isinstance(value, bool) else str(value) for value in values]
        self.assertEqual([line.split("\t") for line in lines], [list(pair) for pair in zip(NAMES, shown)])

    def test_a_package_without_a_session_has_empty_properties(self):
        self.write_package("plain.tavlox", {"[Content_Types].xml": CONTENT_TYPES})
        info = self.json_of("info", "plain.tavlox")
        self.assertEqual([info[name] for name in NAMES[3:]], ["", "", 0, 0, False, False])
        self.assertEqual(self.output_of("compression", "plain.tavlox"), "\n")

    def test_one_file_that_fails_does_not_keep_the_others_from_being_answered(self):
        self.record("a.tavlox", hot=HOT)
        self.record("c.tavlox", cold=COLD)
        output, errors = self.run_program("info", "a.tavlox", "b.tavlox", "c.tavlox", exit_code=1)
        self.assertEqual([line.split("\t")[1].rsplit("/")[-1] for line in output.splitlines() if "Filename" in line],
                         ["a.tavlox", "c.tavlox"])
        self.assertEqual(errors, 'tavlox: error: The file "b.tavlox" does not exist. Check the name and the folder. '
                                 "[tavlox:general:FileNotFound]\n")

    def test_several_files_are_a_list_in_json(self):
        self.record("a.tavlox", hot=HOT)
        self.record("b.tavlox", cold=COLD)
        self.assertEqual([info["NumSignals"] for info in self.json_of("info", "a.tavlox", "b.tavlox")], [2, 1])

    def on_a_terminal(self, **environment):
        ours, theirs = pty.openpty()
        environment = {**{k: v for k, v in os.environ.items() if k != "NO_COLOR"}, **environment}
        done = subprocess.run([PROGRAM, "record", "t.tavlox", "hot.csv", "--force"], stdout=theirs, cwd=self.folder,
                              env=environment, timeout=60)
        os.close(theirs)
        self.assertEqual(done.returncode, 0)
        return os.read(ours, 4096).decode().replace("\r\n", "\n")

    def test_people_get_aligned_columns_and_colours_unless_they_refuse_them(self):
        self.write("hot.csv", HOT)
        plain = self.on_a_terminal(NO_COLOR="1")
        self.assertEqual(plain, "id  Name  NumSignals  NumRows  StartTime  StopTime  SampleTime\n"
                                "1   hot   2           3        0          0.2       0.1\n")
        self.assertIn("\x1b[1m", self.on_a_terminal())


if __name__ == "__main__":
    unittest.main()
