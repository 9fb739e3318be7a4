import json
import os
import signal
import subprocess
import urllib.parse
import zipfile
from pathlib import Path

from program import PROGRAM, ProgramTest

ODD_NAMES = ["my run (1).csv", "Gr\u00f6\u00dfe.csv", "100%.txt", "a#b.csv", "\u65e5\u672c.dat", "tab\there.txt",
             "two\nlines", "-dash", "[1].txt", "%41.txt", "a&b<c>'d\".txt", "no extension"]


class UserFiles(ProgramTest):
    def setUp(self):
        super().setUp()
        self.record()

    def add(self, name, data, *options):
        self.write(name, data)
        return self.json_of("add", "s.tavlox", name, *options)["Added"]

    def entry_data(self, name):
        """The data of an entry, which zipfile knows under its percent-encoded name."""
        found = [data for entry, data in self.parts().items() if "/" + urllib.parse.unquote(entry) == name]
        self.assertEqual(len(found), 1, f"{name}: {list(self.parts())}")
        return found[0]

    def listed(self, *search):
        return [entry["FullPath"] for entry in self.json_of("list", "s.tavlox", *search)]

    def assert_refused(self, identifier, *words):
        """A run that fails, names why, and leaves the package and the folder as they were; gives the arguments."""
        before, names = (self.folder / "s.tavlox").read_bytes(), self.names_in_folder()
        error = self.error_of(*words)
        self.assertEqual(error["identifier"], identifier, words)
        self.assertEqual(((self.folder / "s.tavlox").read_bytes(), self.names_in_folder()), (before, names))
        return error["arguments"]


class RoundTrip(UserFiles):
    def test_odd_names_go_in_show_and_come_out_unchanged(self):
        session = self.parts()
        for number, name in enumerate(ODD_NAMES):
            data, entry, words = f"{number}: {name}".encode() * 1000, "/user/" + name, ["s.tavlox", "--", name]
            self.write(name, data)
            self.assertEqual(self.json_of("add", *words)["Added"], [entry])
            self.assertEqual(self.listed(entry), [entry])
            self.assertEqual(self.entry_data(entry), data)
            copy = self.folder / "out" / name
            self.assertEqual(self.json_of("get", "-o", "out", *words)["Written"], [str(copy.resolve())])
            self.assertEqual(copy.read_bytes(), data)
            self.assertEqual(self.json_of("delete", *words)["Removed"], [entry])
            self.assertNotIn(entry, self.listed("/"))
        data_of = [{name: data for name, data in parts.items() if name.startswith(("session/", "user/"))}
                   for parts in (session, self.parts())]
        self.assertEqual(*data_of)

    def test_people_get_a_line_for_each_entry_with_its_name_escaped(self):
        self.write("two\nlines.txt", "x")
        for words, line in [(["add", "two\nlines.txt"], r"^/user/two\\nlines.txt\n$"),
                            (["list", "/user"], r"^/user/two\\nlines.txt\ttwo\\nlines.txt\ttxt\n$"),
                            (["get", "two\nlines.txt", "-o", "out"], r"^/.*/out/two\\nlines.txt\n$"),
                            (["delete", "/user"], r"^/user/two\\nlines.txt\n$")]:
            self.assertRegex(self.output_of(words[0], "s.tavlox", *words[1:]), line)

    def test_a_folder_is_stored_flat_and_extracted_below_its_path(self):
        for name in ("a.png", "b", "sub/c"):
            self.write(f"plots/{name}", f"this is {name}")
        (self.folder / "plots" / "link").symlink_to("b")
        os.mkfifo(self.folder / "plots" / "pipe")
        added = self.json_of("add", "s.tavlox", "plots", "--path", "/user/p")["Added"]
        self.assertEqual(sorted(added), ["/user/p/a.png", "/user/p/b", "/user/p/link"])
        self.assertEqual(sorted(self.listed("/user/")), sorted(added))
        self.assertEqual(self.entry_data("/user/p/link"), b"this is b")
        self.json_of("get", "s.tavlox", "/user/p", "--output", "out")
        self.assertEqual((self.folder / "out/user/p/a.png").read_text(), "this is a.png")
        self.json_of("get", "s.tavlox", "a.png")
        self.assertEqual((self.folder / "p/a.png").read_text(), "this is a.png")

    def test_searches_differ_between_list_get_and_delete(self):
        self.add("runs.json", "mine")
        self.assertEqual(sorted(self.listed("runs.json")), ["/session/runs.json", "/user/runs.json"])
        self.assertEqual(len(self.json_of("get", "s.tavlox", "runs.json", "-o", "out")["Written"]), 1)
        self.assertEqual(self.json_of("delete", "s.tavlox", "runs.json")["Removed"], ["/user/runs.json"])
        self.assertIn("[tavlox:cli:NothingMatches]", self.run_program("list", "s.tavlox", "nothing")[1])
        for command in ("get", "delete"):
            for search, identifier in [("nothing", "EntryDoesNotExist"), ("*", "EntryDoesNotExist"),
                                       ("/user/no", "EntryDoesNotExist"), ("user/a.txt", "UnsupportedSearch")]:
                self.assert_refused("tavlox_io:general:" + identifier, command, "s.tavlox", search)


