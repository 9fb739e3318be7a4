"""Runs the built program in a folder of the test's own, and reads the packages it makes with programs that are not ours."""

import json
import os
import resource
import shutil
import subprocess
import tempfile
import unittest
import zipfile
from pathlib import Path

PROGRAM = os.environ["TAVLOX_PROGRAM"]
SOURCES = Path(os.environ["TAVLOX_SOURCES"])

HOT = "time [s],v(out) [V],i(r1) [A]\n0,0,0\n0.1,0.5,1e-3\n0.2,0.75,5e-4\n"
COLD = "time [ms],v(out) [V]\n10,0\n20,1\n50,nan\n"
CONTENT_TYPES = '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types"/>'


class ProgramTest(unittest.TestCase):
    def setUp(self):
        # A path that nobody may split at a space or take for ASCII.
        self.folder = Path(tempfile.mkdtemp(prefix="tavlox tést-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def run_program(self, *words, exit_code=0, **options):
        """What the program says, after a check of its exit code: (standard output, standard error)."""
        environment = {**os.environ, "TZ": "UTC", **options.pop("environment", {})}
        options.setdefault("stdout", subprocess.PIPE)
        # The superuser may read and write everywhere, unless these capabilities are taken away. Another user might not even reach
        # the program, in the superuser's home.
        is_super = options.pop("is_bound_by_modes", False) and os.geteuid() == 0
        before = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if is_super else []
        if largest_file := options.pop("largest_file", None):
            options["preexec_fn"] = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (largest_file, largest_file))
            # What counts branches, in a build that does, could not write the counts whole: they go elsewhere, without a word.
            counts = tempfile.mkdtemp(prefix="tavlox-counts-")
            self.addCleanup(shutil.rmtree, counts, ignore_errors=True)
            environment |= {"GCOV_PREFIX": counts, "GCOV_ERROR_FILE": os.devnull}
        if "input" not in options:
            options["stdin"] = subprocess.DEVNULL
        done = subprocess.run([*before, PROGRAM, *words], stderr=subprocess.PIPE, cwd=self.folder,
                              env=environment, timeout=60, **options)
        said = (done.stdout or b"").decode(), done.stderr.decode()
        self.assertEqual(done.returncode, exit_code, f"{words}: {said}")
        return said

    def output_of(self, *words, **options):
        output, errors = self.run_program(*words, **options)
        self.assertEqual(errors, "")
        return output

    def json_of(self, *words):
        return json.loads(self.output_of(words[0], "--json", *words[1:]))

    def error_of(self, *words, exit_code=1, **options):
        """The object that describes the one error of a run that prints nothing else."""
        output, errors = self.run_program("--json", *words, exit_code=exit_code, **options)
        self.assertEqual(output, "")
        return json.loads(errors)["error"]

    def write(self, name, data):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data.encode() if isinstance(data, str) else data)
        return path

    def record(self, name="s.tavlox", **tables):
        """A session of the tables given, or of a hot and a cold run."""
        tables = tables or {"hot": HOT, "cold": COLD}
        files = [self.write(f"{run}.csv", table).name for run, table in tables.items()]
        self.output_of("record", "--force", "--", name, *files)
        for file in files:
            (self.folder / file).unlink()
        return self.folder / name

    def write_package(self, name, entries):
        with zipfile.ZipFile(self.folder / name, "w") as package:
            for entry, data in entries.items():
                package.writestr(entry, data)

    def parts(self, name="s.tavlox"):
        """Every entry of a package with its data, once unzip and 7z have found all of it sound."""
        for words in (["unzip", "-tqq"], ["7z", "t", "-bso0", "-bsp0"]):
            subprocess.run([*words, self.folder / name], check=True, timeout=60)
        with zipfile.ZipFile(self.folder / name) as package:
            names = package.namelist()
            self.assertEqual(len(names), len(set(names)))
            return {name: package.read(name) for name in names}

    def names_in_folder(self):
        return sorted(path.name for path in self.folder.iterdir())
