"""Reference pages of the classes: reference/index.html and one page per family.

A family page has an entry for each class of the family, anchored by the
class name: its number, its fields (tag, name, kind, type; a held class links
to its own entry, on whichever page that is) and the classes that hold it.
The index lists every class with its family and links to its entry. Each page
filters its entries as one types a class name, number or field name, with a
small script of its own; the pages load nothing from elsewhere.
"""

from __future__ import annotations

import html

from schema import KINDS, Field, Message, Schema

DIR = "reference"

STYLE = """\
body { font: 14px/1.4 sans-serif; margin: 0 2em 4em; color: #222; }
header { position: sticky; top: 0; background: #fff; padding: .6em 0;
         border-bottom: 1px solid #ccc; }
nav a { margin-right: .8em; }
input { font-size: 1em; width: 28em; margin-top: .4em; }
table { border-collapse: collapse; margin: .3em 0; }
th, td { text-align: left; padding: .1em .8em .1em 0; vertical-align: top; }
th { border-bottom: 1px solid #ccc; }
td.num, th.num { text-align: right; }
section { margin-top: 1.4em; scroll-margin-top: 9em; }
section:target h2 { background: #ffe9a8; }
h2 { font-size: 1.1em; margin: 0; }
h2 .num { color: #666; font-weight: normal; margin-left: .5em; }
.held { color: #444; margin: .2em 0; }
.none { color: #888; }
.count { color: #666; margin-left: 1em; }
"""

# Shows only the entries (rows of the index, sections of a family page) whose
# data-find text holds every word typed, and how many those are.
SCRIPT = """\
(function () {
  var box = document.getElementById("find");
  var count = document.getElementById("count");
  var items = document.querySelectorAll("[data-find]");
  function apply() {
    var words = box.value.toLowerCase().split(/\\s+/).filter(Boolean);
    var shown = 0;
    for (var i = 0; i < items.length; i++) {
      var text = items[i].getAttribute("data-find");
      var hit = words.every(function (w) { return text.indexOf(w) >= 0; });
      items[i].style.display = hit ? "" : "none";
      if (hit) shown++;
    }
    count.textContent = words.length ? shown + " of " + items.length : items.length + " classes";
  }
  box.addEventListener("input", apply);
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


def _find_text(msg: Message) -> str:
    """What the filter matches an entry against: name, number, field names."""
    return " ".join([msg.name, str(msg.number)] + [f.name for f in msg.fields]).lower()


def _page(title: str, families: list[str], current: str | None, placeholder: str,
          body: list[str]) -> str:
    nav = ['<a href="index.html">Index</a>' if current else "<strong>Index</strong>"]
    for family in families:
        nav.append(f"<strong>{_esc(family)}</strong>" if family == current else
                   f'<a href="{family_page(family)}">{_esc(family)}</a>')
    head = [
        "<!DOCTYPE html>",
        '<html lang="en">',
        "<head>",
        '<meta charset="utf-8">',
        f"<title>{_esc(title)}</title>",
        f"<style>\n{STYLE}</style>",
        "</head>",
        "<body>",
        "<header>",
        f"<h1>{_esc(title)}</h1>",
        f"<nav>{' '.join(nav)}</nav>",
        f'<input id="find" type="search" placeholder="{_esc(placeholder)}" autofocus>'
        '<span id="count" class="count"></span>',
        "</header>",
    ]
    tail = [f"<script>\n{SCRIPT}</script>", "</body>", "</html>", ""]
    return "\n".join(head + body + tail)


def _field_row(schema: Schema, f: Field) -> str:
    if f.sub:
        type_ = _link(schema, f.sub) + ("_Array" if f.is_array else "")
    else:
        type_ = _esc(f.type)
    return (f'<tr><td class="num">{f.tag}</td><td>{_esc(f.name)}</td>'
            f"<td>{KINDS[f.kind].words}</td><td>{type_}</td></tr>")


def _entry(schema: Schema, msg: Message, held_by: list[tuple[Message, Field]]) -> list[str]:
    out = [f'<section id="{_esc(msg.name)}" data-find="{_esc(_find_text(msg))}">',
           f'<h2>{_esc(msg.name)}<span class="num">{msg.number}</span></h2>']
    if msg.fields:
        out.append('<table><tr><th class="num">Tag</th><th>Field</th><th>Kind</th>'
                   "<th>Type</th></tr>")
        out += [_field_row(schema, f) for f in msg.fields]
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
    return _page(f"pricemsg: {family}", schema.families, family,
                 "Filter by class name, number or field name", body)


def index_source(schema: Schema, held: dict[str, list[tuple[Message, Field]]]) -> str:
    body = [f"<p>{len(schema.messages)} message classes in {len(schema.families)} families. "
            "A class's entry gives its fields and the classes that hold it; "
            "&ldquo;held by&rdquo; counts those classes, and a class held by none "
            "is a message on its own, such as a request or a reply.</p>",
            '<table><tr><th>Class</th><th class="num">Number</th><th>Family</th>'
            '<th class="num">Fields</th><th class="num">Held by</th></tr>']
    for msg in schema.messages:
        body.append(f'<tr data-find="{_esc(_find_text(msg))}"><td>{_link(schema, msg.name)}</td>'
                    f'<td class="num">{msg.number}</td><td>{_esc(msg.family)}</td>'
                    f'<td class="num">{len(msg.fields)}</td>'
                    f'<td class="num">{len({h.name for h, _ in held[msg.name]})}</td></tr>')
    body.append("</table>")
    return _page("pricemsg: message classes", schema.families, None,
                 "Filter by class name, number or field name", body)
