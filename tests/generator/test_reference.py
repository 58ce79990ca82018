"""Checks the reference pages of a build: every link lands on an entry that
exists, every class has exactly one entry, and the pages load nothing from
elsewhere.

    test_reference.py DIR    (the build's reference/ directory)
"""

import os
import sys
import unittest
from html.parser import HTMLParser

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import load  # noqa: E402

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

    def test_each_class_has_one_entry_on_its_family_page(self):
        schema = load(os.path.join(ROOT, "schema"))
        self.assertEqual(set(self.pages), {"index.html"} | {f + ".html" for f in schema.families})
        entries = [i for name, p in self.pages.items() if name != "index.html" for i in p.ids
                   if i.startswith("M_")]
        self.assertEqual(sorted(entries), sorted(m.name for m in schema.messages))
        for msg in schema.messages:
            self.assertIn(msg.name, self.pages[msg.family + ".html"].ids)


if __name__ == "__main__":
    if len(sys.argv) < 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("usage: test_reference.py DIR, the reference/ directory of a build "
                 "(made by the pricemsg_reference target)")
    PAGES = sys.argv.pop(1)
    unittest.main()
