"""Runs pricemsg-catalogue as a user would and checks what it answers.

    test_catalogue_tool.py TOOL TOOL_WITHOUT_PROBE

The second is the tool built for a runtime that cannot read a dump back.
After an intended change of the tree's layout, rewrite the committed copy with
    TOOL show M_FiZeroCdCpCrv > tests/tools/show_M_FiZeroCdCpCrv.txt
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import ROLES, load  # noqa: E402

TOOL = None
TOOL_WITHOUT_PROBE = None
SCHEMA = load(os.path.join(ROOT, "schema"))
BY_NAME = {m.name: m for m in SCHEMA.messages}


def run(*args, tool=None):
    r = subprocess.run([tool or TOOL, *args], capture_output=True, text=True, timeout=60)
    return r.returncode, r.stdout, r.stderr


def names(*args):
    """The classes that list or find answers, in their order."""
    code, out, err = run(*args)
    assert (code, err) == (0, ""), (args, code, err)
    lines = out.splitlines()
    if lines[0].startswith("classes ("):
        lines = [l for l in lines[1:] if l.startswith("  M_")]
    return [l.split()[0] for l in lines]


class Tool(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="catalogue_tool_")
        self.addCleanup(shutil.rmtree, self.tmp)

    def write(self, name, text):
        pathlib.Path(self.tmp, name).write_text(text, encoding="utf-8")
        return os.path.join(self.tmp, name)


class Show(Tool):
    def test_tree_matches_the_committed_copy_and_depth_cuts_it(self):
        with open(os.path.join(HERE, "show_M_FiZeroCdCpCrv.txt"), encoding="utf-8") as fh:
            expected = fh.read()
        for name in ("M_FiZeroCdCpCrv", "4155", "fizerocdcpcrv"):
            self.assertEqual(run("show", name), (0, expected, ""), name)
        # Every spelling of the option, before or after the class, the last
        # one counting.
        code, cut, err = run("show", "M_FiZeroCdCpCrv", "--depth", "2")
        self.assertEqual((code, err), (0, ""))
        for args in (["--depth=2"], ["-d", "2"], ["-d2"], ["--depth=5", "--depth=2"]):
            self.assertEqual(run("show", *args, "M_FiZeroCdCpCrv"), (0, cut, ""), args)
        # Level 2 is the last shown; its message fields are marked as cut.
        deep = re.compile(r"^    \S+ +T\d+ +(message|repeated) M_\w+ \d+$")
        kept = [l + " ..." if deep.match(l) else l
                for l in expected.splitlines() if not l.startswith("      ")]
        self.assertEqual(cut.splitlines(), kept)
        self.assertNotEqual(run("show", "M_FiZeroCdCpCrv", "-d", "3")[1], cut)
        self.assertEqual(run("show", "M_FiZeroCdCpCrv", "-d", "9")[1], expected)


class Lookups(Tool):
    def test_holders_find_and_list(self):
        self.assertEqual(run("holders", "M_AccrIdx"), (0, (
            "M_HbDualIdxRngAccrCond  4237  hybrid  terms  in mAccrIdx, mAccrIdx2\n"
            "M_HbSglIdxRngAccrCond   4668  hybrid  terms  in mAccrIdx\n"), ""))
        self.assertEqual(run("holders", "M_FiZeroCdCpCrv")[1],
                         "M_FiZeroCdCpCrv is held by no class: it is a message on its own\n")
        have = sorted(m.name for m in SCHEMA.messages if any(f.name == "dStrike" for f in m.fields))
        self.assertEqual(sorted(names("holders", "dStrike")), have)
        # A number that is both a class and a tag finds both.
        self.assertEqual(run("find", "4535"), (0, (
            "classes (1):\n  M_FiResetCpnSchedule  4535  bonds  terms  one coupon period of a "
            "reset bond, marking reset dates\nfields (1):\n"
            "  mInstInfo  T4535  message M_InstInfo 3403  in 134 classes\n"), ""))
        self.assertEqual(sorted(names("list", "HBNOTEDUAL")),
                         sorted(m.name for m in SCHEMA.messages if "HbNoteDual" in m.name))

    def test_dump_makes_a_class_of_every_family(self):
        for family in SCHEMA.families:
            msg = next(m for m in SCHEMA.messages if m.family == family)
            code, out, err = run("dump", str(msg.number))
            self.assertEqual((code, err), (0, ""), msg.name)
            self.assertIn(f"<msgnum> : {msg.number}\n", out)
            self.assertIn(f"<msgname> : {msg.name}\n", out)
        code, out, err = run("dump", "M_InstInfo", tool=TOOL_WITHOUT_PROBE)
        self.assertEqual((code, out), (1, ""))
        self.assertIn("offers no way to read a dump", err)
        self.assertEqual(run("show", "M_InstInfo", tool=TOOL_WITHOUT_PROBE),
                         run("show", "M_InstInfo"))


class Files(Tool):
    def test_a_bad_file_is_told_at_its_position(self):
        # What a good file prints, the catalogue fuzzer's seeds compare with
        # the text writer's.
        for text, where in [("M10 {\n  T6 i 3\n  T7 i 4\n}\n", "3:6"), ("M9 {\n}\n", "1:1")]:
            code, out, err = run("file", self.write("bad.msg", text))
            self.assertEqual((code, out), (1, ""))
            self.assertRegex(err, f"^pricemsg-catalogue: {re.escape(self.tmp)}/bad.msg:{where}: ")
        code, out, err = run("file", os.path.join(self.tmp, "lost.msg"))
        self.assertEqual((code, out), (1, ""))
        self.assertIn("lost.msg:0:0: cannot open", err)

    def test_template_converts_to_json_and_back_to_the_same_text(self):
        for name in ("M_Tiv", "4155"):
            code, template, err = run("template", name)
            self.assertEqual((code, err), (0, ""))
            path = self.write("t.msg", template)
            self.assertEqual(run("file", path)[0], 0)
            json_path = os.path.join(self.tmp, "t.json")
            self.assertEqual(run("convert", path, json_path), (0, "", ""))
            # Back to text, as the reader takes it: without the comments.
            plain = "".join(l + "\n" for l in template.splitlines()
                            if not l.lstrip().startswith("#"))
            self.assertEqual(run("convert", json_path, "-"), (0, plain, ""))
        # A damaged input is told where it goes wrong and writes nothing; an
        # output that cannot be written is exit 3.
        bad = self.write("bad.json", '{"class": "M_Tiv",\n "nDate": 7}\n')
        code, out, err = run("convert", bad, os.path.join(self.tmp, "out.msg"))
        self.assertEqual((code, out), (1, ""))
        self.assertIn("bad.json:", err)
        self.assertFalse(os.path.exists(os.path.join(self.tmp, "out.msg")))
        self.assertEqual(run("convert", json_path, "/no/such/dir.msg")[0], 3)
        code, doc, err = run("template", "--json", "M_Tiv")
        self.assertEqual((code, err), (0, ""))
        code, out, _ = run("file", self.write("tiv.json", doc))
        self.assertEqual((code, out.splitlines()[0]), (0, "M2143 M_Tiv {"))

    def test_diff_answers_as_diff_does(self):
        note = "M1264 M_KytVolSurface {\n  T598 iVolCrvId i 7\n%s}\n"
        element = ("  T1456 maKytVolSfcElmt m M1265 {\n    T636 dVol d %s\n"
                   "    T695 mTivMatur m M2143 {\n      T198 nDate n \"20261123\"\n    }\n  }\n")
        a = self.write("a.msg", note % (element % "0.25"))
        same = self.write("same.json", '{"number": 1264, "iVolCrvId": 7, "maKytVolSfcElmt": '
                                       '[{"dVol": 0.25, "mTivMatur": {"nDate": "20261123"}}]}')
        b = self.write("b.msg", note % (element % "0.5" + element % "1"))
        self.assertEqual(run("diff", a, same), (0, "", ""))
        self.assertEqual(run("diff", a, b), (1, "maKytVolSfcElmt[0].dVol: 0.25 | 0.5\n"
                                                "maKytVolSfcElmt[1]: (none) | (element)\n", ""))
        # Trouble: a file that does not read, files of two classes, a file
        # that is not there, a wrong command line.
        code, out, err = run("diff", a, self.write("bad.msg", "M1264 {\n  T598 iVolCrvId i x\n}\n"))
        self.assertEqual((code, out), (2, ""))
        self.assertIn("bad.msg:2:", err)
        code, out, err = run("diff", self.write("tiv.msg", "M2143 M_Tiv {\n}\n"), a)
        self.assertEqual((code, out), (2, ""))
        self.assertIn("two classes", err)
        self.assertIn("M_Tiv (2143)", err)
        self.assertEqual(run("diff", a, os.path.join(self.tmp, "none.msg"))[0], 2)
        self.assertEqual(run("diff", a)[0], 2)

    def test_explain_names_the_fields_down_to_the_cause(self):
        outer = "M_EqStd:SET_SUB_ONE(M3540.T4566) fail"
        inner = "M_OptSched:SET_VAL_ONE(M3434.T451) fail"
        for args in ([outer, inner], [inner, outer], [outer + "\n" + inner]):
            code, out, err = run("explain", *args)
            self.assertEqual((code, err), (0, ""))
            self.assertTrue(out.startswith("M_EqStd.mOptSched.nStartDate (T451, CDate)"), out)
        code, out, err = run("explain", "M_Nowhere:SET_VAL_ONE(M1.T2) fail")
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("pricemsg-catalogue: cannot explain:"), err)
        self.assertEqual(run("explain")[0], 2)


class Search(Tool):
    def test_requests_then_name_matches_then_shorter_names_lead(self):
        # "swaption" stands for Swptn in the word list; after the names that
        # hold it come the classes whose description says it.
        self.assertEqual(names("list", "swaption"), [
            "M_IrSwptnBlk", "M_IrSwptnHwTree", "M_IrSwptnStratBlk", "M_IrSwptnStratHwTree",
            "M_IrSwptn", "M_IrSwptnHwOut", "M_IrSwptnStrat", "M_IrSwptnBlkOut",
            "M_IrSwptnEffSens", "M_IrBlkSwptnParam", "M_IrSwptnDiffSens", "M_HbBlkParam",
            "M_HbHwMcParam", "M_IrHwMcParam", "M_FiHwTreeParam", "M_IrHwTreeParam",
            "M_IrHwCalibParam", "M_IrNotionalInfo", "M_KytSwapVolElmt", "M_KytSwapVolCurve",
            "M_IrEffSensBlkParam", "M_IrHwCalibParamOut"])
        self.assertEqual(names("find", "swaptions"), names("list", "swaption"))
        # A word of the descriptions, in any case, singular or plural.
        vega = names("list", "VEGA")
        self.assertEqual(vega[:3], ["M_VegaOut", "M_FxVegaOut", "M_HbVegaOut"])
        self.assertEqual(sorted(names("list", "vegas")), sorted(vega))

    def test_a_product_phrase_is_one_term_and_finds_its_request_first(self):
        for query, first in [(["CDS"], "M_CrSglCdsGc"), (["fx", "barrier"], "M_FxBarr"),
                             (["credit", "default", "swap"], "M_CrSglCdsGc"),
                             (["range accrual"], "M_ClnSglAcc")]:
            found = names("list", *query)
            self.assertEqual((found[0], names("find", *query)), (first, found), query)
        self.assertEqual(names("list", "range", "accrual"), names("list", "range accrual"))
        self.assertNotEqual(names("list", "accrual", "range"), names("list", "range accrual"))
        # Among equal matches, the plainer product, with the shorter name.
        self.assertEqual(names("list", "fx", "barr", "tgt"), [
            "M_FxFwdBarrTgt", "M_FxFwdDblBarrTgt", "M_FxFwdFwdBarrTgt", "M_FxFwdRatBarrTgt",
            "M_FxFwdAccrBarrTgt", "M_FxFwdFwdDblBarrTgt"])

    def test_every_term_must_match_and_wrong_names_point_at_the_nearest(self):
        for args, says in [(["list", "fx", "cds"], "none matches them all"),
                           (["find", "swapton"], "nearest: swaption"),
                           (["list", "fx", "barier"], "nothing matches 'barier'"),
                           (["list", "fx", "barier"], "nearest: barrier"),
                           (["show", "M_FiZeroCdCpCrvv"], "nearest: M_FiZeroCdCpCrv"),
                           (["dump", "InstInf"], "nearest: M_InstInfo"),
                           (["template", "M_Tivv"], "nearest: M_Tiv"),
                           (["holders", "dStrik"], "nearest: dStrike"),
                           (["show", "99999"], "no class numbered 99999"),
                           (["list", "qqq"], "no name is near it")]:
            code, out, err = run(*args)
            self.assertEqual((code, out), (1, ""), args)
            self.assertIn(says, err, args)

    def test_find_gives_a_requests_likely_reply_below_it(self):
        self.assertRegex(run("find", "3721")[1],
                         r"\n  M_IrNoteFlterHwMc +3721 +rates +request +[^\n]+\n"
                         r"      likely reply \(by name\): M_IrNoteHwOut 3706\n")
        out = run("find", "barr")[1]
        shown = re.findall(r"^  (M_\w+) ", out, re.M)
        self.assertEqual(out.count("likely reply"), sum(bool(BY_NAME[n].reply) for n in shown))
        self.assertNotIn("likely reply", run("list", "FlterHwMc")[1])

    def test_filters_combine_with_the_words(self):
        for option, kind, values in (("--role", "role", ROLES), ("-f", "family", SCHEMA.families)):
            for value in values:
                self.assertEqual(names("list", option, value), sorted(
                    (m.name for m in SCHEMA.messages if getattr(m, kind) == value), key=str.lower))
        self.assertEqual(names("list", "--role", "request", "--family=fx", "barrier"),
                         [n for n in names("list", "barrier")
                          if (BY_NAME[n].role, BY_NAME[n].family) == ("request", "fx")])
        code, out, err = run("list", "--role=reply", "--family=fx", "qqq")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("no class of the fx family with the role reply matches 'qqq'", err)


class CommandLine(Tool):
    def test_a_wrong_command_line_is_one_line_that_points_at_the_help(self):
        roles = ", ".join(ROLES)
        for args, command, text in [
            ([], None, "give a command (list, find, show, holders, dump, file, template, convert, "
             "diff, explain)"),
            (["search", "cds"], None, "no command 'search' (did you mean 'find'?)"),
            (["shwo", "M_InstInfo"], None, "no command 'shwo' (did you mean 'show'?)"),
            (["-v"], None, "no option '-v' before a command (the version is -V or --version)"),
            (["help", "nope"], None, "help takes one command, not 'nope'"),
            (["show", "M_InstInfo", "M_Tiv"], "show", "takes one class, by name or number"),
            (["show", "M_Tiv", "--depth", "0"], "show", "--depth takes a number from 1, not '0'"),
            (["show", "M_Tiv", "-d", "two"], "show", "--depth takes a number from 1, not 'two'"),
            (["show", "M_InstInfo", "--depth"], "show", "--depth needs a value"),
            (["list", "--depth=2"], "list", "has no option '--depth=2'"),
            (["find", " "], "find", "takes one or more words, or a number"),
            (["list", "-r", "Request"], "list", f"no role 'Request'; the roles are {roles}"),
            (["list", "--family", "Rates"], "list",
             "no family 'Rates'; the families are " + ", ".join(SCHEMA.families)),
        ]:
            who = "pricemsg-catalogue" + (f" {command}" if command else "")
            self.assertEqual(run(*args), (2, "", f"{who}: {text}; see '{who} --help'\n"), args)

    def test_help_after_any_command_is_its_help_and_never_a_word(self):
        code, top, err = run("--help")
        self.assertEqual((code, err), (0, ""))
        self.assertTrue(top.startswith("usage: pricemsg-catalogue <command>"))
        self.assertEqual(run("-h"), run("help"))
        self.assertEqual(run("help"), (0, top, ""))
        for command in ("list", "show", "file"):
            self.assertRegex(top, rf"\n  {command} +\S")
            code, text, err = run(command, "--help")
            self.assertEqual((code, err), (0, ""))
            self.assertTrue(text.startswith(f"usage: pricemsg-catalogue {command} "), text)
            for args in ([command, "-h"], [command, "M_InstInfo", "--help"],
                         [command, "--bogus", "--help"], ["help", command]):
                self.assertEqual(run(*args), (0, text, ""), args)
        # Past "--", it is a word.
        code, out, err = run("find", "--", "--help")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("no class or field matches '--help'", err)
        with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as fh:
            version = re.search(r"project\(\w+ VERSION ([\d.]+)", fh.read()).group(1)
        for flag in ("--version", "-V"):
            self.assertEqual(run(flag), (0, f"pricemsg-catalogue {version}\n", ""))

    def test_output_that_cannot_be_written_fails_the_command(self):
        for args, status in ((["find", "fx", "barrier"], 3), (["show", "--help"], 3),
                             (["--version"], 3), (["show", "M_Nope"], 1)):
            with open("/dev/full", "w") as full:
                r = subprocess.run([TOOL, *args], stdout=full, stderr=subprocess.PIPE,
                                   text=True, timeout=60)
            self.assertEqual(r.returncode, status, args)
            if status == 3:
                self.assertIn("cannot write the output: No space left on device", r.stderr)

    def test_long_queries_and_arguments_answer_quickly_and_are_cut_and_escaped(self):
        # Each term is weighed once, and a class passed over at its first term
        # that fails: 8,000 words answer in moments.
        query = ["m", "range", "accrual", "note"] + ["zq%d" % i for i in range(7996)]
        start = time.monotonic()
        code, out, err = run("find", *query)
        self.assertLess(time.monotonic() - start, 2.0)
        self.assertEqual((code, out), (1, ""))
        self.assertIn("nothing matches 'zq0'", err)
        long_name = "q" * 130000  # near the largest single argument Linux takes
        for args, status, shown in [(["show", long_name], 1, "'" + "q" * 64 + "...'"),
                                    (["find", long_name], 1, "q..."), ([long_name], 2, "q..."),
                                    (["show", "M_Inst\x1b[2JInfo"], 1, "'M_Inst\\x1b[2JInfo'"),
                                    (["\x1b]0;title\x07"], 2, "\\x1b]0;title\\x07"),
                                    (["show", "M_Tiv", "--\x1b[2J"], 2, "\\x1b[2J"),
                                    (["list", "-" + long_name], 2, "q..."),
                                    (["show", "M_Tiv", "--depth=" + long_name], 2, "q...")]:
            start = time.monotonic()
            code, out, err = run(*args)
            self.assertLess(time.monotonic() - start, 5.0)
            self.assertEqual((code, out), (status, ""))
            self.assertIn(shown, err)
            self.assertNotIn("\x1b", err)
            self.assertLess(len(err.splitlines()[0]), 200)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: test_catalogue_tool.py TOOL TOOL_WITHOUT_PROBE")
    TOOL = sys.argv.pop(1)
    TOOL_WITHOUT_PROBE = sys.argv.pop(1)
    unittest.main()
