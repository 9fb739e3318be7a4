#!/usr/bin/env python3
"""read_session.py PACKAGE prints a session package as JSON: its parts, types, relationships, properties and texts."""

import json
import sys
import xml.etree.ElementTree as xml
import zipfile

TYPES = "{http://schemas.openxmlformats.org/package/2006/content-types}"


def read(path):
    with zipfile.ZipFile(path) as package:
        assert package.testzip() is None
        types = xml.fromstring(package.read("[Content_Types].xml"))
        overrides = {e.get("PartName"): e.get("ContentType") for e in types.iter(TYPES + "Override")}
        links = [[e.get("Type"), e.get("Target")] for e in xml.fromstring(package.read("_rels/.rels"))]
        properties = {}
        for _, target in links:
            if target.endswith("core.xml"):
                core = xml.fromstring(package.read(target.lstrip("/")))
                properties = {e.tag.split("}")[1]: e.text for e in core}
        texts = {n: package.read(n).decode() for n in package.namelist() if n.startswith(("session/", "user/"))}
        return {"types": overrides, "links": links, "properties": properties, "texts": texts}


session = read(sys.argv[1])
for name, text in session["texts"].items():
    if name.endswith(".json"):
        session["texts"][name] = json.loads(text)
print(json.dumps(session, sort_keys=True, ensure_ascii=False, separators=(",", ":")), end="")
