"""Follows links of the reference pages in a headless browser and checks
where they land: the heading of the entry a link leads to must be in the
window and below the sticky header, which must not cover any of it, and that
also when the page's filter hides the entry, and for the link from a request
to its likely reply. Checks also what a reader of a narrow window sees: no
page is wider than the window, a field table fits it or scrolls inside its
own box (how many do is told), and the links of
the header stand evenly apart, the current page's name among them; and that
the filter finds by near spelling ("barier" shows what "barrier" shows).

    browser_check.py DIR [--shots DIR]

DIR is the build's reference/ directory. The pages are served over HTTP on
127.0.0.1; chromedriver drives the browser through the WebDriver protocol.
Each case is run at a wide and at a narrow window (where the header's links
wrap and the header grows) and leaves a screenshot in --shots (by default
reference-check/ beside DIR). Exits 0 when every case passes, 1 when one
fails or the browser cannot be driven, and 77 when chromium or chromedriver
is missing (set CHROMIUM and CHROMEDRIVER to use others than those on PATH).
"""

from __future__ import annotations

import argparse
import base64
import contextlib
import functools
import http.server
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request
from html.parser import HTMLParser

SKIP = 77
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element reference
WINDOWS = ((1280, 800), (360, 740))


class CheckError(Exception):
    pass


# ---- the pages, read to pick the links to follow ----

class Entries(HTMLParser):
    """The entries of a family page in order, each with the text its filter
    matches and the entries of the same page that it links to; and for each
    request with a likely reply on the same page, that reply."""

    def __init__(self, page: str, text: str):
        super().__init__()
        self.page = page
        self.entries: list[tuple[str, str, list[str]]] = []
        self.replies: dict[str, str] = {}
        self.in_reply = False
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "section" and "data-find" in attrs:
            self.entries.append((attrs.get("id", ""), attrs["data-find"], []))
        elif tag == "p":
            self.in_reply = "reply" in (attrs.get("class") or "").split()
        elif tag == "a" and self.entries:
            target, _, anchor = (attrs.get("href") or "").partition("#")
            if target == self.page and anchor:
                self.entries[-1][2].append(anchor)
                if self.in_reply:
                    self.replies[self.entries[-1][0]] = anchor

    def handle_endtag(self, tag):
        if tag == "p":
            self.in_reply = False


def read_pages(pages: str) -> dict[str, Entries]:
    out = {}
    for name in sorted(os.listdir(pages)):
        if name.endswith(".html") and name != "index.html":
            with open(os.path.join(pages, name), encoding="utf-8") as fh:
                out[name] = Entries(name, fh.read())
    if not out or not os.path.isfile(os.path.join(pages, "index.html")):
        raise CheckError(f"{pages}: no index.html and family pages; build the "
                         "pricemsg_reference target first")
    return out


