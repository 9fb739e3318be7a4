"""Indexes of many sessions from Python: the same as the program's, and how sessions asks what one knows."""

import shutil
import sqlite3
import time

import pytest
from conftest import frame

import tavlox.io
from tavlox import _sessions


@pytest.fixture
def nights(session, tmp_path):
    (tmp_path / "nights/old").mkdir(parents=True)
    for name in ("a", "b", "old/c"):
        shutil.copy(session, tmp_path / f"nights/{name}.tavlox")
    (tmp_path / "nights/bad.tavlox").write_bytes(b"no package")
    time.sleep(2.1)  # older than the clocks of file systems are coarse
    return tmp_path / "nights"


def test_life_of_an_index(nights, tmp_path):
    file = tmp_path / "i.sqlite"
    assert tavlox.index(nights, file) == tavlox.Indexed(4, 0, 0, 0, unreadable=1)
    shutil.rmtree(nights / "old")
    assert tavlox.index([nights], file, jobs=1) == (0, 0, 3, 1, 1)
    found = tavlox.search(file, "SPEE", where="DataType = 'double' and RunID = 2")
    expected = [one for one in tavlox.io.File(nights / "a.tavlox").getSignalInfoByName("speed") if one.RunOrderIndex == 2]
    assert [found.Name.tolist(), found.Filename.tolist()] == [["speed"] * 2, [str(nights / f"{name}.tavlox") for name in "ab"]]
    assert all(found[0][name] == expected[0][name] for name in ("StoredUnits", "FullBlockPath", "PortIndex"))
    assert found.RunID.dtype == "int32" and found.Dimensions[0].tolist() == expected[0].Dimensions.tolist()
    runs = tavlox.search(file, subject="runs", where="Filename like '*/a.tavlox'")
    assert runs[1]["Tag"] == tavlox.io.File(nights / "a.tavlox").getRunInfo(2).Tag
    assert tavlox.search(file, subject="files", where="Error is not empty").Filename.tolist() == [str(nights / "bad.tavlox")]
    assert len(tavlox.search(file, "no such")) == 0
    for kind, ask in [(FileNotFoundError, lambda: tavlox.search(tmp_path / "no.sqlite")),
                      (ValueError, lambda: tavlox.search(file, where="Nam = 'x'")),
                      (tavlox.Error, lambda: tavlox.index(nights, nights / "a.tavlox")),
                      (tavlox.Error, lambda: tavlox.index(tmp_path / "nowhere", file)),
                      (ValueError, lambda: tavlox.index(nights, file, jobs=0))]:
        with pytest.raises(kind):
            ask()


def test_interrupted_between_two_packages(nights, tmp_path, monkeypatch):
    """What is in the index by then is whole, and the next update does the rest."""
    class Interrupted(tavlox._host.IndexUpdate):
        def step(self):
            super().step()
            raise KeyboardInterrupt

    file = tmp_path / "i.sqlite"
    with monkeypatch.context() as patch, pytest.raises(KeyboardInterrupt):
        patch.setattr(tavlox._host, "IndexUpdate", Interrupted)
        tavlox.index(nights, file)
    made = tavlox.index(nights, file)
    assert (made.added, made.unchanged) == (3, 1) and len(tavlox.search(file, subject="runs")) == 6


def test_packages_that_change_between_listing_and_reading(nights, tmp_path):
    """What is read is one version of the package, and nothing of one that has vanished."""
    update = tavlox._host.IndexUpdate([str(nights)], str(tmp_path / "i.sqlite"), 2)
    (nights / "a.tavlox").unlink()
    tavlox.record(nights / "b.tavlox", {"newer": frame()}, replace=True)
    while update.step():
        pass
    assert update.counts() == (3, 0, 0, 0, 1) and update.problems() == []
    update.close()
    runs = tavlox.search(tmp_path / "i.sqlite", subject="runs")
    assert runs.Name.tolist() == ["newer", "fast", "slow"]


def test_texts_that_another_indexer_dropped(nights, tmp_path):
    """What an update knows of the index is asked again once somebody else has written."""
    update = tavlox._host.IndexUpdate([str(nights)], str(tmp_path / "i.sqlite"), 1)
    update.step()
    with sqlite3.connect(tmp_path / "i.sqlite") as other:
        for table in ("files", "runs", "signals", "texts"):
            other.execute(f"DELETE FROM {table}")
    while update.step():
        pass
    update.close()
    found = tavlox.search(tmp_path / "i.sqlite", "speed")
    assert set(found.Filename) == {str(nights / "b.tavlox"), str(nights / "old/c.tavlox")}


def test_partitions_from_the_counts_of_an_index(nights, tmp_path, monkeypatch):
    file = tmp_path / "i.sqlite"
    tavlox.index(nights, file)
    shutil.move(nights / "a.tavlox", tmp_path / "elsewhere")
    sessions = tavlox.sessions(file)
    # Listed without a look at the packages.
    assert sessions.paths == [str(nights / f"{name}.tavlox") for name in ("a", "b", "bad", "old/c")]
    assert len(sessions.runs().compute(scheduler="synchronous")) == 4
    assert sessions.errors().compute(scheduler="synchronous").Filename.tolist() == [sessions.paths[0], sessions.paths[2]]
    with sqlite3.connect(file) as database:
        database.execute("UPDATE files SET NumSignals = ? WHERE NumSignals > 0", [0.6 * _sessions._PARTITION // _sessions._ROW["signals"]])
    sessions = tavlox.sessions(file)
    assert [sessions.signals().npartitions, sessions.runs().npartitions] == [3, 1]
    assert tavlox.sessions(file, batch=1).runs().npartitions == 4
