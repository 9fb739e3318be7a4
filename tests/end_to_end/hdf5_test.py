import shutil
import unittest
from pathlib import Path

from program import HOT, PROGRAM, ProgramTest

try:
    import h5py
    import numpy
except ImportError:
    h5py = None

LIBRARIES = Path(PROGRAM).parent.parent / "lib"


class Hdf5(ProgramTest):
    def make(self, content, **options):
        """A file of what `content` has by path: values, or values and attributes."""
        with h5py.File(self.folder / "t.h5", "w", **options) as file:
            for path, values in content.items():
                values, attributes = values if isinstance(values, tuple) else (values, {})
                dataset = file.create_dataset(path, data=values)
                dataset.attrs.update(attributes)

    @unittest.skipUnless(h5py and (LIBRARIES / "tavlox/tavlox_hdf5.so").exists(), "built without HDF5")
    def test_runs_are_exported_and_recorded_again(self):
        long = "".join(f"{i / 8},{i},{-i}\n" for i in range(40_000))
        self.record(hot=HOT.replace("i(r1)", "a/b"), long="t [s],x/y,x_y\n" + long)
        self.output_of("export", "s.tavlox", "-o", "out.h5")
        with h5py.File(self.folder / "out.h5") as file:
            self.assertEqual({name: (group.attrs["name"], group.attrs["id"], list(group)) for name, group in file.items()},
                             {"hot": ("hot", 1, ["time", "v(out)", "a_b"]), "long": ("long", 2, ["time", "x_y", "x_y_2"])})
            columns = {name: (dataset.attrs["units"], dataset[:].tolist()) for name, dataset in file["hot"].items()}
            self.assertEqual(columns, {"time": ("s", [0, 0.1, 0.2]), "v(out)": ("V", [0, 0.5, 0.75]), "a_b": ("A", [0, 1e-3, 5e-4])})
            self.assertTrue((file["long/x_y"][:] == numpy.arange(40_000)).all())
        error = self.error_of("record", "again.tavlox", "out.h5")
        self.assertEqual((error["identifier"], error["arguments"][1]), ("tavlox:record:SeveralHdf5Tables", '"/hot", "/long"'))
        self.output_of("record", "again.tavlox", "out.h5", "--group", "/hot")
        self.output_of("record", "--append", "again.tavlox", "-", "--group", "long", input=(self.folder / "out.h5").read_bytes())
        self.output_of("compare", "s.tavlox", "again.tavlox")
        self.output_of("export", "s.tavlox", "--step", "0.1", "--to", "0.2", "-o", "steps", "--format", "hdf5")
        with h5py.File(self.folder / "steps") as file:
            self.assertEqual(file["long/time"][:].tolist(), file["hot/time"][:].tolist())
            self.assertEqual(numpy.round(file["long/x_y"][:], 9).tolist(), [0, 0.8, 1.6])
        for words, identifier in [(["hdf5"], "Hdf5NeedsOutput"), (["hdf5", "-o", "x", "--long"], "Hdf5IsByRun"), (["x"], "UnknownFormat")]:
            error = self.error_of("export", "s.tavlox", "--format", *words, exit_code=2)
            self.assertEqual(error["identifier"], "tavlox:export:" + identifier)

    @unittest.skipUnless(h5py and (LIBRARIES / "tavlox/tavlox_hdf5.so").exists(), "built without HDF5")
    def test_tables_are_read_in_every_layout(self):
        rows = numpy.array([(0, 1.5, True, b"x"), (2, 2.5, False, b"y")],
                           dtype=[("Time_ms", "u4"), ("v", "f8"), ("on", "?"), ("note", "S1")])
        single = numpy.array([0.1, 0.2], dtype="f4")
        wide = numpy.array([2**64 - 1, 2**63], dtype="u8")
        for content, table in [
            ({"v": (single, {"unit": "V"}), "t": ([[1], [2]], {"units": b"msec"})}, "t [ms],v [V]\n1,0.1\n2,0.2\n"),
            ({"a/b/w": wide, "a/b/x": [-1, 1], "a/b/y": [1, 1]}, "x [s],w,y\n-1,18446744073709551615,1\n1,9223372036854775808,1\n"),
            ({"log": rows}, "Time [ms],v,on\n0,1.5,1\n2,2.5,0\n"),
            ({"m": ([[0, 1.0], [1, numpy.nan]], {"columns": ["s", "v"], "units": ["seconds since 2026-01-01", "V"]})},
             "s [s],v [V]\n0,1\n1,nan\n"),
            ({"time": [0, 1], "v": [1, 2, 3]}, ("UnevenColumns", "t.h5", "/v", "3", "2")),
            ({"v": [2, 1], "w": [1, 2], "x": [3, 4]}, ("NoHdf5Time", "t.h5:/", '"w", "x"')),
            ({"time": [0, 1, 1], "v": [1, 2, 3]}, ("TimeNotIncreasing", "t.h5:/time", "4", "1", "1")),
            ({"a": [1, 2], "b": b"text"}, ("NoHdf5Table", "t.h5", '"/a", "/b"')),
            ({"time": numpy.array([], dtype="f8"), "v": numpy.array([], dtype="f8")}, ("NoRows", "t.h5:/", "2", "1")),
        ]:
            # Some programs put a header of their own in front.
            self.make(content, userblock_size=1024 if "log" in content else 0)
            if isinstance(table, tuple):
                error = self.error_of("record", "--force", "s.tavlox", "t.h5")
                self.assertEqual((error["identifier"], *error["arguments"]), ("tavlox:record:" + table[0], *table[1:]))
                continue
            _, told = self.run_program("record", "--force", "s.tavlox", "t.h5")
            self.assertEqual("[tavlox:record:Chosen]" in told, bool({"log", "a/b/x", "m"} & set(content)), told)
            self.assertNotIn("--delimiter", told)
            self.assertEqual(self.output_of("export", "s.tavlox"), table)
            labels = {signal["Name"]: signal["DataType"] for signal in self.json_of("signals", "s.tavlox")}
            self.assertEqual({name: label for name, label in labels.items() if label != "double"},
                             {"on": "boolean"} if "log" in content else {"w": "uint64", "y": "int64"} if "a/b/x" in content else {})
        self.write("t.h5", (self.folder / "t.h5").read_bytes()[:900])
        self.assertEqual(self.error_of("record", "--force", "s.tavlox", "t.h5")["identifier"], "tavlox:record:DamagedHdf5")

    def test_without_the_library_one_is_told_what_to_install(self):
        shutil.copy(LIBRARIES / "libcorvan_platform.so.1", self.folder)
        self.write("t.h5", b"\x89HDF\r\n\x1a\n")
        self.record()
        for words in [["record", "n.tavlox", "t.h5"], ["export", "s.tavlox", "-o", "new.h5"]]:
            error = self.error_of(*words, environment={"LD_LIBRARY_PATH": str(self.folder)})
            self.assertEqual(error["identifier"], "tavlox:record:Hdf5NotSupported")
            self.assertIn("tavlox_hdf5.so", error["arguments"][1])
        self.assertFalse((self.folder / "new.h5").exists())
