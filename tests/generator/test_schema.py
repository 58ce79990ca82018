"""Tests of the schema reader and checker (generator/schema.py) and of the
generator's command line (generator/msggen.py)."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import SchemaErrors, load  # noqa: E402

# A small schema with every kind of field. Line numbers matter to the error
# table below: comments and blank lines count. The twins are listed array
# first; sets list their members in any order; `M_Deal` reaches `M_Leg` both
# directly and through `M_Terms` (a diamond, not a cycle).
FIXTURE = {
    "fields.txt": [
        "# tag field type",                # 1
        "10   iCount    CInt",             # 2
        "20   dPrice    CDbl",             # 3
        "30   bFlag     CBool",            # 4
        "40   nStart    CDate",            # 5
        "50   sName     CString",          # 6
        "55   iaDays    CIntArray",        # 7
        "60   daRates   CDblArray",        # 8
        "",                                # 9
        "70   maLeg     M_Leg_Array",      # 10
        "70   mLeg      M_Leg",            # 11
        "75   mTerms    M_Terms",          # 12
        "80   mFarLeg   M_Leg",            # 13
        "90   sNote     CString   # free text",  # 14
    ],
    "alpha.txt": [
        "# Legs and terms",                                # 1
        "set *Common* = sNote dPrice",                     # 2
        "",                                                # 3
        "100  M_Leg    dPrice nStart",                     # 4
        "     = terms: one leg, with its price",           # 5
        "101  M_Terms  iCount *Common* bFlag maLeg",       # 6
        "     = terms: what was agreed, leg by leg",       # 7
        "field sName = the deal's name, as booked",        # 8
    ],
    "beta.txt": [
        "set *Deal head* = sName iCount",                  # 1
        "200  M_Deal   *Deal head* bFlag mLeg mTerms mFarLeg  # deal",  # 2
        "  =request :  a deal \"to value\", with legs  # said",  # 3
        "     reply  M_DealOut   # by its name",            # 4
        "201  M_Curve  iaDays daRates *Common*",           # 5
        "     = market: a curve",                          # 6
        "202  M_DealOut  dPrice",                          # 7
        "     = reply: what a deal is worth",              # 8
    ],
    "words.txt": [
        "# phrase, phrase = part part",                    # 1
        "legs,  Leg  =  Leg  Terms",                       # 2
    ],
}

def row(text):
    """A row for the edits below, with its description line."""
    return text + "\n     = block: an extra class"


def write_schema(folder, edits=()):
    """Writes the fixture into `folder`; an edit (file, line, text) replaces
    that line, or appends when the line is one past the end; text may hold
    several lines."""
    files = {name: list(lines) for name, lines in FIXTURE.items()}
    for file, line, text in edits:
        lines = files[file]
        assert 1 <= line <= len(lines) + 1, (file, line)
        lines[line - 1: line] = [text]
    os.makedirs(folder, exist_ok=True)
    for name, lines in files.items():
        with open(os.path.join(folder, name), "w", encoding="utf-8") as fh:
            fh.write("\n".join(lines) + "\n")
    return folder


# (file, line, new text, fragment of the error at that line), in the order the
# checks come in schema.py. Each mutation must give that one error and no other.
ERRORS = [
    ("fields.txt", 15, "110  iExtra", "got 2 columns"),
    ("fields.txt", 15, "110  iExtra  CInt  CInt", "got 4 columns"),
    ("fields.txt", 15, "0    iZero   CInt", "positive integer, got '0'"),
    ("fields.txt", 15, "110  iextra  CInt", "'iextra' is not a lower-case prefix"),
    ("fields.txt", 15, "110  Extra   CInt", "'Extra' is not a lower-case prefix"),
    ("fields.txt", 15, "110  i_Extra CInt", "'i_Extra' is not a lower-case prefix"),
    ("fields.txt", 15, "110  dFoo    CInt", "takes type CDbl, but its type is CInt"),
    ("fields.txt", 15, "110  mFoo    CInt", "takes a message class M_<Name>, but its type is CInt"),
    ("fields.txt", 15, "110  mFoo    M_Leg_Array", "but its type is M_Leg_Array"),
    ("fields.txt", 15, "110  maFoo   M_Leg", "takes an array class M_<Name>_Array"),
    ("fields.txt", 15, "110  dbFoo   CDbl", "unknown prefix 'db'"),
    ("fields.txt", 15, "110  dPrice  CDbl", "'dPrice' is already defined (schema/fields.txt:3)"),
    # A third field on a twin tag clashes with one of the pair, of either kind.
    ("fields.txt", 15, "70   maLeg2  M_Leg_Array", "tag 70 is already used by field 'maLeg'"),
    ("fields.txt", 15, "70   iSeventy CInt", "tag 70 is already used by field 'maLeg'"),
    ("fields.txt", 15, "75   maTerms M_Leg_Array",
     "twins on tag 75 disagree: 'mTerms' holds M_Terms but 'maTerms' holds M_Leg"),
    ("beta.txt", 9, "set *Common* = dPrice",
     "set *Common* is already defined (schema/alpha.txt:2)"),
    ("beta.txt", 9, "set *Empty* =", "set *Empty* has no fields"),
    ("beta.txt", 9, "set Common = dPrice", "expected 'set *Name* = field field ...'"),
    ("beta.txt", 9, "300", "expected 'number class field ...'"),
    ("beta.txt", 9, "0    M_Extra dPrice", "message number must be a positive integer, got '0'"),
    ("beta.txt", 9, "300  Extra   dPrice", "class name 'Extra' is not M_"),
    # A digit that is not ASCII ('\u00b2' passes str.isdigit()) is an error, not a crash.
    ("fields.txt", 15, "\u00b2  iExtra  CInt", "positive integer, got '\u00b2'"),
    ("beta.txt", 9, "\u00b2  M_Extra dPrice", "positive integer, got '\u00b2'"),
    # An unknown set member is reported once, at the set, not at each row.
    ("alpha.txt", 2, "set *Common* = sNote dPrice dNope", "set *Common*: unknown field 'dNope'"),
    ("beta.txt", 9, row("300  M_Extra dNope"), "M_Extra: unknown field 'dNope'"),
    ("beta.txt", 9, row("300  M_Extra *Nope*"), "M_Extra: set *Nope* is not defined"),
    ("beta.txt", 9, row("300  M_Extra iCount bFlag dPrice"),
     "field 'dPrice' (tag 20) stands after 'bFlag' (tag 30)"),
    ("beta.txt", 9, row("300  M_Extra dPrice *Common*"),
     "field 'dPrice' is given twice (from the row and set *Common*)"),
    ("beta.txt", 9, row("300  M_Extra dPrice dPrice"), "field 'dPrice' is given twice"),
    ("beta.txt", 9, row("300  M_Extra *Deal head* *Common* mLeg maLeg"),
     "M_Extra: fields 'mLeg' and 'maLeg' share tag 70"),
    ("beta.txt", 9, row("100  M_Extra dPrice"),
     "M_Extra: number 100 is already used by M_Leg (schema/alpha.txt:4)"),
    ("beta.txt", 9, row("300  M_Leg   dPrice"),
     "class M_Leg is already defined (schema/alpha.txt:4)"),
    ("alpha.txt", 9, "set *Spare* = dPrice", "set *Spare* is defined but no row uses it"),
    ("fields.txt", 15, "110  mGhost  M_Ghost", "'mGhost' holds M_Ghost, which no catalogue row"),
    ("fields.txt", 15, "110  maGhost M_Ghost_Array", "'maGhost' holds M_Ghost, which no catalogue"),
    ("alpha.txt", 4, "100  M_Leg    dPrice nStart maLeg",
     "M_Leg holds itself: M_Leg.maLeg -> M_Leg"),
    ("alpha.txt", 4, "100  M_Leg    dPrice nStart mTerms",
     "M_Leg holds itself: M_Leg.mTerms -> M_Terms.maLeg -> M_Leg"),
    ("alpha.txt", 3, "     = terms: a stray line", "must follow its row"),
    ("alpha.txt", 5, "     = answer: a leg", "M_Leg: unknown role 'answer'"),
    ("alpha.txt", 5, "     = terms", "M_Leg: expected '= role: description'"),
    ("alpha.txt", 5, "     = terms:", "M_Leg: expected '= role: description'"),
    # The likely reply of a request: a reply line follows the row and its
    # description, names one reply class, and only a request has one.
    ("alpha.txt", 3, "     reply M_DealOut", "a reply line ('reply M_Name') must follow its row"),
    ("beta.txt", 4, "     reply", "M_Deal: expected 'reply M_Name'"),
    ("beta.txt", 4, "     reply DealOut", "M_Deal: expected 'reply M_Name'"),
    ("beta.txt", 4, "     reply M_DealOut M_Curve", "M_Deal: expected 'reply M_Name'"),
    ("beta.txt", 5, "     reply M_DealOut\n201  M_Curve  iaDays daRates *Common*",
     "M_Deal: a second reply line; a request has one likely reply at most "
     "(schema/beta.txt:4)"),
    ("beta.txt", 4, "     reply M_DealBack", "M_Deal: its reply M_DealBack is no class"),
    ("beta.txt", 4, "     reply M_Curve", "M_Deal: its reply M_Curve is market, not a reply"),
    ("beta.txt", 4, "     reply M_Deal", "M_Deal: its reply M_Deal is request, not a reply"),
    ("alpha.txt", 8, "     reply M_DealOut",
     "M_Terms: only a request has a likely reply, and M_Terms is terms"),
    ("beta.txt", 9, "     reply M_DealOut",
     "M_DealOut: only a request has a likely reply, and M_DealOut is reply"),
    ("beta.txt", 9, "field sName = again", "'sName' already has a role (schema/alpha.txt:8)"),
    ("beta.txt", 9, "field dNope = a role", "role of unknown field 'dNope'"),
    ("beta.txt", 9, "field = a role", "expected 'field name = role'"),
    ("words.txt", 3, "deal = Nothing", "'Nothing' is part of no class name"),
    ("words.txt", 3, "LEGS = Leg", "'legs' is already listed (schema/words.txt:2)"),
    ("words.txt", 3, "curve", "expected 'word, word ... = part part ...'"),
    ("words.txt", 3, "curve, = Curve", "expected 'word, word ... = part part ...'"),
]


class SchemaTest(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="schema_test_")
        self.addCleanup(shutil.rmtree, self.tmp)

    def errors_of(self, edits, folder="bad"):
        with self.assertRaises(SchemaErrors) as cm:
            load(write_schema(os.path.join(self.tmp, folder), edits), "schema")
        return [(str(loc), text) for loc, text in cm.exception.errors]

    def test_valid_fixture(self):
        s = load(write_schema(os.path.join(self.tmp, "ok")), "schema")
        self.assertEqual(s.families, ["alpha", "beta"])
        # Sets expand where they stand; fields come in tag order.
        self.assertEqual({m.name: " ".join(f.name for f in m.fields) for m in s.messages}, {
            "M_Leg": "dPrice nStart",
            "M_Terms": "iCount dPrice bFlag maLeg sNote",
            "M_Deal": "iCount bFlag sName mLeg mTerms mFarLeg",
            "M_Curve": "dPrice iaDays daRates sNote",
            "M_DealOut": "dPrice",
        })
        deal = s.message("M_Deal")
        self.assertEqual((deal.number, deal.family, str(deal.loc)),
                         (200, "beta", "schema/beta.txt:2"))
        self.assertEqual(deal.sub_classes(), ["M_Leg", "M_Terms"])
        # Roles, descriptions and the reply line, with blanks and a '#' comment trimmed.
        self.assertEqual([(m.role, m.description, m.reply) for m in s.messages],
                         [("terms", "one leg, with its price", None),
                          ("terms", "what was agreed, leg by leg", None),
                          ("request", 'a deal "to value", with legs', "M_DealOut"),
                          ("market", "a curve", None),
                          ("reply", "what a deal is worth", None)])
        self.assertEqual((s.fields["sName"].role, s.fields["dPrice"].role),
                         ("the deal's name, as booked", None))
        self.assertEqual([(w.phrases, w.parts) for w in s.words],
                         [(["legs", "leg"], ["Leg", "Terms"])])

    def test_each_error_at_its_line(self):
        for n, (file, line, text, fragment) in enumerate(ERRORS):
            with self.subTest(file=file, text=text):
                errors = self.errors_of([(file, line, text)], str(n))
                self.assertEqual(len(errors), 1, errors)
                self.assertEqual(errors[0][0], f"schema/{file}:{line}")
                self.assertIn(fragment, errors[0][1])
        # A row without its description is told at the row.
        for n, text in enumerate(["", "# = terms: commented out",
                                  "set *Other* = dPrice\n= terms: late"]):
            self.assertIn(("schema/alpha.txt:4",
                           "M_Leg: no description line ('= role: text') below the row"),
                          self.errors_of([("alpha.txt", 5, text)], f"row{n}"))
        # A cycle entered from a class that is not on it starts at its own class.
        self.assertEqual(self.errors_of([("alpha.txt", 4, row("99   M_Top    mFarLeg") +
                                          "\n100  M_Leg    dPrice nStart mTerms")], "cycle"),
                         [("schema/alpha.txt:6",
                           "M_Leg holds itself: M_Leg.mTerms -> M_Terms.maLeg -> M_Leg")])

    def test_command_line_writes_only_what_changed_and_removes_what_is_gone(self):
        out = os.path.join(self.tmp, "out")

        def msggen(schema, *extra):
            r = subprocess.run([sys.executable, os.path.join(ROOT, "generator", "msggen.py"),
                                "--schema", schema, "--out", out, *extra],
                               capture_output=True, text=True)
            return r.returncode, re.findall(r"^(schema/\w+\.txt:\d+): error: ", r.stderr, re.M)

        def tree():
            return {os.path.relpath(os.path.join(base, name), out):
                    os.stat(os.path.join(base, name)).st_mtime_ns
                    for base, _, files in os.walk(out) for name in files}

        # Every error, in file and line order, though found in another: the
        # dictionary first, cycles last. Line 16 sorts after line 5 only by
        # number. The cycle is entered from M_Top, which is not on it.
        bad = write_schema(os.path.join(self.tmp, "bad"), [
            ("fields.txt", 15, "110  mGhost  M_Ghost"),
            ("fields.txt", 16, "0    iZero   CInt"),
            ("alpha.txt", 3, row("99   M_Top    mFarLeg")),
            ("alpha.txt", 4, "100  M_Leg    dPrice nStart mTerms"),
            ("alpha.txt", 9, "\n" * 6 + "set *Spare* = dPrice"),
            ("beta.txt", 9, row("300  M_Extra dNope")),
        ])
        for extra in ([], ["--check"]):
            self.assertEqual(msggen(bad, *extra), (1, [
                "schema/alpha.txt:5", "schema/alpha.txt:16", "schema/beta.txt:9",
                "schema/fields.txt:15", "schema/fields.txt:16"]))
            self.assertEqual(tree(), {})
        good = write_schema(os.path.join(self.tmp, "good"))
        self.assertEqual((msggen(good, "--check"), tree()), ((0, []), {}))
        self.assertEqual(msggen(good), (0, []))
        first = set(tree())
        curve = {"messages/beta/M_Curve.h", "messages/beta/M_Curve.cpp"}
        self.assertLessEqual(curve, first)

        # Back-dated: a file rewritten with the same text would show.
        for rel in first:
            os.utime(os.path.join(out, rel), ns=(10**18, 10**18))
        self.assertEqual(msggen(good), (0, []))
        self.assertEqual(tree(), dict.fromkeys(first, 10**18))
        write_schema(good, [("beta.txt", 5, ""), ("beta.txt", 6, "")])  # M_Curve is gone
        self.assertEqual(msggen(good), (0, []))
        after = tree()
        self.assertEqual(set(after), first - curve)
        self.assertEqual({rel for rel, t in after.items() if t != 10**18},
                         {"messages/beta/all.h", "callkyt_dat/KytDicData.cpp",
                          "tables/SchemaTables.cpp", "reference/index.html", "reference/beta.html"})
        os.remove(os.path.join(good, "beta.txt"))  # the family is gone, and its page
        self.assertEqual(msggen(good), (0, []))
        self.assertEqual({rel for rel in tree() if rel.startswith("reference/")},
                         {"reference/index.html", "reference/alpha.html"})


if __name__ == "__main__":
    unittest.main()
