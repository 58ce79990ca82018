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

from schema import ROLES, load  # noqa: E402

TOOL = None
TOOL_WITHOUT_PROBE = None
SCHEMA = load(os.path.join(ROOT, "schema"))
BY_NAME = {m.name: m for m in SCHEMA.messages}
LINE = re.compile(r"^( *)(\w+) +T(\d+) +(.*)$")


def run(*args, tool=None):
    r = subprocess.run([tool or TOOL, *args], capture_output=True, text=True, timeout=60)
    return r.returncode, r.stdout, r.stderr


def reply_line(msg, indent="  "):
    """The line that gives a request's likely reply."""
    reply = BY_NAME[msg.reply]
    return f"{indent}likely reply (by name): {reply.name} {reply.number}"


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
        if BY_NAME[deepest].role:
            self.assertEqual(lines.pop(1), f"  {BY_NAME[deepest].role}: "
                                           f"{BY_NAME[deepest].description}")
        if BY_NAME[deepest].reply:
            self.assertEqual(lines.pop(1), reply_line(BY_NAME[deepest]))
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
            self.assertEqual(holds.endswith(f"  ({field.role})"), bool(field.role), line)
            if field.sub:
                self.assertIn(field.sub, holds)
                self.assertEqual(holds.startswith("repeated "), field.is_array, line)
                open_classes.append(field.sub)
                next_field.append(0)
        self.assertEqual(max(len(LINE.match(l).group(1)) for l in lines[1:]) // 2,
                         depth(deepest))

        code, out, _ = run("show", deepest, "--depth", "2")
        self.assertEqual(code, 0)
        fields = [l for l in out.splitlines()[1:] if LINE.match(l)]
        self.assertTrue(all(len(LINE.match(l).group(1)) <= 4 for l in fields))
        self.assertIn(" ...\n", out)

    def test_role_and_description_under_the_class_and_field_roles_beside_fields(self):
        described = [m for m in SCHEMA.messages if m.role]
        self.assertTrue(described, "the schema describes no class")
        # A request's likely reply, where its family's names give one, on
        # the line below; no other class has that line.
        for msg in described:
            with self.subTest(msg=msg.name):
                code, out, _ = run("show", msg.name, "-d", "1")
                self.assertEqual(code, 0)
                lines = out.splitlines()
                self.assertEqual(lines[1], f"  {msg.role}: {msg.description}")
                if msg.reply:
                    self.assertEqual(lines[2], reply_line(msg))
                self.assertEqual(sum("likely reply" in l for l in lines), bool(msg.reply))
        self.assertTrue(any(m.reply for m in described), "the schema pairs no request")
        # Field roles close their line, after the kind, aligned among the
        # fields of the class; a field without one ends at its kind.
        with_role = next((m, f) for m in SCHEMA.messages for f in m.fields if f.role)
        msg, field = with_role
        code, out, _ = run("show", msg.name, "--depth=1")
        lines = {LINE.match(l).group(2): l for l in out.splitlines() if LINE.match(l)}
        self.assertTrue(lines[field.name].endswith(f"  ({field.role})"), lines[field.name])
        for f in msg.fields:
            self.assertEqual(lines[f.name].endswith(")"), bool(f.role), lines[f.name])
        starts = {lines[f.name].index("(") for f in msg.fields if f.role}
        self.assertEqual(len(starts), 1)


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


    def test_template_converts_to_json_and_back_to_the_same_text(self):
        import json
        import tempfile
        with tempfile.TemporaryDirectory() as tmp:
            for name in ("M_Tiv", "M_HbNoteDualMultiRngAccr", "4379"):
                with self.subTest(name=name):
                    code, template, err = run("template", name)
                    self.assertEqual((code, err), (0, ""))
                    plain = "".join(l + "\n" for l in template.splitlines()
                                    if not l.lstrip().startswith("#"))
                    path = os.path.join(tmp, "t.msg")
                    with open(path, "w") as fh:
                        fh.write(template)
                    # As the reader takes it: the template without its comments.
                    self.assertEqual(run("file", path)[0], 0)
                    code, out, err = run("convert", path, os.path.join(tmp, "t.json"))
                    self.assertEqual((code, out, err), (0, "", ""))
                    with open(os.path.join(tmp, "t.json")) as fh:
                        doc = json.load(fh)
                    cls = BY_NAME.get(name) or next(m for m in SCHEMA.messages
                                                    if str(m.number) == name)
                    self.assertEqual((doc["class"], doc["number"]), (cls.name, cls.number))
                    self.assertEqual([k for k in doc if k not in ("class", "number")],
                                     [f.name for f in cls.fields])
                    code, back, err = run("convert", os.path.join(tmp, "t.json"), "-")
                    self.assertEqual((code, err), (0, ""))
                    self.assertEqual(back, plain)
            # A damaged input is told where it goes wrong; an output that
            # cannot be written is exit 3 and leaves nothing.
            bad = os.path.join(tmp, "bad.json")
            with open(bad, "w") as fh:
                fh.write('{"class": "M_Tiv",\n "nDate": 7}\n')
            code, out, err = run("convert", bad, os.path.join(tmp, "out.msg"))
            self.assertEqual((code, out), (1, ""))
            self.assertIn("bad.json:", err)
            self.assertFalse(os.path.exists(os.path.join(tmp, "out.msg")))
            code, _, err = run("convert", os.path.join(tmp, "t.json"),
                               os.path.join(tmp, "no", "such", "dir.msg"))
            self.assertEqual(code, 3, err)
            self.assertEqual(run("template", "M_Nothing")[0], 1)
            # The template as JSON is a file that `file` takes as it is.
            code, doc, err = run("template", "--json", "M_Tiv")
            self.assertEqual((code, err), (0, ""))
            self.assertEqual(json.loads(doc)["class"], "M_Tiv")
            path = os.path.join(tmp, "tiv.json")
            with open(path, "w") as fh:
                fh.write(doc)
            code, out, err = run("file", path)
            self.assertEqual((code, err), (0, ""))
            self.assertTrue(out.startswith("M2143 M_Tiv {\n"), out)


    def test_diff_answers_as_diff_does(self):
        import tempfile
        with tempfile.TemporaryDirectory() as tmp:
            def write(name, text):
                path = os.path.join(tmp, name)
                with open(path, "w") as fh:
                    fh.write(text)
                return path
            note = "M1264 M_KytVolSurface {\n  T598 iVolCrvId i 7\n%s}\n"
            element = ("  T1456 maKytVolSfcElmt m M1265 {\n    T636 dVol d %s\n"
                       "    T695 mTivMatur m M2143 {\n      T198 nDate n \"20261123\"\n    }\n  }\n")
            a = write("a.msg", note % (element % "0.25"))
            same = write("same.json", '{"number": 1264, "iVolCrvId": 7, "maKytVolSfcElmt": '
                                      '[{"dVol": 0.25, "mTivMatur": {"nDate": "20261123"}}]}')
            b = write("b.msg", note % (element % "0.5" + element % "1"))
            self.assertEqual(run("diff", a, same), (0, "", ""))
            code, out, err = run("diff", a, b)
            self.assertEqual((code, err), (1, ""))
            self.assertEqual(out, "maKytVolSfcElmt[0].dVol: 0.25 | 0.5\n"
                                  "maKytVolSfcElmt[1]: (none) | (element)\n")
            # Trouble: a file that does not read, one that does not load,
            # files of two classes, a wrong command line.
            bad = write("bad.msg", "M1264 {\n  T598 iVolCrvId i x\n}\n")
            code, out, err = run("diff", a, bad)
            self.assertEqual((code, out), (2, ""))
            self.assertIn("bad.msg:2:", err)
            tiv = write("tiv.msg", "M2143 M_Tiv {\n}\n")
            code, out, err = run("diff", tiv, a)
            self.assertEqual((code, out), (2, ""))
            self.assertIn("two classes", err)
            self.assertIn("M_Tiv (2143)", err)
            self.assertEqual(run("diff", a, os.path.join(tmp, "none.msg"))[0], 2)
            self.assertEqual(run("diff", a)[0], 2)

    def test_explain_names_the_fields_down_to_the_cause(self):
        outer = "M_EqStd:SET_SUB_ONE(M3540.T4566) fail"
        inner = "M_OptSched:SET_VAL_ONE(M3434.T451) fail"
        for args in ([outer, inner], [inner, outer], [outer + "\n" + inner]):
            with self.subTest(args=args):
                code, out, err = run("explain", *args)
                self.assertEqual((code, err), (0, ""))
                self.assertTrue(out.startswith("M_EqStd.mOptSched.nStartDate (T451, CDate)"), out)
        code, out, err = run("explain", "M_Nowhere:SET_VAL_ONE(M1.T2) fail")
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("pricemsg-catalogue: cannot explain:"), err)
        self.assertEqual(run("explain")[0], 2)