def far_entry(pages: dict[str, Entries]) -> tuple[str, str]:
    """An entry far down the longest family page: the page must scroll to it."""
    page = max(pages.values(), key=lambda p: len(p.entries))
    return page.page, page.entries[len(page.entries) * 2 // 3][0]


def reply_pair(pages: dict[str, Entries]) -> tuple[str, str, str]:
    """(page, request, reply): the request whose likely reply stands farthest
    from it on its page, so that following the link scrolls."""
    best = None
    for page in pages.values():
        order = {name: i for i, (name, _, _) in enumerate(page.entries)}
        for request, reply in page.replies.items():
            room = abs(order[reply] - order[request])
            if best is None or room > best[0]:
                best = (room, page.page, request, reply)
    if best is None:
        raise CheckError("no request links to its likely reply")
    return best[1:]


def linked_pair(pages: dict[str, Entries]) -> tuple[str, str, str, str]:
    """(page, source, target, filter): the source entry links to the target
    on the same page, below it, and the filter (the source's name) shows the
    source and hides the target. Of those, the pair whose target is farthest
    from both the source and the end of the page, so that the page scrolls
    to the target and can bring it to the top of the window."""
    best = None
    for page in pages.values():
        order = {name: i for i, (name, _, _) in enumerate(page.entries)}
        find = {name: text for name, text, _ in page.entries}
        for name, text, links in page.entries:
            words = name.lower()
            for target in links:
                if target == name or words in find[target]:
                    continue
                room = min(order[target] - order[name], len(page.entries) - order[target])
                if best is None or room > best[0]:
                    best = (room, page.page, name, target, words)
    if best is None or best[0] < 1:
        raise CheckError("no entry links to an entry below it on its own page")
    return best[1:]


# ---- the browser ----

class Browser:
    """A chromedriver session, driven with the W3C WebDriver protocol."""

    def __init__(self, chromium: str, chromedriver: str, profile: str):
        self.port = free_port()
        self.log = open(os.path.join(profile, "chromedriver.log"), "w+")
        self.driver = subprocess.Popen([chromedriver, f"--port={self.port}"],
                                       stdout=self.log, stderr=subprocess.STDOUT)
        self.session = None
        try:
            self._wait_ready()
            caps = {"browserName": "chrome", "pageLoadStrategy": "normal",
                    "goog:chromeOptions": {"binary": chromium, "args": [
                        "--headless=new", "--no-sandbox", "--disable-gpu",
                        "--disable-dev-shm-usage", "--hide-scrollbars",
                        f"--user-data-dir={os.path.join(profile, 'profile')}"]}}
            value = self._call("POST", "/session", {"capabilities": {"alwaysMatch": caps}})
            self.session = f"/session/{value['sessionId']}"
        except BaseException:
            self.close()
            raise

    def _wait_ready(self) -> None:
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            if self.driver.poll() is not None:
                raise CheckError(f"chromedriver stopped (status {self.driver.returncode}): "
                                 f"{self._log_tail()}")
            with contextlib.suppress(OSError, CheckError):
                if self._call("GET", "/status").get("ready"):
                    return
            time.sleep(0.2)
        raise CheckError("chromedriver did not become ready within 30 s")

    def _log_tail(self) -> str:
        self.log.flush()
        self.log.seek(0)
        return self.log.read()[-2000:]

    def _call(self, method: str, path: str, body: dict | None = None):
        data = json.dumps(body).encode() if body is not None else None
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", data=data,
                                         method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=120) as reply:
                return json.load(reply).get("value")
        except urllib.error.HTTPError as e:
            try:
                value = json.load(e).get("value", {})
                text = f"{value.get('error')}: {value.get('message', '').splitlines()[0]}"
            except (ValueError, AttributeError, IndexError):
                text = str(e)
            raise CheckError(f"WebDriver {method} {path}: {text}") from None

    def call(self, method: str, path: str, body: dict | None = None):
        return self._call(method, self.session + path, body)

    def open(self, url: str, width: int, height: int) -> None:
        self.call("POST", "/window/rect", {"width": width, "height": height})
        self.call("POST", "/url", {"url": url})

    def find(self, css: str) -> str:
        found = self.call("POST", "/element", {"using": "css selector", "value": css})
        return found[ELEMENT]

    def click(self, css: str) -> None:
        self.call("POST", f"/element/{self.find(css)}/click", {})

    def type(self, css: str, text: str) -> None:
        self.call("POST", f"/element/{self.find(css)}/value", {"text": text})

    def run(self, script: str, *args):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(args)})

    def run_async(self, script: str, *args):
        return self.call("POST", "/execute/async", {"script": script, "args": list(args)})

    def screenshot(self, path: str) -> None:
        with open(path, "wb") as fh:
            fh.write(base64.b64decode(self.call("GET", "/screenshot")))

    def close(self) -> None:
        if self.session:
            with contextlib.suppress(OSError, CheckError):
                self._call("DELETE", self.session)
            self.session = None
        if self.driver.poll() is None:
            self.driver.terminate()
            try:
                self.driver.wait(10)
            except subprocess.TimeoutExpired:
                self.driver.kill()
                self.driver.wait()
        self.log.close()


def free_port() -> int:
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


@contextlib.contextmanager
def serve(directory: str):
    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *args):
            pass

    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), functools.partial(Quiet, directory=directory))
    thread = threading.Thread(target=server.serve_forever, daemon=True)
    thread.start()
    try:
        yield f"http://127.0.0.1:{server.server_address[1]}"
    finally:
        server.shutdown()
        server.server_close()


