"""Runs pricemsg-catalogue and checks what it says against the schema.

    test_catalogue_tool.py TOOL TOOL_WITHOUT_PROBE

The second is the same tool built with the probe of a runtime that offers
no way to read a dump back.

The tree of a deep hybrid note is compared with a committed copy
(show_M_HbNoteDualMultiRngAccr.txt); after an intended change of the schema
or of the tool's layout, rewrite it with
    TOOL show M_HbNoteDualMultiRngAccr > tests/tools/show_M_HbNoteDualMultiRngAccr.txt
"""

import os
import re
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import load  # noqa: E402

TOOL = None
TOOL_WITHOUT_PROBE = None
SCHEMA = load(os.path.join(ROOT, "schema"))
BY_NAME = {m.name: m for m in SCHEMA.messages}
LINE = re.compile(r"^( *)(\w+) +T(\d+) +(.*)$")


def run(*args, tool=None):
    r = subprocess.run([tool or TOOL, *args], capture_output=True, text=True, timeout=60)
    return r.returncode, r.stdout, r.stderr


def depth(name):
    return 1 + max((depth(f.sub) for f in BY_NAME[name].fields if f.sub), default=0)


def size(name):
    """The lines of the tree of a class: its head and every field at every level."""
    return 1 + sum(size(f.sub) if f.sub else 1 for f in BY_NAME[name].fields)


class Show(unittest.TestCase):
    def test_deep_note_matches_the_committed_tree(self):
        with open(os.path.join(HERE, "show_M_HbNoteDualMultiRngAccr.txt"), encoding="utf-8") as fh:
            expected = fh.read()
        for name in ("M_HbNoteDualMultiRngAccr", "4270", "hbnotedualmultirngaccr"):
            code, out, err = run("show", name)
            self.assertEqual((code, err), (0, ""))
            self.assertEqual(out, expected, "the tree differs; see the docstring to rewrite it")

    def test_deepest_class_walks_the_schema_field_by_field(self):
        deepest = max(SCHEMA.messages, key=lambda m: (depth(m.name), m.name)).name
        code, out, _ = run("show", deepest)
        self.assertEqual(code, 0)
        lines = out.splitlines()
        self.assertEqual(lines[0].split(), [deepest, str(BY_NAME[deepest].number),
                                            BY_NAME[deepest].family])
        self.assertEqual(len(lines), size(deepest))
        # Replays the tree against the schema: each line is the next field of
        # the class open at its indent, with the dictionary's tag.
        open_classes = [deepest]
        next_field = [0]
        for line in lines[1:]:
            indent, name, tag, holds = LINE.match(line).groups()
            level = len(indent) // 2
            del open_classes[level:], next_field[level:]
            fields = BY_NAME[open_classes[-1]].fields
            field = fields[next_field[-1]]
            next_field[-1] += 1
            self.assertEqual((name, int(tag)), (field.name, field.tag), line)
            if field.sub:
                self.assertIn(field.sub, holds)
                self.assertEqual(holds.startswith("repeated "), field.is_array, line)
                open_classes.append(field.sub)
                next_field.append(0)
        self.assertEqual(max(len(LINE.match(l).group(1)) for l in lines[1:]) // 2,
                         depth(deepest))

        code, out, _ = run("show", deepest, "--depth", "2")
        self.assertEqual(code, 0)
        self.assertTrue(all(len(LINE.match(l).group(1)) <= 4 for l in out.splitlines()[1:]))
        self.assertIn(" ...\n", out)


class Lookups(unittest.TestCase):
    def test_holders_and_find_agree_with_the_schema(self):
        held = "M_HbNotionalInfo"
        holders = sorted(m.name for m in SCHEMA.messages if any(f.sub == held for f in m.fields))
        code, out, _ = run("holders", held)
        self.assertEqual(code, 0)
        self.assertEqual(sorted(line.split()[0] for line in out.splitlines()), holders)

        have = sorted(m.name for m in SCHEMA.messages if any(f.name == "dStrike" for f in m.fields))
        code, out, _ = run("holders", "dStrike")
        self.assertEqual(sorted(line.split()[0] for line in out.splitlines()), have)

        # A number that is both a class and a tag finds both.
        code, out, _ = run("find", "4535")
        self.assertEqual(code, 0)
        self.assertRegex(out, r"M_FiResetCpnSchedule +4535")
        self.assertRegex(out, r"mInstInfo +T4535")

        code, out, _ = run("list", "HBNOTEDUAL")
        self.assertEqual(sorted(line.split()[0] for line in out.splitlines()),
                         sorted(m.name for m in SCHEMA.messages if "HbNoteDual" in m.name))

    def test_dump_makes_a_class_of_every_family(self):
        for family in SCHEMA.families:
            msg = next(m for m in SCHEMA.messages if m.family == family)
            with self.subTest(msg=msg.name):
                code, out, err = run("dump", str(msg.number))
                self.assertEqual((code, err), (0, ""))
                self.assertIn(f"<msgnum> : {msg.number}", out)
                self.assertIn(f"<msgname> : {msg.name}", out)

    def test_dump_without_a_probe_says_so_and_the_rest_still_works(self):
        code, out, err = run("dump", "M_InstInfo", tool=TOOL_WITHOUT_PROBE)
        self.assertEqual((code, out), (1, ""))
        self.assertIn("offers no way to read a dump", err)
        self.assertEqual(run("show", "M_InstInfo", tool=TOOL_WITHOUT_PROBE),
                         run("show", "M_InstInfo"))


