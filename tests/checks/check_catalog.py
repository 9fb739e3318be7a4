"""What the compiler does not see of the messages: that an identifier which no raising call names has a text,
that every text is raised somewhere, and that the catalogs are in order. usage: check_catalog.py SOURCE_FOLDER"""
import json
import re
import sys
from pathlib import Path

IDENTIFIER = re.compile(r'([=!]= )?"(\w+:\w+:\w+)"')


def read_catalog(path):
    """(identifiers, problems); the build itself refuses a text whose placeholders have a gap."""
    keys = [key for key, _ in json.loads(path.read_text(encoding="utf-8"), object_pairs_hook=list)]
    pairs = zip(keys, keys[1:])
    problems = [f"{path}: {key} is there twice or comes before {other}" for key, other in pairs if key >= other]
    return {f"{path.stem}:{key}" for key in keys}, problems


def main(root):
    texts, problems, named, raised = set(), [], {}, set()
    for path in sorted(root.glob("catalog/en/*.json")):
        found, wrong = read_catalog(path)
        texts |= found
        problems += wrong
    for path in sorted(root.glob("src/**/*.[ch]*")) + sorted(root.glob("hosts/**/*.[ch]*")):
        code = re.sub(r"//.*", "", path.read_text(encoding="utf-8"))
        for compared, identifier in IDENTIFIER.findall(code):
            named[identifier] = path
            raised |= set() if compared else {identifier}
    problems += [f"{named[name]}: {name} has no text" for name in sorted(set(named) - texts)]
    problems += [f"{name}: no source raises it" for name in sorted(texts - raised)]
    print(*problems, f"{len(texts)} texts, {len(named)} identifiers", sep="\n")
    return 1 if problems or not texts else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve()))
