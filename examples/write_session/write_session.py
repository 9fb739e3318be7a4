#!/usr/bin/python3
"""Writes a session with nothing but Python's own library, after docs/package_format.md: a spring that swings, damped
in two ways, one run each. Take it as a pattern for a simulator of your own.

usage: write_session.py OUT.tavlox
"""

import json
import math
import os
import sys
import zipfile
from datetime import datetime, timezone
from xml.sax.saxutils import quoteattr

STEP = 0.01  # seconds
TYPES = "http://schemas.openxmlformats.org/package/2006"


def swing(damping):
    """The rows of a run: time in seconds, position in metres, velocity in metres per second."""
    position, velocity = 1.0, 0.0
    for step in range(1001):
        yield step * STEP, position, velocity
        velocity += STEP * (-4 * math.pi**2 * position - damping * velocity)
        position += STEP * velocity


def samples_of(rows):
    """A run's samples as CSV. repr gives the shortest digits that read back as the same number."""
    lines = ["time [s],position [m],velocity [m/s]"]
    lines += [",".join(map(repr, row)) for row in rows]
    return "\r\n".join(lines) + "\r\n"


class Package:
    """A package that is being written. Every part has a content type and is reached by a relationship."""

    def __init__(self, file):
        self.archive = zipfile.ZipFile(file, "w", zipfile.ZIP_DEFLATED)
        self.overrides, self.relationships = [], []

    def add(self, name, content_type, relationship_type, text):
        self.archive.writestr(name.lstrip("/"), text)
        self.overrides.append(f"<Override PartName={quoteattr(name)} ContentType={quoteattr(content_type)}/>")
        self.relationships.append(f'<Relationship Id="rId{len(self.relationships) + 1}" Target={quoteattr(name)} '
                                  f"Type={quoteattr(relationship_type)}/>")

    def close(self):
        rels = '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
        self.archive.writestr("_rels/.rels", f'<Relationships xmlns="{TYPES}/relationships">'
                              f'{"".join(self.relationships)}</Relationships>')
        self.archive.writestr("[Content_Types].xml", f'<Types xmlns="{TYPES}/content-types">{rels}'
                              f'{"".join(self.overrides)}</Types>')
        self.archive.close()


def write_session(file):
    package = Package(file)
    runs = []
    for number, (name, damping) in enumerate([("light", 0.2), ("strong", 2.0)], start=1):
        rows = list(swing(damping))
        data = f"/session/data/{number}.csv"
        package.add(data, "text/csv", "ORRASessionSamplesRelType", samples_of(rows))
        signals = [{"id": column - 1, "runID": number, "name": signal, "units": unit, "displayUnits": unit,
                    "dataTypeLabel": "double", "sampleTime": str(STEP), "dimensions": [1], "column": column}
                   for column, (signal, unit) in enumerate([("position", "m"), ("velocity", "m/s")], start=2)]
        package.add(f"/session/signals/{number}.json", "application/vnd.tavlox.session-signals+json",
                    "ORRASessionSignalsDataRelType", json.dumps(signals))
        runs.append({"id": number, "name": name, "runNumber": number,
                     "dateCreated": datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"), "startTime": rows[0][0],
                     "stopTime": rows[-1][0], "samples": data, "metadata": {"SolverName": "semi-implicit Euler"}})
    package.add("/session/runs.json", "application/vnd.tavlox.session-runs+json", "ORRASessionRunDataRelType",
                json.dumps(runs))
    package.add("/docProps/core.xml", "application/vnd.openxmlformats-package.core-properties+xml",
                f"{TYPES}/relationships/metadata/core-properties",
                f'<cp:coreProperties xmlns:cp="{TYPES}/metadata/core-properties" '
                'xmlns:dc="http://purl.org/dc/elements/1.1/"><dc:description>A spring, damped in two ways'
                "</dc:description><cp:version>1.0</cp:version></cp:coreProperties>")
    package.close()


def main(out):
    # Under another name until it is whole, so that nobody reads half a session.
    try:
        write_session(out + ".part")
        os.replace(out + ".part", out)
    except BaseException:
        if os.path.exists(out + ".part"):
            os.remove(out + ".part")
        raise


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