class Errors(unittest.TestCase):
    def test_wrong_names_and_numbers(self):
        cases = [
            # (arguments, exit status, what stderr holds)
            (["show", "M_HbNoteDualMultiRngAcr"], 1, "nearest: M_HbNoteDualMultiRngAccr"),
            (["dump", "InstInf"], 1, "nearest: M_InstInfo"),
            (["holders", "dStrik"], 1, "nearest: dStrike"),
            (["show", "99999"], 1, "no class numbered 99999"),
            (["list", "qqq"], 1, "no name is near it"),
        ]
        for args, status, text in cases:
            with self.subTest(args=args):
                code, out, err = run(*args)
                self.assertEqual(code, status, err)
                self.assertIn(text, err)
                self.assertEqual(out, "")

    def test_a_wrong_command_line_is_one_line_that_points_at_the_help(self):
        roles = ", ".join(ROLES)
        cases = [
            # (arguments, the command that tells it, what it says)
            ([], None, "give a command (list, find, show, holders, dump, file, template, convert, "
             "diff, explain)"),
            (["search", "cds"], None, "no command 'search' (did you mean 'find'?)"),
            (["-v"], None, "no option '-v' before a command (the version is -V or --version)"),
            (["shwo", "M_InstInfo"], None, "no command 'shwo' (did you mean 'show'?)"),
            (["--depth=2"], None, "no option '--depth=2' before a command"),
            (["help", "nope"], None, "help takes one command, not 'nope'"),
            (["show"], "show", "takes one class, by name or number"),
            (["show", "M_InstInfo", "M_Tiv"], "show", "takes one class, by name or number"),
            (["show", "M_InstInfo", "--depth", "0"], "show", "--depth takes a number from 1, not '0'"),
            (["show", "M_InstInfo", "-d", "two"], "show", "--depth takes a number from 1, not 'two'"),
            (["show", "M_InstInfo", "--depth=-1"], "show", "--depth takes a number from 1, not '-1'"),
            (["show", "M_InstInfo", "--depth"], "show", "--depth needs a value"),
            (["show", "M_InstInfo", "--deep=2"], "show", "has no option '--deep=2'"),
            (["list", "--depth=2"], "list", "has no option '--depth=2'"),
            (["find"], "find", "takes one or more words, or a number"),
            (["find", " "], "find", "takes one or more words, or a number"),
            (["holders", "a", "b"], "holders", "takes one class or one field, by name"),
            (["dump"], "dump", "takes one class, by name or number"),
            (["file"], "file", "takes the path of one message file"),
            (["list", "--role=requests"], "list", f"no role 'requests'; the roles are {roles}"),
            (["list", "-r", "Request"], "list", f"no role 'Request'; the roles are {roles}"),
            (["list", "--family", "Rates"], "list",
             "no family 'Rates'; the families are " + ", ".join(SCHEMA.families)),
        ]
        for args, command, text in cases:
            with self.subTest(args=args):
                code, out, err = run(*args)
                who = "pricemsg-catalogue" + (f" {command}" if command else "")
                self.assertEqual((code, out), (2, ""), err)
                self.assertEqual(err, f"{who}: {text}; see '{who} --help'\n")


