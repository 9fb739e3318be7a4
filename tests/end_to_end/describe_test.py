import os
import unittest
import xml.etree.ElementTree as ElementTree

from program import ProgramTest

TEXTS = ["RC filter, three corners", "", " spaces kept ", "<&>\"'", "two\nlines\twith a tab\r\n", "\u00e9 \u03b8 \U0001f600",
         "-5 degrees", "info", "[draft]", "{}"]


class Describe(ProgramTest):
    def description_read_by_another_reader(self):
        root = ElementTree.fromstring(self.parts()["docProps/core.xml"])
        return root.findtext("{http://purl.org/dc/elements/1.1/}description") or ""

    def test_what_is_written_is_read_back(self):
        self.record()
        for text in TEXTS:
            with self.subTest(text):
                self.assertEqual(self.output_of("describe", "s.tavlox", "--", text), "")
                self.assertEqual(self.json_of("info", "s.tavlox")["Description"], text)
                self.assertEqual(self.description_read_by_another_reader(), text)

    def test_everything_else_stays_as_it_was(self):
        self.record()
        before = self.parts()
        self.output_of("describe", "s.tavlox", "changed")
        after = self.parts()
        changed = {name for name in before.keys() | after.keys() if before.get(name) != after.get(name)}
        self.assertLessEqual(changed, {"docProps/core.xml", "_rels/.rels", "[Content_Types].xml"})

    def assert_refused_untouched(self, path, cause, **options):
        before, names = path.read_bytes(), self.names_in_folder()
        error = self.error_of("describe", "s.tavlox", "changed", **options)
        self.assertIn(error["identifier"],
                      ["tavlox:general:UnableToReadFile", "tavlox_io:general:UnableToClosePackage"])
        self.assertIn(cause, [found["identifier"] for found in error["causes"]])
        self.assertEqual(path.read_bytes(), before)
        self.assertEqual(self.names_in_folder(), names)

    def test_a_read_only_file_is_left_alone(self):
        path = self.record()
        path.chmod(0o444)
        self.assert_refused_untouched(path, "tavlox:save:FileIsReadOnly")

    def test_a_file_in_a_folder_that_cannot_be_written_is_left_alone(self):
        path = self.record()
        path.chmod(0o666)
        self.folder.chmod(0o555)
        # The superuser can write everywhere, so somebody else has to try.
        options = {"user": 65534} if os.geteuid() == 0 else {}
        self.assert_refused_untouched(path, "tavlox:save:FolderNotWritable", **options)
        self.folder.chmod(0o755)


if __name__ == "__main__":
    unittest.main()
