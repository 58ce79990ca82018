"""Follows links of the reference pages in a headless browser, as a reader
sees them: the heading of the entry a link leads to is in the window and not
under the sticky header, also when the page's filter hid the entry (which is
then shown, with a note). No page is wider than a narrow window, and the
filter finds by near spelling.

    browser_check.py DIR    (the build's reference/ directory)

Exits 0 when every case passes, 1 when one fails, 77 when chromium, chromedriver
or python3-selenium is missing (CHROMIUM and CHROMEDRIVER name others).
"""

from __future__ import annotations

import os
import pathlib
import re
import shutil
import sys

try:
    from selenium import webdriver
    from selenium.common.exceptions import WebDriverException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.wait import WebDriverWait
except ImportError:
    webdriver = None

SKIP = 77
WINDOWS = ((1280, 800), (360, 740))


def pick_links(pages_dir: str) -> tuple[str, str, str, str, str]:
    """An entry far down the longest family page, for a link from the index;
    and the request whose likely reply stands farthest from it on its page,
    so that following the link scrolls: (far page, far entry, page, request,
    reply)."""
    entries, pairs = {}, []
    for page in sorted(os.listdir(pages_dir)):
        if page.endswith(".html") and page != "index.html":
            with open(os.path.join(pages_dir, page), encoding="utf-8") as fh:
                sections = fh.read().split('<section id="')[1:]
            entries[page] = [s.partition('"')[0] for s in sections]
            for request, section in zip(entries[page], sections):
                reply = re.search(rf'<p class="reply".*?href="{re.escape(page)}#(\w+)"', section)
                if reply:
                    pairs.append((request, reply.group(1), page))
    if not entries or not pairs:
        sys.exit(f"browser_check: {pages_dir}: no family pages, or no request links to its "
                 "likely reply on its own page; build the pricemsg_reference target")
    far_page = max(entries, key=lambda p: len(entries[p]))
    request, reply, page = max(pairs, key=lambda p: abs(entries[p[2]].index(p[1]) -
                                                         entries[p[2]].index(p[0])))
    return far_page, entries[far_page][len(entries[far_page]) * 2 // 3], page, request, reply


def start_browser(chromium: str, chromedriver: str) -> webdriver.Chrome:
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for arg in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                "--hide-scrollbars"):
        options.add_argument(arg)
    return webdriver.Chrome(service=Service(chromedriver), options=options)


def open_page(browser: webdriver.Chrome, url: str, width: int, height: int) -> None:
    browser.set_window_rect(width=width, height=height)
    browser.get(url)


# Where the entry that the address names stands, two frames after the page
# settled: its heading's box, the header's, and what is drawn at the middle
# of the heading's first line.
MEASURE = """
var done = arguments[arguments.length - 1];
requestAnimationFrame(function () { requestAnimationFrame(function () {
  var entry = document.getElementById(decodeURIComponent(location.hash.slice(1)));
  var note = document.getElementById("note");
  if (!entry) return done({error: "no entry " + location.hash});
  var h = entry.querySelector("h2").getBoundingClientRect();
  var at = document.elementFromPoint(h.left + 4, h.top + Math.min(h.height / 2, 8));
  done({shown: getComputedStyle(entry).display !== "none" && h.height > 0,
        top: h.top, bottom: h.bottom, window: window.innerHeight,
        headerBottom: document.querySelector("header").getBoundingClientRect().bottom,
        drawn: at === null ? "nothing" : entry.contains(at) ? "heading" : at.tagName,
        filter: document.getElementById("find").value,
        note: note.hidden ? "" : note.textContent});
}); });
"""

# What reaches past the window's right edge, but for what a box that scrolls
# holds; and the field tables whose box does.
LAYOUT = """
var out = {window: window.innerWidth, page: document.documentElement.scrollWidth, past: []};
var all = document.body.querySelectorAll("*");
for (var i = 0; i < all.length && out.past.length < 3; i++) {
  var box = all[i].parentElement.closest(".wide");
  var clipped = box && getComputedStyle(box).overflowX !== "visible";
  var r = all[i].getBoundingClientRect();
  if (r.width && r.right > window.innerWidth + 0.5 && !clipped)
    out.past.push(all[i].tagName + (all[i].id ? "#" + all[i].id : "") + " to " + r.right);
}
return out;
"""

# Types a text into the filter and gives back the entries shown and the
# count line.
FILTER = """
var box = document.getElementById("find");
box.value = arguments[0];
box.dispatchEvent(new Event("input"));
var shown = [];
document.querySelectorAll("[data-find]").forEach(function (e) {
  if (getComputedStyle(e).display !== "none") shown.push(e.id || e.querySelector("a").href);
});
return {shown: shown, count: document.getElementById("count").textContent};
"""


