"""compare_runtime.py STAGE RUNTIME: checks that the runtime folder has exactly the files of the stage, with
the same times, and in its script the two paths."""
import pathlib
import re
import sys

SOURCES = {
    "Kestrune.exe": "Kestrune.exe",
    "Kestrune.PrjScr": "Script/Kestrune.PrjScr",
    "Kestrune_WaitForm.pas": "Script/Kestrune_WaitForm.pas",
    "Kestrune_WaitForm.dfm": "Script/Kestrune_WaitForm.dfm",
    "Bridge.OutJob": "Runtime/Bridge.OutJob",
    "odbpp-toolbar-legacy.bmp": "Assets/odbpp-toolbar-legacy.bmp",
    "odbpp-toolbar-activebar.png": "Assets/odbpp-toolbar-activebar.png",
    "odbpp-toolbar-ad26-16.png": "Assets/odbpp-toolbar-ad26-16.png",
    "Kestrune.pas": "Script/Kestrune.pas",
}


def main():
    stage, runtime = map(pathlib.Path, sys.argv[1:])
    found = []
    for name, source in SOURCES.items():
        target = runtime / name
        if not target.is_file():
            found.append(f"{name} is missing")
            continue
        expected, actual = (stage / source).read_bytes(), target.read_bytes()
        if name == "Kestrune.pas":
            filled = re.search(rb"RUNTIME-ROOT=([^\r\n]*)\r\n// KESTRUNE-TEMP-ROOT=([^\r\n]*)", actual)
            if not filled:
                found.append("the script's folders are not where they are read from")
                continue
            expected = expected.replace(b"@RUNTIME_ROOT@", filled[1]).replace(b"@TEMP_ROOT@", filled[2])
            if not filled[1].endswith(rb"\AppData\Local\Kestrune\Runtime") \
                    or not filled[2].endswith(rb"\Public\Documents\Kestrune\Temp"):
                found.append(f"the script's folders are {filled.groups()}")
        if expected != actual:
            found.append(f"{name} has other content")
        if int(target.stat().st_mtime) != int((stage / source).stat().st_mtime):
            found.append(f"{name} has another time")
    found += [f"{path.name} is too much" for path in runtime.iterdir() if path.name not in SOURCES]
    for complaint in found:
        print("  runtime:", complaint)
    return 1 if found else 0


sys.exit(main())
