#!/usr/bin/env python3
"""Checks of what is built: check_binary.py Kestrune.exe [SOURCE_FOLDER...]
                        check_binary.py --setup SETUP.exe [SOURCE_FOLDER...]

Reads the file without further tools: headers, import list,
flags, relocations, resources (manifest, version, icon), texts and size. Of a setup program only the
texts, after unpacking it. Prints what is wrong and ends with "N passed, N failed"; the exit code is
0 when nothing failed.
"""
import lzma
import os
import re
import struct
import sys

ALLOWED_LIBRARIES = {"KERNEL32", "USER32", "ADVAPI32", "SHELL32", "OLE32", "MSVCRT"}
VERSION = (0, 2, 3, 0)
SIZE_LIMIT = 1_500_000
TYPE_ICON, TYPE_GROUP_ICON, TYPE_VERSION, TYPE_MANIFEST = 3, 14, 16, 24

passed = failed = 0


def check(text, holds, found=""):
    global passed, failed
    if holds:
        passed += 1
    else:
        failed += 1
        print(f"FAILED: {text}" + (f"; found {found}" if found != "" else ""))


class Image:
    """A 32-bit portable executable."""

    def __init__(self, data):
        self.data = data
        self.header = self.u32(0x3C)
        self.sections = []
        count, optional_size = self.u16(self.header + 6), self.u16(self.header + 20)
        table = self.header + 24 + optional_size
        for i in range(count):
            at = table + 40 * i
            name = data[at:at + 8].rstrip(b"\0").decode("ascii", "replace")
            size, address, raw_size, raw = struct.unpack_from("<4I", data, at + 8)
            self.sections.append((name, address, size, raw, raw_size, self.u32(at + 36)))

    def u16(self, at):
        return struct.unpack_from("<H", self.data, at)[0]

    def u32(self, at):
        return struct.unpack_from("<I", self.data, at)[0]

    def at(self, address):
        for _, begin, size, raw, raw_size, _ in self.sections:
            if begin <= address < begin + max(size, raw_size):
                return raw + address - begin
        raise ValueError(f"address {address:#x} lies in no section")

    def text(self, at):
        return self.data[at:self.data.index(b"\0", at)].decode("ascii")

    def directory(self, index):
        return struct.unpack_from("<2I", self.data, self.header + 24 + 96 + 8 * index)

    def imports(self):
        address, size = self.directory(1)
        found = {}
        at = self.at(address) if size else None
        while at is not None and self.u32(at + 12):
            library = self.text(self.at(self.u32(at + 12)))
            lookup = self.at(self.u32(at) or self.u32(at + 16))
            names = []
            while self.u32(lookup):
                entry = self.u32(lookup)
                names.append(f"#{entry & 0xFFFF}" if entry >> 31 else self.text(self.at(entry) + 2))
                lookup += 4
            found[library.upper().removesuffix(".DLL")] = names
            at += 20
        return found

    def resources(self):
        """Returns the bytes of each resource by its type."""
        address, size = self.directory(2)
        found = {}
        if not size:
            return found
        root = self.at(address)

        def walk(at, path):
            entries = self.u16(at + 12) + self.u16(at + 14)
            for i in range(entries):
                name, offset = struct.unpack_from("<2I", self.data, at + 16 + 8 * i)
                if offset >> 31:
                    walk(root + (offset & 0x7FFFFFFF), path + [name])
                else:
                    begin, length = struct.unpack_from("<2I", self.data, root + offset)
                    start = self.at(begin)
                    found.setdefault(path[0], []).append(self.data[start:start + length])

        walk(root, [])
        return found

    def relocations(self):
        address, size = self.directory(5)
        count, at, end = 0, self.at(address) if size else 0, 0
        end = at + size
        while size and at + 8 <= end:
            block = self.u32(at + 4)
            if block < 8:
                break
            count += (block - 8) // 2
            at += block
        return count


def check_headers(image):
    check("the file is a portable executable", image.data[image.header:image.header + 4] == b"PE\0\0")
    check("the machine is a 32-bit x86", image.u16(image.header + 4) == 0x014C)
    check("the image is 32-bit", image.u16(image.header + 24) == 0x010B)
    check("the program has no console", image.u16(image.header + 24 + 68) == 2)
    flags = image.u16(image.header + 24 + 70)
    check("addresses are randomised", flags & 0x0040)
    check("data is not executed", flags & 0x0100)
    check("relocations were not stripped", not image.u16(image.header + 22) & 0x0001)
    check("there are relocations, without which nothing is randomised", image.relocations() > 1000,
          image.relocations())
    check("symbols were stripped", image.u32(image.header + 12) == 0)
    check("the file contains no build time", image.u32(image.header + 8) == 0,
          image.u32(image.header + 8))
    writable_code = [s[0] for s in image.sections if s[5] & 0x20000000 and s[5] & 0x80000000]
    check("no section is both code and writable", not writable_code, writable_code)
    check("nothing is exported", image.directory(0)[1] == 0)
    check("nothing is loaded later besides the import list", image.directory(13)[1] == 0)