# ---- the cases ----

# Where the entry that the address names stands, two frames after the page
# settled: its heading's box, the header's, and what is drawn at the middle
# of the heading's first line.
MEASURE = """
var done = arguments[arguments.length - 1];
function measure() {
  var id = decodeURIComponent(location.hash.slice(1));
  var entry = document.getElementById(id);
  var header = document.querySelector("header");
  var note = document.getElementById("note");
  if (!entry) return {error: "no entry " + id};
  var h = entry.querySelector("h2").getBoundingClientRect();
  var x = h.left + 4, y = h.top + Math.min(h.height / 2, 8);
  var at = document.elementFromPoint(x, y);
  return {
    hash: id,
    shown: getComputedStyle(entry).display !== "none",
    top: h.top, bottom: h.bottom, height: h.height,
    headerBottom: header.getBoundingClientRect().bottom,
    window: window.innerHeight,
    scrolled: window.scrollY,
    drawn: at === null ? "nothing" : entry.contains(at) ? "heading" : at.tagName.toLowerCase(),
    filter: document.getElementById("find").value,
    note: note && !note.hidden ? note.textContent : ""
  };
}
requestAnimationFrame(function () { requestAnimationFrame(function () { done(measure()); }); });
"""


def settle(browser: Browser, anchor: str) -> None:
    """Waits until the browser has followed the link to the anchor."""
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        state = browser.run("return [location.hash, document.readyState];")
        if state == ["#" + anchor, "complete"]:
            return
        time.sleep(0.1)
    raise CheckError(f"the link to #{anchor} was not followed (page at {state[0]!r})")


def landed(browser: Browser, anchor: str, shot: str) -> list[str]:
    """What is wrong with where the link to the anchor landed, if anything."""
    settle(browser, anchor)
    m = browser.run_async(MEASURE)
    browser.screenshot(shot)
    if "error" in m:
        return [m["error"]]
    faults = []
    if not m["shown"] or m["height"] == 0:
        faults.append("the entry is hidden")
    else:
        if m["top"] < m["headerBottom"] - 0.5:
            faults.append(f"its heading's top ({m['top']:.0f} px) is under the header, "
                          f"which ends at {m['headerBottom']:.0f} px")
        if m["bottom"] > m["window"]:
            faults.append(f"its heading ends at {m['bottom']:.0f} px, below the window "
                          f"({m['window']} px)")
        if m["drawn"] != "heading":
            faults.append(f"the {m['drawn']} is drawn over its heading")
    return faults


# What a reader of the page sees of its width: the elements that reach past
# the window's right edge (the page then scrolls sideways), the field tables
# whose box does, how many tables scroll inside their box, and the gaps
# between the items of the header's navigation that stand on one line.
LAYOUT = """
var out = {window: window.innerWidth, page: document.documentElement.scrollWidth,
           past: [], tables: 0, wideTables: [], gaps: []};
var all = document.body.getElementsByTagName("*");
for (var i = 0; i < all.length && out.past.length < 3; i++) {
  var r = all[i].getBoundingClientRect();
  var box = all[i].parentElement.closest(".wide");  // what a box that scrolls holds is clipped
  var clipped = box && getComputedStyle(box).overflowX !== "visible";
  if (r.width && r.right > window.innerWidth + 0.5 && !clipped)
    out.past.push(all[i].tagName.toLowerCase() + (all[i].id ? "#" + all[i].id : "") +
                  " to " + Math.round(r.right) + " px");
}
var tables = document.querySelectorAll("table.fields");
out.tables = tables.length;
out.scrolling = 0;
for (var i = 0; i < tables.length; i++) {
  var box = tables[i].parentElement.getBoundingClientRect();
  var t = tables[i].getBoundingClientRect();
  if (t.right > box.right + 0.5) out.scrolling++;
  if (box.right > window.innerWidth + 0.5 && out.wideTables.length < 3)
    out.wideTables.push(tables[i].closest("section").id + " (a box of " +
                        Math.round(box.width) + " px)");
}
var items = document.querySelectorAll("nav > *");
for (var i = 1; i < items.length; i++) {
  var a = items[i - 1].getBoundingClientRect(), b = items[i].getBoundingClientRect();
  if (Math.abs(a.top - b.top) < 1)
    out.gaps.push([items[i - 1].textContent, items[i].textContent, b.left - a.right]);
}
return out;
"""

