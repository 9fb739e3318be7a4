"""Runs the notebook of the examples from its first cell to its last and compares what the cells give.

As a program it keeps today's answers and pictures in the notebook: notebook_test.py --write
"""

import os
import sys
import tempfile
from pathlib import Path

import nbclient
import nbformat

NOTEBOOK = Path(__file__).resolve().parents[2] / "examples/notebook/filter_corners.ipynb"
HOME = "/home/ada/tavlox/examples"  # where its reader is said to be


def executed(folder):
    """The notebook with the answers of a reader who has only this folder beside the tables."""
    (folder / "notebook").mkdir()
    (folder / "rc_filter").symlink_to(NOTEBOOK.parents[1] / "rc_filter")
    notebook = nbformat.read(NOTEBOOK, as_version=4)
    client = nbclient.NotebookClient(notebook, timeout=60, resources={"metadata": {"path": folder / "notebook"}})
    # Pictures go into the notebook, and what the kernel notes for itself does not go into somebody's home.
    os.environ["JUPYTER_RUNTIME_DIR"] = str(folder / "runtime")
    client.execute(env={**os.environ, "MPLBACKEND": "module://matplotlib_inline.backend_inline", "IPYTHONDIR": str(folder)})
    for cell in notebook.cells:
        cell.metadata.pop("execution", None)  # when it was run
        for output in cell.get("outputs", []):
            data = output.get("data", {})
            for kind in data:
                data[kind] = data[kind].replace(str(folder), HOME)
    notebook.metadata.language_info = {"name": "python"}
    return notebook


def answers(notebook):
    """What each cell gives, but for the bytes of pictures."""
    return [[output.get("text") or {kind: kind.startswith("image/") or text for kind, text in output.data.items()}
             for output in cell.outputs] for cell in notebook.cells if cell.cell_type == "code"]


def test_notebook(tmp_path):
    saved, today = nbformat.read(NOTEBOOK, as_version=4), executed(tmp_path)
    assert answers(today) == answers(saved)
    assert sum("image/png" in str(cell) for cell in answers(saved)) == 2


if __name__ == "__main__":
    if sys.argv[1:] != ["--write"]:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory() as scratch:
        nbformat.write(executed(Path(scratch)), NOTEBOOK)