def check_imports(image):
    imports = image.imports()
    check("only libraries that Windows takes from its own list are imported",
          set(imports) == ALLOWED_LIBRARIES, sorted(imports))
    names = {name for library in imports.values() for name in library}
    check("nothing is imported by number", not any(name.startswith("#") for name in names))
    check("planted libraries are locked out at the start", "SetDefaultDllDirectories" in names)
    for name in ("WinExec", "system", "_wsystem", "ShellExecuteW", "URLDownloadToFileW"):
        check(f"{name} is not imported", name not in names)


def check_manifest(manifest):
    text = manifest.decode("utf-8")
    check("the manifest requests the caller's rights",
          re.search(r'<requestedExecutionLevel\s+level="asInvoker"\s+uiAccess="false"', text))
    check("the manifest knows Windows 10", "8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a" in text)
    check("the manifest is aware of each monitor's resolution",
          re.search(r"<dpiAwareness[^>]*>\s*PerMonitorV2", text))
    check("the manifest says so to older systems", re.search(r"<dpiAware[ >][^<]*true/pm", text))
    check("the manifest lifts the path limit", re.search(r"<longPathAware[^>]*>\s*true", text))
    check("the manifest takes common controls 6",
          re.search(r'Common-Controls"\s+version="6\.0\.0\.0"', text))
    check("the manifest leaves the ANSI code page alone", "<activeCodePage" not in text)
    check("the manifest bears the version", 'version="0.2.3.0"' in text)


def check_version(resource):
    at = resource.index(struct.pack("<I", 0xFEEF04BD))
    fixed = struct.unpack_from("<13I", resource, at)
    for text, high, low in (("file", fixed[2], fixed[3]), ("product", fixed[4], fixed[5])):
        version = (high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF)
        check(f"the {text} version is 0.2.3", version == VERSION, version)
    strings = resource.decode("utf-16-le", "replace")
    for key, value in (("ProductName", "Kestrune"), ("OriginalFilename", "Kestrune.exe"),
                       ("FileVersion", "0.2.3"), ("ProductVersion", "0.2.3")):
        check(f"{key} is {value}", re.search(key + "\0+" + re.escape(value) + "\0", strings))


def check_resources(image):
    resources = image.resources()
    for kind, text in ((TYPE_MANIFEST, "manifest"), (TYPE_VERSION, "version"),
                       (TYPE_GROUP_ICON, "icon")):
        check(f"there is one {text}", len(resources.get(kind, [])) == 1, len(resources.get(kind, [])))
    check("the icon comes in several sizes", len(resources.get(TYPE_ICON, [])) >= 3,
          len(resources.get(TYPE_ICON, [])))
    if resources.get(TYPE_MANIFEST):
        check_manifest(resources[TYPE_MANIFEST][0])
    if resources.get(TYPE_VERSION):
        check_version(resources[TYPE_VERSION][0])


def check_strings(data, folders):
    """Checks that the data contains no folder of the build machine, neither in bytes nor in UTF-16."""
    for folder in folders:
        check(f"the file does not contain the folder {folder}",
              os.fsencode(folder) not in data and folder.encode("utf-16-le") not in data)
    narrowed = data.replace(b"\0", b"")
    for pattern in (rb"/home/[a-z]", rb"[A-Z]:\\(work|build|src)\\", rb"[a-z0-9_]+_win32\.cpp",
                    rb"\.pdb(\0|$)"):
        found = re.search(pattern, data) or re.search(pattern, narrowed)
        check(f"the file does not contain {pattern.decode()}", not found,
              found.group(0) if found else "")


def unpacked_setup(data):
    """Returns the content of a setup program: one LZMA stream after the installer's 28-byte header."""
    start = data.index(b"\xef\xbe\xad\xdeNullsoftInst") + 24
    kind, dictionary = data[start], struct.unpack_from("<I", data, start + 1)[0]
    stream = lzma.LZMADecompressor(lzma.FORMAT_RAW, filters=[{
        "id": lzma.FILTER_LZMA1, "lc": kind % 9, "lp": kind // 9 % 5, "pb": kind // 45,
        "dict_size": dictionary}])
    return stream.decompress(data[start + 5:])


def check_setup(data, folders):
    carried = unpacked_setup(data)
    # Without these the stream was not read, and looking for texts in it would prove nothing.
    check("the program was found in the setup program", b"SetDefaultDllDirectories" in carried)
    check("the setup's own texts were found", "--package".encode("utf-16-le") in carried)
    check_strings(data, folders)
    check_strings(carried, folders)


def check_program(data, folders):
    image = Image(data)
    check_headers(image)
    check_imports(image)
    check_resources(image)
    check_strings(data, folders)
    check(f"the file is smaller than {SIZE_LIMIT} bytes", len(data) < SIZE_LIMIT, len(data))


def main():
    arguments = sys.argv[1:]
    check_file = check_program
    if arguments[0] == "--setup":
        check_file = check_setup
        del arguments[0]
    with open(arguments[0], "rb") as file:
        data = file.read()
    project = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    check_file(data, [project] + arguments[1:])
    print(f"{len(data)} bytes")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
