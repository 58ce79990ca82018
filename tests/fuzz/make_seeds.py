#!/usr/bin/env python3
"""Writes the seed inputs of the fuzzer: for a few classes, the bytes from
which FuzzHarness.cpp builds a message with every field filled.

    make_seeds.py OUT_DIR

The byte layout mirrors TreeBuilder in FuzzHarness.cpp: class index (two
bytes, in the order of the test support's class list: families by file
name, rows in file order), a number byte (non-zero: the class's own number),
then for each message a field count and for each field an op byte, the
field's index, and its values.
"""

import os
import struct
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import load  # noqa: E402

SEEDS = ["M_SysReject", "M_KytVolSurface", "M_SeriesValOut", "M_EqCmb",
         "M_EqSwapStarAutoPlain", "M_FxFwdStdTgt", "M_IrNoteFlterHwMc", "M_IrNoteHwOut",
         "M_CcSwapHwOut", "M_HbNoteDualMultiRngAccr", "M_FiWrHwOut", "M_CrCdsOut"]

FIELD_OP = 0x22  # below 224, and neither a type change (op % 16 == 0) nor a forced repeat (1)
SET = 0x03       # set, true, and a sub-message of the field's own class


def encode(schema, msg, depth, out):
    fields = msg.fields[:31]
    out.append(len(fields))
    for index, f in enumerate(fields):
        out += bytes([FIELD_OP, index])
        count = (2 if depth < 2 else 1) if f.is_array else 1
        if f.is_array:
            out.append(count)
        for k in range(count):
            out.append(SET)
            if f.kind in ("i", "ia"):
                out += struct.pack("<i", 1000 * depth + index + k)
            elif f.kind in ("d", "da"):
                out += struct.pack("<d", 0.25 * (index + 1) + k)
            elif f.kind == "n":
                out += bytes([8]) + b"20261123"
            elif f.kind == "s":
                text = f"{f.name[1:4]}{k}".encode()
                out += bytes([len(text)]) + text
            elif f.kind in ("m", "ma"):
                encode(schema, schema.message(f.sub), depth + 1, out)


def main(out_dir):
    schema = load(os.path.join(ROOT, "schema"))
    order = [m.name for m in schema.messages]
    os.makedirs(out_dir, exist_ok=True)
    for name in SEEDS:
        out = bytearray(struct.pack("<H", order.index(name)) + bytes([1]))
        encode(schema, schema.message(name), 0, out)
        with open(os.path.join(out_dir, f"seed-{name}"), "wb") as fh:
            fh.write(out)


if __name__ == "__main__":
    main(sys.argv[1])