class CommandLine(unittest.TestCase):
    def test_an_option_is_spelled_any_of_the_usual_ways_anywhere(self):
        deep = max(SCHEMA.messages, key=lambda m: (depth(m.name), m.name))
        code, whole, _ = run("show", deep.name)
        code, expected, err = run("show", deep.name, "--depth", "2")
        self.assertEqual((code, err), (0, ""))
        self.assertNotEqual(expected, whole)
        self.assertNotEqual(expected, run("show", deep.name, "--depth", "3")[1])
        for args in (["show", deep.name, "--depth=2"], ["show", deep.name, "-d", "2"],
                     ["show", deep.name, "-d2"], ["show", "-d", "2", deep.name],
                     ["show", "--depth=2", str(deep.number)],
                     ["show", deep.name, "--depth=5", "--depth=2"]):
            with self.subTest(args=args):
                self.assertEqual(run(*args), (0, expected, ""))
        requests = run("list", "--role=request")
        self.assertEqual(requests[0], 0)
        for args in (["list", "--role", "request"], ["list", "-r", "request"],
                     ["list", "-rrequest"]):
            self.assertEqual(run(*args), requests)

    def test_help_after_any_command_is_its_help_and_never_a_word(self):
        code, top, err = run("--help")
        self.assertEqual((code, err), (0, ""))
        self.assertTrue(top.startswith("usage: pricemsg-catalogue <command>"))
        self.assertEqual(run("-h"), (0, top, ""))
        self.assertEqual(run("help"), (0, top, ""))
        for command in ("list", "find", "show", "holders", "dump", "file"):
            with self.subTest(command=command):
                self.assertRegex(top, rf"\n  {command} +\S")
                code, text, err = run(command, "--help")
                self.assertEqual((code, err), (0, ""))
                self.assertTrue(text.startswith(f"usage: pricemsg-catalogue {command} "), text)
                self.assertIn("-h, --help", text)
                # After operands and options, wrong or not, and as help's topic.
                for args in ([command, "-h"], [command, "M_InstInfo", "--help"],
                             [command, "fx", "barrier", "--help"], [command, "--bogus", "--help"],
                             ["help", command]):
                    self.assertEqual(run(*args), (0, text, ""), args)
        code, text, _ = run("show", "--help")
        self.assertIn("-d, --depth N", text)
        code, text, _ = run("list", "--help")
        self.assertIn("-r, --role ROLE", text)
        self.assertIn("-f, --family FAMILY", text)
        # Past "--", it is a word.
        code, out, err = run("find", "--", "--help")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("no class or field matches '--help'", err)

    def test_version_is_the_projects(self):
        with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as fh:
            version = re.search(r"project\(\w+ VERSION ([\d.]+)", fh.read()).group(1)
        for flag in ("--version", "-V"):
            self.assertEqual(run(flag), (0, f"pricemsg-catalogue {version}\n", ""))


