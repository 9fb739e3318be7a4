"""Writes the table of message identifiers that the compiler checks raising calls against.

usage: message_table.py TABLE CATALOG…

An entry is an identifier ("catalog:component:key") and the number of arguments that its text takes. The table
is written only when it differs: a new wording rebuilds nothing.
"""
import json
import re
import sys
from pathlib import Path


def entries(catalog):
    for key, text in json.loads(catalog.read_text(encoding="utf-8")).items():
        numbers = {int(number) for number in re.findall(r"\{(\d)\}", text)}
        if numbers != set(range(len(numbers))):
            sys.exit(f"{catalog}: the text of {key} leaves out a placeholder below {{{max(numbers)}}}")
        yield f"{catalog.stem}:{key}", len(numbers)


def main(table, *catalogs):
    messages = sorted(entry for catalog in catalogs for entry in entries(Path(catalog)))
    lines = [f'{{"{identifier}", {arguments}}},\n' for identifier, arguments in messages]
    new, table = "".join(lines), Path(table)
    if not table.exists() or table.read_text(encoding="utf-8") != new:
        table.write_text(new, encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
