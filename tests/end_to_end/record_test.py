import json
import os
import unittest

from program import COLD, EXAMPLES, HOT, ProgramTest


class Record(ProgramTest):
    def test_a_session_is_read_back_by_another_reader(self):
        self.write("hot.csv", HOT)
        os.utime(self.write("cold.csv", COLD), (0, 1763210669))
        self.output_of("record", "s.tavlox", "hot.csv", "cold.csv", "--description", "two corners")
        parts = self.parts()
        self.assertEqual(parts["session/data/1.csv"].decode(), HOT)
        self.assertEqual(parts["session/data/2.csv"].decode(), COLD)
        self.assertEqual(json.loads(parts["session/compression.json"]), {"CompressionType": "normal"})
        self.assertIn("two corners", parts["docProps/core.xml"].decode())
        runs = json.loads(parts["session/runs.json"])
        self.assertEqual([run["id"] for run in runs], [1, 2])
        self.assertEqual(runs[1], {"id": 2, "runClassName": "Set", "name": "cold", "runNumber": 2,
                                   "dateCreated": "2025-11-15T12:44:29Z", "startTime": 0.01, "stopTime": 0.05})
        signals = [json.loads(parts[f"session/signals/{run}.json"]) for run in (1, 2)]
        self.assertEqual([(s["id"], s["runID"], s["name"], s["units"], s["sampleTime"]) for s in signals[0]],
                         [(1, 1, "v(out)", "V", "0.1"), (2, 1, "i(r1)", "A", "0.1")])
        self.assertEqual(signals[1], [{
            "id": 3, "runID": 2, "name": "v(out)", "units": "V", "displayUnits": "V", "dataTypeLabel": "double",
            "complexity": 0, "dimensions": [1], "sampleTime": "variable", "rootSource": "cold.csv",
            "timeSource": "time [ms]", "dataSource": "v(out) [V]"}])

    def test_real_results_are_recorded_whole(self):
        tables = sorted(EXAMPLES.glob("*/*.csv"))
        self.assertGreaterEqual(len(tables), 3)
        recorded = self.json_of("record", "s.tavlox", *map(str, tables))
        self.assertEqual([run["Name"] for run in recorded["Runs"]], [table.stem for table in tables])
        parts = self.parts()
        for number, table in enumerate(tables, 1):
            self.assertEqual(parts[f"session/data/{number}.csv"], table.read_bytes())
        headings = [heading for table in tables for heading in table.read_text().splitlines()[0].split(",")[1:]]
        self.assertEqual([signal["DataSource"] for signal in self.json_of("signals", "s.tavlox")], headings)

    def test_each_run_is_a_line(self):
        self.write("hot.csv", HOT)
        self.write("one row.v2.csv", "t,v\n5,1\n")
        output = self.output_of("record", "s.tavlox", "hot.csv", "one row.v2.csv")
        self.assertEqual(output, "1\thot\t2\t3\t0\t0.2\t0.1\n2\tone row.v2\t1\t1\t5\t5\t\n")

    def test_a_bad_table_is_named_and_leaves_everything_as_it_was(self):
        self.write("hot.csv", HOT)
        self.write("bad.csv", "time,v\n0,1\n1,2,3\n")
        self.write("s.tavlox", "precious")
        error = self.error_of("record", "s.tavlox", "hot.csv", "bad.csv", "--force")
        self.assertEqual((error["identifier"], error["arguments"]),
                         ("tavlox:record:UnevenRow", ["bad.csv", "3", "3", "2"]))
        self.assertEqual(error["message"], '"bad.csv", line 3, column 3: the row does not have the 2 cells that the heading has.')
        self.assertEqual((self.folder / "s.tavlox").read_text(), "precious")
        self.assertEqual(self.names_in_folder(), ["bad.csv", "hot.csv", "s.tavlox"])

    def test_an_existing_file_is_replaced_only_when_asked(self):
        self.write("hot.csv", HOT)
        self.write("s.tavlox", "precious")
        error = self.error_of("record", "s.tavlox", "hot.csv")
        self.assertEqual(error["identifier"], "tavlox:record:OutputExists")
        self.assertEqual((self.folder / "s.tavlox").read_text(), "precious")
        self.output_of("record", "s.tavlox", "hot.csv", "--force")
        self.assertEqual(self.json_of("info", "s.tavlox")["NumRuns"], 1)
        self.assertEqual(self.names_in_folder(), ["hot.csv", "s.tavlox"])


if __name__ == "__main__":
    unittest.main()
