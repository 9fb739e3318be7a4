"""Every message that the sources raise has an English text with exactly the places for its arguments, and
every text is raised somewhere.

usage: check_catalog.py SOURCE_FOLDER

An identifier is any string literal of the form "catalog:component:key" that is not merely compared with.
Its arguments are counted at the call that raises it. A function that passes its own parameter on as the
identifier is a raiser too; what it adds is counted with it. An identifier that stands elsewhere (in a
table, behind a return) is raised by the calls of its file that take the identifier from a variable.
"""
import json
import re
import sys
from dataclasses import dataclass
from pathlib import Path

IDENTIFIER = re.compile(r'"(\w+:\w+:\w+)"')
PLACE = re.compile(r"\{(\d)\}")
# The name before a bracket; of a member "add" also what it is called on, since many things can be added to.
NAME_BEFORE = re.compile(r"((?:[eE]rrors_?(?:\.|->))?[A-Za-z_]\w*)\s*(?:<[^<>;(){}]*>)?\s*$")
PARAMETER = re.compile(r"([A-Za-z_]\w*)\s*$")
TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/"""  # comments
    r"""|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\[^']+|[^'\\])'""",
    re.DOTALL,
)


@dataclass(frozen=True)
class Raiser:
    """A function that raises: where the identifier stands among its arguments, how many arguments it gives
    the message of its own accord, and the first of its arguments that it hands on (None: none)."""

    identifier: int = 0
    given: int = 0
    first_passed: int | None = 1

    def count(self, call_arguments):
        passed = len(call_arguments) - self.first_passed if self.first_passed is not None else 0
        return self.given + max(passed, 0)


PLAIN = {name: Raiser() for name in ("raise", "refuse", "raiseCollection", "errors.add")}
# These take the arguments of the message as one list in braces.
BRACED = re.compile(r"^(emplace_back|except_with_causes|.*Exception|Package\w+)$")


class Source:
    """One file: its code without comments, and the same with blank literals, to match brackets in."""

    def __init__(self, path):
        self.path = path
        text = path.read_text(encoding="utf-8")
        self.code = TOKEN.sub(lambda m: " " * len(m[0]) if m[0].startswith("/") else m[0], text)
        self.shape = TOKEN.sub(lambda m: "'" * len(m[0]), self.code)
        self.partner = self.match_brackets()

    def match_brackets(self):
        partner, open_at = {}, []
        for at, character in enumerate(self.shape):
            if character in "([{":
                open_at.append(at)
            elif character in ")]}" and open_at:
                partner[open_at.pop()] = at
        return partner

    def line(self, at):
        return self.code.count("\n", 0, at) + 1

    def arguments(self, opening):
        """The texts between a bracket and its partner, with where each starts."""
        end = self.partner.get(opening, len(self.shape))
        starts, at = [opening + 1], opening + 1
        while at < end:
            if self.shape[at] in "([{":
                at = self.partner.get(at, end)
            elif self.shape[at] == ",":
                starts.append(at + 1)
            at += 1
        stops = [start - 1 for start in starts[1:]] + [end]
        found = [(start, self.code[start:stop].strip()) for start, stop in zip(starts, stops)]
        return [] if len(found) == 1 and not found[0][1] else found

    def calls(self):
        """Every bracket with a name before it: (name, where the bracket opens)."""
        for opening in self.partner:
            if self.shape[opening] in "({":
                name = NAME_BEFORE.search(self.shape, max(0, opening - 120), opening)
                if name:
                    yield re.sub(r".*(\.|->)", "errors.", name[1]), opening

    def parameters_around(self, at):
        """(name, parameters) of the functions whose bodies contain `at`, innermost first; no lambdas."""
        around = [o for o, c in self.partner.items() if o < at < c and self.shape[o] == "{"]
        for opening in sorted(around, reverse=True):
            head = self.shape.rfind(")", 0, opening)
            if head < 0 or re.search(r"[;{}=]", self.shape[head + 1 : opening]):
                continue
            start = next((o for o, c in self.partner.items() if c == head), None)
            name = start is not None and NAME_BEFORE.search(self.shape, max(0, start - 120), start)
            if name and name[1] not in ("if", "for", "while", "switch", "catch"):
                yield name[1], [text for _, text in self.arguments(start)]


def braced_count(source, call_arguments):
    """How many arguments a list in braces holds; None if they come from elsewhere."""
    if len(call_arguments) < 2:
        return 0
    start, _ = call_arguments[1]
    opening = source.shape.find("{", start)
    stop = call_arguments[2][0] if len(call_arguments) > 2 else len(source.shape)
    is_list = 0 <= opening < stop and re.fullmatch(r"\s*([\w:]*Arguments)?\s*", source.shape[start:opening])
    return len(source.arguments(opening)) if is_list else None


