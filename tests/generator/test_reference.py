"""Checks the reference pages of a build: every link lands on an entry that
exists, every class has exactly one entry, the index lists every class once
in alphabetical order, and the pages load nothing from elsewhere. Checks also
the pages of a small schema made here: the order of the index, and the roles
and descriptions of classes and fields where the schema has them and where it
has not.

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


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.ids, self.hrefs, self.sources = [], [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if "id" in attrs:
            self.ids.append(attrs["id"])
        if "href" in attrs:
            self.hrefs.append(attrs["href"])
        if "src" in attrs or (tag == "link" and "href" in attrs):
            self.sources.append(tag)


class ReferencePages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.pages = {}
        for name in sorted(os.listdir(PAGES)):
            if name.endswith(".html"):
                with open(os.path.join(PAGES, name), encoding="utf-8") as fh:
                    cls.pages[name] = Page(fh.read())

    def test_every_link_lands_on_an_entry(self):
        self.assertIn("index.html", self.pages)
        checked = 0
        for name, page in self.pages.items():
            self.assertEqual(len(page.ids), len(set(page.ids)), f"{name}: an id twice")
            self.assertEqual(page.sources, [], f"{name} loads something")
            for href in page.hrefs:
                with self.subTest(page=name, href=href):
                    target, _, anchor = href.partition("#")
                    # No other site, no missing page, no missing entry.
                    self.assertTrue(target in self.pages, f"{name}: {href}: no such page")
                    if anchor:
                        self.assertTrue(anchor in self.pages[target].ids,
                                        f"{name}: {href}: no such entry")
                        checked += 1
        self.assertGreater(checked, 0)

    def test_index_lists_every_class_once_in_alphabetical_order(self):
        schema = load(os.path.join(ROOT, "schema"))
        listed = [h.partition("#")[2] for h in self.pages["index.html"].hrefs if "#" in h]
        self.assertEqual(sorted(listed), sorted(m.name for m in schema.messages))
        self.assertEqual(listed, sorted(listed, key=lambda n: (n.lower(), n)))

    def test_requests_link_their_likely_reply(self):
        schema = load(os.path.join(ROOT, "schema"))
        found = {}
        for family in schema.families:
            with open(os.path.join(PAGES, family + ".html"), encoding="utf-8") as fh:
                tree = Tree(fh.read()).root
            for section in tree.all("section"):
                for p in section.cls("reply"):
                    found[section.attrs["id"]] = [a.attrs["href"] for a in p.all("a")]
        expected = {m.name: [f"{schema.message(m.reply).family}.html#{m.reply}"]
                    for m in schema.messages if m.reply}
        self.assertEqual(found, expected)
        self.assertEqual(len(found), 523)

    def test_each_class_has_one_entry_on_its_family_page(self):
        schema = load(os.path.join(ROOT, "schema"))
        self.assertEqual(set(self.pages), {"index.html"} | {f + ".html" for f in schema.families})
        entries = [i for name, p in self.pages.items() if name != "index.html" for i in p.ids
                   if i.startswith("M_")]
        self.assertEqual(sorted(entries), sorted(m.name for m in schema.messages))
        for msg in schema.messages:
            self.assertIn(msg.name, self.pages[msg.family + ".html"].ids)


class Node:
    def __init__(self, tag, attrs, parent):
        self.tag, self.attrs, self.parent = tag, dict(attrs), parent
        self.children = []  # nodes and strings

    def text(self):
        return "".join(c if isinstance(c, str) else c.text() for c in self.children)

    def all(self, tag):
        for c in self.children:
            if isinstance(c, Node):
                if c.tag == tag:
                    yield c
                yield from c.all(tag)

    def cls(self, name):
        return [n for t in ("span", "p", "td") for n in self.all(t)
                if name in n.attrs.get("class", "").split()]


class Tree(HTMLParser):
    """The page as a tree of elements, enough to look into tables and sections."""

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


def small_schema():
    """Two families; the catalogue order differs from the alphabetical one,
    and two names sort differently with and without case. Some classes and
    fields have roles and descriptions, some have none. The request has its
    likely reply on the other page."""
    loc = Loc("x.txt", 1)
    f_leg = Field("mCreditCf", 100, "m", "M_CreditCf", "M_CreditCf", loc)
    f_legs = Field("maCrSglCds", 110, "ma", "M_CrSglCds_Array", "M_CrSglCds", loc)
    f_right = Field("sOptRight", 120, "s", "CString", None, loc, role="right: call <or> put")
    f_strike = Field("dStrike", 130, "d", "CDbl", None, loc)
    messages = [
        Message(20, "M_Zeta", "alpha", [f_leg, f_legs, f_right, f_strike], loc,
                "request", 'a deal of "both" legs & <b>more</b>', reply="M_ZetaOut"),
        Message(21, "M_CrSglCds", "alpha", [f_strike], loc, "block", "one leg"),
        Message(10, "M_CreditCf", "beta", [], loc),
        Message(11, "M_apple", "beta", [f_right], loc, "terms", None),
        Message(12, "M_ZetaOut", "beta", [f_strike], loc, "reply", "what a deal is worth"),
    ]
    return Schema({f.name: f for f in (f_leg, f_legs, f_right, f_strike)}, messages,
                  ["alpha", "beta"])


class SmallSchema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.schema = small_schema()
        held = emit_reference.holders(cls.schema)
        cls.sources = {"index": emit_reference.index_source(cls.schema, held)}
        for family in cls.schema.families:
            cls.sources[family] = emit_reference.family_source(cls.schema, family, held)
        cls.trees = {name: Tree(text).root for name, text in cls.sources.items()}

    def test_index_is_alphabetical_with_family_role_and_description(self):
        rows = [r for r in self.trees["index"].all("tr") if "data-find" in r.attrs]
        cells = [[td.text() for td in r.all("td")] for r in rows]
        self.assertEqual([c[0] for c in cells],
                         ["M_apple", "M_CreditCf", "M_CrSglCds", "M_Zeta", "M_ZetaOut"])
        self.assertEqual([c[1:4] for c in cells], [
            ["beta", "terms", ""],
            ["beta", "", ""],  # neither role nor description yet
            ["alpha", "block", "one leg"],
            ["alpha", "request", 'a deal of "both" legs & <b>more</b>'],  # as text, not markup
            ["beta", "reply", "what a deal is worth"],
        ])
        # Each name links to its entry on its family's page.
        links = [a.attrs["href"] for r in rows for a in r.all("a")]
        self.assertEqual(links, ["beta.html#M_apple", "beta.html#M_CreditCf",
                                 "alpha.html#M_CrSglCds", "alpha.html#M_Zeta",
                                 "beta.html#M_ZetaOut"])
        # The filter finds a class by its role, its description and its family.
        find = {r.attrs["data-find"] for r in rows}
        self.assertTrue(any("request" in t and "both" in t and "alpha" in t for t in find))

    def test_entries_show_roles_and_descriptions(self):
        sections = {s.attrs["id"]: s for tree in self.trees.values() for s in tree.all("section")}
        self.assertEqual(set(sections), {m.name for m in self.schema.messages})

        zeta = sections["M_Zeta"]
        self.assertEqual([r.text() for r in next(zeta.all("h2")).cls("role")], ["request"])
        self.assertEqual([p.text() for p in zeta.cls("desc")],
                         ['a deal of "both" legs & <b>more</b>'])
        self.assertIn("request", zeta.attrs["data-find"])
        # A column of field roles, filled where the field has one.
        rows = [[c.text() for c in tr.children if isinstance(c, Node)] for tr in zeta.all("tr")]
        self.assertEqual(rows[0], ["Tag", "Field", "Kind", "Type", "Role"])
        self.assertEqual([r[4] for r in rows[1:]], ["", "", "right: call <or> put", ""])
        self.assertEqual(rows[2][3], "M_CrSglCds_Array")

        # No field with a role: no column for them.
        cds = sections["M_CrSglCds"]
        self.assertEqual([c.text() for c in next(cds.all("tr")).children if isinstance(c, Node)],
                         ["Tag", "Field", "Kind", "Type"])
        # A role and no description, and neither.
        apple = sections["M_apple"]
        self.assertEqual([r.text() for r in apple.cls("role")], ["terms"])
        self.assertEqual(apple.cls("desc"), [])
        credit = sections["M_CreditCf"]
        self.assertEqual(credit.cls("role") + credit.cls("desc"), [])
        self.assertEqual(credit.attrs["data-find"], "m_creditcf 10")

        # The likely reply of the request, on the other page, marked as by
        # name and found by the filter; no other entry has one.
        replies = {name: s.cls("reply") for name, s in sections.items()}
        self.assertEqual([n for n, r in replies.items() if r], ["M_Zeta"])
        reply = replies["M_Zeta"][0]
        self.assertEqual(" ".join(reply.text().split()), "Likely reply (by name): M_ZetaOut12")
        self.assertEqual([a.attrs["href"] for a in reply.all("a")], ["beta.html#M_ZetaOut"])
        self.assertIn("the service decides", reply.attrs["title"])
        self.assertIn("m_zetaout", zeta.attrs["data-find"].split())
        # Names break only where a word starts; the text stays the name.
        self.assertEqual([r[1] for r in rows[1:]], ["mCreditCf", "maCrSglCds", "sOptRight",
                                                   "dStrike"])
        self.assertIn("<td>maCr<wbr>Sgl<wbr>Cds</td>", self.sources["alpha"])
        for name, text in self.sources.items():
            self.assertNotIn("None", text, name)


if __name__ == "__main__":
    if len(sys.argv) < 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("usage: test_reference.py DIR, the reference/ directory of a build "
                 "(made by the pricemsg_reference target)")
    PAGES = sys.argv.pop(1)
    unittest.main()
