"""Reference pages of the classes: reference/index.html and one page per family.

A family page has an entry for each class of the family, anchored by the
class name: its number, its role and description, its fields (tag, name,
kind, type, the field's role where it has one; a held class links to its own
entry, on whichever page that is) and the classes that hold it. The index
lists every class in alphabetical order with its family, role and
description, and links to its entry. Each page filters its entries as one
types words of a class's name, number, role, description or field names,
with a small script of its own; the pages load nothing from elsewhere.

The header of a page stays at the top of the window. An entry reached by a
link lands below it, however tall the header is, and a link to an entry
that the filter hides shows that entry and says so.
"""

from __future__ import annotations

import html

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
nav a { margin-right: .8em; }
input { font-size: 1em; width: 28em; max-width: 100%; margin-top: .4em; }
table { border-collapse: collapse; margin: .3em 0; }
th, td { text-align: left; padding: .1em .8em .1em 0; vertical-align: top; }
th { border-bottom: 1px solid #ccc; }
td.num, th.num { text-align: right; }
section { margin-top: 1.4em; scroll-margin-top: calc(var(--header, 11em) + .5em); }
section:target h2 { background: #ffe9a8; }
h2 { font-size: 1.1em; margin: 0; }
h2 .num { color: #666; font-weight: normal; margin-left: .5em; }
.role { display: inline-block; font-size: .85em; font-weight: normal; color: #345;
        background: #e8eef5; border-radius: .3em; padding: 0 .4em; }
h2 .role { margin-left: .7em; }
.desc { margin: .2em 0; }
.held { color: #444; margin: .2em 0; }
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
  function matches(item, words) {
    var text = item.getAttribute("data-find");
    return words.every(function (w) { return text.indexOf(w) >= 0; });
  }
  function apply() {
    var words = box.value.toLowerCase().split(/\\s+/).filter(Boolean);
    var shown = 0;
    for (var i = 0; i < items.length; i++) {
      var show = items[i] === followed || matches(items[i], words);
      items[i].style.display = show ? "" : "none";
      if (show) shown++;
    }
    count.textContent = words.length ? shown + " of " + items.length : items.length + " classes";
    var hidden = followed !== null && !matches(followed, words);
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


def _link(schema: Schema, name: str) -> str:
    """A link to the entry of a class, from any page."""
    msg = schema.message(name)
    return f'<a href="{family_page(msg.family)}#{_esc(name)}">{_esc(name)}</a>'


def _find_text(msg: Message, *more: str) -> str:
    """What the filter matches an entry against: name, number, role,
    description, field names, and whatever else the page shows of it."""
    words = [msg.name, str(msg.number), msg.role, msg.description, *more]
    return " ".join(w for w in words + [f.name for f in msg.fields] if w).lower()


FILTER_HINT = "Filter by class name, number, role, description or field name"


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
        type_ = _link(schema, f.sub) + ("_Array" if f.is_array else "")
    else:
        type_ = _esc(f.type)
    role = f"<td>{_esc(f.role or '')}</td>" if roles else ""
    return (f'<tr><td class="num">{f.tag}</td><td>{_esc(f.name)}</td>'
            f"<td>{KINDS[f.kind].words}</td><td>{type_}</td>{role}</tr>")


def _entry(schema: Schema, msg: Message, held_by: list[tuple[Message, Field]]) -> list[str]:
    out = [f'<section id="{_esc(msg.name)}" data-find="{_esc(_find_text(msg))}">',
           f'<h2>{_esc(msg.name)}<span class="num">{msg.number}</span>{_role(msg.role)}</h2>']
    if msg.description:
        out.append(f'<p class="desc">{_esc(msg.description)}</p>')
    if msg.fields:
        # The column of field roles only where a field of the class has one.
        roles = any(f.role for f in msg.fields)
        out.append('<table><tr><th class="num">Tag</th><th>Field</th><th>Kind</th>'
                   "<th>Type</th>" + ("<th>Role</th>" if roles else "") + "</tr>")
        out += [_field_row(schema, f, roles) for f in msg.fields]
        out.append("</table>")
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
            '<table><tr><th>Class</th><th>Family</th><th>Role</th><th>Description</th>'
            '<th class="num">Number</th><th class="num">Fields</th>'
            '<th class="num">Held by</th></tr>']
    for msg in alphabetical(schema.messages):
        body.append(f'<tr data-find="{_esc(_find_text(msg, msg.family))}">'
                    f"<td>{_link(schema, msg.name)}</td><td>{_esc(msg.family)}</td>"
                    f"<td>{_role(msg.role)}</td><td>{_esc(msg.description or '')}</td>"
                    f'<td class="num">{msg.number}</td>'
                    f'<td class="num">{len(msg.fields)}</td>'
                    f'<td class="num">{len({h.name for h, _ in held[msg.name]})}</td></tr>')
    body.append("</table>")
    return _page("pricemsg: message classes", schema.families, None, body)
