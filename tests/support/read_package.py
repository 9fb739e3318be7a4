"""Prints what a package contains, read with Python's own ZIP and XML readers.

One line an item in the order of the archive ("name [content type] data"), then the relationships of the package and
of its parts, then the description. Fails on anything that Python finds wrong."""

import sys
import xml.etree.ElementTree as xml
import zipfile

OFFICE = "application/vnd.openxmlformats-package."
CORE = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"
TYPES = "{http://schemas.openxmlformats.org/package/2006/content-types}"


def content_types(archive):
    defaults, overrides = {}, {}
    for item in xml.fromstring(archive.read("[Content_Types].xml")):
        if item.tag == TYPES + "Default":
            defaults[item.get("Extension").lower()] = item.get("ContentType")
        elif item.tag == TYPES + "Override":
            overrides[item.get("PartName").lower()] = item.get("ContentType")
    return lambda name: overrides.get("/" + name.lower()) or defaults.get(name.rpartition(".")[2].lower(), "-")


def shown(data):
    text = data.decode("utf-8", "backslashreplace")
    return text if len(text) < 400 else f"({len(data)} bytes)"


with zipfile.ZipFile(sys.argv[1]) as archive:
    if (broken := archive.testzip()) is not None:
        sys.exit(f"{broken} is broken")
    type_of = content_types(archive)
    for name in archive.namelist():
        is_document = name.lower().endswith((".rels", "core.xml", "core1.xml")) or name == "[Content_Types].xml"
        print(name if is_document else f"{name} [{type_of(name)}] {shown(archive.read(name))}")
        if name.lower().endswith(".rels"):
            assert type_of(name) == OFFICE + "relationships+xml", name
    for name in archive.namelist():
        if name.lower().endswith(".rels"):
            for link in xml.fromstring(archive.read(name)):
                kind = link.get("Type").rpartition("/")[2]
                print(f"{name}: {link.get('Id')} {kind} {link.get('Target')}")
                if kind == "core-properties":
                    assert link.get("Type") == CORE, link.get("Type")
                    assert type_of(link.get("Target").lstrip("/")) == OFFICE + "core-properties+xml", name
        elif name.endswith(("core.xml", "core1.xml")):
            for element in xml.fromstring(archive.read(name)):
                print(f"{element.tag.rpartition('}')[2]}: {element.text or ''}")
