"""check_script.py FOLDER FREE [MORE]: rejects code in the script files of a folder that a Pascal compiler accepts
but the host's interpreter is known to reject or to misinterpret, and every member of the host that no public
script uses (members/script.txt). FREE is the only routine that the host may offer to run. MORE is a list of
further members, for a script that tests them; such a script may also call members that stop the interpreter.

Each rule is first tested with a line that it must reject, so that a rule cannot stop working unnoticed.
"""
import pathlib
import re
import sys

MEMBERS = pathlib.Path(__file__).resolve().parent / "members"
sys.path.insert(0, str(MEMBERS))
sys.dont_write_bytecode = True
import host_members  # noqa: E402

STOPS_WHY = "an error in it stops the interpreter, or it fails silently"
# pattern, why, a piece of code that must be refused
RULES = [
    (r"\bforward\b", "routines stand above their first use; 'forward' is not known everywhere",
     "Procedure P(X : Integer); forward;"),
    (r"(?<![\w\]])\[", "no set or array literals, no index on nothing", "If X In [1, 2] Then"),
    (r"\)\s*\[", "no index on the result of a call", "S := F(1)[2];"),
    (r"\b(Inc|Dec)\s*\(", "Inc and Dec of an element are refused: write the sum", "Inc(A[1]);"),
    (r"\b(Integer|Cardinal|Int64|String|Boolean|IPCB_\w+)\s*\(", "no casts", "I := Integer(X);"),
    (r"\$[0-9A-Fa-f]", "no hexadecimal numbers", "I := $12345;"),
    (r"\bCase\b", "no Case: enumerations of the host do not work in it", "Case X Of"),
    (r"\bon\s+\w+\s*:", "no 'on E:' handlers", "on E : Exception Do"),
    (r"\barray\b", "fixed arrays spoil the result of functions", "A : array[0..2] of Integer;"),
    (r"\b(record|class|packed|interface|implementation|uses|unit|program|inherited|with)\b",
     "no types of our own, no unit header, no With", "With Board Do"),
    (r"\bType\b", "no type section", "Type T = Integer;"),
    (r"[\^@]", "no pointers", "P := @X;"),
    (r"\.Add\(''\)", "an empty string is no argument of Add", "List.Add('');"),
    (r"\b(MaxInt|Val)\b", "names that the interpreter does not know", "Val(S, I, C);"),
    (r"\.(Clear|Insert)\b", "undeclared in some versions", "List.Clear;"),
    (r"\b(Then|Else|Do)\s+Try\b", "Try after Then, Else or Do needs Begin", "If X Then Try"),
    (r"\bExit\s*\(", "Exit takes no value", "Exit(1);"),
    (r"\b(goto|Label|asm|out|absolute)\b", "reserved words", "Procedure P(out X : Integer);"),
    (r"\bConst\b[^;]*\w\s*:\s*\w+\s*=", "no typed constants", "Const X : Integer = 5;"),
    (r"(<=?|>=?)(?<!<>)(?!>)\s*'|'\s*(<=?(?!>)|>=?)", "no order of texts: it follows the language of Windows",
     "If S > 'x' Then"),
    (r"\b(Rewrite|Reset|Append|AssignFile|CloseFile|RenameFile|CopyFile)\s*\(",
     STOPS_WHY, "Rewrite(F);"),
    (r"\b\d{7,}\b(?!\s*;)", "a magic number: name it", "If X = 16777217 Then"),
]
RESERVED = {"as", "in", "is", "label", "type", "object", "out", "file", "set", "string", "result", "unit"}
# The host ignores a misspelt process silently.
PROCESSES = {"WorkspaceManager:GenerateReport", "WorkspaceManager:CloseObject"}


def strip_comments(text):
    """Returns the code without comments, with empty strings and the same lines, and complaints about comments."""
    bad, out, i = [], [], 0
    while i < len(text):
        if text.startswith("//", i):
            end = text.find("\n", i)
            i = len(text) if end < 0 else end
        elif text[i] == "{":
            end = text.index("}", i)
            comment = text[i + 1:end]
            if comment.startswith("$"):
                bad.append("compiler directives are ignored silently: " + comment)
            if "{" in comment:
                bad.append("nested braces in a comment")
            out.append("\n" * comment.count("\n"))
            i = end + 1
        elif text[i] == "'":
            end = i + 1
            while text[end] != "'" or text[end:end + 2] == "''":
                end += 2 if text[end] == "'" else 1
            out.append("''" if end == i + 1 else "'x'")
            i = end + 1
        else:
            out.append(text[i])
            i += 1
    return "".join(out), bad


def broken_rules(code):
    found = []
    for pattern, why, _ in RULES:
        for hit in re.finditer(pattern, code, re.IGNORECASE):
            line = code.count("\n", 0, hit.start()) + 1
            found.append(f"line {line}: {why}: {code.splitlines()[line - 1].strip()}")
    return found


HEAD = re.compile(r"^(Procedure|Function)\s+([\w.]+)\s*(\(([^)]*)\))?", re.MULTILINE | re.IGNORECASE)