def landed(browser: webdriver.Chrome, anchor: str, words: str) -> list[str]:
    """What is wrong with where the link to the anchor landed, with `words`
    in the filter, if anything."""
    WebDriverWait(browser, 20).until(
        lambda b: b.execute_script("return [location.hash, document.readyState];") == [
            "#" + anchor, "complete"], f"the link to #{anchor} was not followed")
    m = browser.execute_async_script(MEASURE)
    if "error" in m or not m["shown"]:
        return [m.get("error", "the entry is hidden")]
    checks = [(m["top"] < m["headerBottom"] - 0.5, f"its heading's top ({m['top']:.0f} px) is "
               f"under the header, which ends at {m['headerBottom']:.0f} px"),
              (m["bottom"] > m["window"], f"its heading ends at {m['bottom']:.0f} px, below"),
              (m["drawn"] != "heading", f"the {m['drawn']} is drawn over its heading"),
              (m["filter"] != words, f"the filter became {m['filter']!r}"),
              (words and anchor not in m["note"], "no note says that the filter hides it")]
    return [fault for bad, fault in checks if bad]


def check(pages_dir: str, chromium: str, chromedriver: str) -> int:
    far_page, far, page, request, reply = pick_links(pages_dir)
    pages = sorted(n for n in os.listdir(pages_dir) if n.endswith(".html"))
    failures = 0

    def report(faults: list[str], what: str) -> None:
        nonlocal failures
        print(f"{'FAILED' if faults else 'ok'}: {what}")
        for fault in faults:
            print(f"    {fault}")
        failures += bool(faults)

    base = pathlib.Path(pages_dir).as_uri()
    browser = start_browser(chromium, chromedriver)
    try:
        for width, height in WINDOWS:
            # (page opened, filter typed, link clicked, its target)
            cases = [("index.html", "", f'a[href="{far_page}#{far}"]', far),
                     (page, "", f'#{request} p.reply a', reply),
                     (page, request.lower(), f'#{request} p.reply a', reply)]
            for opened, words, link, target in cases:
                open_page(browser, f"{base}/{opened}", width, height)
                if words and target in browser.execute_script(FILTER, words)["shown"]:
                    sys.exit(f"browser_check: the filter {words!r} does not hide {target}")
                browser.find_element(By.CSS_SELECTOR, link).click()
                report(landed(browser, target, words), f"{width}x{height}: {opened}: {link}"
                       f"{f', filter {words!r}' if words else ''}")
            for name in pages:
                open_page(browser, f"{base}/{name}", width, height)
                m = browser.execute_script(LAYOUT)
                report([f"the page is {m['page']} px wide in a window of {m['window']} px: "
                        + ", ".join(m["past"])] if m["page"] > m["window"] or m["past"] else [],
                       f"{width}x{height}: {name}: layout")
        # The filter, on the index and on a family page, the word misspelled.
        for name in ("index.html", page):
            open_page(browser, f"{base}/{name}", *WINDOWS[0])
            right = browser.execute_script(FILTER, "barrier")
            wrong = browser.execute_script(FILTER, "barier")
            none = browser.execute_script(FILTER, "zqxwvzqxwv")["shown"]
            ok = (right["shown"] and sorted(wrong["shown"]) == sorted(right["shown"])
                  and "barier" in wrong["count"] and not none)
            report([] if ok else [f"'barrier' shows {len(right['shown'])} entries, 'barier' "
                                  f"{len(wrong['shown'])} ({wrong['count']!r}), a word near "
                                  f"no other {len(none)}"],
                   f"{name}: the filter 'barier' finds what 'barrier' finds")
    finally:
        browser.quit()
    return 1 if failures else 0


def main() -> int:
    if len(sys.argv) != 2 or not os.path.isdir(sys.argv[1]):
        print("usage: browser_check.py DIR, the build's reference/ directory", file=sys.stderr)
        return 1
    pages = os.path.abspath(sys.argv[1])
    chromium = shutil.which(os.environ.get("CHROMIUM") or "chromium")
    chromedriver = shutil.which(os.environ.get("CHROMEDRIVER") or "chromedriver")
    if not chromium or not chromedriver or not webdriver:
        print("browser_check: chromium, chromedriver or python3-selenium not found; the pages "
              "were not checked", file=sys.stderr)
        return SKIP
    try:
        return check(pages, chromium, chromedriver)
    except WebDriverException as e:
        print(f"browser_check: {e}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