def matches(msg, query):
    """Whether a class matches a query, as a reader of the word list would
    say: each term (a listed phrase, longest first, else a word) is in the
    name, stands for a part of the name, or is among the description's words."""
    words = " ".join(query).lower().split()
    phrases = {p: w.parts for w in SCHEMA.words for p in w.phrases}
    text = re.findall(r"[a-z0-9]+", (msg.description or "").lower())
    at = 0
    while at < len(words):
        n = next(n for n in range(len(words) - at, 0, -1)
                 if n == 1 or " ".join(words[at:at + n]) in phrases)
        term = words[at:at + n]
        at += n
        name = msg.name.lower()
        if "".join(term) in name or any(p.lower() in name for p in phrases.get(" ".join(term), [])):
            continue
        singular = [w[:-1] if w.endswith("s") else w for w in term]
        if not any([t[:-1] if t.endswith("s") else t for t in text[i:i + n]] == singular
                   for i in range(len(text))):
            return False
    return True


class Search(unittest.TestCase):
    def classes(self, *args):
        code, out, err = run(*args)
        self.assertEqual((code, err), (0, ""), args)
        lines = out.splitlines()
        if lines and lines[0].startswith("classes ("):
            lines = [l for l in lines[1:l_end(lines)] if "likely reply" not in l]
        return [l.split()[0] for l in lines], lines

    def test_find_gives_a_requests_likely_reply_below_it(self):
        # Barrier products of every family: requests with a reply by name
        # (FX forward structures, equity swaps), requests without (options,
        # star notes), and blocks.
        code, out, err = run("find", "barr")
        self.assertEqual((code, err), (0, ""))
        lines = out.splitlines()[1:l_end(out.splitlines())]
        kinds = set()
        for i, line in enumerate(lines):
            if "likely reply" in line:
                continue
            msg = BY_NAME[line.split()[0]]
            below = lines[i + 1] if i + 1 < len(lines) else ""
            with self.subTest(msg=msg.name):
                if msg.reply:
                    self.assertEqual(below, reply_line(msg, "      "))
                else:
                    self.assertNotIn("likely reply", below)
            kinds.add((msg.role, bool(msg.reply)))
        self.assertLessEqual({("request", True), ("request", False)}, kinds)
        # By number, and with a filter.
        for args in (["find", "3721"], ["find", "-r", "request", "FlterHwMc"]):
            code, out, _ = run(*args)
            self.assertRegex(out, r"\n  M_IrNoteFlterHwMc +3721 +rates +request +[^\n]+\n"
                                  r"      likely reply \(by name\): M_IrNoteHwOut 3706\n")
        # list stays one line a class.
        code, out, _ = run("list", "FlterHwMc")
        self.assertNotIn("likely reply", out)

    def test_a_product_word_finds_its_request_first(self):
        # Each phrase of the word list finds, first, a request whose name
        # holds a part that the phrase stands for.
        requests = {m.name for m in SCHEMA.messages if m.role == "request"}
        def parts(*phrases):
            return [p for w in SCHEMA.words for p in w.parts if set(phrases) & set(w.phrases)]

        goals = [(["swaption"], parts("swaption")), (["CDS"], parts("cds")),
                 (["credit", "default", "swap"], parts("cds")), (["fx", "barrier"], ["FxBarr"]),
                 (["range accrual"], parts("range accrual")),
                 (["Range", "Accruals"], parts("range accrual", "accrual"))]
        for query, wanted in goals:
            self.assertTrue(wanted, query)
            if not any(p.lower() in r.lower() for r in requests for p in wanted):
                continue  # no such request is described yet
            for command in ("list", "find"):
                with self.subTest(command=command, query=query):
                    names, lines = self.classes(command, *query)
                    self.assertTrue(any(p.lower() in names[0].lower() for p in wanted),
                                    (names[0], wanted))
                    self.assertIn(names[0], requests)
                    self.assertIn(" request ", lines[0])

    def test_every_term_must_match_and_requests_lead_the_best_matches(self):
        queries = [["barrier"], ["fx", "barrier"], ["FX", "barr", "tgt"], ["range", "accrual"],
                   ["cds"], ["note", "range accrual"], ["option"], ["single", "barrier"],
                   ["credit default swap"], ["swaptions"], ["options"]]
        for query in queries:
            with self.subTest(query=query):
                expected = {m.name for m in SCHEMA.messages if matches(m, query)}
                self.assertTrue(expected)
                names, lines = self.classes("list", *query)
                self.assertEqual(sorted(names), sorted(expected))
                roles = [BY_NAME[n].role for n in names]
                first_other = next((i for i, r in enumerate(roles) if r != "request"), len(roles))
                self.assertNotIn("request", roles[first_other:])
                # The line: name, number, family, role ("-" for none), description.
                for name, line in zip(names, lines):
                    m = BY_NAME[name]
                    self.assertEqual(line.split()[:4], [name, str(m.number), m.family,
                                                       m.role or "-"])
                    self.assertEqual(line.rstrip().endswith(m.description or m.role or "-"), True,
                                     line)
        # Among equal matches the plainer product, with the shorter name, leads.
        names, _ = self.classes("list", "fx", "barr", "tgt")
        group = [n for n in names if (BY_NAME[n].role == "request") ==
                 (BY_NAME[names[0]].role == "request")]
        self.assertEqual(len(names[0]), min(len(n) for n in group), names)
        # "range accrual" is one term; "range" alone is in no class name.
        self.assertNotEqual(self.classes("list", "range", "accrual")[0], [])
        self.assertEqual(run("list", "fx", "cds")[0], 1)

    def test_a_word_of_a_description_finds_its_class(self):
        names = " ".join(m.name.lower() for m in SCHEMA.messages)
        phrases = {p for w in SCHEMA.words for p in w.phrases}
        tried = 0
        for msg in SCHEMA.messages:
            words = re.findall(r"[a-z0-9]+", (msg.description or "").lower())
            word = next((w for w in words if len(w) > 4 and w not in names and w not in phrases),
                        None)
            if word is None:
                continue
            tried += 1
            with self.subTest(msg=msg.name, word=word):
                self.assertIn(msg.name, self.classes("find", word.upper())[0])
                self.assertIn(msg.name, self.classes("list", word, msg.name[2:5])[0])
        self.assertTrue(tried)

    def test_filters_combine_with_the_words(self):
        for role in ROLES:
            with self.subTest(role=role):
                expected = sorted((m.name for m in SCHEMA.messages if m.role == role),
                                  key=str.lower)
                code, out, err = run("list", f"--role={role}")
                self.assertEqual(code, 0 if expected else 1, err)
                self.assertEqual([l.split()[0] for l in out.splitlines()], expected)
                self.assertEqual(err != "", not expected)
        for family in SCHEMA.families:
            names, _ = self.classes("list", "-f", family)
            self.assertEqual(names, sorted((m.name for m in SCHEMA.messages
                                            if m.family == family), key=str.lower))
        for role, family in (("request", "fx"), ("terms", "equity"), ("request", "equity")):
            with self.subTest(role=role, family=family):
                expected = [m.name for m in SCHEMA.messages
                            if m.role == role and m.family == family and matches(m, ["barrier"])]
                code, out, _ = run("list", "--role", role, f"--family={family}", "barrier")
                self.assertEqual(code, 0 if expected else 1)
                self.assertEqual(sorted(l.split()[0] for l in out.splitlines()), sorted(expected))
        code, out, err = run("list", "--role=reply", "--family=fx", "qqq")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("no class of the fx family with the role reply matches 'qqq'", err)

    def test_near_misses_are_pointed_at_the_listed_words(self):
        code, out, err = run("find", "swapton")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("nearest: swaption", err)
        code, out, err = run("list", "fx", "barier")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("nothing matches 'barier'", err)
        self.assertIn("nearest: barrier", err)
        code, out, err = run("find", "fx", "cds")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("none matches them all", err)


