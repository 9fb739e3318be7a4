import json

from program import ProgramTest


class Recovery(ProgramTest):
    def test_a_cut_session_is_found_and_rescued(self):
        whole = self.record().read_bytes()
        self.assertEqual(self.output_of("check", "s.tavlox"), "s.tavlox: sound\n")
        self.write("cut.tavlox", whole[: whole.index(b"session/data/2.csv") + 30])
        self.write("none.txt", "no package")
        output, errors = self.run_program("--json", "check", "cut.tavlox", "gone.tavlox", "s.tavlox", exit_code=1)
        self.assertEqual([answer["Sound"] for answer in json.loads(output)], [False, True])
        self.assertEqual(json.loads(errors)["error"]["identifier"], "opc:package:NotFound")
        self.run_program("check", "cut.tavlox", "s.tavlox", exit_code=3)

        rescue = ["--json", "recover", "cut.tavlox", "-o", "new.tavlox"]
        findings = json.loads(self.run_program(*rescue, exit_code=3)[0])["Findings"]
        lost = [finding for finding in findings if finding["Severity"] == "lost"]
        self.assertEqual((lost[0]["Item"], lost[0]["Offset"]), ("session/data/2.csv", whole.index(b"session/data/2.csv") - 30))
        self.assertLess({"session/runs.json", "session/data/1.csv"}, set(self.parts("new.tavlox")))
        self.output_of("check", "new.tavlox")
        self.assertEqual(len(self.output_of("runs", "new.tavlox").splitlines()), 2)
        # The run whose samples are lost has none, and is not given those of another.
        self.assertEqual([run["SamplesPart"] for run in self.json_of("runs", "new.tavlox")], ["/session/data/1.csv", ""])
        error = self.error_of("export", "new.tavlox", "--run", "2")
        self.assertEqual((error["identifier"], error["arguments"][1]), ("samples:session:NoSamples", "2"))

    def test_nothing_is_written_over(self):
        damaged = self.record()
        (self.folder / "link").hardlink_to(damaged)
        self.write("none.txt", "no package")
        before = damaged.read_bytes()
        for words, identifier in [
            (["s.tavlox", "-o", "link", "--force"], "recovery:recover:SameFile"),
            (["s.tavlox", "-o", "none.txt"], "tavlox:recover:OutputExists"),
            (["none.txt", "-o", "s.tavlox", "--force"], "recovery:recover:NothingFound"),
        ]:
            self.assertEqual(self.error_of("recover", *words)["identifier"], identifier)
        self.assertEqual(damaged.read_bytes(), before)
        # What was damaged outside of all data is whole again.
        self.write("s.tavlox", before[:-10])
        self.run_program("recover", "s.tavlox", "-o", "none.txt", "--force", exit_code=0)
