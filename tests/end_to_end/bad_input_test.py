import json
import os
import subprocess
import unittest

from program import CONTENT_TYPES, HOT, PROGRAM, ProgramTest

LINKS = '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">{}</Relationships>'


class BadFiles(ProgramTest):
    def write_bad_files(self):
        """Every file that is to be refused."""
        session = self.record("sound.tavlox").read_bytes()
        files = {"empty": "", "te\txt": "not a package\n" * 100, "truncated": session[:-100],
                 "flipped": session.replace(b"PK\x01\x02", b"PK\x01\x03", 1)}
        packages = {"archive": {"a.txt": "an archive, not a package"}, "broken types": {"[Content_Types].xml": "<Types"},
                    "broken links": {"[Content_Types].xml": CONTENT_TYPES, "_rels/.rels": "<x/>"}}
        for name in files:
            self.write(name, files[name])
        for name in packages:
            self.write_package(name, packages[name])
        (self.folder / "folder").mkdir()
        return ["folder", *files, *packages]

    def test_every_command_refuses_it_untouched_and_says_which_rule_it_breaks(self):
        for name in self.write_bad_files():
            path, names = self.folder / name, self.names_in_folder()
            before = None if path.is_dir() else path.read_bytes()
            # Of a folder these ask the packages in it.
            of_many = [] if path.is_dir() else [["info", name], ["runs", name], ["list", name]]
            for words in (*of_many, ["compression", name], ["describe", name, "text"], ["add", name, "."],
                          ["get", name, "a"], ["delete", name, "a"]):
                with self.subTest(words):
                    error = self.error_of(*words)
                    self.assertEqual(error["identifier"], "tavlox:general:UnableToReadFile")
                    self.assertEqual(error["arguments"], [name])
                    self.assertRegex(error["causes"][0]["identifier"], "^opc:")
                    # A cause without a text in the catalog reads "identifier: arguments".
                    self.assertNotRegex(error["causes"][0]["message"], "^opc:")
            self.assertEqual(None if path.is_dir() else path.read_bytes(), before)
            self.assertEqual(self.names_in_folder(), names)
        self.assertRegex(self.run_program("info", "te\txt", exit_code=1)[1],
                         r'^tavlox: error: The file "te\\txt" cannot be read\. .* \[tavlox:general:UnableToReadFile\]\n'
                         r"  because: .* \[opc:zip:NotAnArchive\]\n$")

    def test_a_missing_file_is_called_missing(self):
        for words in (["info", "no"], ["compression", "no"], ["describe", "no", "text"], ["record", "o.tavlox", "no"],
                      ["signals", "no"], ["add", "no", "no"], ["get", "no", "a"]):
            error = self.error_of(*words)
            self.assertEqual((error["identifier"], error["arguments"]), ("tavlox:general:FileNotFound", ["no"]))
        self.assertIn(f"{self.folder}/~/no", self.error_of("info", "~/no")["hint"])  # a name like any other
        self.record()
        home = {"environment": {"HOME": "/home/ada"}}
        self.assertIn("for was /home/ada/no", self.error_of("get", "s.tavlox", "~/no", **home)["hint"])  # but in searches
        self.write_package("s.tavlox", {"[Content_Types].xml": CONTENT_TYPES})
        self.assertIn("no entries", self.error_of("get", "s.tavlox", "/")["hint"])
        self.record()
        self.assertIn('"/session/runs.json"', self.error_of("get", "s.tavlox", "runs.json")["hint"])

    def test_names_of_megabytes_are_cut_in_errors(self):
        link = f'<Relationship Id="{"n" * 3_000_000}" Type="t" Target="/a"/>'
        self.write_package("s.tavlox", {"[Content_Types].xml": CONTENT_TYPES, "_rels/.rels": LINKS.format(link + link)})
        [rule] = self.error_of("info", "s.tavlox")["causes"]
        self.assertEqual(rule["identifier"], "opc:relationships:DuplicateId")
        self.assertLess(len(json.dumps(rule)), 6_000)

    @unittest.skipIf("TAVLOX_COMPILER" in os.environ, "a sanitizer keeps what was freed")
    def test_texts_of_megabytes_are_held_no_more_often_than_needed(self):
        keys = ["Description", "Tag", "UserID", "MachineName", "Platform", "TaskName", "SolverType", "SolverName", "BrinVersion",
                "ModelVersion", "StopEventSource", "StopEventDescription", "ExecutionErrors", "ExecutionWarnings", "UserString"]
        run = {"id": 1, "metadata": dict.fromkeys(keys, "x" * ((1 << 20) - 100))}
        link = '<Relationship Id="r" Type="ORRASessionRunDataRelType" Target="/session/runs.json"/>'
        self.write_package("s.tavlox", {"[Content_Types].xml": CONTENT_TYPES.replace(
            "/>", '><Default Extension="json" ContentType="application/json"/></Types>'),
            "_rels/.rels": LINKS.format(link), "session/runs.json": json.dumps([run])})
        program = subprocess.Popen([PROGRAM, "runs", "--json", "s.tavlox"], cwd=self.folder, stdout=subprocess.DEVNULL)
        _, code, used = os.wait4(program.pid, 0)
        self.assertEqual(code, 0)
        # As a record and as an answer, in two bytes a letter; and what a build that counts branches takes besides.
        self.assertLess(used.ru_maxrss, 100 << 10)


