"""Reads every signal of a session into a list of dictionaries, and prints it as JSON if asked.
usage: read_signals.py SESSION [--json]"""
import json
import sys
import zipfile

signals = []
with zipfile.ZipFile(sys.argv[1]) as package:
    for name in package.namelist():
        if name.startswith("session/signals/"):
            signals += json.loads(package.read(name))
if "--json" in sys.argv:
    print(json.dumps(signals))
