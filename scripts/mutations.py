"""What scripts/mutate can change in a source: every place and what it becomes, found in the text by patterns. What these
take for an expression and is none does not compile, and then does not count."""

import collections, dataclasses, re


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str
    start: int
    end: int
    new: str
    line: int
    name: str  # FILE:LINE:COLUMN:KIND:N

    def lines(self, text):
        """The lines that change, as they are and as they become."""
        first, last = text.rfind("\n", 0, self.start) + 1, text.find("\n", self.end)
        old, new = text[first:last], text[first:self.start] + self.new + text[self.end:last]
        return " ".join(old.split()), " ".join(new.split())


SWAPS = {
    "bound": {"<": "<=", "<=": "<", ">": ">=", ">=": ">"},
    "logic": {"&&": "||", "||": "&&"},
    "equality": {"==": "!=", "!=": "=="},
    "sign": {"+": "-", "-": "+", "+=": "-=", "-=": "+="},
}
STEPS = {"++": "--", "--": "++"}
LOCK = re.compile(r"(?:const )?(?:std::)?(?:lock_guard|unique_lock|scoped_lock|shared_lock)\b[^\n;]*;")
CONDITION = re.compile(r"\b(?:if|while) (?:constexpr )?\(")
STATEMENT = re.compile(r"(?:(?<=[;{})])|\belse)\s+(?:\(void\))?((?:[A-Za-z_]\w*(?:\(\)|\[\w+\])?(?:\.|->|::))*[A-Za-z_]\w*\()")
CALL = re.compile(r"\b(\w+)[({]")
DECLARATION = re.compile(r"[\w>&*] *[ &*]+\w+$")
ONLY_FASTER = re.compile(r"(reserve|shrink_to_fit)\($")


def masked(text):
    """The text without what is not an expression, letter for letter as long."""
    hidden = "|".join((
        r"(?:(?<=\) )|(?<=const )|(?<=noexcept ))= 0;", r'R"(\w*)\((?:.|\n)*?\)\1"', r'"(?:\\.|[^"\\\n])*"',
        r"(?P<number>\b\d[\w'.]*)", r"'(?:\\.|[^'\\\n])*'", r"//[^\n]*", r"/\*(?:.|\n)*?\*/",
        r"^[ \t]*#(?:\\\n|[^\n])*", r"\b(?:(?:static_)?assert|__builtin_prefetch)\([^;]*;"))
    return re.sub(hidden, lambda m: m[0] if m["number"] else re.sub(r"[^\n]", " ", m[0]), text, flags=re.M)


def closing(text, opening):
    """Where the bracket that opens here closes, and the commas and semicolons directly inside."""
    depth, marks = 0, []
    for at in range(opening, len(text)):
        if text[at] in "([{":
            depth += 1
        elif text[at] in ")]}":
            depth -= 1
            if depth == 0:
                return at, marks
        elif depth == 1 and text[at] in ",;":
            marks.append(at)
    return None, []


def changes(text):
    """Every (kind, start, end, new text)."""
    code = masked(text)
    for kind, swap in SWAPS.items():
        for m in re.finditer(r"(?<= )(?:%s)(?=\s)" % "|".join(re.escape(o) for o in sorted(swap, key=len)[::-1]), code):
            yield kind, m.start(), m.end(), swap[m[0]]
    for m in re.finditer(r"\+\+|--", code):
        yield "sign", m.start(), m.end(), STEPS[m[0]]
    for m in re.finditer(r"(?<![\w)\]])!(?!=)", code):
        yield "not", m.start(), m.end(), ""
    for m in re.finditer(r"\breturn (true|false);", code):
        yield "return", m.start(1), m.end(1), "false" if m[1] == "true" else "true"
    for m in re.finditer(r"(?<![\w.'])(0x[0-9a-fA-F]+|\d[\d']*)([uUlLzZ]*)(?![\w.'])", code):
        value = int(m[1].replace("'", ""), 16 if m[1].startswith("0x") else 8 if m[1].startswith("0") else 10)
        for number in {value + 1, max(value - 1, 0)} - {value}:
            yield "constant", m.start(1), m.end(1), str(number)
    for m in LOCK.finditer(code):
        yield "lock", m.start(), m.end(), ";"
    for m in CONDITION.finditer(code):
        end, marks = closing(code, m.end() - 1)
        start = max([at + 1 for at in marks if code[at] == ";"], default=m.end())
        if end and not re.fullmatch(r"\s*![\w.:>()-]+", code[start:end]):
            yield "negate", start, end, f" !({text[start:end].strip()})".lstrip(" " if start == m.end() else "")
    for m in STATEMENT.finditer(code):
        end = closing(code, m.end() - 1)[0]
        while end and (chain := re.compile(r"\s*(?:\.|->)\w+\(").match(code, end + 1)):
            end = closing(code, chain.end() - 1)[0]
        if end and code[end + 1:end + 2] == ";" and not ONLY_FASTER.search(m[1]):
            yield "drop", m.start(1), end + 1, ""
    for m in CALL.finditer(code):
        end, marks = closing(code, m.end() - 1)
        edges = [m.end() - 1, *marks, end]
        if not end or any(code[at] == ";" for at in marks) or m[1] in ("min", "max"):
            continue
        for before, middle, after in zip(edges, edges[1:], edges[2:]):
            one, two = text[before + 1:middle].strip(), text[middle + 1:after].strip()
            if one and two and one != two and not DECLARATION.search(one) and not DECLARATION.search(two):
                yield "swap", before + 1, after, f"{two}, {one}"


def mutants_of(path, text, wanted=None):
    found, seen = [], collections.Counter()
    for kind, start, end, new in changes(text):
        line, column = text.count("\n", 0, start) + 1, start - text.rfind("\n", 0, start)
        seen[line, column, kind] += 1
        if wanted is None or line in wanted:
            name = f"{path}:{line}:{column}:{kind}:{seen[line, column, kind]}"
            found.append(Mutant(path, start, end, new, line, name))
    return found
