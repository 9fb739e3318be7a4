"""Many sessions as Dask data frames: what is asked, what is read for it, and packages that cannot be read."""

import os
import shutil
import signal
import sys
import zipfile

import dask
import distributed
import fsspec
import pytest
from conftest import frame

import tavlox.io
from tavlox import _sessions

FRAMES = ("files", "runs", "signals", "samples", "errors")


@pytest.fixture
def nights(session, tmp_path):
    """Six packages of two runs each, in two folders."""
    (tmp_path / "a/b").mkdir(parents=True)
    for place in ("1", "2", "3", "b/1", "b/2", "b/3"):
        shutil.copy(session, tmp_path / f"a/{place}.tavlox")
    with dask.config.set(scheduler="synchronous"):
        yield tmp_path / "a"


def change(package, item, old, new):
    """Makes a record invalid in a package that is sound as an archive."""
    with zipfile.ZipFile(package) as archive:
        items = {name: archive.read(name) for name in archive.namelist()}
    items[item] = items[item].replace(old, new)
    with zipfile.ZipFile(package, "w") as archive:
        for name, data in items.items():
            archive.writestr(name, data)


def test_frames_and_joins(nights):
    sessions = tavlox.sessions(nights / "**/*.tavlox", batch=4)
    for name in FRAMES:
        made = getattr(sessions, name)()
        computed = made.compute()
        assert made.npartitions == 2 and len(made) == len(computed) and computed.dtypes.equals(made.dtypes), name
    assert computed.empty
    file, runs, signals = tavlox.io.File(nights / "1.tavlox"), sessions.runs(), sessions.signals()
    assert runs.columns[3:].tolist() == list(file.getRunInfo(1))[1:]
    assert set(signals.columns[2:]) == set(file.getAllSignalsInfo().columns)
    assert sessions.files().LastModified.compute().notna().all()
    both = runs[runs.Tag == "s"].merge(signals, on=["Filename", "RunID", "RunOrderIndex"], suffixes=("", " of signal"))
    assert both[["Filename", "Name of signal"]].compute().groupby("Filename").size().tolist() == [4] * 6
    assert [type(one) for one in signals.Dimensions.compute()[:2]] == [tuple] * 2


def test_runs_of_signals_without_samples(nights):
    """Their records tell the run by its order index alone."""
    for name in "12":
        change(nights / f"{name}.tavlox", "session/runs.json", b'"id":1,', b'"id":7,')
        change(nights / f"{name}.tavlox", "session/signals/1.json", b'"runID":1,', b'"runID":7,')
    change(nights / "2.tavlox", "_rels/.rels", b"ORRASessionSamplesRelType", b"OtherRelType")
    change(nights / "2.tavlox", "session/runs.json", b'"samples"', b'"unknown"')
    keys = ["RunID", "RunOrderIndex", "Name"]
    recorded, bare = (tavlox.sessions(nights / f"{name}.tavlox").signals()[keys].compute() for name in "12")
    assert tavlox._host.list_runs(str(nights / "2.tavlox"), True)[0][2] is None
    assert recorded.equals(bare) and recorded.RunID.unique().tolist() == [7, 2]


def test_samples(nights):
    sessions = tavlox.sessions(nights)
    values = sessions.samples(["slow", "none"], ["speed", "gear", "none"], stop=1.0).compute()
    assert values.groupby(["Signal", "RunID"]).size().to_dict() == {("gear", 2): 6, ("speed", 2): 6}
    assert values.Time[:2].tolist() == [0, 1] and values.Value[:2].tolist() == frame(3, 1.0).speed.iloc[:2].tolist()
    assert set(sessions.samples(1, start=2.0).compute().Run) == {"fast"} and sessions.samples(9).compute().empty
    change(nights / "2.tavlox", "session/data/2.csv", b"0", b"x")
    assert set(sessions.samples("slow").Filename.compute()) == {sessions.paths[0], sessions.paths[2]}
    assert sessions.errors().compute().empty
    assert sessions.errors(samples=True).Filename.compute().tolist() == [sessions.paths[1]]


