"""Sessions in Python, from `record` to `deleteFile`, and what must not happen on the way."""

import inspect
import os
import pickle
import re
import resource
import shutil
import subprocess
import sys
import threading
from multiprocessing import get_context
from pathlib import Path

import numpy as np
import pandas
import pytest
from conftest import frame
from pandas.testing import assert_frame_equal

import tavlox
import tavlox.io

PACKAGE = Path(tavlox.__file__).parent


def test_life_of_a_session(session, tmp_path):
    (tmp_path / "notes.txt").write_text("n")
    with tavlox.io.File(session) as file:
        assert (file.NumRuns, file.ContainsView, type(file.NumRuns)) == (2, False, int)
        assert file.getAllRunIDs().tolist() == [1, 2] and file.getAllRunIDs().dtype == np.int32
        assert [file.getRunInfo(run).Model for run in file.getAllRunIDs()] == ["car <1>"] * 2
        assert file.getRunInfo(np.int64(2)).Tag == "s" and file.getRunInfo(1)["StopTime"] == 2.0
        assert_frame_equal(file.samples("fast"), frame(), check_frame_type=False)
        file.setFileDescription("<i>")
        file.addFile(tmp_path / "notes.txt", Path="/user/plots", Replace="enable")
        assert file.list("/user").FullPath.tolist() == ["/user/plots/notes.txt"]
        assert file.getFile("notes.txt", "OutputPath", tmp_path) == [str(tmp_path / "plots/notes.txt")]
        html = file._repr_html_()
        assert "car &lt;1&gt;" in html and "<i>" not in html and "/user/plots/notes.txt" in html
        assert html.count("<details>") == 3 and "Signals (8)" in html
        file.deleteFile("/user/plots")
        assert len(file.list("/user")) == 0 and tavlox.io.getCompression(session) == "normal"
    with pytest.raises(ValueError, match="closed"):
        file.NumRuns
    assert repr(file) == f"tavlox.io.File({str(session)!r})"
    assert repr(tavlox.io.File.__new__(tavlox.io.File)) == "tavlox.io.File('')"
    assert inspect.getdoc(tavlox.io.File.NumRuns) == "Number of runs in TAVLOX file"


def test_one_of_each_is_still_a_list(tmp_path):
    tavlox.record(tmp_path / "s", {"only": frame()[["speed"]]})
    file = tavlox.io.File(tmp_path / "s")
    assert file.getAllRunIDs().tolist() == [1] and len(file.getAllSignalsInfo()) == 1
    assert file.getSignalInfoByName("speed")[0].Dimensions.tolist() == [1]
    assert list(file.getSignalInfoByName("none").to_pandas().columns)[:2] == ["Name", "RunOrderIndex"]


def test_samples(session, tmp_path):
    file = tavlox.io.File(session)
    part = file.samples(1, ["gear", "speed"], start=0.5, stop=1.5)
    assert_frame_equal(part, frame().loc[0.5:1.5, ["gear", "speed"]], check_frame_type=False)
    assert file.samples([1, 1], "gear").shape == (5, 2)
    union = file.samples(["fast", "slow"], ["speed", "gear"], "union")
    assert union["slow", "gear"].tolist() == [0, 0, 1, 1, 2] and union["slow", "speed"][0.5] == pytest.approx(1 / 12)
    assert file.samples([1, 2], "speed", 0.25).index.tolist() == [i / 4 for i in range(9)]
    assert len(file.plot([1, 2], "speed", "step")[0].lines) == 2
    (tmp_path / "t.csv").write_text("time [ms];u [V];n\n0;1;2,50\n10;nan;3\n")
    with pytest.warns(UserWarning, match="t.csv' was read with semicolons"):
        tavlox.record(session, {"csv": tmp_path / "t.csv"}, replace=True)
    assert file.getAllSignalsInfo().RootSource[0] == "t.csv"
    samples = file.samples("csv")
    assert samples.index.tolist() == [0, 0.01] and samples.index.name == "time"
    assert samples[["u"]].copy().units["u"] == "V" and file.getAllSignalsInfo().SampleTime[0] == "0.01"
    tavlox.record(tmp_path / "again", {"a": samples})
    again = tavlox.io.File(tmp_path / "again").samples("a")
    assert again.equals(samples) and again.units == {"u": "V", "n": ""}


