"""check_package.py FOLDER: the output job and the images of the package.

The job is compared with every real output job in $KESTRUNE_SAMPLES/outjob: the same sections, no
spelling that no host writes, every plot field that hosts write. Without the samples only what the
program and the script need is checked.
"""
import os
import pathlib
import re
import struct
import sys
import zlib

FIRST_V7, LAST_V7 = 17, 112
CONFIGURATION = re.compile(r"^Configuration(\d+)_Item1=(.*)$", re.MULTILINE)


def fields(line):
    return [tuple(field.split("=", 1)) for field in line.split("|")]


def odb_lines(text):
    """Returns the ODB++ configuration lines of a job."""
    for number in re.findall(r"^OutputType(\d+)=ODB$", text, re.MULTILINE):
        for n, line in CONFIGURATION.findall(text):
            if n == number and "Record=ODBView" in line:
                yield line


def is_plot(key):
    return key.startswith("Plot") and key.endswith("Plot")


def shape(text):
    """Returns the keys of each section, with every number replaced by the same sign."""
    shapes, section = {}, ""
    for line in text.splitlines():
        if line.startswith("["):
            section = line
            shapes.setdefault(section, set())
        elif "=" in line:
            shapes[section].add(re.sub(r"\d+", "#", line.split("=", 1)[0]))
    return shapes


def check_job(data, last_mechanical, container):
    text = data.decode("ascii").replace("\r\n", "\n")
    found = []

    def need(condition, complaint):
        if not condition:
            found.append(complaint)

    def value(key):
        values = re.findall(rf"^{re.escape(key)}=(.*)$", text, re.MULTILINE)
        return values[0] if len(values) == 1 else None

    need(data.count(b"\r\n") == data.count(b"\n"), "line ends are not CR LF throughout")
    need(value("OutputType1") == "ODB", "ODB++ is not output 1")
    need(text.count("Configuration1_Item1=") == 1, "not one Configuration1_Item1=")
    need("OutputType2" not in text and "OutputMedium2" not in text, "more than one output or container")
    need(value("OutputMedium1_Type") == "GeneratedFiles", "the container is not folder-based")
    need(value("TargetOutputMedium") == value("OutputMedium1") == container, "container name")
    need(container not in ("Generated Files", "Folder Structure", "PDF", "Print Job"),
         "a container name that other jobs have: a process that meets the wrong job would run it")
    need(value("OutputEnabled1_OutputMedium1") == "1", "the output is not in the container")
    need(value("OutputDocumentPath1") == "Bridge.PcbDoc", "the output is not bound to the board")
    need(value("OutputBasePath1") == "Project Outputs for Bridge", "base folder")
    need(value("OutputPathOutputer1") == "[Output Type]", "without it there is no folder ODB")
    need(value("OutputPathMedia1") == "", "a folder between")
    for key in ("TimestampFolder1", "OpenODBOutput1", "OpenOutputs1", "AddToProject1", "ReleaseManaged1"):
        need(value(key) == "0", key + " is not 0")
    need(not re.search(r"[A-Za-z]:\\|\\\\", text), "an absolute path")

    line = next(odb_lines(text), "=")
    pairs = fields(line)
    config = dict(pairs)
    need(len(config) == len(pairs), "a field stands twice")
    need(config.get("Compression_zip") == "True" and config.get("Compression_None") == "False"
         and config.get("Compression_tar_tgz") == "False", "compression")
    need(config.get("DocumentPath") == "Bridge.PcbDoc", "DocumentPath")
    on = {k for k in config if is_plot(k) and config[k] != "False"}
    need(on == {"PlotPTHPair0_Plot", "PlotNPTHPair0_Plot"}, f"plot fields that are on: {on}")
    numbers = [k for k, _ in pairs if re.fullmatch(r"Plot_V7_\d+", k)]
    need(numbers == sorted(numbers), "Plot_V7_ fields are not ordered as text")
    names = {config.get(k + "_name") for k in numbers}
    need(names == {f"Mechanical Layer {n}" for n in range(FIRST_V7, LAST_V7 + 1)}, "Plot_V7_ names")
    need(last_mechanical == LAST_V7, f"the script believes in {last_mechanical} mechanical layers")
    return found


def check_against_samples(data, folder):
    text = data.decode("ascii").replace("\r\n", "\n")
    ours = shape(text)
    our_fields = {re.sub(r"\d+", "#", k) if k.startswith("Plot_V7_") else k
                  for line in odb_lines(text) for k, _ in fields(line)}
    found, known, known_fields, plots, longest = [], {}, set(), set(), 0
    jobs = sorted(folder.glob("*.OutJob"))
    for job in jobs:
        sample = job.read_bytes().decode("latin-1").replace("\r\n", "\n")
        sections = re.findall(r"^\[\w+\]$", sample, re.MULTILINE)
        if sections != re.findall(r"^\[\w+\]$", text, re.MULTILINE):
            found.append(f"{job.name} has other sections: {sections}")
        for section, keys in shape(sample).items():
            known.setdefault(section, set()).update(keys)
        longest = max(longest, max(map(len, sample.splitlines())))
        for line in odb_lines(sample):
            keys = {k for k, _ in fields(line)}
            known_fields |= {re.sub(r"\d+", "#", k) if k.startswith("Plot_V7_") else k for k in keys}
            plots |= {k for k in keys if is_plot(k)}
    for section, keys in ours.items():
        found += [f"no host writes {section} {key}" for key in sorted(keys - known.get(section, set()))]
    found += ["no host writes the field " + key for key in sorted(our_fields - known_fields)]
    found += ["a plot field is missing: " + key for key in sorted(plots - our_fields)]
    found += check_values(dict(fields(next(odb_lines(text)))), [
        dict(fields(line)) for job in jobs
        for line in odb_lines(job.read_bytes().decode("latin-1").replace("\r\n", "\n"))])
    if max(map(len, text.splitlines())) > longest:
        found.append("a line longer than any that hosts write")
    if not jobs or not plots:
        found.append("no sample job was read")
    return found