def l_end(lines):
    """Where the classes of find's output end: at "fields (n):", if any."""
    return next((i for i, l in enumerate(lines) if l.startswith("fields (")), len(lines))


class HostileCommandLines(unittest.TestCase):
    def test_output_that_cannot_be_written_fails_every_command(self):
        import tempfile
        with tempfile.TemporaryDirectory() as tmp:
            good = os.path.join(tmp, "reject.msg")
            with open(good, "w") as fh:
                fh.write("M10 {\n  T6 i 3\n}\n")
            for args in (["list"], ["find", "dStrike"], ["show", "M_InstInfo"],
                         ["holders", "M_Tiv"], ["dump", "10"], ["file", good], ["help"],
                         ["--version"], ["show", "--help"], ["list", "--role=request"],
                         ["find", "fx", "barrier"]):
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

    def test_a_long_query_costs_in_proportion_to_its_words(self):
        import time
        # Words that match every class, phrases of the word list and words
        # that match nothing, all different: each term is weighed once, and a
        # class is passed over at its first term that fails, so 8,000 words
        # answer in moments (a search run once per word took many seconds).
        common = ["m", "range", "accrual", "note", "ir"]
        query = common + ["zq%d" % i for i in range(8000 - len(common))]
        start = time.monotonic()
        code, out, err = run("find", *query)
        elapsed = time.monotonic() - start
        self.assertEqual((code, out), (1, ""))
        self.assertIn("nothing matches 'zq0'", err)
        self.assertLess(elapsed, 2.0)

    def test_long_arguments_and_control_bytes_are_cut_and_escaped_quickly(self):
        import time
        long_name = "q" * 130000  # near the largest single argument Linux takes
        cases = [(["show", long_name], 1), (["holders", long_name], 1), (["find", long_name], 1),
                 (["list", long_name], 1), (["dump", long_name], 1), ([long_name], 2),
                 (["show", "M_Inst\x1b[2J\x07Info"], 1), (["\x1b]0;title\x07"], 2),
                 (["file", "/no/such/\x1b[2J.msg"], 1), (["show", "M_Tiv", "--\x1b[2J"], 2),
                 (["list", "-" + long_name], 2), (["show", "M_Tiv", "--depth=" + long_name], 2)]
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
