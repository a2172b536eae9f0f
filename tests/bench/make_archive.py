#!/usr/bin/env python3
"""make_archive.py FILE MEGABYTES: writes an ODB++ archive of that size with 60 layers of equal size."""
import sys
import zipfile

LAYERS = 60
PIECE = bytes(1 << 20)
size = (int(sys.argv[2]) << 20) // LAYERS
rows = "".join(f"LAYER {{\r\n    ROW={i}\r\n    CONTEXT=BOARD\r\n    TYPE=SIGNAL\r\n    NAME=LAYER_{i}\r\n}}\r\n"
               for i in range(LAYERS))
with zipfile.ZipFile(sys.argv[1], "w") as archive:
    archive.writestr("odb/matrix/matrix", "STEP {\r\n    NAME=PCB\r\n}\r\n" + rows, zipfile.ZIP_DEFLATED)
    for i in range(LAYERS):
        with archive.open(f"odb/steps/pcb/layers/layer_{i}/features", "w") as features:
            for at in range(0, size, len(PIECE)):
                features.write(PIECE[:min(len(PIECE), size - at)])
