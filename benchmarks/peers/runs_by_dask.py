"""The runs of every session below a folder as one data frame. usage: runs_by_dask.py FOLDER"""
import sys

import tavlox

if __name__ == "__main__":
    print(len(tavlox.sessions(f"{sys.argv[1]}/**/*.tavlox").runs().compute(scheduler="processes")))
