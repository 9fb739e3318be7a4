import subprocess

from program import SOURCES, ProgramTest


class Examples(ProgramTest):
    def test_a_session_is_written_from_the_description_of_the_format_alone(self):
        subprocess.run([SOURCES / "examples/write_session/write_session.py", self.folder / "spring.tavlox"], check=True)
        self.assertEqual(self.output_of("check", "spring.tavlox"), "spring.tavlox: sound\n")
        self.assertEqual([run["Name"] for run in self.json_of("runs", "spring.tavlox")], ["light", "strong"])
        signals = self.json_of("signals", "spring.tavlox")
        self.assertEqual([(signal["Name"], signal["Domain"], signal["Complexity"], signal["StoredUnits"])
                          for signal in signals[2:]],
                         [("position", "Signal", "real", "m"), ("velocity", "Signal", "real", "m/s")])
