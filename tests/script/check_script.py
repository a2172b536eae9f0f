"""check_script.py FOLDER: refuses in the package's script files what the host's interpreter is known
not to accept, or to accept and misunderstand, although a Pascal compiler takes it.

Each rule is first tried on a line that it must refuse, so that a rule cannot go blind unnoticed.
"""
import pathlib
import re
import sys

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
]
RESERVED = {"label", "type", "object", "out", "file", "set", "string", "result", "unit"}
# Members that some hosts do not have, and a handler cannot catch that.
VERSION_DEPENDENT = ["GetMechanicalLayer", "LayerObject_V7", "MasterLayerStack", "V7_LayerID",
                     "GetRunningScriptProjectName"]
# The host ignores a misspelt process silently.
PROCESSES = {"WorkspaceManager:GenerateReport", "WorkspaceManager:CloseObject"}


def strip_comments(text):
    """The code alone, strings emptied but for their quotes, lines kept; complaints about comments."""
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
        for member in VERSION_DEPENDENT:
            if re.search(rf"\b{member}\b", body) and "KsHost >=" not in body:
                found.append(f"{name}: {member} without a test of the host's version")
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


def check_form(folder):
    form = (folder / "Kestrune_WaitForm.dfm").read_text("ascii")
    code = "".join(strip_comments(p.read_text("ascii"))[0] for p in sorted(folder.glob("*.pas")))
    objects = set(re.findall(r"object (\w+): \w+", form))
    found = [f"the form has no {used}"
             for used in set(re.findall(r"KestruneWaitForm\.(\w+)\.", code)) - objects]
    for handler in re.findall(r"^\s*On\w+ = (\w+)", form, re.MULTILINE):
        if f"TKestruneWaitForm.{handler}(" not in code:
            found.append("the form names a handler that does not exist: " + handler)
    project = (folder / "Kestrune.PrjScr").read_text("ascii")
    listed = sorted(re.findall(r"^DocumentPath=(.*)$", project, re.MULTILINE))
    if listed != sorted(p.name for p in folder.glob("*.pas")):
        found.append(f"the project lists {listed}")
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
        "host's version": "Procedure A(X : Integer);\nBegin\n S := B.MasterLayerStack;\nEnd;\n",
        "unknown process": "RunProcess('WorkspaceManager:Genrate');",
    }
    blind += [why for why, code in samples.items()
              if not any(why in hit for hit in check_routines(code, code)[0])]
    if not strip_comments("{$I x}")[1] or not strip_comments("{ { }")[1]:
        blind.append("comments")
    return blind


def main():
    folder = pathlib.Path(sys.argv[1])
    found = ["a rule that refuses nothing: " + why for why in blind_rules()]
    free = []
    for path in sorted(folder.glob("*.pas")):
        complaints, runnable = check_file(path)
        found += [f"{path.name}: {complaint}" for complaint in complaints]
        free += runnable
    if free != ["RunKestrune"]:
        found.append(f"routines without a parameter: {free}")
    found += check_form(folder) + check_placeholders(folder)
    for complaint in found:
        print("not ok script text:", complaint)
    if not found:
        print("ok script text")
    return 1 if found else 0


sys.exit(main())
