"""Reference pages of the classes: reference/index.html and one page per family.

A family page has an entry for each class of the family, anchored by the
class name: its number, its role and description, a request's likely reply
where the names of its family give one (linked, and marked as by name: the
service decides which class answers), its fields (tag, name, kind, type, the
field's role where it has one; a held class links to its own entry, on
whichever page that is) and the classes that hold it. The index lists every
class in alphabetical order with its family, role and description, and
links to its entry. Each page filters its entries as one types words of a
class's name, number, role, description, likely reply or field names, with
a small script of its own; a word that is in no entry finds the entries
with a word spelled near it ("barier" finds "barrier"). The pages load
nothing from elsewhere.

A table fits a window as narrow as a phone's: the names in a field table
may break between the words they are made of (maIrHw|Calib|Param|Out), the
column of kinds gives way to the types, which tell the same, and a table
still too wide scrolls inside its own box, never the page.

The header of a page stays at the top of the window. An entry reached by a
link lands below it, however tall the header is, and a link to an entry
that the filter hides shows that entry and says so.
"""

from __future__ import annotations

import html
import re

from schema import KINDS, Field, Message, Schema

DIR = "reference"

# --header is the height of the sticky header, which the script measures; an
# entry that a link leads to stops that far from the top of the window. The
# fallback, for a page without its script, is a header with its links on one
# line.
STYLE = """\
body { font: 14px/1.4 sans-serif; margin: 0 2em 4em; color: #222; }
header { position: sticky; top: 0; background: #fff; padding: .6em 2em;
         margin: 0 -2em; border-bottom: 1px solid #ccc; z-index: 1; }
nav a, nav strong { margin-right: .8em; }
input { font-size: 1em; width: 28em; max-width: 100%; margin-top: .4em; }
.wide { overflow-x: auto; max-width: 100%; }
table { border-collapse: collapse; margin: .3em 0; }
/* A narrow window: tighter cells, and no column of kinds, which the types
   tell as well (CDbl, M_Tiv_Array). */
@media (max-width: 30em) {
  th, td { padding-right: .5em; }
  table.fields { font-size: .9em; }
  .fields .kind { display: none; }
  .fields td.about { overflow-wrap: anywhere; min-width: 5.5em; }
}
th, td { text-align: left; padding: .1em .8em .1em 0; vertical-align: top; }
th { border-bottom: 1px solid #ccc; }
td.num, th.num { text-align: right; white-space: nowrap; }
section { margin-top: 1.4em; scroll-margin-top: calc(var(--header, 11em) + .5em); }
section:target h2 { background: #ffe9a8; }
h2 { font-size: 1.1em; margin: 0; overflow-wrap: anywhere; }
h2 .num { color: #666; font-weight: normal; margin-left: .5em; }
.role { display: inline-block; font-size: .85em; font-weight: normal; color: #345;
        background: #e8eef5; border-radius: .3em; padding: 0 .4em; }
h2 .role { margin-left: .7em; }
.desc { margin: .2em 0; }
.held { color: #444; margin: .2em 0; }
.reply { margin: .2em 0; }
.reply .num { color: #666; margin-left: .4em; }
.byname { color: #666; font-size: .9em; }
.none { color: #888; }
.count { color: #666; margin-left: 1em; }
.note { color: #7a4b00; margin-left: 1em; }
"""

