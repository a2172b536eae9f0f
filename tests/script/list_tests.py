"""list_tests.py SOURCE OUTPUT: writes statements that run the tests in SOURCE: the procedures whose heading ends
in a comment with their groups. Fails for a procedure that is neither a test nor used by one."""
import pathlib
import re
import sys

GROUPS = {"made-up", "real", "installed", "small-disk"}


def main():
    text = pathlib.Path(sys.argv[1]).read_text()
    statements, wrong = [], []
    for name, groups in re.findall(r"^procedure (\w+);(?:  // (.+))?$", text, re.M):
        if groups:
            statements.append(f"  Run('{name}', '{groups}', {name});\n")
            wrong += [f"{name} is in no group {group}" for group in set(groups.split(", ")) - GROUPS]
        elif len(re.findall(rf"\b{name}\b", text)) == 1:
            wrong.append(f"{name} names no group and is called nowhere")
    if wrong or not statements:
        sys.exit("\n".join(wrong) or "no tests were found")
    pathlib.Path(sys.argv[2]).write_text("".join(statements))


main()
