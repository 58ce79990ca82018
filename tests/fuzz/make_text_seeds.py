#!/usr/bin/env python3
"""Writes the seed inputs of the fuzzers of outside text (TextFuzz.h) into
corpus-msgtext and corpus-msgfile (message texts of a few classes with every
field set, in the layouts a person gives them, and one text for each kind of
refusal), corpus-msgjson (the same as JSON, in the layouts a script gives
them, and refused documents) and corpus-catalogue (a byte 0 and the tool's
arguments separated by NUL bytes, or a byte 1 and a file for `file`).
Inputs that a fuzzer found are added by hand as crash-<what>; every seed
stays below the 8 KiB that scripts/check.sh gives the fuzzers.
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


HAND = {
    "layout-bom-crlf-notes": "\ufeff# a reply kept for a test\r\nM10 {\r\n\r\n\tT6  i\t-7   \r\n"
                             "  # inside\r\n  T7 s \"\\x41\\x7F\"\r\n}",
    "layout-unset": "M2161 M_Greeks {\n  T615 dTheta d -\n  T616 dRho d -\n  T2668 m M1925 {\n"
                    "  }\n}\n",
    "refused-class": "M9 {\n}\n",
    "refused-tag": "M10 {\n  T612 d 1\n}\n",
    "refused-letter": "M10 {\n  T6 d 1.5\n}\n",
    "refused-name": "M10 {\n  T6 iSysRefMsgNo i 1\n}\n",
    "refused-second": "M10 {\n  T6 i 1\n  T6 i 2\n}\n",
    "refused-held": "M2161 {\n  T2668 m M2143 {\n  }\n}\n",
    "refused-open": "M2161 {\n  T2668 m M1925 {\n",
    "refused-range": "M10 {\n  T6 i 2147483648\n}\n",
    "refused-double": "M2161 {\n  T615 d 1e-400\n}\n",
    "refused-date": "M2143 {\n  T198 n \"202401011\"\n}\n",
    "date-not-in-calendar": "M2143 {\n  T198 n \"20260231\"\n}\n",
    "refused-escape": "M10 {\n  T7 s \"a\\x4\"\n}\n",
    "refused-nul": "M10 {\n  T7 s \"a\\x00\"\n}\n",
    "refused-quote": "M10 {\n  T7 s \"ab\\\n}\n",
    "refused-after": "M10 {\n}\nM10 {\n}\n",
}

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


HAND_JSON = {
    "layout-any-order": '{"dTheta": -0e0, "number": 2161, "daDelta": [1, -2, 1E2], '
                        '"maRhoValue": [{"iRateCrvId": 7}, {}]}',
    "layout-bom-class-only": '\ufeff{"class": "M_Tiv", "nDate": null, "sMatur": "1Y"}',
    "layout-hex": '{"class": "M_Tiv", "nDate": {"hex": "3230323630323331"}, '
                  '"sMatur": {"hex": "C3A9fF"}}',
    "date-not-in-calendar": '{"class": "M_Tiv", "nDate": "20260231"}',
    "refused-range": '{"number": 10, "iSysCode": 18446744073709551616}',
    "refused-long-value": '{"number": 2161, "dTheta": "' + "1e" + "0" * 300 + 'x"}',
    "refused-nul": '{"class": "M_Tiv", "sMatur": "a\\u0000b"}',
    "refused-twice": '{"class": "M_Tiv", "sMatur": "1Y", "sMatur": "2Y"}',
    "refused-no-class": '{"sMatur": "1Y"}',
    "refused-held": '{"number": 2161, "maRhoValue": [{}, {"number": 2143}]}',
    "refused-deep": "[" * 200,
    "refused-syntax": '{"class": "M_Tiv",\n "nDate": tru}',
}

COMMANDS = [
    ["list", "Note"], ["list"], ["find", "dStrike"], ["find", "4535"], ["find", "zzzz"],
    ["show", "M_IrNoteFlterHwMc", "--depth", "2"], ["show", "hbnotedualmultirngaccr"],
    ["show", "M_InstInfo", "--depth", "0"], ["show", "99999"], ["holders", "M_Tiv"],
    ["holders", "dStrike"], ["holders", "dStrik"], ["dump", "3721"], ["dump", "InstInf"],
    ["shwo", "M_InstInfo"], ["help"], [], ["show"], ["file", "M10 {\n  T6 i 3\n}\n"],
    ["file", "M10 {\n  T6 i 3\n  T7 i 4\n}\n"], ["show", "M_Inst\x1b[2JInfo"],
    ["find", "--role=request", "fx", "barrier"], ["show", "dStrike"], ["search", "cds"],
    ["find", *["w%d" % i for i in range(300)]],
]


def write(directory, name, data):
    assert len(data) <= MAX_SEED, (name, len(data))
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, name), "wb") as fh:
        fh.write(data)


def main():
    schema = load(os.path.join(ROOT, "schema"))
    texts = {}
    for name in CLASSES:
        texts[f"class-{name}"] = text_of(schema, name)
    texts["class-M_Tiv-no-names"] = text_of(schema, "M_Tiv", names=False)
    texts["class-M_Greeks-no-names"] = text_of(schema, "M_Greeks", names=False)
    texts.update(HAND)
    for directory in ("corpus-msgtext", "corpus-msgfile"):
        for name, text in texts.items():
            write(os.path.join(HERE, directory), f"seed-{name}", text.encode())
    documents = {f"class-{name}": json.dumps(json_of(schema, name), indent=2) for name in CLASSES}
    documents.update(HAND_JSON)
    for name, text in documents.items():
        write(os.path.join(HERE, "corpus-msgjson"), f"seed-{name}", text.encode())
    catalogue = os.path.join(HERE, "corpus-catalogue")
    for i, args in enumerate(COMMANDS):
        write(catalogue, f"seed-args-{i:02d}", b"\0" + "\0".join(args).encode())
    for name in ("class-M_SysReject", "class-M_Greeks", "layout-bom-crlf-notes", "refused-held"):
        write(catalogue, f"seed-file-{name}", b"\1" + texts[name].encode())


if __name__ == "__main__":
    main()