# Shows only the entries (rows of the index, sections of a family page) whose
# data-find text holds every word typed, and how many those are; an entry
# that a link of the page leads to is shown whatever the filter, until the
# filter changes, and a note in the header says so. It keeps --header the
# height of the header, and puts an entry reached by a link below it.
SCRIPT = """\
(function () {
  var root = document.documentElement;
  var header = document.querySelector("header");
  var box = document.getElementById("find");
  var count = document.getElementById("count");
  var note = document.getElementById("note");
  var items = document.querySelectorAll("[data-find]");
  var followed = null;  // the entry a link led to

  function fitHeader() {
    root.style.setProperty("--header", header.getBoundingClientRect().height + "px");
  }
  // Whether `word` is within `reach` edits of some stretch of `text`: the
  // distance to the best substring, one row of the table at a time.
  function near(word, text, reach) {
    var row = [], i, j;
    for (i = 0; i <= word.length; i++) row.push(i);
    if (row[word.length] <= reach) return true;
    for (j = 0; j < text.length; j++) {
      var diagonal = row[0];
      row[0] = 0;  // a stretch may start anywhere
      for (i = 1; i <= word.length; i++) {
        var above = row[i];
        row[i] = Math.min(above + 1, row[i - 1] + 1,
                          diagonal + (word.charAt(i - 1) === text.charAt(j) ? 0 : 1));
        diagonal = above;
      }
      if (row[word.length] <= reach) return true;
    }
    return false;
  }
  // The edits a word of that length may be off by: none for a short one.
  function reachOf(word) { return word.length >= 8 ? 2 : word.length >= 4 ? 1 : 0; }
  // Each typed word with how it matches: as typed where some entry holds it,
  // else by near spelling.
  function terms(words) {
    return words.map(function (w) {
      for (var i = 0; i < items.length; i++) {
        if (items[i].getAttribute("data-find").indexOf(w) >= 0) return {word: w, reach: 0};
      }
      return {word: w, reach: reachOf(w)};
    });
  }
  function matches(item, wanted) {
    var text = item.getAttribute("data-find");
    return wanted.every(function (t) {
      return text.indexOf(t.word) >= 0 || (t.reach > 0 && near(t.word, text, t.reach));
    });
  }
  function apply() {
    var words = box.value.toLowerCase().split(/\\s+/).filter(Boolean);
    var wanted = terms(words);
    var shown = 0;
    for (var i = 0; i < items.length; i++) {
      var show = items[i] === followed || matches(items[i], wanted);
      items[i].style.display = show ? "" : "none";
      if (show) shown++;
    }
    var spelled = wanted.filter(function (t) { return t.reach > 0; })
                        .map(function (t) { return t.word; });
    count.textContent = !words.length ? items.length + " classes" :
        shown + " of " + items.length +
        (spelled.length ? ", spelled near " + spelled.join(" ") : "");
    var hidden = followed !== null && !matches(followed, wanted);
    note.textContent = hidden ? "Showing " + followed.id + ", which the filter hides" : "";
    note.hidden = !hidden;
    fitHeader();
  }
  // The entry of this page that a link's address names, if any.
  function entryOf(href) {
    var at = href.indexOf("#");
    if (at < 0 || href.slice(0, at) !== location.href.split("#")[0]) return null;
    var item = null;
    try {
      item = document.getElementById(decodeURIComponent(href.slice(at + 1)));
    } catch (e) {
      return null;  // an address with a broken escape names no entry
    }
    return item && item.hasAttribute("data-find") ? item : null;
  }
  function below(item) {
    var top = item.getBoundingClientRect().top;
    return top >= header.getBoundingClientRect().bottom && top < window.innerHeight;
  }
  // Shows the entry before the browser follows the link, so that it has
  // somewhere to go.
  document.addEventListener("click", function (e) {
    var link = e.target.closest ? e.target.closest("a[href]") : null;
    var item = link ? entryOf(link.href) : null;
    if (item) { followed = item; apply(); }
  });
  // An address typed or a step back in the history.
  window.addEventListener("hashchange", function () {
    var item = entryOf(location.href);
    if (!item) return;
    followed = item;
    apply();
    if (!below(item)) item.scrollIntoView();
  });
  box.addEventListener("input", function () { followed = null; apply(); });
  window.addEventListener("resize", fitHeader);
  // A page opened at an entry, or shown again with the filter the browser
  // kept in the box.
  window.addEventListener("pageshow", function (e) {
    apply();
    var nav = performance.getEntriesByType("navigation")[0];
    if (e.persisted || (nav && nav.type === "back_forward")) return;  // where the reader was
    var item = entryOf(location.href);
    if (item && !below(item)) item.scrollIntoView();
  });
  followed = entryOf(location.href);
  apply();
})();
"""