class Add(UserFiles):
    def test_replacing_has_to_be_asked_for(self):
        self.add("a.txt", "old")
        self.write("a.txt", "new")
        self.assertEqual(self.assert_refused("tavlox_io:general:CannotAddEntry", "add", "s.tavlox", "a.txt")[0], "a.txt")
        self.assertEqual(self.json_of("add", "s.tavlox", "a.txt", "--replace")["Added"], ["/user/a.txt"])
        self.assertEqual(self.entry_data("/user/a.txt"), b"new")

    def test_paths_that_store_nothing_are_errors_before_anything_is_stored(self):
        self.write("good.txt", "good")
        (self.folder / "empty").mkdir()
        (self.folder / "folders only" / "sub").mkdir(parents=True)
        os.mkfifo(self.folder / "pipe")
        for path, identifier in [("missing", "tavlox:general:FileNotFound"), ("", "tavlox:general:FileNotFound"),
                                 ("empty", "tavlox:cli:NoFilesInFolder"), ("folders only", "tavlox:cli:NoFilesInFolder"), ("pipe", "tavlox:cli:NeitherFileNorFolder")]:
            self.assertEqual(self.assert_refused(identifier, "add", "s.tavlox", "good.txt", path), [path])

    def test_files_that_cannot_be_read_are_named_and_the_others_stored(self):
        self.write("plots/a.png", "a")
        self.write("plots/b", "b")
        self.write("c", "c")
        for link, target in [("plots/nowhere", "nothing"), ("plots/folder", "."), ("dangling", "nothing")]:
            (self.folder / link).symlink_to(target)
        Path(os.fsdecode(os.fsencode(self.folder) + b"/plots/not utf-8 \xff")).touch()
        for secret in ("plots/a secret", "plots/another"):
            self.write(secret, "x").chmod(0)
        for options in ([], ["--replace"]):
            output, errors = self.run_program("add", "--json", "s.tavlox", "plots", "dangling", "c", *options, exit_code=1,
                                              is_bound_by_modes=True)
            self.assertEqual(sorted(json.loads(output)["Added"]), ["/user/a.png", "/user/b", "/user/c"])
            named = [json.loads(line)["error"]["arguments"][0] for line in errors.splitlines()]
            self.assertEqual(sorted(Path(name).name for name in named),
                             ["a secret", "another", "dangling", "folder", "nowhere", "plots"])
        self.assertEqual(self.entry_data("/user/a.png"), b"a")
        error = self.run_program("add", "s.tavlox", "plots", exit_code=1)[1]
        self.assertRegex(error, r'"(a\.png|b)" cannot be stored .* \[tavlox_io:general:CannotAddEntry\]')

    def test_files_that_break_off_while_they_are_read_are_named_and_the_others_stored(self):
        for link in ("alone", "plots/broken", "plots/worse"):
            self.write(link, "")
            (self.folder / link).unlink()
            (self.folder / link).symlink_to("/proc/self/mem")  # can be opened, and cannot be read from its start
        for data, options in (("old", []), ("new", ["--replace"])):
            for name in ("a", "plots/b", "plots/y", "z"):
                self.write(name, data)
            output, errors = self.run_program("add", "--json", "s.tavlox", "alone", "a", "plots", "z", *options, exit_code=1)
            self.assertEqual(sorted(json.loads(output)["Added"]), ["/user/a", "/user/b", "/user/y", "/user/z"])
            named = [(error["identifier"], error["arguments"][1]) for error in
                     (json.loads(line)["error"] for line in errors.splitlines())]
            self.assertEqual(sorted(named), [("opc:stream:CannotRead", name) for name in ("alone", "plots/broken", "plots/worse")])
            self.assertEqual([self.entry_data(f"/user/{name}") for name in "abyz"], [data.encode()] * 4)
            if not options:
                self.add("broken", "old")
        self.assertEqual(self.entry_data("/user/broken"), b"old")

    def test_what_was_stored_before_an_error_is_said(self):
        for name in ("a/1.txt", "2.txt", "1.txt", "3.txt"):
            self.write(name, name)
        words = ["add", "s.tavlox", "2.txt", "a/1.txt", "1.txt", "3.txt"]
        output, errors = self.run_program(*words, exit_code=1)
        self.assertEqual(output, "/user/2.txt\n/user/1.txt\n")
        self.assertRegex(errors, r"\[tavlox_io:general:CannotAddEntry\]\n(  because: .*\n)*  hint: the 2 paths before it are stored\n$")
        self.assertEqual(self.listed("/user"), ["/user/2.txt", "/user/1.txt"])
        self.assertEqual(self.entry_data("/user/1.txt"), b"a/1.txt")