def check_values(ours, lines):
    """Checks that every field but the plot fields has a value that a real job has for it."""
    found = []
    for key, value in ours.items():
        seen = {line[key] for line in lines if key in line}
        if key != "DocumentPath" and not is_plot(key) and not key.startswith("Plot_V7_") and value not in seen:
            found.append(f"{key}={value}, and real jobs have only {sorted(seen)}")
    return found


def png_pixels(data):
    """Returns width, height and rows of a PNG with four bytes for each pixel and no interlacing."""
    width, height, depth, kind, _, _, interlaced = struct.unpack(">IIBBBBB", data[16:29])
    assert (depth, kind, interlaced) == (8, 6, 0)
    packed, at = b"", 8
    while at < len(data):
        size, name = struct.unpack(">I4s", data[at:at + 8])
        packed += data[at + 8:at + 8 + size] if name == b"IDAT" else b""
        at += size + 12
    raw, rows, above = zlib.decompress(packed), [], bytes(4 * width)
    for y in range(height):
        start = y * (4 * width + 1)
        how, row = raw[start], bytearray(raw[start + 1:start + 1 + 4 * width])
        for i in range(len(row)):
            left = row[i - 4] if i >= 4 else 0
            corner = above[i - 4] if i >= 4 else 0
            up = above[i]
            guess = left + up - corner
            paeth = min((left, up, corner), key=lambda v: abs(guess - v))
            row[i] = (row[i] + (0, left, up, (left + up) // 2, paeth)[how]) & 255
        rows.append([tuple(row[i:i + 4]) for i in range(0, len(row), 4)])
        above = bytes(row)
    return width, height, rows


def brightness(r, g, b):
    linear = [v / 3294.6 if v <= 10 else ((v / 255 + 0.055) / 1.055) ** 2.4 for v in (r, g, b)]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def visible_pixels(pixels, bar):
    """Returns the number of pixels with a contrast of at least 2:1 to the toolbar."""
    back = brightness(*bar)
    return sum(max(brightness(*p), back) + 0.05 >= 2 * (min(brightness(*p), back) + 0.05) for p in pixels)


def check_images(folder):
    found, images = [], {}
    bmp = (folder / "odbpp-toolbar-legacy.bmp").read_bytes()
    offset, _, width, height, _, bits = struct.unpack("<I I ii HH", bmp[10:30])
    if (width, height, bits) != (16, 16, 24):
        return [f"legacy bitmap: {width}x{height}, {bits} bits"]
    points = [tuple(bmp[offset + i * 3:offset + i * 3 + 3][::-1]) for i in range(256)]
    if points[0] != (255, 0, 255):
        found.append("legacy bitmap: the lower left pixel is not the transparent colour")
    if any(p != (255, 0, 255) and p[0] > 200 and p[2] > 200 and p[1] < 100 for p in points):
        found.append("legacy bitmap: a pixel is mixed with the transparent colour")
    images["legacy"] = [p for p in points if p != (255, 0, 255)]
    for name in ("activebar", "ad26-16"):
        width, height, rows = png_pixels((folder / f"odbpp-toolbar-{name}.png").read_bytes())
        if (width, height) != (16, 16):
            found.append(f"{name}: {width}x{height}")
        images[name] = [p[:3] for row in rows for p in row if p[3] > 127]
    for name, pixels in images.items():
        if not 40 <= len(pixels) <= 220:
            found.append(f"{name}: {len(pixels)} of 256 pixels are drawn")
        for bar in ((240, 240, 240), (201, 214, 232), (45, 45, 48)):
            if visible_pixels(pixels, bar) < 40:
                found.append(f"{name} does not stand out from a bar of the colour {bar}")
    return found


def main():
    package = pathlib.Path(sys.argv[1])
    data = (package / "Runtime/Bridge.OutJob").read_bytes()
    script = (package / "Script/Kestrune.pas").read_text("ascii")
    last = int(re.search(r"KsLastMechanical = (\d+)", script).group(1))
    container = re.search(r"KsMedium\s*= '([^']*)'", script).group(1)
    found = check_job(data, last, container) + check_images(package / "Assets")
    samples = pathlib.Path(os.environ.get("KESTRUNE_SAMPLES", package / "../../shared/samples")) / "outjob"
    if samples.is_dir():
        found += check_against_samples(data, samples)
    else:
        print(f"skipped: the output job was not compared with real ones: there is no {samples}")
    for complaint in found:
        print("not ok package:", complaint)
    if not found:
        print("ok package")
    return 1 if found else 0


sys.exit(main())