def gone(path):
    file = tavlox.io.File(path)
    path.unlink()
    return file.Description


ERRORS = [
    (lambda p: tavlox.io.File(), TypeError, "Corvan:ObjectSystem:WrongInputCount", r"File\(unicodeString\)"),
    (lambda p: tavlox.io.File(p).list(3), TypeError, "Corvan:ObjectSystem:WrongInputType", r"list\(tavlox.io.File\["),
    (lambda p: tavlox.io.File(p).getRunInfo(1, 2), TypeError, "Corvan:ObjectSystem:WrongInputCount", "getRunInfo"),
    (lambda p: tavlox.io.File(p).addFile(p, Pth="/"), TypeError, "Corvan:InputParser:UnmatchedParameter", "Pth"),
    (lambda p: tavlox.io.File(p).getFile("/user/x"), LookupError, "tavlox_io:general:EntryDoesNotExist", "/user/x"),
    (lambda p: tavlox.io.File(p).getRunInfo(9), LookupError, "tavlox:general:UnableToReadFile", ""),
    (lambda p: tavlox.io.File(p.parent / "no"), FileNotFoundError, "tavlox:general:FileNotFound", "no"),
    (lambda p: tavlox.io.File(os.fsdecode(b"/\xff")), ValueError, "tavlox:general:UnableToReadFile", ""),
    (lambda p: tavlox.io.File(f"{p}\0"), FileNotFoundError, "tavlox:general:FileNotFound", ""),
    (lambda p: tavlox.io.File(__file__), tavlox.Error, "tavlox:general:UnableToReadFile", "session_test.py"),
    (gone, FileNotFoundError, "tavlox:general:FileNotFound", "does not exist"),
    (lambda p: tavlox.record(p, {"a": frame()}), FileExistsError, "export_file:session:FileExists", "exists"),
    (lambda p: tavlox.record(p.parent / "no/s", {"a": frame()}), FileNotFoundError, "opc:save:CannotReachFolder", "no"),
    (lambda p: tavlox.record(p, {"a": frame()}, metadata={"Mdl": "x"}, replace=True), ValueError,
     "tavlox:record:NotAKey", "Model"),
    (lambda p: tavlox.record(p, {"a": frame().rename(columns={"on": "\ud800"})}, replace=True), ValueError,
     "export_file:session:IllFormedText", '"name"'),
    (lambda p: tavlox.record("\ud800", {"a": frame()}), ValueError, "fl:filesystem:ImpossibleName", "\ufffd"),
    (lambda p: tavlox.io.File(p).setFileDescription("\0"), ValueError, "opc:xml:UnwritableCharacter", "U\\+0000"),
    (lambda p: tavlox.io.File(p).samples(9), LookupError, "tavlox:python:NoSuchRun", "9"),
    (lambda p: tavlox.io.File(p).samples(1, "no"), LookupError, "tavlox:python:NoSuchSignal", "no"),
    (lambda p: tavlox.io.File(p).samples([1, 2]), ValueError, "tavlox:python:MixedTimes", "grid="),
]


@pytest.mark.parametrize("call, kind, identifier, text", ERRORS)
def test_errors(session, call, kind, identifier, text):
    with pytest.raises(tavlox.Error, match=text) as caught:
        call(session)
    error = caught.value
    assert isinstance(error, kind) and error.identifier == identifier
    assert error.__cause__ is (error.causes[0] if error.causes else None)
    again = pickle.loads(pickle.dumps(error))
    assert (type(again), str(again), again.arguments) == (type(error), str(error), error.arguments)


@pytest.mark.parametrize("table", [
    frame().reset_index(drop=True), frame().iloc[::-1], frame()[[]], frame(0), frame().assign(text="a"),
    frame().assign(big=2**53 + 1), frame().rename(columns={"gear": 1}), frame().set_axis([0, 1, np.nan, 3, 4])])
def test_tables_refused(tmp_path, table):
    with pytest.raises((TypeError, ValueError), match="""['"]a['"]"""):
        tavlox.record(tmp_path / "s", {"a": table})
    assert not (tmp_path / "s").exists()


