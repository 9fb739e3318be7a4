"""Puts the runs and signals of every session below a folder into tables of SQLite, with zipfile and json.
usage: index_sessions.py FOLDER DATABASE"""
import json
import sqlite3
import sys
import zipfile
from pathlib import Path

TEXTS = ("name", "description", "units", "displayUnits", "dataTypeLabel", "sampleTime", "model", "displayBlockPath",
         "blockName", "rootSource", "timeSource", "dataSource", "domainType")
RUNS = ("name", "dateCreated", "model", "simMode", "status", "startTime", "stopTime", "metadata")

database = sqlite3.connect(sys.argv[2])
database.execute(f"CREATE TABLE runs (file, id, {', '.join(RUNS)})")
database.execute(f"CREATE TABLE signals (file, id, runID, dimensions, channel, {', '.join(TEXTS)})")
database.execute("CREATE TABLE texts (text UNIQUE)")
database.execute("CREATE VIRTUAL TABLE words USING fts5(text, content='texts', tokenize='unicode61')")
database.execute("CREATE VIRTUAL TABLE pieces USING fts5(text, content='texts', tokenize='trigram')")
for path in sorted(Path(sys.argv[1]).rglob("*.tavlox")):
    with zipfile.ZipFile(path) as package, database:
        for run in json.loads(package.read("session/runs.json")):
            values = [run.get(name) for name in RUNS[:-1]] + [json.dumps(run.get("metadata"))]
            database.execute(f"INSERT INTO runs VALUES (?, ?{', ?' * len(RUNS)})", [str(path), run["id"], *values])
        for part in package.namelist():
            if not part.startswith("session/signals/"):
                continue
            for signal in json.loads(package.read(part)):
                lists = [json.dumps(signal.get(name)) for name in ("dimensions", "channel")]
                database.execute(f"INSERT INTO signals VALUES (?, ?, ?, ?, ?{', ?' * len(TEXTS)})",
                                 [str(path), signal["id"], signal["runID"], *lists, *map(signal.get, TEXTS)])
                text = "\n".join(signal.get(name) or "" for name in ("name", "displayBlockPath", "blockName", "description"))
                database.execute("INSERT OR IGNORE INTO texts VALUES (?)", [text])
with database:
    for table in ("words", "pieces"):
        database.execute(f"INSERT INTO {table} ({table}) VALUES ('rebuild')")
