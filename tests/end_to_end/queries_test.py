import unittest

from program import CONTENT_TYPES, ProgramTest


class Runs(ProgramTest):
    def test_every_field_of_every_run_in_json(self):
        self.record()
        runs = self.json_of("runs", "s.tavlox")
        self.assertEqual([len(run) for run in runs], [29, 29])
        self.assertEqual([(run["id"], run["Name"], run["StartTime"], run["StopTime"]) for run in runs],
                         [(1, "hot", 0, 0.2), (2, "cold", 0.01, 0.05)])
        self.assertEqual([run["Name"] for run in self.json_of("runs", "s.tavlox", "2", "1")], ["cold", "hot"])

    def test_a_run_is_a_line(self):
        self.record()
        self.assertEqual([line.split("\t")[:5] for line in self.output_of("runs", "s.tavlox").splitlines()],
                         [["1", "hot", "", "0", "0.2"], ["2", "cold", "", "0.01", "0.05"]])

    def test_an_unknown_run_is_told_with_the_runs_there_are_and_the_others_are_answered(self):
        self.record()
        output, errors = self.run_program("runs", "s.tavlox", "7", "2", "--", "-1", exit_code=1)
        self.assertEqual([line.split("\t")[0] for line in output.splitlines()], ["2"])
        lines = errors.splitlines()
        self.assertRegex(lines[0], r"^tavlox: error: .* \[tavlox:general:UnableToReadFile\]$")
        self.assertEqual(lines[1::2], ["  hint: there is no run 7; the file has the runs 1 and 2",
                                       "  hint: there is no run -1; the file has the runs 1 and 2"])
        error = self.error_of("runs", "s.tavlox", "7")
        self.assertEqual((error["arguments"], error["hint"]), ([""], "there is no run 7; the file has the runs 1 and 2"))

    def test_a_package_without_a_session_has_none(self):
        self.write_package("plain.tavlox", {"[Content_Types].xml": CONTENT_TYPES})
        for command in ("runs", "signals"):
            self.assertEqual(self.json_of(command, "plain.tavlox"), [])
            self.assertEqual(self.output_of(command, "plain.tavlox"), "")
        hint = self.error_of("runs", "plain.tavlox", "1")["hint"]
        self.assertEqual(hint, "there is no run 1; the file has no runs")


class Signals(ProgramTest):
    def test_every_field_of_every_signal_in_json(self):
        self.record()
        signals = self.json_of("signals", "s.tavlox")
        self.assertEqual([len(signal) for signal in signals], [19, 19, 19])
        self.assertEqual([(s["Name"], s["StoredUnits"], s["SampleTime"], s["Dimensions"]) for s in signals],
                         [("v(out)", "V", "0.1", 1), ("i(r1)", "A", "0.1", 1), ("v(out)", "V", "variable", 1)])

    def test_a_name_selects_the_signals_of_all_runs(self):
        self.record()
        both = self.json_of("signals", "s.tavlox", "--name", "v(out)")
        self.assertEqual([signal["RootSource"] for signal in both], ["hot.csv", "cold.csv"])

    def test_a_signal_is_a_line(self):
        self.record()
        lines = [line.split("\t") for line in self.output_of("signals", "s.tavlox").splitlines()]
        self.assertEqual([(name, units, kind) for name, _, units, kind, _ in lines],
                         [("v(out)", "V", "double"), ("i(r1)", "A", "double"), ("v(out)", "V", "double")])


if __name__ == "__main__":
    unittest.main()