def family_page(family: str) -> str:
    return f"{family}.html"


def page_path(family: str) -> str:
    return f"{DIR}/{family_page(family)}"


INDEX_PATH = f"{DIR}/index.html"


def paths(schema: Schema) -> list[str]:
    return [INDEX_PATH] + [page_path(f) for f in schema.families]


def holders(schema: Schema) -> dict[str, list[tuple[Message, Field]]]:
    """For each class, the classes that hold it and the field each holds it in,
    in catalogue order."""
    held: dict[str, list[tuple[Message, Field]]] = {m.name: [] for m in schema.messages}
    for msg in schema.messages:
        for f in msg.fields:
            if f.sub:
                held[f.sub].append((msg, f))
    return held


def _esc(text: object) -> str:
    return html.escape(str(text), quote=True)


def _breakable(name: str) -> str:
    """A class or field name, escaped, that a narrow cell may break where a
    word of it starts: before a capital and a small letter that follow a
    small letter or a digit, but not right after a field's kind prefix
    (mSensitivityB, maUnder|SpecB, M_Ir|Note|Out)."""
    return re.sub(r"(?<!^[a-z])(?<!^[a-z]{2})(?<=[a-z0-9])(?=[A-Z][a-z])", "<wbr>", _esc(name))


def _link(schema: Schema, name: str, breakable: bool = False) -> str:
    """A link to the entry of a class, from any page."""
    msg = schema.message(name)
    text = _breakable(name) if breakable else _esc(name)
    return f'<a href="{family_page(msg.family)}#{_esc(name)}">{text}</a>'


def _find_text(msg: Message, *more: str) -> str:
    """What the filter matches an entry against: name, number, role,
    description, likely reply, field names, and whatever else the page shows
    of it."""
    words = [msg.name, str(msg.number), msg.role, msg.description, msg.reply, *more]
    return " ".join(w for w in words + [f.name for f in msg.fields] if w).lower()


FILTER_HINT = "Filter by class name, number, role, description or field name"

# Said of every likely reply: the pairing is the names', not the request's.
BY_NAME_NOTE = ("by name: a request does not say which class answers it, and the "
                "service decides; this is the reply that the names of its family pair it with")


def _page(title: str, families: list[str], current: str | None, body: list[str]) -> str:
    nav = ['<a href="index.html">Index</a>' if current else "<strong>Index</strong>"]
    for family in families:
        nav.append(f"<strong>{_esc(family)}</strong>" if family == current else
                   f'<a href="{family_page(family)}">{_esc(family)}</a>')
    head = [
        "<!DOCTYPE html>",
        '<html lang="en">',
        "<head>",
        '<meta charset="utf-8">',
        '<meta name="viewport" content="width=device-width, initial-scale=1">',
        f"<title>{_esc(title)}</title>",
        f"<style>\n{STYLE}</style>",
        "</head>",
        "<body>",
        "<header>",
        f"<h1>{_esc(title)}</h1>",
        f"<nav>{' '.join(nav)}</nav>",
        f'<input id="find" type="search" placeholder="{FILTER_HINT}" autofocus>'
        '<span id="count" class="count"></span>'
        '<span id="note" class="note" role="status" hidden></span>',
        "</header>",
    ]
    tail = [f"<script>\n{SCRIPT}</script>", "</body>", "</html>", ""]
    return "\n".join(head + body + tail)


def _role(role: str | None) -> str:
    return f'<span class="role">{_esc(role)}</span>' if role else ""


def _field_row(schema: Schema, f: Field, roles: bool) -> str:
    if f.sub:
        type_ = _link(schema, f.sub, breakable=True) + ("<wbr>_Array" if f.is_array else "")
    else:
        type_ = _esc(f.type)
    role = f'<td class="about">{_esc(f.role or "")}</td>' if roles else ""
    return (f'<tr><td class="num">{f.tag}</td><td>{_breakable(f.name)}</td>'
            f'<td class="kind">{KINDS[f.kind].words}</td><td>{type_}</td>{role}</tr>')


