"""The runs of every session below a folder as one data frame, by processes that are asked for by hand.
usage: runs_by_hand.py FOLDER"""
import multiprocessing
import sys
from pathlib import Path

import pandas

import tavlox.io

BATCH = 50


def runs_of(paths):
    rows = []
    for path in paths:
        with tavlox.io.File(path) as file:
            for number in file.getAllRunIDs():
                rows.append({"Filename": path, "RunID": int(number), **file.getRunInfo(int(number))})
    return pandas.DataFrame(rows)


if __name__ == "__main__":
    paths = sorted(map(str, Path(sys.argv[1]).rglob("*.tavlox")))
    batches = [paths[i:i + BATCH] for i in range(0, len(paths), BATCH)]
    with multiprocessing.Pool() as pool:
        print(len(pandas.concat(pool.map(runs_of, batches))))
