"""Many sessions as Dask data frames: what is asked, what is read for it, and packages that cannot be read."""

import os
import pickle
import shutil
import signal
import sys
import zipfile
from pathlib import Path

import dask
import pytest
from conftest import frame
from pandas.testing import assert_frame_equal

import tavlox
import tavlox.io
from tavlox import _sessions

FRAMES = ("files", "runs", "signals", "samples", "errors")


@pytest.fixture
def nights(session, tmp_path):
    """Six packages of two runs each, in two folders."""
    for place in ("a/1", "a/2", "a/3", "a/b/1", "a/b/2", "a/b/3"):
        (tmp_path / place).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(session, tmp_path / f"{place}.tavlox")
    with dask.config.set(scheduler="synchronous"):
        yield tmp_path / "a"


def damage(package, item):
    with zipfile.ZipFile(package) as archive:
        place = archive.getinfo(item).header_offset + 30 + len(item) + 4
    data = bytearray(package.read_bytes())
    data[place] ^= 0x55
    package.write_bytes(data)


def test_frames_and_joins(nights):
    sessions = tavlox.sessions(nights / "**/*.tavlox", batch=4)
    assert len(sessions) == 6 and pickle.loads(pickle.dumps(sessions)).paths == sessions.paths
    for name in FRAMES:
        made = getattr(sessions, name)()
        computed = made.compute()
        assert made.npartitions == 2 and len(made) == len(computed) and computed.dtypes.equals(made.dtypes), name
    assert computed.empty
    file = tavlox.io.File(nights / "1.tavlox")
    assert sessions.runs().dtypes.index.drop(["Filename", "RunID", "RunOrderIndex"]).tolist() == list(file.getRunInfo(1))[1:]
    fields = sessions.signals().dtypes.index.drop(["Filename", "RunID"])
    assert set(fields) == set(file.getAllSignalsInfo().columns)
    assert sessions.files().LastModified.compute().notna().all()
    runs, signals = sessions.runs(), sessions.signals()
    both = runs[runs.Tag == "s"].merge(signals, on=["Filename", "RunID", "RunOrderIndex"], suffixes=("", " of signal"))
    assert both[["Filename", "Name of signal"]].compute().groupby("Filename").size().tolist() == [4] * 6
    assert signals.Dimensions.drop_duplicates().compute().tolist() == [(1,)]


