"""Installs and packs the release build as a user does, and uses what came of it, away from the build."""

import os
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCES = Path(os.environ["TAVLOX_SOURCES"])
TABLE = SOURCES / "examples/rc_filter/nominal.csv"

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(my_host LANGUAGES CXX)
find_package(tavlox 1.0 REQUIRED)
add_executable(host host.cpp)
target_link_libraries(host PRIVATE tavlox::platform)
"""


def run(*words, **options):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{words} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


class Installation(unittest.TestCase):
    def new_folder(self, name):
        folder = Path(tempfile.mkdtemp(prefix=name))
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        return folder

    def setUp(self):
        self.folder = self.new_folder("tavlox sétup ")

    def dev(self, *words, **environment):
        return run("bash", "-c", 'umask 077; exec "$@"', "dev", SOURCES / "dev", *words,
                   env={**os.environ, **environment}, cwd=self.folder)

    def use(self, program, **environment):
        environment = {**os.environ, **environment}
        session = self.folder / "session.tavlox"
        run(program, "record", session, TABLE, "--force", env=environment)
        self.assertIn("NumRuns\t1\n", run(program, "info", session, env=environment))
        # The texts of messages come along, too.
        refused = subprocess.run([program, "info", TABLE], stderr=subprocess.PIPE, text=True, env=environment)
        self.assertIn(f'The file "{TABLE}" cannot be read.', refused.stderr)

    def check_host(self, tree):
        """The README's host, built by CMake and by pkg-config against an installed tree."""
        section = (SOURCES / "README.md").read_text(encoding="utf-8").split("## How a host loads the module")[1]
        (self.folder / "host.cpp").write_text(re.search(r"```cpp\n(.*?)```", section, re.DOTALL)[1])
        (self.folder / "CMakeLists.txt").write_text(PROJECT)
        (self.folder / "build/example").mkdir(parents=True)
        run("cmake", "-S", self.folder, "-B", self.folder / "host", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={tree}")
        run("cmake", "--build", self.folder / "host")
        flags = run("pkg-config", "--cflags", "--libs", "tavlox",
                    env={**os.environ, "PKG_CONFIG_PATH": f"{tree}/share/pkgconfig"})
        run("g++", "-std=c++20", "host.cpp", *shlex.split(flags), f"-Wl,-rpath,{tree}/lib", "-o", "host2",
            cwd=self.folder)
        for host in ("host/host", "host2"):
            run(tree / "bin/tavlox", "record", self.folder / "build/example/rc_filter.tavlox", TABLE, "--force")
            self.assertEqual(run(self.folder / host, cwd=self.folder), "two-stage low-pass\n")

    def test_an_installed_tree_can_be_moved_used_and_taken_out_again(self):
        # As on a new system: a folder that is empty, and was there before.
        (self.folder / "root/usr/share/man").mkdir(parents=True)
        before = set((self.folder / "root").rglob("*"))
        for _ in range(2):
            self.dev("install", "/usr", DESTDIR=f"{self.folder}/root")
        files = [path for path in (self.folder / "root").rglob("*") if path not in before and not path.is_symlink()]
        for path in files:
            wanted = 0o555 if path.is_dir() else 0o444
            self.assertEqual(path.stat().st_mode & wanted, wanted, path)
            if path.is_file():
                self.assertNotIn(os.fsencode(SOURCES), path.read_bytes(), path)
        # What pkg-config says of a letter beyond ASCII, only a shell understands.
        moved = self.new_folder("moved tavlox ") / "tree"
        (self.folder / "root/usr").rename(moved)
        self.use(moved / "bin/tavlox")
        self.check_host(moved)
        package = next((moved / "lib").glob("python3*/dist-packages"))
        run("/usr/bin/python3", "-c", "import tavlox.io; print(tavlox.io.File('session.tavlox').NumRuns)", cwd=self.folder,
            env={"PYTHONPATH": f"{package}"})
        self.assertTrue((package / "tavlox/__pycache__").is_dir())  # not of the installation, but made by it
        moved.rename(self.folder / "root/usr")
        self.dev("uninstall", "/usr", DESTDIR=f"{self.folder}/root")
        left = [path.relative_to(self.folder / "root") for path in (self.folder / "root").rglob("*")]
        self.assertEqual(sorted(map(str, left)), ["usr", "usr/share", "usr/share/man"])

    def test_packages_are_clean_and_hold_all_that_is_used(self):
        self.dev("package", "packages", DEBEMAIL="packager@example.org", DEBFULLNAME="A packager")
        packages = sorted((self.folder / "packages").iterdir())
        # The address is the packager's own.
        run("lintian", "--fail-on", "error,warning", "--suppress-tags",
            "bogus-mail-host,bogus-mail-host-in-debian-changelog", *packages)
        for package in packages:
            run("dpkg-deb", "-x", package, self.folder / "root")
        self.use(self.folder / "root/usr/bin/tavlox", LD_LIBRARY_PATH=f"{self.folder}/root/usr/lib")


if __name__ == "__main__":
    unittest.main()