def test_file_that_comes_back(session):
    file, away = tavlox.io.File(session), session.with_name("away")
    session.rename(away)
    with pytest.raises(FileNotFoundError):
        file.NumRuns
    assert "does not exist" in file._repr_html_()
    away.rename(session)
    assert file.NumRuns == 2


def test_failed_calls_leak_nothing(session):
    def fail(times):
        for _ in range(times):
            for call in (lambda: tavlox.io.File(__file__), lambda: tavlox.io.File(session).getRunInfo(9),
                         lambda: tavlox.io.File(session).samples(1, "no"), lambda: tavlox.io.File(session).list(3)):
                with pytest.raises(tavlox.Error):
                    call()
        return len(os.listdir("/proc/self/fd")), resource.getrusage(resource.RUSAGE_SELF).ru_maxrss

    warm, after = fail(50), fail(250)
    assert after[0] == warm[0] and after[1] - warm[1] < 8 * 1024  # KiB


def test_huge_text(session):
    file, text = tavlox.io.File(session), "ä" * 50_000_000
    with pytest.raises(tavlox.Error) as caught:
        file.setFileDescription(text)
    assert len(str(caught.value)) < 5000 and len(file.getSignalInfoByName(text)) == 0


def runs_of(file):
    return file.NumRuns, len(file.getAllSignalsInfo())


def test_threads_forks_and_pickles(session, monkeypatch):
    monkeypatch.chdir(session.parent)
    file, answers = tavlox.io.File(session.name), []
    monkeypatch.chdir("/")

    def work():
        for _ in range(30):
            answers.append((runs_of(tavlox.io.File(session)), runs_of(file)))

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    # Forked while the others are in the module. The child has made an object of its own, beside the parent's.
    for _ in range(5):
        child = os.fork()
        if child == 0:
            os._exit(0 if runs_of(file) == (2, 8) and not file._made.is_foreign else 1)
        assert os.waitpid(child, 0)[1] == 0
    for thread in threads:
        thread.join()
    assert set(answers) == {((2, 8), (2, 8))} and len(answers) == 120
    with get_context("spawn").Pool(1) as pool:
        assert pool.apply(runs_of, (file,)) == (2, 8)


def test_stubs_are_strictly_typed(tmp_path):
    program = tmp_path / "use.py"
    program.write_text("import tavlox.io\nwith tavlox.io.File('a') as file:\n    file.addFile('b', Path='/user')\n"
                       "    reveal_type(file.getAllRunIDs())\n    reveal_type(file.NumRuns)\n")
    paths = [str(PACKAGE), str(program)]
    done = subprocess.run(["mypy", "--strict", "--cache-dir", tmp_path, *paths], capture_output=True, text=True,
                          env={**os.environ, "MYPYPATH": str(PACKAGE.parent)}, timeout=280)
    assert "signedinteger" in done.stdout and '"builtins.int"' in done.stdout
    assert not re.search("error:", done.stdout), done.stdout


def test_missing_module_and_texts(tmp_path):
    """Said of a copy of the libraries and the package, moved away from the texts; it works nevertheless."""
    def imported(**variables):
        done = subprocess.run([sys.executable, "-B", "-c", "import tavlox.io; print(tavlox.io.File)"], text=True,
                              env={**os.environ, **variables}, capture_output=True)
        return done.stdout, done.stderr

    shutil.copytree(PACKAGE.parents[2], tmp_path / "lib", ignore=shutil.ignore_patterns("__pycache__"))
    moved = str(tmp_path / "lib" / PACKAGE.parents[1].name / "dist-packages")
    output, errors = imported(PYTHONPATH=moved)
    assert output and f"looked in {tmp_path}/share/tavlox/catalog" in errors
    (tmp_path / "lib/tavlox/tavlox_io.so").unlink()
    assert re.search(f"ImportError: .*{tmp_path}/lib/tavlox/tavlox_io.so", imported(PYTHONPATH=moved)[1])
    assert 'ImportError: The module "/no/such.so" cannot be loaded' in imported(TAVLOX_MODULE="/no/such.so")[1]
