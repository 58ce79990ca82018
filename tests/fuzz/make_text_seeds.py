#!/usr/bin/env python3
"""Writes the seeds of the fuzzers of outside text (TextFuzz.h) that come
from the schema: the messages of a few classes with every field set, as
texts (with names and without) in corpus-msgtext and corpus-msgfile, as JSON
in corpus-msgjson, and two of them as files for the catalogue tool's `file`
command in corpus-catalogue (a first byte 1, then the file).

The other seeds are kept as they are, written by hand: layouts a person or a
script gives a file (layout-*), one input for each kind of refusal
(refused-*), the tool's command lines (seed-args-*: a byte 0, then the
arguments separated by NUL bytes), and what a fuzzer found (crash-*). Every
seed stays below the 8 KiB that scripts/check.sh gives the fuzzers.
"""

import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import load  # noqa: E402

CLASSES = ["M_SysReject", "M_Tiv", "M_Greeks", "M_KytVolSurface", "M_IrTargetSwitching",
           "M_FxFwdStdTgt", "M_SeriesValOut", "M_CrCdsOut"]
MAX_SEED = 8192


def value(f, index, k):
    base = f.kind[0]
    if base == "i":
        return str([7, -2147483648, 2147483647, 0][(index + k) % 4])
    if base == "d":
        return ["0.1", "-0", "5e-324", "1.7976931348623157e+308", "inf", "-nan", "0.25"][
            (index + k) % 7]
    if base == "b":
        return "YN"[(index + k) % 2]
    if base == "n":
        return '"20261123"'
    return '"a\\"b\\\\c\\n\\t\\x7f\\xC3\\xA9"' if (index + k) % 2 else '""'


def block(schema, msg, depth, lines, names=True):
    """The lines of `msg` with every field set; arrays of two elements near the top."""
    pad = "  " * depth
    for index, f in enumerate(msg.fields):
        count = (2 if depth < 2 else 1) if f.is_array else 1
        for k in range(count):
            head = f"{pad}  T{f.tag} {f.name + ' ' if names else ''}{f.kind[0]} "
            if f.sub:
                sub = schema.message(f.sub)
                lines.append(f"{head}M{sub.number} {sub.name} {{")
                block(schema, sub, depth + 1, lines, names)
                lines.append(f"{pad}  }}")
            else:
                lines.append(head + value(f, index, k))


def text_of(schema, name, names=True):
    msg = schema.message(name)
    lines = [f"M{msg.number} {msg.name} {{"]
    block(schema, msg, 0, lines, names)
    lines.append("}")
    return "\n".join(lines) + "\n"


def json_value(f, index, k):
    base = f.kind[0]
    if base == "i":
        return [7, -2147483648, 2147483647, 0][(index + k) % 4]
    if base == "d":
        return [0.1, "-NaN", 5e-324, 1.7976931348623157e+308, "Infinity", -0.0, 0.25][
            (index + k) % 7]
    if base == "b":
        return (index + k) % 2 == 0
    if base == "n":
        return "20261123"
    return "a\"b\\c\n\t\u007f\u00e9" if (index + k) % 2 else ""


def json_of(schema, name, depth=0):
    """A JSON message of `name` with every field set; arrays of two elements near the top."""
    msg = schema.message(name)
    out = {"class": msg.name, "number": msg.number} if depth == 0 else {}
    for index, f in enumerate(msg.fields):
        count = (2 if depth < 2 else 1) if f.is_array else 1
        if f.sub:
            values = [json_of(schema, f.sub, depth + 1) for _ in range(count)]
        else:
            values = [json_value(f, index, k) for k in range(count)]
        out[f.name] = values if f.is_array else values[0]
    return out


def write(directory, name, data):
    assert len(data) <= MAX_SEED, (name, len(data))
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, name), "wb") as fh:
        fh.write(data)


def main():
    schema = load(os.path.join(ROOT, "schema"))
    texts = {f"class-{name}": text_of(schema, name) for name in CLASSES}
    for name in ("M_Tiv", "M_Greeks"):
        texts[f"class-{name}-no-names"] = text_of(schema, name, names=False)
    for directory in ("corpus-msgtext", "corpus-msgfile"):
        for name, text in texts.items():
            write(os.path.join(HERE, directory), f"seed-{name}", text.encode())
    for name in CLASSES:
        document = json.dumps(json_of(schema, name), indent=2)
        write(os.path.join(HERE, "corpus-msgjson"), f"seed-class-{name}", document.encode())
    for name in ("class-M_SysReject", "class-M_Greeks"):
        data = b"\1" + texts[name].encode()
        write(os.path.join(HERE, "corpus-catalogue"), f"seed-file-{name}", data)


if __name__ == "__main__":
    main()
