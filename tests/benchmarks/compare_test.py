"""The driver of the benchmarks, on two commands whose figures are known."""
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

BENCHMARKS = Path(os.environ["TAVLOX_SOURCES"]) / "benchmarks"
sys.path.insert(0, str(BENCHMARKS))
import compare

OLD = f"before\n{compare.BEGIN}old\n{compare.END}after\n"
# Takes its figures from the lines of the file that the command is, and writes down whose turn it was.
MEASURE = '#!/bin/sh\nbasename "$1" >> "$0.turns"; head -n 1 "$1"; sed -i 1d "$1"\n'


class Compare(unittest.TestCase):
    def run_rows(self, folder, ours):
        """What the README is after a run whose own rounds these are."""
        files = {"measure": MEASURE, "measure.turns": "", "ours": ours, "peer": "2 2 1e6 0\n" * 5, "README": OLD}
        (folder / "benchmarks").mkdir(exist_ok=True)
        for name, text in files.items():
            (folder / "benchmarks" / name).write_text(text, encoding="utf-8")
        (folder / "benchmarks/measure").chmod(0o755)
        row = compare.Row("two", "`two` of {n}", 1000, "ours {out}", "peer {out}", "<peer>")
        readme = folder / "benchmarks/README"
        with mock.patch.multiple(compare, SHORT=0, surroundings=lambda _: "Here."):
            compare.main([f"--builds={folder}", f"--readme={readme}", f"--picture={folder}/svg"], [row], [])
        return readme.read_text(encoding="utf-8")

    def test_medians_in_turns_are_published_once_all_is_measured(self):
        with tempfile.TemporaryDirectory() as name:
            with self.assertRaisesRegex(SystemExit, "ended with 9"):
                self.run_rows(Path(name), "1 1 1 0\n" * 4 + "1 1 1 9\n")
            self.assertEqual(Path(name, "benchmarks/README").read_text(encoding="utf-8"), OLD)
            readme = self.run_rows(Path(name), "1 8 9e6 0\n9 1 9e6 0\n3 6 9e6 0\n9 6 9e6 0\n1 6 1e6 0\n")
            self.assertEqual(Path(name, "benchmarks/measure.turns").read_text(), "ours\npeer\n" * 5)
            self.assertIn("| <peer> | 3.00 s | 2.00 s | **1.50** | 3.00 | 9.0 MB | 1.0 MB |", readme)
            self.assertRegex(readme, r"(?s)^before\n<!--((?!old).)*\n<!-- \S+ end -->\nafter\n$")
            self.assertIn("two of 1,000: 1.50 of &lt;peer&gt;", Path(name, "svg").read_text(encoding="utf-8"))
            self.assertFalse(Path(name, "bench-data").exists())

    def test_the_whole_command_is_measured_and_not_what_started_it(self):
        with tempfile.TemporaryDirectory() as name:
            subprocess.run(["c++", "-o", f"{name}/measure", BENCHMARKS / "measure.cpp"], check=True, timeout=60)
            spin = "(i=0; while [ $i -lt 300000 ]; do i=$((i+1)); done; exit 7)"
            cpu, _, memory, code = subprocess.check_output([f"{name}/measure", "sh", "-c", spin]).split()
            self.assertEqual((code, float(cpu) > 0.02, 5e5 < int(memory) < 6e6), (b"7", True, True))


if __name__ == "__main__":
    unittest.main()
