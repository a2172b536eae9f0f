#!/usr/bin/env python3
"""repack.py FOLDER OUT: packs the content of each .tgz in FOLDER as a .zip in OUT."""
import pathlib
import sys
import tarfile
import zipfile

folder, out = map(pathlib.Path, sys.argv[1:])
out.mkdir(parents=True, exist_ok=True)
for source in sorted(folder.glob("*.tgz")):
    with tarfile.open(source) as tar, zipfile.ZipFile(
            out / (source.stem + "-tgz.zip"), "w", zipfile.ZIP_DEFLATED) as archive:
        for member in tar.getmembers():
            if member.isfile():
                archive.writestr(member.name, tar.extractfile(member).read())
