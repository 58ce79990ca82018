"""Checks the reference pages of a build: every link lands on an entry that
exists, every class has exactly one entry, the index lists every class once
in alphabetical order, and the pages load nothing from elsewhere. Checks also
the pages of a small schema made here: roles, descriptions and likely replies
of classes and fields where it has them and where it has not.

    test_reference.py DIR    (the build's reference/ directory)
"""

import html
import os
import re
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

import emit_reference  # noqa: E402
from schema import Field, Loc, Message, Schema, load  # noqa: E402

PAGES = None


def text(fragment):
    """What a reader sees of a piece of a page: tags dropped, entities read."""
    return html.unescape(re.sub(r"<[^>]*>", "", fragment))


def sections(page):
    return dict(re.findall(r'<section id="([^"]+)"(.*?)</section>', page, re.S))


def rows(fragment):
    """The table rows of a piece of a page, as the texts of their cells."""
    return [[text(c) for c in re.findall(r"<t[hd][^>]*>(.*?)</t[hd]>", tr)]
            for tr in re.findall(r"<tr[^>]*>(.*?)</tr>", fragment, re.S)]


class ReferencePages(unittest.TestCase):
    def test_links_land_on_entries_one_per_class_and_nothing_is_loaded(self):
        schema = load(os.path.join(ROOT, "schema"))
        pages = {}
        for name in os.listdir(PAGES):
            with open(os.path.join(PAGES, name), encoding="utf-8") as fh:
                pages[name] = fh.read()
        self.assertEqual(set(pages), {"index.html"} | {f + ".html" for f in schema.families})
        ids = {name: re.findall(r'\sid="([^"]+)"', page) for name, page in pages.items()}
        for name, page in pages.items():
            self.assertEqual(len(ids[name]), len(set(ids[name])), f"{name}: an id twice")
            self.assertNotRegex(page, r"<link\b|\ssrc=", f"{name} loads something")
            for href in re.findall(r'\shref="([^"]*)"', page):
                target, _, anchor = html.unescape(href).partition("#")
                self.assertIn(target, pages, f"{name}: {href}: no such page")
                if anchor:
                    self.assertIn(anchor, ids[target], f"{name}: {href}: no such entry")
        entries = sorted((name, entry) for name, page in pages.items() for entry in sections(page))
        self.assertEqual(entries, sorted((m.family + ".html", m.name) for m in schema.messages))
        self.assertEqual(re.findall(r'<td><a href="\w+\.html#(\w+)"', pages["index.html"]),
                         sorted((m.name for m in schema.messages), key=lambda n: (n.lower(), n)))


class SmallSchema(unittest.TestCase):
    """Two families; the catalogue order differs from the alphabetical one,
    and two names sort differently with and without case. Some fields have
    roles, some have none. The request has its likely reply on the other
    page."""

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
            Message(10, "M_CreditCf", "beta", [], loc, "market", "a curve"),
            Message(11, "M_apple", "beta", [f_right], loc, "terms", "a fruit"),
            Message(12, "M_ZetaOut", "beta", [f_strike], loc, "reply", "what a deal is worth"),
        ], ["alpha", "beta"])
        held = emit_reference.holders(schema)
        cls.index = emit_reference.index_source(schema, held)
        cls.pages = [emit_reference.family_source(schema, f, held) for f in schema.families]
        cls.sections = {**sections(cls.pages[0]), **sections(cls.pages[1])}

    def test_index_is_alphabetical_with_family_role_and_description(self):
        self.assertEqual([r[:4] for r in rows(self.index)[1:]], [
            ["M_apple", "beta", "terms", "a fruit"],
            ["M_CreditCf", "beta", "market", "a curve"],
            ["M_CrSglCds", "alpha", "block", "one leg"],
            ["M_Zeta", "alpha", "request", 'a deal of "both" legs & <b>more</b>'],  # text
            ["M_ZetaOut", "beta", "reply", "what a deal is worth"],
        ])
        # The filter finds a class by its role, its description and its family.
        self.assertIn('<tr data-find="m_zeta 20 request a deal of &quot;both&quot; legs',
                      self.index)
        self.assertRegex(self.index, r'<tr data-find="m_zeta [^"]* alpha[ "]')

    def test_entries_show_roles_descriptions_and_the_likely_reply(self):
        zeta = self.sections["M_Zeta"]
        self.assertIn('<span class="role">request</span></h2>', zeta)
        self.assertIn('<p class="desc">a deal of &quot;both&quot; legs &amp; &lt;b&gt;more', zeta)
        # A column of field roles, filled where the field has one; names
        # break only where a word starts, and read as the name.
        self.assertEqual(rows(zeta), [["Tag", "Field", "Kind", "Type", "Role"],
                                      ["100", "mCreditCf", "message", "M_CreditCf", ""],
                                      ["110", "maCrSglCds", "repeated message",
                                       "M_CrSglCds_Array", ""],
                                      ["120", "sOptRight", "string", "CString",
                                       "right: call <or> put"],
                                      ["130", "dStrike", "double", "CDbl", ""]])
        self.assertIn("<td>maCr<wbr>Sgl<wbr>Cds</td>", zeta)
        # No field with a role: no column for them.
        self.assertEqual(rows(self.sections["M_CrSglCds"])[0], ["Tag", "Field", "Kind", "Type"])
        self.assertIn('<section id="M_CreditCf" data-find="m_creditcf 10 market a curve">',
                      self.pages[1])
        # Only the request links its likely reply, on the other page.
        self.assertEqual([n for n, s in self.sections.items() if 'class="reply"' in s], ["M_Zeta"])
        reply = re.search(r'<p class="reply" title="([^"]*)">(.*?)</p>', zeta)
        self.assertIn("the service decides", reply.group(1))
        self.assertEqual(text(reply.group(2)), "Likely reply (by name): M_ZetaOut12")
        self.assertEqual(re.findall(r'href="([^"]+)"', reply.group(2)), ["beta.html#M_ZetaOut"])
        self.assertRegex(self.pages[0], r'<section id="M_Zeta" data-find="[^"]* m_zetaout ')


if __name__ == "__main__":
    if len(sys.argv) < 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("usage: test_reference.py DIR, the reference/ directory of a build "
                 "(made by the pricemsg_reference target)")
    PAGES = sys.argv.pop(1)
    unittest.main()