def test_samples(nights):
    sessions = tavlox.sessions(nights)
    values = sessions.samples(["slow", "none"], ["speed", "gear", "none"], stop=1.0).compute()
    assert values.groupby(["Signal", "RunID"]).size().to_dict() == {("gear", 2): 6, ("speed", 2): 6}
    one = values[(values.Filename == sessions.paths[1]) & (values.Signal == "speed")]
    assert one.Time.tolist() == [0, 1] and one.Value.tolist() == frame(3, 1.0).speed.iloc[:2].tolist()
    assert set(sessions.samples(1, start=2.0).compute().Run) == {"fast"} and sessions.samples(9).compute().empty
    damage(nights / "2.tavlox", "session/data/2.csv")
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
    before = frames[0].__dask_keys__()
    assert sessions.files().__dask_keys__() == tavlox.sessions(nights).files().__dask_keys__() == before
    tavlox.io.File(nights / "1.tavlox").setFileDescription("changed")
    assert tavlox.sessions(nights).files().__dask_keys__() != before
    # As many as a partition may have by their size.
    for path in sessions.paths:
        os.truncate(path, _sessions._PARTITION // _sessions._GROWTH // 2)
    assert tavlox.sessions(nights).runs().npartitions == 2


@pytest.mark.parametrize("fsspec", [True, False])
def test_listing(nights, monkeypatch, fsspec):
    if not fsspec:
        monkeypatch.setitem(sys.modules, "fsspec", None)
    for name in (".1.tavlox.saving-x", ".hidden.tavlox", "b/notes.txt", "odd[1].tavlox"):
        shutil.copy(nights / "1.tavlox", nights / name)
    (nights / "folder.tavlox").mkdir()
    monkeypatch.chdir(nights)
    for given, names in [
            (".", ["1", "2", "3", "odd[1]"]), ("b", ["b/1", "b/2", "b/3"]), ("?.tavlox", ["1", "2", "3"]),
            (f"{nights}/**/[12].tavlox", ["1", "2", "b/1", "b/2"]), (["b/2.tavlox", "b"], ["b/2", "b/1", "b/3"]),
            (Path("odd[1].tavlox"), ["odd[1]"]), ("file://" + str(nights / "1.tavlox"), ["1"]), ("no.tavlox", ["no"])]:
        assert tavlox.sessions(given).paths == [str(nights / f"{name}.tavlox") for name in names], given
    for nothing in ("no*", "folder.tavlox"):
        with pytest.warns(RuntimeWarning, match=nothing[:2]):
            empty = tavlox.sessions(nothing)
        for name in FRAMES:
            full = getattr(tavlox.sessions("."), name)()
            assert_frame_equal(getattr(empty, name)().compute(), full._meta, check_index_type=False)


def test_unreadable_packages(nights):
    gone, cut, damaged = (nights / f"{name}.tavlox" for name in (1, 2, 3))
    sessions = tavlox.sessions(nights / "**/*.tavlox")
    frames, strict = [getattr(sessions, name)() for name in FRAMES], tavlox.sessions(nights, errors="raise").runs()
    gone.unlink()
    os.truncate(cut, 1000)
    damage(damaged, "session/signals/1.json")
    files, runs, signals, samples, errors = dask.compute(*frames)
    assert errors.Filename.tolist() == [str(gone), str(cut), str(damaged)] and errors.Message[1].count(" because: ") == 1
    assert errors.Identifier[0] == "tavlox:general:FileNotFound" and "[opc:zip:NotAnArchive]" in errors.Message[1]
    for one in (runs, signals, samples):
        assert set(one.Filename) == set(sessions.paths[3:])
    assert len(runs) == 6 and len(frames[1]) == 6 and set(files.Filename) >= set(runs.Filename)
    with pytest.raises(FileNotFoundError, match="1.tavlox"):
        strict.compute()


@pytest.mark.parametrize("names", ["a", "abc"])
def test_package_that_is_being_saved(nights, monkeypatch, names):
    """All of a package's rows are of one version, also when it is replaced between two questions to it."""
    path, other, ids = nights / "1.tavlox", nights / "other", tavlox.io.File.getAllRunIDs
    tavlox.record(other, {name: frame() for name in names})

    def replaced_then(self):
        answer = ids(self)
        if other.exists():
            os.replace(other, path)
        return answer

    sessions = tavlox.sessions(path)
    monkeypatch.setattr(tavlox.io.File, "getAllRunIDs", replaced_then)
    assert sessions.runs().Name.compute().tolist() == list(names)


def test_remote_packages(nights):
    fsspec = pytest.importorskip("fsspec")
    memory = fsspec.filesystem("memory")
    for name in ("1", "2"):
        memory.put_file(str(nights / f"{name}.tavlox"), f"/night/{name}.tavlox")
    memory.pipe_file("/night/3.tavlox", b"no package")
    sessions = tavlox.sessions(["memory://night", "memory://night/?.tavlox", "memory://night/none.tavlox"])
    assert [path.rpartition("/")[2][:-7] for path in sessions.paths] == ["1", "2", "3", "none"]
    assert sessions.runs().Filename.compute().tolist() == [path for path in sessions.paths[:2] for _ in range(2)]
    errors = sessions.errors().compute()
    assert errors.Identifier.tolist() == ["tavlox:general:UnableToReadFile", "FileNotFoundError"]
    assert sessions.files().LastModified.compute().isna().all()


def test_cluster_that_loses_a_worker(nights, tmp_path):
    distributed = pytest.importorskip("distributed")
    many = tmp_path / "many"
    many.mkdir()
    for number in range(200):
        shutil.copy(nights / "1.tavlox", many / f"{number:03}.tavlox")
        if number % 20 == 0:
            os.truncate(many / f"{number:03}.tavlox", 1000)
    sessions = tavlox.sessions(many, batch=5)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address="127.0.0.1:0",
                                  host="127.0.0.1", local_directory=tmp_path) as cluster, distributed.Client(cluster) as client:
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
    assert len(runs) == 380
    assert_frame_equal(runs.reset_index(drop=True), expected.reset_index(drop=True))