def raised_at(source, raisers):
    """(position, identifier argument, number of message arguments or None) for every raising call."""
    for name, opening in source.calls():
        call = source.arguments(opening)
        raiser = raisers.get((source.path, name)) or PLAIN.get(name) if source.shape[opening] == "(" else None
        if raiser and len(call) > raiser.identifier:
            passed = [text for _, text in call[raiser.identifier + 1 :]]
            pack = any(text.endswith("...") for text in passed)
            yield call[raiser.identifier], None if pack else raiser.count(call), opening
        elif BRACED.match(name) and call:
            has_list = IDENTIFIER.search(call[0][1]) or len(call) > 1
            yield call[0], braced_count(source, call) if has_list else None, opening


def wrappers_in(source, raisers):
    """Functions of the file that pass one of their parameters on as the identifier."""
    for name, opening in source.calls():
        raiser = raisers.get((source.path, name)) or PLAIN.get(name)
        call = source.arguments(opening)
        if not raiser or source.shape[opening] != "(" or len(call) <= raiser.identifier:
            continue
        variable = call[raiser.identifier][1]
        for function, parameters in source.parameters_around(opening):
            names = [m[1] if (m := PARAMETER.search(parameter)) else "" for parameter in parameters]
            if variable not in names:
                continue
            pack = next((text[:-3] for _, text in call if text.endswith("...")), None)
            fixed = raiser.count(call) - (1 if pack else 0)
            wrapper = Raiser(names.index(variable), fixed, names.index(pack) if pack in names else None)
            if name != function:
                yield (source.path, function), wrapper
            break


def count_arguments(sources):
    """identifier -> {number of arguments, or None where it cannot be told: where}"""
    raisers = {}
    for _ in range(3):  # wrappers of wrappers
        raisers.update(entry for source in sources for entry in wrappers_in(source, raisers))
    uses = {}
    for source in sources:
        in_calls, by_variable = set(), set()
        for (start, text), count, opening in raised_at(source, raisers):
            literals = list(IDENTIFIER.finditer(text))
            offset = source.code.index(text, start) if literals else start
            for literal in literals:
                in_calls.add(offset + literal.start())
                uses.setdefault(literal[1], {})[count] = f"{source.path}:{source.line(opening)}"
            if not literals and count is not None and re.fullmatch(r"\*?\w+(\.\w+|->\w+|\[\w+\])*", text):
                by_variable.add(count)
        for literal in IDENTIFIER.finditer(source.code):
            compared = re.search(r"[=!]=\s*$", source.code[: literal.start()])
            if literal.start() in in_calls or compared:
                continue
            place = f"{source.path}:{source.line(literal.start())}"
            for count in by_variable if len(by_variable) == 1 else {None}:
                uses.setdefault(literal[1], {}).setdefault(count, place)
    return uses


def read_catalog(folder, problems):
    texts = {}
    for path in sorted(folder.glob("*.json")):
        try:
            pairs = json.loads(path.read_text(encoding="utf-8"), object_pairs_hook=list)
        except ValueError as error:
            problems.append(f"{path}: {error}")
            continue
        keys = [key for key, _ in pairs]
        if keys != sorted(keys):
            wrong = next(key for key, ordered in zip(keys, sorted(keys)) if key != ordered)
            problems.append(f'{path}: the keys are not sorted at "{wrong}"')
        for key, text in pairs:
            identifier = f"{path.stem}:{key}"
            if identifier in texts:
                problems.append(f"{path}: {key} is there twice")
            texts[identifier] = text
    return texts


def compare(texts, uses, problems):
    for identifier, counts in sorted(uses.items()):
        if identifier not in texts:
            problems.append(f"{next(iter(counts.values()))}: {identifier} has no text")
            continue
        places = {int(place) for place in PLACE.findall(texts[identifier])}
        for count, where in counts.items():
            if count is not None and places != set(range(count)):
                problems.append(f"{where}: {identifier} has {count} arguments, its text {sorted(places)}")
    problems += [f"{identifier}: no source line raises it" for identifier in sorted(set(texts) - set(uses))]


def main(root):
    root, problems = Path(root), []
    files = [path for folder in ("src", "hosts") for path in sorted((root / folder).rglob("*"))]
    files = [path for path in files if path.suffix in (".h", ".cpp")]
    uses = count_arguments([Source(path) for path in files])
    compare(read_catalog(root / "catalog" / "en", problems), uses, problems)
    for problem in problems:
        print(problem.replace(f"{root}/", ""))
    unknown = sum(set(counts) == {None} for counts in uses.values())
    print(f"{len(uses)} identifiers, {unknown} of them with arguments that cannot be counted")
    return 1 if problems or not uses else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