# Puts a text into the filter as typing would, and gives back the entries
# shown (by id, or on the index by the link of the row), the count line and
# how long the filter took.
FILTER = """
var box = document.getElementById("find");
box.value = arguments[0];
var start = performance.now();
box.dispatchEvent(new Event("input"));
var took = performance.now() - start;
var shown = [];
var items = document.querySelectorAll("[data-find]");
for (var i = 0; i < items.length; i++) {
  if (getComputedStyle(items[i]).display === "none") continue;
  shown.push(items[i].id || items[i].querySelector("a").getAttribute("href"));
}
return {shown: shown, count: document.getElementById("count").textContent, took: took};
"""


def layout_faults(m: dict) -> list[str]:
    faults = []
    if m["page"] > m["window"]:
        faults.append(f"the page is {m['page']} px wide in a window of {m['window']} px: "
                      + ", ".join(m["past"]))
    if m["wideTables"]:
        faults.append(f"field tables wider than the window: {', '.join(m['wideTables'])}")
    gaps = [g for _, _, g in m["gaps"]]
    if gaps and max(gaps) - min(gaps) > 1:
        odd = [f"{a} {b}: {g:.1f} px" for a, b, g in m["gaps"]]
        faults.append(f"the header's links stand unevenly apart ({'; '.join(odd)})")
    return faults


def filter_faults(browser: Browser, typo: str, word: str) -> tuple[list[str], str]:
    """What is wrong with what the filter shows for a misspelling of `word`."""
    right = browser.run(FILTER, word)
    wrong = browser.run(FILTER, typo)
    faults = []
    if not right["shown"]:
        faults.append(f"{word!r} shows nothing")
    if sorted(wrong["shown"]) != sorted(right["shown"]):
        missing = sorted(set(right["shown"]) - set(wrong["shown"]))[:3]
        extra = sorted(set(wrong["shown"]) - set(right["shown"]))[:3]
        faults.append(f"{typo!r} shows {len(wrong['shown'])} entries and {word!r} "
                      f"{len(right['shown'])} (missing {missing}, more {extra})")
    if typo not in wrong["count"]:
        faults.append(f"the count does not say it matched by spelling: {wrong['count']!r}")
    if wrong["took"] > 1000:
        faults.append(f"filtering took {wrong['took']:.0f} ms")
    nothing = browser.run(FILTER, "zqxwvzqxwv")
    if nothing["shown"]:
        faults.append(f"a word near no other shows {len(nothing['shown'])} entries")
    return faults, f"{len(right['shown'])} entries, {wrong['took']:.0f} ms"