class Get(UserFiles):
    def setUp(self):
        super().setUp()
        self.add("a.txt", "from the package")
        self.add("a.txt", "from the package", "--path", "/user/sub")

    def test_nothing_is_overwritten_unless_forced(self):
        self.write("a.txt", "precious")
        refused = self.assert_refused("tavlox:cli:OutputExists", "get", "s.tavlox", "a.txt")
        self.assertEqual(refused, [str(self.folder / "a.txt")])
        self.assertEqual((self.folder / "a.txt").read_text(), "precious")
        self.assertEqual(len(self.json_of("get", "s.tavlox", "a.txt", "--force")["Written"]), 2)
        self.assertEqual((self.folder / "a.txt").read_text(), "from the package")

    def test_links_are_followed_to_the_output_folder_but_not_below_it(self):
        (self.folder / "elsewhere").mkdir()
        (self.folder / "out").symlink_to("elsewhere")
        self.json_of("get", "s.tavlox", "a.txt", "-o", "out")
        self.assertEqual((self.folder / "elsewhere/sub/a.txt").read_text(), "from the package")
        (self.folder / "user").symlink_to("elsewhere")
        (self.folder / "a.txt").unlink()
        (self.folder / "a.txt").symlink_to("nothing")
        for search, link in [("/user", "user"), ("a.txt", "a.txt")]:
            for options in ([], ["--force"]):
                refused = self.assert_refused("tavlox:cli:LinkInOutput", "get", "s.tavlox", search, *options)
                self.assertEqual(refused, [str(self.folder / link)])

    def test_only_whole_files_appear(self):
        self.add("bad.txt", "precious" * 4000)
        package = self.folder / "s.tavlox"
        with zipfile.ZipFile(package) as archive:
            middle = archive.getinfo("user/bad.txt").header_offset + 60
        package.write_bytes(package.read_bytes()[:middle] + b"!" + package.read_bytes()[middle + 1:])
        self.write("out/user/bad.txt", "old")
        os.chmod(self.write("out/user/a.txt", "old"), 0o640)
        output, errors = self.run_program("get", "s.tavlox", "/user", "-o", "out", "--force", exit_code=1, umask=0o022)
        self.assertEqual(output.splitlines(), [str(self.folder / f"out/user/{name}") for name in ("a.txt", "sub/a.txt")])
        self.assertRegex(errors, rf'^tavlox: error: "{self.folder}/out/user/bad.txt" was not written.*\n  because: .*\[opc:zip:.*\]\n$')
        found = {str(path.relative_to(self.folder / "out/user")): path for path in (self.folder / "out").rglob("*") if path.is_file()}
        self.assertEqual({name: path.read_text() for name, path in found.items()},
                         {"a.txt": "from the package", "sub/a.txt": "from the package", "bad.txt": "old"})
        modes = [(self.folder / "out/user" / name).stat().st_mode & 0o777 for name in ("a.txt", "sub", "sub/a.txt")]
        self.assertEqual(modes, [0o640, 0o755, 0o644])
        self.run_program("get", "s.tavlox", "/user", "-o", "new", exit_code=1)
        self.assertEqual(sorted(path.name for path in (self.folder / "new/user").iterdir()), ["a.txt", "sub"])

    def test_a_folder_is_made_as_any_new_folder_whether_it_comes_whole_or_is_there(self):
        self.write("out/session/notes.txt", "mine")
        (self.folder / "out").chmod(0o2755)  # What is made in it belongs to its group.
        output, _ = self.run_program("get", "s.tavlox", "/user/sub", "/", "-o", "out", umask=0o027)
        found = {path: path.stat().st_mode for path in (self.folder / "out").rglob("*")}
        self.assertEqual(set(output.splitlines()), {str(path) for path in found if path.is_file()} - {str(self.folder / "out/session/notes.txt")})
        self.assertEqual(output.splitlines().count(str(self.folder / "out/user/sub/a.txt")), 2)
        modes = [oct(found[self.folder / "out" / name]) for name in ("user", "user/sub", "user/sub/a.txt", "session/runs.json")]
        self.assertEqual(modes, ["0o42750", "0o42750", "0o100640", "0o100640"])

    def test_entries_without_a_part_are_named_and_the_others_extracted(self):
        entries = self.parts()
        for name in ("user/sub/a.txt", "session/runs.json"):
            del entries[name]
        climbing = b'<Relationship Id="up" Type="UserAssetsPartRelType" Target="../../up"/></Relationships>'
        entries["_rels/.rels"] = entries["_rels/.rels"].replace(b"</Relationships>", climbing)
        self.write_package("s.tavlox", entries)
        missing = {entry["FullPath"] for entry in self.json_of("list", "s.tavlox", "--long") if entry["Size"] == []}
        self.assertEqual(missing, {"/user/sub/a.txt", "/session/runs.json", "/../../up"})
        output, errors = self.run_program("get", "--json", "s.tavlox", "/", "-o", "out", exit_code=1)
        named = [json.loads(line)["error"] for line in errors.splitlines()]
        self.assertEqual({(error["identifier"], *error["arguments"]) for error in named},
                         {("opc:part:NotFound", "s.tavlox", name) for name in missing})
        self.assertEqual(len(named), len(missing))
        written = [path.relative_to(self.folder / "out") for path in map(Path, json.loads(output)["Written"])]
        self.assertEqual({str(path): (self.folder / "out" / path).read_bytes() for path in written},
                         {name: data for name, data in entries.items() if name.startswith(("session/", "user/", "docProps/"))})

    def test_an_interrupt_leaves_nothing(self):
        with open(self.folder / "large", "wb") as file:
            file.truncate(1 << 30)
        self.output_of("add", "s.tavlox", "large")
        names = [*self.names_in_folder(), "out"]
        for word, code in [("INT", -signal.SIGINT), ("TERM", -signal.SIGTERM)]:
            (self.folder / "out").mkdir(exist_ok=True)
            extracting = subprocess.Popen([PROGRAM, "get", "s.tavlox", "large", "-o", "out"], cwd=self.folder)
            # Folders come and go meanwhile, which os.walk passes over.
            while not any("large" in files for _, _, files in os.walk(self.folder / "out")):
                self.assertIsNone(extracting.poll())
            extracting.send_signal(-code)
            self.assertEqual(extracting.wait(60), code, word)
            self.assertEqual(list((self.folder / "out").iterdir()), [])

    def test_a_file_that_may_not_grow_as_large_is_told_and_leaves_nothing(self):
        self.add("large", "precious" * 20_000)
        (self.folder / "large").unlink()
        names = self.names_in_folder()
        error = self.error_of("get", "s.tavlox", "large", largest_file=100_000)
        causes = [(cause["identifier"], *cause["arguments"]) for cause in error["causes"]]
        self.assertEqual(causes, [("opc:stream:CannotWrite", "65536", "File too large")])
        self.assertEqual(self.names_in_folder(), names)

    def test_folders_that_cannot_be_written_are_errors(self):
        (self.folder / "locked").mkdir()
        (self.folder / "locked").chmod(0o555)
        for folder, identifier in [("locked", "tavlox:save:FolderNotWritable"),
                                   ("a.txt", "tavlox_io:general:InvalidOutputPath"),
                                   ("a.txt/below", "tavlox_io:general:InvalidOutputPath")]:
            self.assert_refused(identifier, "get", "s.tavlox", "a.txt", "-o", folder, "--force")


class Delete(UserFiles):
    def test_the_session_is_removed_only_by_force(self):
        self.add("a.txt", "a")
        self.add("a.txt", "a", "--path", "/userdata")
        for search, named in [("/", "/session/runs.json"), ("/session", "/session/runs.json"), ("/userdata", "/userdata/a.txt")]:
            self.assertIn(named, self.assert_refused("tavlox:cli:NotAUserFile", "delete", "s.tavlox", search)[1])
        self.assertEqual(self.output_of("delete", "s.tavlox", "/userdata", "--force"), "/userdata/a.txt\n")
        self.assertEqual(self.output_of("delete", "s.tavlox", "/user"), "/user/a.txt\n")

    def test_an_entry_without_its_part_can_be_removed(self):
        self.add("a.txt", "a")
        entries = self.parts()
        self.write_package("s.tavlox", {name: data for name, data in entries.items() if not name.startswith("user/")})
        self.output_of("delete", "s.tavlox", "a.txt")
        self.assertNotIn("/user/a.txt", self.listed())