def routines(code):
    heads = list(HEAD.finditer(code))
    for head, following in zip(heads, heads[1:] + [None]):
        end = following.start() if following else len(code)
        yield head, code[head.start():end]


def result_complaints(body):
    """Yields the functions that do not assign Result once, from a local variable, as their last statement: in the
    host's interpreter, any other form returned another value to the caller."""
    uses = re.findall(r"\bResult\b", body, re.I)
    last = re.search(r"Result\s*:=\s*(\w+)\s*;\s*End\s*;\s*(?:\{[^}]*\}\s*)*$", body.strip(), re.I)
    block = re.search(r"\bVar\b(.*?)\bBegin\b", body, re.S | re.I)
    local = {x.lower() for x in re.findall(r"(\w+)\s*:", block.group(1))} if block else set()
    if len(uses) != 1 or not last or last.group(1).lower() not in local:
        return ["Result is not given once, from a local variable, as the last statement"]
    return []


def check_routines(code, original):
    found, free = [], []
    for head, body in routines(code):
        kind, name, _, parameters = head.groups()
        if parameters is None:
            free.append(name)
            if kind.lower() == "function":
                found.append(f"{name}: a function without a parameter is offered to be run")
        declared = re.findall(r"(\w+)\s*:", parameters or "")
        block = re.search(r"\bVar\b(.*?)\bBegin\b", body[head.end() - head.start():], re.S | re.I)
        local = re.findall(r"(\w+)\s*:[^=]", block.group(1)) if block else []
        if block and re.search(r":[^;]*=", block.group(1)):
            found.append(f"{name}: an initialised variable")
        for twice in {x.lower() for x in declared} & {x.lower() for x in local}:
            found.append(f"{name}: the parameter {twice} is declared again")
        for word in RESERVED & {x.lower() for x in declared + local}:
            found.append(f"{name}: the name {word} is reserved")
        if "." not in name:
            use = re.search(rf"\b{name}\b", code)
            if use.start() < head.start():
                found.append(f"{name} is used above its definition")
        if kind.lower() == "function":
            found += [f"{name}: {text}" for text in result_complaints(body[head.end() - head.start():])]
    for process in re.findall(r"RunProcess\('([^']*)'\)", original):
        if process not in PROCESSES:
            found.append("unknown process " + process)
    return found, free


def check_file(path):
    data = path.read_bytes()
    found = []
    if any(byte > 126 for byte in data):
        found.append("a character outside ASCII")
    if data.count(b"\r\n") != data.count(b"\n") or b"\t" in data:
        found.append("line ends are not CR LF throughout, or tabs")
    text = data.decode("latin-1").replace("\r\n", "\n")
    code, bad = strip_comments(text)
    more, free = check_routines(code, text)
    return found + bad + broken_rules(code) + more, free


def check_members(folder, more):
    """Checks the members in all files together, since the units of a project share one name space."""
    listed = host_members.Listed((MEMBERS / "script.txt").read_text() + more)
    code = "".join(strip_comments(p.read_text("latin-1"))[0] for p in sorted(folder.glob("*.pas")))
    return host_members.uses(code, listed)[1]


def check_form(folder):
    form = (folder / "Kestrune_WaitForm.dfm").read_text("ascii")
    code = "".join(strip_comments(p.read_text("ascii"))[0] for p in sorted(folder.glob("*.pas")))
    objects = set(re.findall(r"object (\w+): \w+", form))
    raw = "".join(p.read_text("ascii") for p in sorted(folder.glob("*.pas")))
    found = check_label_widths(form, raw)
    if not check_label_widths(form, raw + "NoteLabel.Caption := '" + "n" * 70 + "';"):
        found.append("a rule that refuses nothing: texts that are too wide")
    if "poScreenCenter" not in form or "FormStyle" in form:
        found.append("the form does not centre itself, or lies on top of everything")
    found += [f"the form has no {used}"
             for used in set(re.findall(r"KestruneWaitForm\.(\w+)\.", code)) - objects]
    for handler in re.findall(r"^\s*On\w+ = (\w+)", form, re.MULTILINE):
        if f"TKestruneWaitForm.{handler}(" not in code:
            found.append("the form names a handler that does not exist: " + handler)
    project = (folder / "Kestrune.PrjScr").read_text("ascii")
    listed = sorted(re.findall(r"^DocumentPath=(.*)$", project, re.MULTILINE))
    if listed != sorted(p.name for p in folder.glob("*.pas")):
        found.append(f"the project lists {listed}")
    return found


# Upper bounds of what a character of the form's font (Tahoma 8) takes at 96 dpi, in pixels.
NARROW, MIDDLE, WIDE = set("iljI.,:;'|! "), set("frt()-/"), set("mwMW%@")


def width(text, bold=False):
    return sum((4 if c in NARROW else 5 if c in MIDDLE else 11 if c in WIDE else 8 if c.isupper() else 7)
               + bold for c in text)


