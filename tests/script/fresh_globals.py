"""fresh_globals.py SCRIPT OUTPUT: writes statements that give every global variable of a script the
value that it has when the host loads the script."""
import pathlib
import re
import sys


def main():
    text = pathlib.Path(sys.argv[1]).read_text("latin-1").replace("\r\n", "\n")
    section = re.search(r"^Var\n(.*?)^(?:Procedure|Function|\{---)", text, re.M | re.S).group(1)
    names = re.findall(r"^ +(\w+) *: *(\w+);", section, re.M)
    if len(names) < 3:
        sys.exit("no global variables were found")
    pathlib.Path(sys.argv[2]).write_text("".join(f"  {name} := Default({kind});\n" for name, kind in names))


main()
