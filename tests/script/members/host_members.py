"""Finds the members of the host that a script uses, and the test of the host's version under which it does.

The list of the allowed members is a text file with a line for each member or name,

    Type.Member -> Type of its result [17-18] : where it was seen

with the arrow only if members of the result are used, and the versions only if hosts differ.
"""
import re

KEYWORDS = set("""and begin const div do downto else end except false finally for function if mod nil not
of or procedure repeat result then to true try until var while xor""".split())
TOKEN = re.compile(r"\s*([A-Za-z_]\w*|\d+(?:\.\d+)?|'[^']*'|:=|<=|>=|<>|.)", re.S)
HEAD = re.compile(r"^(?:Procedure|Function)\s+([\w.]+)\s*(?:\((.*?)\))?\s*(?::\s*(\w+))?\s*;",
                  re.M | re.I | re.S)
DECLARED = re.compile(r"(\w+)\s*:\s*(\w+)")


class Listed:
    def __init__(self, text):
        self.entries = {}
        for line in text.splitlines():
            if not line or line.startswith("#"):
                continue
            hit = re.fullmatch(r"([\w.]+)(?: -> (\w+))?(?: \[(\d*)-(\d*)\])? : (.+)", line)
            if not hit:
                raise ValueError("no line of a list of members: " + line)
            name, result, first, last, source = hit.groups()
            self.entries[name.lower()] = (name, result, int(first or 0), int(last or 9999), source)

    def find(self, name):
        return self.entries.get(name.lower())


def tokens_of(code):
    return [hit.group(1) for hit in TOKEN.finditer(code) if hit.group(1).strip()]


def closing(tokens, at):
    """Returns the position after the bracket that opens at `at`."""
    pair, depth = {"(": ")", "[": "]"}[tokens[at]], 0
    for i in range(at, len(tokens)):
        depth += (tokens[i] == tokens[at]) - (tokens[i] == pair)
        if depth == 0:
            return i + 1
    raise ValueError("a bracket is not closed")


class Routine:
    """Reads the statements of one routine and checks each name."""

    def __init__(self, name, types, body, report):
        self.name, self.types, self.report = name, types, report
        self.tokens, self.at, self.versions = tokens_of(body), 0, (0, 9999)

    def peek(self):
        return self.tokens[self.at].lower() if self.at < len(self.tokens) else ""

    def take(self, word=None):
        token = self.tokens[self.at]
        if word and token.lower() != word:
            raise ValueError(f"{self.name}: {word} expected, not {token}")
        self.at += 1
        return token

    def expression(self, *ends):
        """Reads names up to one of the words; returns the tokens between."""
        start = self.at
        while self.peek() not in ends:
            if not self.peek():
                raise ValueError(f"{self.name}: {ends} expected")
            if re.match(r"[a-z_]", self.peek()) and self.peek() not in KEYWORDS:
                self.chain()
            else:
                self.at += 1
        return self.tokens[start:self.at]

    def inside(self):
        end = closing(self.tokens, self.at)
        self.take()
        while self.at < end - 1:
            if re.match(r"[a-z_]", self.peek()) and self.peek() not in KEYWORDS:
                self.chain()
            else:
                self.at += 1
        self.at = end

    def chain(self):
        """Reads a name and the members after it."""
        kind = self.use(self.take(), None)
        while self.peek() in ("(", "[", "."):
            if self.peek() == ".":
                self.take()
                kind = self.use(self.take(), kind or "?")
            else:
                self.inside()

    def use(self, name, owner):
        if owner is None and name.lower() in self.types:
            return self.types[name.lower()]
        return self.report(self.name, name if owner is None else f"{owner}.{name}", self.versions)

    def guarded(self, condition, then):
        """Reads the branch under a condition; a test of the host's version restricts the allowed members."""
        before = self.versions
        text = " ".join(condition).lower()
        hit = re.search(r"\b(?:ks|pr)host >= (\d+)", text)
        if hit and " or " not in text:
            number = int(hit.group(1))
            low, high = before
            self.versions = (max(low, number), high) if then else (low, min(high, number - 1))
            if not then and " and " in text:
                self.versions = before
        self.statement()
        self.versions = before

    def statement(self):
        word = self.peek()
        if word == "begin":
            self.take()
            self.until("end")
        elif word == "if":
            self.take()
            condition = self.expression("then")
            self.take()
            self.guarded(condition, True)
            if self.peek() == "else":
                self.take()
                self.guarded(condition, False)
        elif word in ("while", "for"):
            self.take()
            self.expression("do")
            self.take()
            self.statement()
        elif word == "repeat":
            self.take()
            self.until("until")
            self.expression(";", "end", "else", "")
        elif word == "try":
            self.take()
            middle = self.until("except", "finally")
            if middle in ("except", "finally"):
                self.until("end")
        else:
            self.expression(";", "end", "else", "until", "except", "finally")

    def until(self, *ends):
        while self.peek() not in ends:
            if self.peek() == ";":
                self.take()
            else:
                self.statement()
        return self.take().lower()

    def run(self):
        self.take("begin")
        self.until("end")


def uses(code, listed):
    """Returns (routine, name or Type.Member, versions) for everything that the code does not declare itself, and
    complaints about names that are not listed, or for other versions. `code` must have no comments and empty
    strings."""
    found, complaints = [], []
    heads = list(HEAD.finditer(code))
    own = {}
    before = code[:heads[0].start()] if heads else code
    section = re.search(r"^Var\b(.*)", before, re.M | re.S)
    for name, kind in DECLARED.findall(section.group(1) if section else ""):
        own[name.lower()] = kind
    for name in re.findall(r"^\s+(\w+)\s*=", before, re.M):
        own[name.lower()] = "?"

    def report(routine, name, versions):
        entry = listed.find(name)
        found.append((routine, name, versions))
        if entry is None:
            complaints.append(f"{routine}: {name} is not among the members that were seen somewhere")
            return "?"
        if versions[0] < entry[2] or (versions[1] > entry[3]):
            complaints.append(f"{routine}: {name} belongs to versions {entry[2]} to {entry[3]} of the host,"
                              " and the branch does not test for that")
        return entry[1] or "?"

    for head, following in zip(heads, heads[1:] + [None]):
        body = code[head.end():following.start() if following else len(code)]
        name, parameters, result = head.groups()
        types = dict(own)
        block = re.match(r"\s*Var\b(.*?)\bBegin\b", body, re.S | re.I)
        for text in (parameters or "", block.group(1) if block else ""):
            for variable, kind in DECLARED.findall(text):
                types[variable.lower()] = kind
        types[name.lower()] = result or "?"
        start = re.search(r"\bBegin\b", body, re.I)
        try:
            Routine(name, types, body[start.start():], report).run()
        except (ValueError, IndexError) as error:
            complaints.append(f"{name}: {error}")
        own[name.lower()] = result or "?"
    return found, complaints
