"""Checks the reference pages of a build: every link lands on an entry that
exists, every class has exactly one entry, the index lists every class once
in alphabetical order, and the pages load nothing from elsewhere. Checks also
the pages of a small schema made here: roles, descriptions and likely replies
of classes and fields where it has them and where it has not.

    test_reference.py DIR    (the build's reference/ directory)
"""

import os
import sys
import unittest
from html.parser import HTMLParser

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

import emit_reference  # noqa: E402
from schema import Field, Loc, Message, Schema, load  # noqa: E402

PAGES = None


class Node:
    def __init__(self, tag, attrs, parent):
        self.tag, self.attrs, self.parent = tag, dict(attrs), parent
        self.children = []  # nodes and strings

    def text(self):
        return "".join(c if isinstance(c, str) else c.text() for c in self.children)

    def all(self, tag=None):
        for c in self.children:
            if isinstance(c, Node):
                if tag in (None, c.tag):
                    yield c
                yield from c.all(tag)

    def cls(self, name):
        return [n for n in self.all() if name in n.attrs.get("class", "").split()]

    def cells(self):
        return [c.text() for c in self.children if isinstance(c, Node)]


class Tree(HTMLParser):
    """A page as a tree of elements."""

    VOID = {"meta", "input", "br", "wbr", "link", "img"}

    def __init__(self, text):
        super().__init__()
        self.root = self.at = Node("#root", [], None)
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        node = Node(tag, attrs, self.at)
        self.at.children.append(node)
        if tag not in self.VOID:
            self.at = node

    def handle_endtag(self, tag):
        at = self.at
        while at is not None and at.tag != tag:
            at = at.parent
        if at is not None:
            self.at = at.parent

    def handle_data(self, data):
        self.at.children.append(data)


class ReferencePages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.schema = load(os.path.join(ROOT, "schema"))
        cls.pages = {}
        for name in sorted(os.listdir(PAGES)):
            if name.endswith(".html"):
                with open(os.path.join(PAGES, name), encoding="utf-8") as fh:
                    cls.pages[name] = list(Tree(fh.read()).root.all())

    def test_every_link_lands_on_an_entry_and_nothing_is_loaded(self):
        ids = {name: [n.attrs["id"] for n in nodes if "id" in n.attrs]
               for name, nodes in self.pages.items()}
        for name, nodes in self.pages.items():
            self.assertEqual(len(ids[name]), len(set(ids[name])), f"{name}: an id twice")
            self.assertEqual([n.tag for n in nodes if "src" in n.attrs or n.tag == "link"], [],
                             f"{name} loads something")
            for href in (n.attrs["href"] for n in nodes if "href" in n.attrs):
                target, _, anchor = href.partition("#")
                self.assertIn(target, self.pages, f"{name}: {href}: no such page")
                if anchor:
                    self.assertIn(anchor, ids[target], f"{name}: {href}: no such entry")

    def test_each_class_has_one_entry_and_one_row_of_the_index_in_order(self):
        self.assertEqual(set(self.pages),
                         {"index.html"} | {f + ".html" for f in self.schema.families})
        entries = sorted((name, n.attrs["id"]) for name, nodes in self.pages.items()
                         for n in nodes if n.tag == "section")
        self.assertEqual(entries, sorted((m.family + ".html", m.name)
                                         for m in self.schema.messages))
        listed = [n.attrs["href"].partition("#")[2] for n in self.pages["index.html"]
                  if n.tag == "a" and "#" in n.attrs.get("href", "")]
        self.assertEqual(sorted(listed), sorted(m.name for m in self.schema.messages))
        self.assertEqual(listed, sorted(listed, key=lambda n: (n.lower(), n)))