def test_what_is_read(nights, monkeypatch):
    """Nothing before it is computed, then each package once and only the wanted columns."""
    opened, asked, made, runs = [], [], tavlox.io.File.__init__, _sessions._runs
    monkeypatch.setattr(tavlox.io.File, "__init__", lambda self, path: opened.append(path) or made(self, path))
    monkeypatch.setattr(_sessions, "_runs", lambda path, columns: asked.append(columns) or runs(path, columns))
    sessions = tavlox.sessions(nights)
    frames = [getattr(sessions, name)() for name in FRAMES]
    assert opened == []
    assert frames[1]["Model"].compute().tolist() == ["car <1>"] * 6
    assert opened == sessions.paths and asked == [["Model"]] * 3
    assert tavlox.sessions(nights).files().__dask_keys__() == frames[0].__dask_keys__()
    # Changed, and so large that two fill a partition.
    for path in sessions.paths:
        os.truncate(path, _sessions._PARTITION // _sessions._GROWTH // 2)
    changed = tavlox.sessions(nights).files()
    assert changed.npartitions == 2 and changed.__dask_keys__()[0] != frames[0].__dask_keys__()[0]


@pytest.mark.parametrize("has_fsspec", [True, False])
def test_listing(nights, monkeypatch, has_fsspec):
    if not has_fsspec:
        monkeypatch.setitem(sys.modules, "fsspec", None)
    (nights / ".trash").mkdir()
    for name in (".trash/1.tavlox", ".1.tavlox.saving-x", ".hidden.tavlox", "b/notes.txt", "odd[1].tavlox"):
        shutil.copy(nights / "1.tavlox", nights / name)
    (nights / "folder.tavlox").mkdir()
    monkeypatch.chdir(nights)
    for given, names in [
            (".", ["1", "2", "3", "odd[1]"]), ("b", ["b/1", "b/2", "b/3"]), ("?.tavlox", ["1", "2", "3"]),
            (f"{nights}/**/[12].tavlox", ["1", "2", "b/1", "b/2"]), (["b/2.tavlox", "b"], ["b/2", "b/1", "b/3"]),
            ("odd[1].tavlox", ["odd[1]"]), ("file://" + str(nights / "1.tavlox"), ["1"]), ("no.tavlox", ["no"])]:
        assert tavlox.sessions(given).paths == [str(nights / f"{name}.tavlox") for name in names], given
    for nothing in ("no*", "folder.tavlox"):
        with pytest.warns(RuntimeWarning, match=nothing[:2]):
            empty = tavlox.sessions(nothing).runs().compute()
        assert empty.empty and empty.dtypes.equals(tavlox.sessions(".").runs().dtypes)


def test_unreadable_packages(nights):
    gone, cut, invalid = (nights / f"{name}.tavlox" for name in (1, 2, 3))
    sessions = tavlox.sessions(nights / "**/*.tavlox")
    frames, strict = [getattr(sessions, name)() for name in FRAMES], tavlox.sessions(nights, errors="raise").runs()
    gone.unlink()
    os.truncate(cut, 1000)
    change(invalid, "session/signals/1.json", b'"runID":1', b'"runID":7')
    change(nights / "b/3.tavlox", "session/runs.json", b"[", b"{")
    files, runs, signals, samples, errors = dask.compute(*frames)
    assert errors.Filename.tolist() == [*sessions.paths[:3], sessions.paths[5]] and errors.Message[1].count(" because: ") == 1
    assert errors.Identifier[0] == "tavlox:general:FileNotFound" and "[opc:zip:NotAnArchive]" in errors.Message[1]
    assert set(runs.Filename) == set(signals.Filename) == set(sessions.paths[3:5]) and len(files) == 3
    assert [len(one) for one in frames] == [3, 4, 8 * 2, len(samples), 4]  # also if no columns are asked for
    with pytest.raises(FileNotFoundError, match="1.tavlox"):
        strict.compute()


@pytest.mark.parametrize("names", ["a", "abc"])
def test_package_that_is_being_saved(nights, monkeypatch, names):
    """All of a package's rows are of one version, also when it is replaced between two questions to it."""
    path, other, ids = nights / "1.tavlox", nights / "other", tavlox.io.File.getAllRunIDs
    tavlox.record(other, {name: frame() for name in names})

    def replaced_then(self):
        return (ids(self), other.exists() and os.replace(other, path))[0]

    monkeypatch.setattr(tavlox.io.File, "getAllRunIDs", replaced_then)
    assert tavlox.sessions(path).runs().Name.compute().tolist() == list(names)


def test_remote_packages(nights):
    memory = fsspec.filesystem("memory")
    memory.put_file(str(nights / "1.tavlox"), "/night/1.tavlox")
    memory.pipe_file("/night/2.tavlox", b"no package")
    sessions = tavlox.sessions(["memory://night", "memory://night/?.tavlox", "memory://night/none.tavlox"])
    assert sessions.paths == [f"memory:///night/{name}.tavlox" for name in (1, 2, "none")]
    assert sessions.runs().Filename.compute().tolist() == sessions.paths[:1] * 2
    assert sessions.errors().Identifier.compute().tolist() == ["tavlox:general:UnableToReadFile", "FileNotFoundError"]
    assert sessions.files().LastModified.compute().isna().all()


def test_cluster_that_loses_a_worker(nights, tmp_path):
    many = tmp_path / "many"
    many.mkdir()
    for number in range(200):
        shutil.copy(nights / "1.tavlox", many / f"{number:03}.tavlox")
        if number % 20 == 0:
            os.truncate(many / f"{number:03}.tavlox", 1000)
    sessions = tavlox.sessions(many, batch=5)
    options = {"n_workers": 2, "threads_per_worker": 1, "host": "127.0.0.1", "dashboard_address": "127.0.0.1:0"}
    with (distributed.LocalCluster(local_directory=tmp_path, **options) as cluster,
          distributed.Client(cluster) as client):
        workers = client.run(os.getpid)
        runs = sessions.runs().persist()
        futures = distributed.futures_of(runs)
        distributed.wait(futures[:15], timeout=60)
        # What it has made so far, the first partition too, goes with it.
        holders = client.who_has(futures[:1])
        os.kill(workers[next(iter(holders.values()))[0]], signal.SIGKILL)
        runs, errors = (one.result(timeout=120) for one in client.compute([runs, sessions.errors()]))
    assert errors.Filename.tolist() == sessions.paths[::20]
    expected = tavlox.sessions(many).runs().compute(scheduler="synchronous")
    assert len(runs) == 380 and runs.reset_index(drop=True).equals(expected.reset_index(drop=True))