class Files(unittest.TestCase):
    def test_file_gets_its_names_and_a_bad_one_its_position(self):
        import tempfile
        with tempfile.TemporaryDirectory() as tmp:
            good = os.path.join(tmp, "reject.msg")
            with open(good, "w") as fh:
                fh.write("# a reply kept for a test\nM10 {\n  T6 i 3\n  T7 s \"no \\\"curve\\\"\"\n}\n")
            code, out, err = run("file", good)
            self.assertEqual((code, err), (0, ""))
            self.assertEqual(out, 'M10 M_SysReject {\n  T6 iSysCode i 3\n'
                                  '  T7 sSysReasonText s "no \\"curve\\""\n}\n')
            # Each is checked against the classes, and told at the item.
            cases = [
                ("M10 {\n  T6 i 3\n  T7 i 4\n}\n", "3:6", "T7 sSysReasonText holds string, written s, not i"),
                ("M10 {\n  T612 d 1\n}\n", "2:3", "M_SysReject (M10) has no field with tag 612"),
                ("M10 {\n  T6 i 3\n  T6 i 4\n}\n", "3:3", "a second value for T6 iSysCode"),
                ("M2161 {\n  T2668 m M2143 {\n  }\n}\n", "2:11", "T2668 maRhoValue holds M_RhoValue (M1925)"),
                ("M9 {\n}\n", "1:1", "no class has the number M9"),
            ]
            for text, where, reason in cases:
                with self.subTest(text=text):
                    bad = os.path.join(tmp, "bad.msg")
                    with open(bad, "w") as fh:
                        fh.write(text)
                    code, out, err = run("file", bad)
                    self.assertEqual((code, out), (1, ""))
                    self.assertIn(f"bad.msg:{where}: {reason}", err)
            code, out, err = run("file", os.path.join(tmp, "lost.msg"))
            self.assertEqual((code, out), (1, ""))
            self.assertIn("lost.msg:0:0: cannot open", err)


class Errors(unittest.TestCase):
    def test_wrong_names_numbers_and_commands(self):
        cases = [
            # (arguments, exit status, what stderr holds)
            (["show", "M_HbNoteDualMultiRngAcr"], 1, "nearest: M_HbNoteDualMultiRngAccr"),
            (["dump", "InstInf"], 1, "nearest: M_InstInfo"),
            (["holders", "dStrik"], 1, "nearest: dStrike"),
            (["show", "99999"], 1, "no class numbered 99999"),
            (["list", "qqq"], 1, "no name is near it"),
            (["shwo", "M_InstInfo"], 2, "did you mean 'show'?"),
            ([], 2, "usage: pricemsg-catalogue"),
            (["show"], 2, "which takes: show <class|number>"),
            (["show", "M_InstInfo", "--depth", "0"], 2, "--depth N"),
        ]
        for args, status, text in cases:
            with self.subTest(args=args):
                code, out, err = run(*args)
                self.assertEqual(code, status, err)
                self.assertIn(text, err)
                self.assertEqual(out, "")


class HostileCommandLines(unittest.TestCase):
    def test_output_that_cannot_be_written_fails_every_command(self):
        import tempfile
        with tempfile.TemporaryDirectory() as tmp:
            good = os.path.join(tmp, "reject.msg")
            with open(good, "w") as fh:
                fh.write("M10 {\n  T6 i 3\n}\n")
            for args in (["list"], ["find", "dStrike"], ["show", "M_InstInfo"],
                         ["holders", "M_Tiv"], ["dump", "10"], ["file", good], ["help"]):
                with self.subTest(args=args), open("/dev/full", "w") as full:
                    r = subprocess.run([TOOL, *args], stdout=full, stderr=subprocess.PIPE,
                                       text=True, timeout=60)
                    self.assertEqual(r.returncode, 3, r.stderr)
                    self.assertIn("cannot write the output: No space left on device", r.stderr)
            # An error prints nothing to stdout, so it keeps its own status.
            with open("/dev/full", "w") as full:
                r = subprocess.run([TOOL, "show", "M_Nope"], stdout=full, stderr=subprocess.PIPE,
                                   timeout=60)
            self.assertEqual(r.returncode, 1)

    def test_long_arguments_and_control_bytes_are_cut_and_escaped_quickly(self):
        import time
        long_name = "q" * 130000  # near the largest single argument Linux takes
        cases = [(["show", long_name], 1), (["holders", long_name], 1), (["find", long_name], 1),
                 (["list", long_name], 1), (["dump", long_name], 1), ([long_name], 2),
                 (["show", "M_Inst\x1b[2J\x07Info"], 1), (["\x1b]0;title\x07"], 2),
                 (["file", "/no/such/\x1b[2J.msg"], 1)]
        for args, status in cases:
            with self.subTest(args=[a[:20] for a in args]):
                start = time.monotonic()
                code, out, err = run(*args)
                # A search bound by the names, not by the argument, takes
                # milliseconds; one that measures every name against the
                # whole argument took seconds.
                self.assertLess(time.monotonic() - start, 5.0)
                self.assertEqual((code, out), (status, ""))
                self.assertNotIn("\x1b", err)
                self.assertNotIn("\x07", err)
                first = err.splitlines()[0]
                self.assertLess(len(first), 200, first[:200])
        code, _, err = run("show", "M_Inst\x1b[2JInfo")
        self.assertIn("'M_Inst\\x1b[2JInfo'", err)
        code, _, err = run("show", long_name)
        self.assertIn("'" + "q" * 64 + "...'", err)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: test_catalogue_tool.py TOOL TOOL_WITHOUT_PROBE")
    TOOL = sys.argv.pop(1)
    TOOL_WITHOUT_PROBE = sys.argv.pop(1)
    unittest.main()