class SmallSchema(unittest.TestCase):
    """Two families; the catalogue order differs from the alphabetical one,
    and two names sort differently with and without case. Some classes and
    fields have roles and descriptions, some have none. The request has its
    likely reply on the other page."""

    @classmethod
    def setUpClass(cls):
        loc = Loc("x.txt", 1)
        f_leg = Field("mCreditCf", 100, "m", "M_CreditCf", "M_CreditCf", loc)
        f_legs = Field("maCrSglCds", 110, "ma", "M_CrSglCds_Array", "M_CrSglCds", loc)
        f_right = Field("sOptRight", 120, "s", "CString", None, loc, role="right: call <or> put")
        f_strike = Field("dStrike", 130, "d", "CDbl", None, loc)
        schema = Schema({f.name: f for f in (f_leg, f_legs, f_right, f_strike)}, [
            Message(20, "M_Zeta", "alpha", [f_leg, f_legs, f_right, f_strike], loc,
                    "request", 'a deal of "both" legs & <b>more</b>', reply="M_ZetaOut"),
            Message(21, "M_CrSglCds", "alpha", [f_strike], loc, "block", "one leg"),
            Message(10, "M_CreditCf", "beta", [], loc),
            Message(11, "M_apple", "beta", [f_right], loc, "terms", None),
            Message(12, "M_ZetaOut", "beta", [f_strike], loc, "reply", "what a deal is worth"),
        ], ["alpha", "beta"])
        held = emit_reference.holders(schema)
        cls.sources = {"index": emit_reference.index_source(schema, held)}
        for family in schema.families:
            cls.sources[family] = emit_reference.family_source(schema, family, held)
        trees = [Tree(text).root for text in cls.sources.values()]
        cls.index = trees[0]
        cls.sections = {s.attrs["id"]: s for tree in trees for s in tree.all("section")}

    def test_index_is_alphabetical_with_family_role_and_description(self):
        rows = [r for r in self.index.all("tr") if "data-find" in r.attrs]
        self.assertEqual([r.cells()[:4] for r in rows], [
            ["M_apple", "beta", "terms", ""],
            ["M_CreditCf", "beta", "", ""],  # neither role nor description yet
            ["M_CrSglCds", "alpha", "block", "one leg"],
            ["M_Zeta", "alpha", "request", 'a deal of "both" legs & <b>more</b>'],  # text
            ["M_ZetaOut", "beta", "reply", "what a deal is worth"],
        ])
        self.assertEqual([a.attrs["href"] for r in rows for a in r.all("a")],
                         ["beta.html#M_apple", "beta.html#M_CreditCf", "alpha.html#M_CrSglCds",
                          "alpha.html#M_Zeta", "beta.html#M_ZetaOut"])
        # The filter finds a class by its role, its description and its family.
        self.assertEqual(rows[3].attrs["data-find"].split()[:4], ["m_zeta", "20", "request", "a"])
        self.assertIn("alpha", rows[3].attrs["data-find"].split())

    def test_entries_show_roles_and_descriptions(self):
        zeta = self.sections["M_Zeta"]
        self.assertEqual([r.text() for r in next(zeta.all("h2")).cls("role")], ["request"])
        self.assertEqual([p.text() for p in zeta.cls("desc")],
                         ['a deal of "both" legs & <b>more</b>'])
        # A column of field roles, filled where the field has one; names
        # break only where a word starts, and read as the name.
        rows = [tr.cells() for tr in zeta.all("tr")]
        self.assertEqual(rows, [["Tag", "Field", "Kind", "Type", "Role"],
                                ["100", "mCreditCf", "message", "M_CreditCf", ""],
                                ["110", "maCrSglCds", "repeated message", "M_CrSglCds_Array", ""],
                                ["120", "sOptRight", "string", "CString", "right: call <or> put"],
                                ["130", "dStrike", "double", "CDbl", ""]])
        self.assertIn("<td>maCr<wbr>Sgl<wbr>Cds</td>", self.sources["alpha"])
        # No field with a role: no column for them.
        self.assertEqual(next(self.sections["M_CrSglCds"].all("tr")).cells(),
                         ["Tag", "Field", "Kind", "Type"])
        # A role and no description, and neither.
        apple, credit = self.sections["M_apple"], self.sections["M_CreditCf"]
        self.assertEqual(([r.text() for r in apple.cls("role")], apple.cls("desc")),
                         (["terms"], []))
        self.assertEqual(credit.cls("role") + credit.cls("desc"), [])
        self.assertEqual(credit.attrs["data-find"], "m_creditcf 10")
        for name, text in self.sources.items():
            self.assertNotIn("None", text, name)

    def test_only_the_request_links_its_likely_reply_on_the_other_page(self):
        replies = {name: s.cls("reply") for name, s in self.sections.items()}
        self.assertEqual([n for n, r in replies.items() if r], ["M_Zeta"])
        reply = replies["M_Zeta"][0]
        self.assertEqual(" ".join(reply.text().split()), "Likely reply (by name): M_ZetaOut12")
        self.assertEqual([a.attrs["href"] for a in reply.all("a")], ["beta.html#M_ZetaOut"])
        self.assertIn("the service decides", reply.attrs["title"])
        self.assertIn("m_zetaout", self.sections["M_Zeta"].attrs["data-find"].split())


if __name__ == "__main__":
    if len(sys.argv) < 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("usage: test_reference.py DIR, the reference/ directory of a build "
                 "(made by the pricemsg_reference target)")
    PAGES = sys.argv.pop(1)
    unittest.main()