def check(pages_dir: str, shots: str, chromium: str, chromedriver: str) -> int:
    pages = read_pages(pages_dir)
    far_page, far = far_entry(pages)
    page, source, target, words = linked_pair(pages)
    reply_page, request, reply = reply_pair(pages)
    # The page with the most entries about barriers, to misspell the word on.
    typo_page = max(pages.values(),
                    key=lambda p: sum("barrier" in text for _, text, _ in p.entries)).page
    os.makedirs(shots, exist_ok=True)
    failures = 0
    with tempfile.TemporaryDirectory(prefix="reference-check-") as profile, \
            serve(pages_dir) as base:
        browser = Browser(chromium, chromedriver, profile)
        try:
            for width, height in WINDOWS:
                cases = []

                # From the index to an entry far down a family page.
                def from_index():
                    browser.open(f"{base}/index.html", width, height)
                    browser.click(f'a[href="{far_page}#{far}"]')
                    return far, f"index.html: the link to {far_page}#{far}"
                cases.append(("index", from_index))

                # Within a family page, with no filter.
                def same_page():
                    browser.open(f"{base}/{page}", width, height)
                    browser.click(f'section#{source} a[href="{page}#{target}"]')
                    return target, f"{page}: the link of {source} to {target}"
                cases.append(("page", same_page))

                # Within a family page, with a filter that hides the target.
                def filtered():
                    browser.open(f"{base}/{page}", width, height)
                    browser.type("#find", words)
                    shown = browser.run(
                        "return getComputedStyle(document.getElementById(arguments[0]))"
                        ".display;", target)
                    if shown != "none":
                        raise CheckError(f"the filter {words!r} does not hide {target}")
                    browser.click(f'section#{source} a[href="{page}#{target}"]')
                    return target, (f"{page}: the link of {source} to {target}, "
                                    f"with the filter {words!r}")
                cases.append(("filtered", filtered))

                # From a request to its likely reply.
                def to_reply():
                    browser.open(f"{base}/{reply_page}#{request}", width, height)
                    browser.click(f'section#{request} p.reply a[href="{reply_page}#{reply}"]')
                    return reply, f"{reply_page}: the likely reply of {request}, {reply}"
                cases.append(("reply", to_reply))

                for name, case in cases:
                    shot = os.path.join(shots, f"{name}-{width}.png")
                    anchor, what = case()
                    faults = landed(browser, anchor, shot)
                    if name == "filtered" and not faults:
                        # The filter stays as typed, and the page says why
                        # an entry it hides is shown.
                        m = browser.run_async(MEASURE)
                        if m["filter"] != words:
                            faults.append(f"the filter became {m['filter']!r}")
                        if target not in m["note"]:
                            faults.append("no note says that the filter hides the entry "
                                          f"(note: {m['note']!r})")
                    status = "ok" if not faults else "FAILED"
                    print(f"{status}: {width}x{height}: {what} ({shot})")
                    for fault in faults:
                        print(f"    {fault}")
                    failures += bool(faults)

                # Every page at this width.
                for name in ["index.html", *pages]:
                    browser.open(f"{base}/{name}", width, height)
                    m = browser.run(LAYOUT)
                    faults = layout_faults(m)
                    if name != "index.html" and not m["tables"]:
                        faults.append("no field table to measure")
                    shot = os.path.join(shots, f"layout-{name[:-5]}-{width}.png")
                    browser.screenshot(shot)
                    status = "ok" if not faults else "FAILED"
                    scroll = f", {m['scrolling']} of {m['tables']} field tables scroll" \
                        if m["tables"] else ""
                    print(f"{status}: {width}x{height}: {name}: layout{scroll} ({shot})")
                    for fault in faults:
                        print(f"    {fault}")
                    failures += bool(faults)

            # The filter, on the index and on the family page with the most
            # barriers, with the word misspelled.
            for name in ("index.html", typo_page):
                browser.open(f"{base}/{name}", *WINDOWS[0])
                faults, said = filter_faults(browser, "barier", "barrier")
                status = "ok" if not faults else "FAILED"
                print(f"{status}: {name}: the filter 'barier' finds what 'barrier' finds ({said})")
                for fault in faults:
                    print(f"    {fault}")
                failures += bool(faults)
        finally:
            browser.close()
    return 1 if failures else 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("pages", metavar="DIR", help="the build's reference/ directory")
    parser.add_argument("--shots", help="where the screenshots go "
                        "(default: reference-check/ beside DIR)")
    args = parser.parse_args()
    pages = os.path.abspath(args.pages)
    if not os.path.isdir(pages):
        print(f"browser_check: {args.pages}: no such directory", file=sys.stderr)
        return 1
    shots = args.shots or os.path.join(os.path.dirname(pages), "reference-check")
    chromium = shutil.which(os.environ.get("CHROMIUM") or "chromium")
    chromedriver = shutil.which(os.environ.get("CHROMEDRIVER") or "chromedriver")
    if not chromium or not chromedriver:
        print("browser_check: chromium or chromedriver not found (Debian packages "
              "chromium and chromium-driver); the pages were not checked", file=sys.stderr)
        return SKIP
    try:
        return check(pages, shots, chromium, chromedriver)
    except CheckError as e:
        print(f"browser_check: {e}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