def label_texts(code):
    """Returns the texts that the script assigns to each label."""
    texts = [(label, text) for label, text in
             re.findall(r"(\w+Label)\.Caption\s*:=\s*'([^']*)'(?!\s*\+)", code)]
    texts += [("StepLabel", "Step 6 of 6: " + text)
              for text in re.findall(r"KsShowStep\(\d, '\w+', '([^']*)'\)", code)]
    texts.append(("TimeLabel", "Running for 86400 s."))
    longest = int(re.search(r"KsBoardNameWidth = (\d+)", code).group(1))
    texts.append(("BoardLabel", "W" * longest))
    return texts


def check_label_widths(form, code):
    found = []
    room = {label: int(w) for label, w in
            re.findall(r"object (\w+Label): TLabel.*?\bWidth = (\d+)", form, re.S)}
    texts = label_texts(code)
    if len(texts) < 10:
        found.append("the texts of the labels were not found")
    for label, text in texts:
        for scale in (1, 1.5):
            needed = sum(int(scale * width(c, label == "BoardLabel") + 0.5) for c in text)
            if needed > room[label] * scale:
                found.append(f"{label} is too narrow at {scale:.0%} for: {text}")
    return found


def check_placeholders(folder):
    found = []
    for name in ("@RUNTIME_ROOT@", "@TEMP_ROOT@"):
        lines = [line for path in folder.glob("*.pas") for line in path.read_text("ascii").splitlines()
                 if name in line]
        if len(lines) != 1 or not lines[0].startswith("// ") or not lines[0].endswith("=" + name):
            found.append(f"{name} must stand once, at the end of a line comment: {lines}")
    return found


def blind_rules():
    blind = [why for _, why, bad in RULES if not any(why in hit for hit in broken_rules(
        strip_comments(bad)[0] if "''" not in bad else bad))]
    samples = {
        "used above": "Procedure A(X : Integer);\nBegin\n B(1);\nEnd;\nProcedure B(X : Integer);\nBegin\nEnd;\n",
        "declared again": "Procedure A(X : Integer);\nVar\n X : Integer;\nBegin\nEnd;\n",
        "initialised": "Procedure A(X : Integer);\nVar\n Y : Integer = 1;\nBegin\nEnd;\n",
        "offered to be run": "Function A : Integer;\nBegin\nEnd;\n",
        "reserved": "Procedure A(File : Integer);\nBegin\nEnd;\n",
        "last statement": "Function A(X : Integer) : Integer;\nBegin\n Result := X.Count;\nEnd;\n",
        "unknown process": "RunProcess('WorkspaceManager:Genrate');",
    }
    blind += [why for why, code in samples.items()
              if not any(why in hit for hit in check_routines(code, code)[0])]
    listed = host_members.Listed(
        "IPCB_Board.MasterLayerStack [17-] : x\nIPCB_Board.FileName : x\nS : x\nUnsupported [0-9] : x\n")
    head = "Procedure A(B : IPCB_Board);\nBegin\n "
    for good in ("S := B.FileName;", "If KsHost >= 17 Then S := B.MasterLayerStack;",
                 "If KsHost >= 17 Then S := B.FileName Else S := B.FileName;",
                 "If KsHost >= 10 Then S := B.FileName Else Unsupported;",
                 "If KsHost >= 17 Then\n Begin\n Try\n S := B.MasterLayerStack;\n Finally\n End;\n End;"):
        complaints = [c for c in host_members.uses(head + good + "\nEnd;\n", listed)[1] if "KsHost" not in c]
        blind += [f"a good member is refused: {good}: {c}" for c in complaints]
    for why, bad in (("not among", "S := B.FileNames;"), ("not among", "S := Elsewhere(B);"),
                     ("belongs to versions", "S := B.MasterLayerStack;"),
                     ("belongs to versions", "If KsHost >= 16 Then S := B.MasterLayerStack;"),
                     ("belongs to versions", "If KsHost >= 17 Then S := B.FileName Else S := B.MasterLayerStack;"),
                     ("belongs to versions", "If KsHost >= 17 Then S := B.FileName; S := B.MasterLayerStack;")):
        complaints = host_members.uses(head + bad + "\nEnd;\n", listed)[1]
        if not any(why in complaint for complaint in complaints if "KsHost" not in complaint):
            blind.append(f"{why}: {bad}")
    if not strip_comments("{$I x}")[1] or not strip_comments("{ { }")[1]:
        blind.append("comments")
    return blind


def main():
    folder = pathlib.Path(sys.argv[1])
    more = pathlib.Path(sys.argv[3]).read_text() if len(sys.argv) > 3 else ""
    found = ["a rule that refuses nothing: " + why for why in blind_rules()]
    free = []
    for path in sorted(folder.glob("*.pas")):
        complaints, runnable = check_file(path)
        if more:
            complaints = [c for c in complaints if STOPS_WHY not in c and "order of texts" not in c]
        found += [f"{path.name}: {complaint}" for complaint in complaints]
        free += runnable
    found += check_members(folder, more)
    if free != [sys.argv[2]]:
        found.append(f"routines without a parameter: {free}")
    if not more:
        found += check_form(folder) + check_placeholders(folder)
    for complaint in found:
        print("not ok script text:", complaint)
    if not found:
        print("ok script text")
    return 1 if found else 0


sys.exit(main())
