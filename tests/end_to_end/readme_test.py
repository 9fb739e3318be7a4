import os
import re
import subprocess

from program import PROGRAM, SOURCES, ProgramTest


class Readme(ProgramTest):
    def test_its_host_compiles_and_prints_what_it_says(self):
        section = (SOURCES / "README.md").read_text(encoding="utf-8").split("## How a host loads the module")[1]
        code = re.search(r"```cpp\n(.*?)```", section, re.DOTALL)[1]
        command, output = re.search(r"```\n\$ (.*?)\n(.*?)```", section, re.DOTALL).groups()
        # The example runs in a fresh clone; here the build may lie elsewhere, so its paths are links.
        self.write("host.cpp", code)
        (self.folder / "src").symlink_to(SOURCES / "src")
        (self.folder / "build/example").mkdir(parents=True)
        (self.folder / "build/release").symlink_to(SOURCES.joinpath(PROGRAM).parents[1])
        self.record("build/example/rc_filter.tavlox")
        # What a sanitizer watches has to be compiled for it.
        command = command.replace("g++", os.environ.get("TAVLOX_COMPILER", "g++"), 1)
        done = subprocess.run(command, shell=True, cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=120, text=True)
        self.assertEqual((done.stdout, done.returncode), (output, 0))

    def test_a_session_is_written_from_the_description_of_the_format_alone(self):
        subprocess.run([SOURCES / "examples/write_session/write_session.py", self.folder / "spring.tavlox"], check=True)
        self.assertEqual(self.output_of("check", "spring.tavlox"), "spring.tavlox: sound\n")
        self.assertEqual([run["Name"] for run in self.json_of("runs", "spring.tavlox")], ["light", "strong"])
        signals = self.json_of("signals", "spring.tavlox")
        self.assertEqual([(signal["Name"], signal["Domain"], signal["Complexity"], signal["StoredUnits"])
                          for signal in signals[2:]],
                         [("position", "Signal", "real", "m"), ("velocity", "Signal", "real", "m/s")])
