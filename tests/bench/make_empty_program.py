#!/usr/bin/env python3
"""make_empty_program.py COMPILER LIKE.exe OUT.exe: links an empty windowless program that imports
exactly what LIKE.exe imports. The start of LIKE.exe is compared with it: the loader does the same work for
both, so the difference is the work of LIKE.exe itself.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

compiler, like, out = sys.argv[1:]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def imports(path):
    found, library = {}, None
    for line in run("i686-w64-mingw32-objdump", "-p", path).splitlines():
        if match := re.match(r"\s*DLL Name: (.+)\.dll", line, re.IGNORECASE):
            library = match.group(1).lower()
            found[library] = set()
        elif library and (match := re.match(r"\s*[0-9a-f]+\s+(?:[0-9a-f]+\s+)?\d+\s+(\S+)$", line)):
            found[library].add(match.group(1))
    return found


wanted = imports(like)
symbols = []
for library, names in wanted.items():
    archive = run(compiler, f"-print-file-name=lib{library}.a").strip()
    known = set(re.findall(r"__imp__(\S+)", run("i686-w64-mingw32-nm", "-A", archive)))
    for name in names:
        decorated = [s for s in known if re.fullmatch(re.escape(name) + r"(@\d+)?", s)]
        symbols += [f"__imp__{s}" for s in decorated[:1]]
with tempfile.TemporaryDirectory() as folder:
    source = pathlib.Path(folder, "empty.c")
    source.write_text("#include <windows.h>\nint WINAPI wWinMain(HINSTANCE a, HINSTANCE b, "
                      "wchar_t *c, int d)\n{ (void)a; (void)b; (void)c; (void)d; return 0; }\n")
    run(compiler, "-O2", "-mwindows", "-municode", "-static", "-s", "-Wl,--dynamicbase,--nxcompat",
        *(f"-Wl,-u,{symbol}" for symbol in symbols), "-o", out, str(source),
        "-lole32", "-lshell32", "-ladvapi32", "-luser32", "-lkernel32")
missing = {library: names - imports(out).get(library, set()) for library, names in wanted.items()}
missing = {library: sorted(names) for library, names in missing.items() if names}
if missing:
    sys.exit(f"not imported by the empty program: {missing}")
