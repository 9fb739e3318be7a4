"""Puts the report page together, scripts, styles and the drawing library, and writes it as a C++ source: the text before
the data and the text behind it. usage: embed.py OUT.cpp FOLDER DYGRAPHS.js LICENCE"""
import base64
import hashlib
import html
import re
import sys
from pathlib import Path

SCRIPTS = ["samples.js", "elements.js", "tables.js", "plots.js", "page.js"]
# A raw string literal may be long, but this must not stand in it.
DELIMITER = "page_text"


def script_text(text):
    """A script as it may stand in a page: nothing in it ends the element or asks for a file."""
    text = re.sub(r"^//[#@] source(Mapping)?URL=.*$", "", text, flags=re.MULTILINE).strip() + "\n"
    if re.search(r"</script|<!--", text, re.IGNORECASE):
        raise SystemExit("embed.py: a script contains markup that would end its element")
    return text


def page(folder, library, licence):
    """The page with @DATA@ where the data goes. Scripts are known by their hashes: no other may run in it."""
    scripts = {"@DYGRAPHS@": script_text(library),
               "@SCRIPT@": script_text("".join((folder / name).read_text(encoding="utf-8") for name in SCRIPTS))}
    hashes = (base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() for text in scripts.values())
    values = {**scripts, "@SCRIPT_HASHES@": " ".join(f"'sha256-{value}'" for value in hashes),
              "@STYLE@": (folder / "page.css").read_text(encoding="utf-8"), "@DYGRAPHS_LICENCE@": html.escape(licence)}
    return re.sub("|".join(values), lambda found: values[found[0]], (folder / "page.html").read_text(encoding="utf-8"))


def literal(text):
    assert f'){DELIMITER}"' not in text
    return f'R"{DELIMITER}({text}){DELIMITER}"'


def main():
    out, folder, library, licence = map(Path, sys.argv[1:])
    before, behind = page(folder, library.read_text(encoding="utf-8"), licence.read_text(encoding="utf-8")).split("@DATA@")
    out.write_text(f"""// Made by embed.py of the page's own files and of dygraphs.
#include <string_view>

#pragma GCC diagnostic ignored "-Woverlength-strings"
namespace tavlox::cli {{
extern const std::string_view kPageBeforeData = {literal(before)};
extern const std::string_view kPageBehindData = {literal(behind)};
}}  // namespace tavlox::cli
""", encoding="utf-8")


if __name__ == "__main__":
    main()