class BadTables(ProgramTest):
    def test_nothing_is_made_of_one_and_nothing_replaced_unless_asked(self):
        self.write("good.csv", HOT)
        self.write("bad.csv", "time,v\n0,1\n1,2,3\n")
        self.write("old.tavlox", "precious")
        (self.folder / "folder").mkdir()
        (self.folder / "link").symlink_to("good.csv")
        names = self.names_in_folder()
        for words, identifier, arguments in [
                (["new.tavlox", "good.csv", "bad.csv"], "UnevenRow", ["bad.csv", "3", "3", "2"]),
                (["new.tavlox", "folder"], "CannotReadTable", ["folder", "Is a directory"]),
                (["old.tavlox", "good.csv"], "OutputExists", ["old.tavlox"]),
                (["old.tavlox", "good.csv", "--force"], "NotReplaced", ["old.tavlox"]),
                (["new.tavlox", "good.csv", "--append"], "WithoutPackage", ["new.tavlox"]),
                (["new.csv", "good.csv"], "OutputName", ["new.csv"]),
                (["good.csv", "good.csv", "--force"], "OutputIsTable", ["good.csv"]),
                (["link", "good.csv", "--force"], "OutputIsTable", ["link"])]:
            error = self.error_of("record", *words)
            self.assertEqual((error["identifier"], error["arguments"]), ("tavlox:record:" + identifier, arguments))
            self.assertEqual(self.names_in_folder(), names)
            self.assertEqual([(self.folder / name).read_text() for name in ("old.tavlox", "good.csv")], ["precious", HOT])
        self.record("sound.tavlox")
        before = (self.folder / "sound.tavlox").read_bytes()
        self.error_of("record", "sound.tavlox", "good.csv", "bad.csv", "--force")
        self.error_of("record", "sound.tavlox", "good.csv", "bad.csv", "--append")
        self.assertEqual((self.folder / "sound.tavlox").read_bytes(), before)
        self.output_of("record", "sound.tavlox", "good.csv", "--force")
        self.assertEqual(self.json_of("info", "sound.tavlox")[0]["NumRuns"], 1)


class DamagedSessions(ProgramTest):
    def test_the_broken_part_is_named_and_nothing_else_is_said(self):
        self.record()
        entries = self.parts()
        broken = [
            ("info", "session/compression.json", b"{", "tavlox:cli:UnexpectedFailure", "record"),
            ("compression", "session/compression.json", b"[]", "tavlox:cli:UnexpectedFailure", "record"),
            ("info", "session/runs.json", b"[", "simulation_data_repository:sdr:InvalidSessionData", "run list"),
            ("signals", "session/signals/2.json", b"[", "simulation_data_repository:sdr:InvalidSessionData", "signals"),
        ]
        for command, part, data, identifier, reason in broken:
            self.write_package("s.tavlox", {**entries, part: data})
            error = self.error_of(command, "s.tavlox")
            self.assertEqual(error["identifier"], identifier)
            self.assertIn(reason, error["message"])
            self.assertNotIn("..", error["message"])
            self.assertEqual(error.get("part"), "/" + part)