def _entry(schema: Schema, msg: Message, held_by: list[tuple[Message, Field]]) -> list[str]:
    out = [f'<section id="{_esc(msg.name)}" data-find="{_esc(_find_text(msg))}">',
           f'<h2>{_esc(msg.name)}<span class="num">{msg.number}</span>{_role(msg.role)}</h2>']
    if msg.description:
        out.append(f'<p class="desc">{_esc(msg.description)}</p>')
    if msg.reply:
        reply = schema.message(msg.reply)
        out.append(f'<p class="reply" title="{_esc(BY_NAME_NOTE)}">Likely reply '
                   f'<span class="byname">(by name)</span>: {_link(schema, reply.name)}'
                   f'<span class="num">{reply.number}</span></p>')
    if msg.fields:
        # The column of field roles only where a field of the class has one.
        roles = any(f.role for f in msg.fields)
        out.append('<div class="wide"><table class="fields"><tr><th class="num">Tag</th>'
                   '<th>Field</th><th class="kind">Kind</th><th>Type</th>' +
                   ("<th>Role</th>" if roles else "") + "</tr>")
        out += [_field_row(schema, f, roles) for f in msg.fields]
        out.append("</table></div>")
    else:
        out.append('<p class="none">No fields.</p>')
    if held_by:
        via: dict[str, list[str]] = {}  # the fields of each holder, holders in order
        for h, f in held_by:
            via.setdefault(h.name, []).append(f.name)
        refs = [f"{_link(schema, h)} ({_esc(', '.join(names))})" for h, names in via.items()]
        out.append(f'<p class="held">Held by: {", ".join(refs)}</p>')
    else:
        out.append('<p class="held none">Held by no class: a message on its own.</p>')
    out.append("</section>")
    return out


def family_source(schema: Schema, family: str,
                  held: dict[str, list[tuple[Message, Field]]]) -> str:
    messages = [m for m in schema.messages if m.family == family]
    body = [f"<p>{len(messages)} classes of schema/{_esc(family)}.txt, "
            "in catalogue order.</p>"]
    for msg in messages:
        body += _entry(schema, msg, held[msg.name])
    return _page(f"pricemsg: {family}", schema.families, family, body)


def alphabetical(messages: list[Message]) -> list[Message]:
    """By name as people read it, case aside (M_CreditCf before M_CrSglCdsGcMc);
    names that differ only in case keep a fixed order."""
    return sorted(messages, key=lambda m: (m.name.lower(), m.name))


def index_source(schema: Schema, held: dict[str, list[tuple[Message, Field]]]) -> str:
    body = [f"<p>{len(schema.messages)} message classes in {len(schema.families)} families, "
            "in alphabetical order. A class's entry gives its fields and the classes that "
            "hold it; &ldquo;held by&rdquo; counts those classes, and a class held by none "
            "is a message on its own, such as a request or a reply.</p>",
            '<div class="wide"><table><tr><th>Class</th><th>Family</th><th>Role</th>'
            '<th>Description</th>'
            '<th class="num">Number</th><th class="num">Fields</th>'
            '<th class="num">Held by</th></tr>']
    for msg in alphabetical(schema.messages):
        body.append(f'<tr data-find="{_esc(_find_text(msg, msg.family))}">'
                    f"<td>{_link(schema, msg.name)}</td><td>{_esc(msg.family)}</td>"
                    f"<td>{_role(msg.role)}</td><td>{_esc(msg.description or '')}</td>"
                    f'<td class="num">{msg.number}</td>'
                    f'<td class="num">{len(msg.fields)}</td>'
                    f'<td class="num">{len({h.name for h, _ in held[msg.name]})}</td></tr>')
    body.append("</table></div>")
    return _page("pricemsg: message classes", schema.families, None, body)