class WrongCommandLines(ProgramTest):
    LINES = [
        ([], "tavlox:cli:NoCommand"),
        *((words, "tavlox:cli:UnknownCommand") for words in (
            ["inof", "s.tavlox"], ["--module=info", "inof"], ["--module", "info", "inof"])),
        (["info", "--verbose", "s.tavlox"], "tavlox:cli:UnknownOption"),
        (["info", "--color", "pink", "s.tavlox"], "tavlox:cli:NotAColourChoice"),
        *((words, "tavlox:cli:WrongCommandLine") for words in (
            ["--verbose"], ["info"], ["add", "s.tavlox"],
            ["get", "s.tavlox", "a", "-o"], ["compression", "s.tavlox", "t.tavlox"],
            ["describe", "s.tavlox"], ["record", "s.tavlox"], ["record", "s.tavlox", "a.csv", "--description"])),
        *((["runs", "s.tavlox", "1", word], "tavlox:cli:NotARunID")
          for word in ("x", "", "2.9", "1e3", " 1", "+1", "2147483648", "99999999999999999999")),
        *((["add", "s.tavlox", "a", "--wait", word], "tavlox:cli:NotSeconds") for word in ("soon", "", "-1", "nan", "1s")),
        *((["record", "s.tavlox", "a.csv", *words], "tavlox:record:" + key) for words, key in (
            (["--set", "Sovername=x"], "NotAKey"), (["--set", "Tag"], "NotASetting"), (["--set", "Tag=a", "--set", "Tag=b"], "KeyTwice"),
            (["--decimal", ";"], "OptionValue"), (["--skip", "x"], "OptionValue"), (["--time-unit", "d"], "OptionValue"),
            (["-", "-"], "StandardInputTwice"), (["b.csv", "--name", "x"], "NameForSeveral"))),
        (["info", b"\xff.tavlox"], "tavlox:cli:IllFormedText"),
    ]

    def test_they_exit_with_2_and_say_why_on_one_line_or_as_one_object(self):
        for words, identifier in self.LINES:
            with self.subTest(words):
                output, errors = self.run_program(*words, exit_code=2)
                self.assertEqual(output, "")
                self.assertRegex(errors, rf"^tavlox: error: .* \[{identifier}\]\n(  hint: .*\n)?$")
                if words:
                    self.assertEqual(self.error_of(*words, exit_code=2)["identifier"], identifier)


    def test_mistyped_words_are_told_with_what_may_be_meant(self):
        self.record()
        self.write("notes.txt", "x")
        self.output_of("add", "s.tavlox", "notes.txt")
        for words, code, meant in (
                (["inof", "s.tavlox"], 2, "info"), (["help", "recrod"], 2, "record"), (["info", "--wid", "s.tavlox"], 2, "--wide"),
                (["list", "s.tavlox", "/user/note.txt"], 0, "/user/notes.txt"),
                (["get", "s.tavlox", "note.txt"], 1, "notes.txt"), (["signals", "s.tavlox", "--name", "v(our)"], 0, "v(out)")):
            output, errors = self.run_program(*words, exit_code=code)
            self.assertEqual(output, "")
            self.assertIn(f'  hint: did you mean "{meant}"?\n', errors)


class Surroundings(ProgramTest):
    def test_help_leads_with_examples(self):
        commands = ["record", "info", "runs", "signals", "compression", "describe", "export", "plot", "report", "compare",
                    "list", "add", "get", "delete", "check", "recover", "index", "search"]
        for words in (["--help"], ["info", "-h"], *([command, "--help"] for command in commands)):
            self.assertEqual(self.output_of(*words).splitlines()[2], "Examples:", words)
        help = self.output_of("--help")
        self.assertEqual([line.split()[0] for line in help.split("Commands:\n")[1].split("\n\n")[0].splitlines()], commands)
        self.assertRegex(self.output_of("--version"), r"^tavlox \d+\.\d+\.\d+\n$")

    def test_words_that_look_like_something_else_are_file_names(self):
        for name in ("info", "[a]", "-x", "{}", "%%"):
            path = self.record("./" + name, hot="t [s],v\n0,1\n")
            self.assertIn(f"{path.resolve()}\n", self.output_of("info", "--", name))

    def test_a_module_that_is_none_is_named(self):
        self.record()
        self.write("not_a_module.so", "text")
        for module in ("missing.so", "not_a_module.so"):
            error = self.error_of("info", "s.tavlox", "--module", f"./{module}")
            self.assertEqual(error["identifier"], "Corvan:ObjectSystem:CannotLoadModule")
            self.assertIn(module, error["message"])

    def test_output_that_cannot_be_written_is_a_failure(self):
        self.record()
        with open("/dev/full", "w") as full:
            error = self.error_of("info", "s.tavlox", stdout=full)
        self.assertEqual(error["identifier"], "tavlox:cli:CannotWriteOutput")
