"""Reading and checking the schema: the field dictionary and the catalogue.

The schema directory holds `fields.txt`, the dictionary (one field a line:
tag, name, type), and one catalogue file per family (`<family>.txt`), whose
lines are either field sets

    set *Option request* = mSensitivityB maUnderSpecB ...

or rows

    3540  M_EqStd  *Option request* mOptStd
          = request: a single equity option, of any of the option types

or field roles

    field sOptRight = right: call or put

A row lists the class's own fields in ascending tag order; a set stands for
its members, and a class holds all its fields, own and from sets, in
ascending tag order. The line below a row that starts with '=' gives the
class's role (one of ROLES) and a one-line description. A field role says
what a field stands for where its name alone does not; a field has at most
one, in whichever family describes it.

A request may name its likely reply on a line of its own below its
description line:

    3721  M_IrNoteFlterHwMc  *IrNote HwMc* mIrFloater
          = request: ...
          reply M_IrNoteHwOut

A request does not say which class answers it; the service decides. The
line records the pairing that the names of a family show (the output named
for a request's product form and model), and only where they show one; the
pages and the catalogue tool give it as the likely reply, by name. The named
class must be a row whose role is reply, only a request has the line, and
it has at most one.

`words.txt` maps the words that people use for products to parts of class
names, for searches:

    swaption, swaptions = Swptn

Each part must occur in the name of some class.

`load()` reads everything, checks everything, and gives a `Schema` only if
there was no error at all; otherwise it raises `SchemaErrors` with every
error found, each as `file:line: error: text`.
"""

from __future__ import annotations

import dataclasses
import os
import re

@dataclasses.dataclass(frozen=True)
class Kind:
    """A field kind, told by the prefix of the field's name, with every form
    that the outputs give it."""

    prefix: str
    type: str | None  # the member's C++ type; None where the field's class decides
    words: str  # what the field holds, for people
    enum: str  # the enumerator of the schema tables' Kind
    runtime: str  # the enumerator of the stand-in dictionary's KytKind (element kind)
    letter: str  # the type letter of a value line in a message file
    proto: str | None  # the protobuf type of the benchmarks; None where the class decides
    twin: str | None = None  # for an array kind, the single kind it repeats

    @property
    def is_array(self) -> bool:
        return self.twin is not None

    @property
    def is_message(self) -> bool:
        return self.type is None


# The one table of field kinds: every output takes what it needs from here.
KINDS = {k.prefix: k for k in (
    Kind("i", "CInt", "int", "kInt", "kInt", "i", "optional int32"),
    Kind("d", "CDbl", "double", "kDbl", "kDbl", "d", "optional double"),
    Kind("b", "CBool", "bool", "kBool", "kBool", "b", "optional bool"),
    Kind("n", "CDate", "date", "kDate", "kDate", "n", "optional string"),
    Kind("s", "CString", "string", "kString", "kStr", "s", "string"),
    Kind("ia", "CIntArray", "int array", "kIntArray", "kInt", "i", "repeated int32", twin="i"),
    Kind("da", "CDblArray", "double array", "kDblArray", "kDbl", "d", "repeated double",
         twin="d"),
    Kind("m", None, "message", "kMessage", "kMsg", "m", None),
    Kind("ma", None, "repeated message", "kMessageArray", "kMsg", "m", None, twin="m"),
)}
FIELD_NAME = re.compile(r"^([a-z]+)[A-Z0-9][A-Za-z0-9]*$")
CLASS_NAME = re.compile(r"^M_[A-Za-z0-9]+$")
FAMILY_NAME = re.compile(r"^[a-z][a-z0-9]*$")
ROW_TOKEN = re.compile(r"\*[^*]+\*|\S+")
SET_LINE = re.compile(r"^set\s+(\*[^*]+\*)\s*=\s*(.*)$")
NUMBER = re.compile(r"^[0-9]+$")

DICTIONARY = "fields.txt"
WORDS = "words.txt"

# What a class is for: a request sent to the service and its reply, the
# parts of a request (deal terms, market data, what has happened to the deal
# so far, model parameters), a part of a reply (result), and any other
# building block.
ROLES = ("request", "reply", "terms", "market", "monitoring", "model", "result", "block")
DESCRIPTION_LINE = re.compile(r"^=\s*([a-z]+)\s*:\s*(\S.*)$")
FIELD_ROLE_LINE = re.compile(r"^field\s+(\S+)\s*=\s*(\S.*)$")
REPLY_LINE = re.compile(r"^reply(?:\s+(\S+))?(\s+.*)?$")
WORD_LINE = re.compile(r"^([^=]+)=(.*)$")


@dataclasses.dataclass(frozen=True)
class Loc:
    path: str
    line: int

    def __str__(self) -> str:
        return f"{self.path}:{self.line}"


@dataclasses.dataclass
class Field:
    name: str
    tag: int
    kind: str  # a key of KINDS
    type: str  # the C++ type of the member
    sub: str | None  # the message class of an m or ma field
    loc: Loc
    role: str | None = None  # what the field stands for, where a family says it
    role_loc: Loc | None = None

    @property
    def is_array(self) -> bool:
        return KINDS[self.kind].is_array


@dataclasses.dataclass
class Message:
    number: int
    name: str
    family: str
    fields: list[Field]  # in ascending tag order
    loc: Loc
    role: str | None = None  # one of ROLES
    description: str | None = None
    reply: str | None = None  # the likely reply of a request, by name
    reply_loc: Loc | None = None

    @property
    def array_name(self) -> str:
        return self.name + "_Array"

    def sub_classes(self) -> list[str]:
        """The message classes of the fields, each once, in field order."""
        seen: list[str] = []
        for f in self.fields:
            if f.sub and f.sub not in seen:
                seen.append(f.sub)
        return seen


@dataclasses.dataclass(frozen=True)
class Word:
    phrases: list[str]  # lower case, as people type them
    parts: list[str]  # parts of class names
    loc: Loc


@dataclasses.dataclass
class Schema:
    fields: dict[str, Field]
    messages: list[Message]  # by family, in file order
    families: list[str]
    words: list[Word] = dataclasses.field(default_factory=list)

    def message(self, name: str) -> Message:
        return self._by_name[name]

    def __post_init__(self) -> None:
        self._by_name = {m.name: m for m in self.messages}


class SchemaErrors(Exception):
    def __init__(self, errors: list[tuple[Loc, str]]):
        self.errors = sorted(errors, key=lambda e: (e[0].path, e[0].line))
        super().__init__("\n".join(f"{loc}: error: {text}" for loc, text in self.errors))


class _Reporter:
    def __init__(self) -> None:
        self.errors: list[tuple[Loc, str]] = []

    def error(self, loc: Loc, text: str) -> None:
        self.errors.append((loc, text))


def _lines(path: str, shown: str):
    """Yields (Loc, text) for each line that is not blank or a comment."""
    with open(path, encoding="utf-8") as fh:
        for number, raw in enumerate(fh, start=1):
            text = raw.split("#", 1)[0].strip()
            if text:
                yield Loc(shown, number), text


def _kind_of(name: str) -> str | None:
    m = FIELD_NAME.match(name)
    return m.group(1) if m else None


# ---- the dictionary ----


def _read_dictionary(path: str, shown: str, rep: _Reporter,
                     rejected: set[str]) -> dict[str, Field]:
    """The fields of the dictionary; the names of rejected lines go to `rejected`,
    so that rows naming them add no errors of their own."""
    fields: dict[str, Field] = {}
    by_tag: dict[int, list[Field]] = {}
    for loc, text in _lines(path, shown):
        cols = text.split()
        if len(cols) != 3:
            rep.error(loc, f"expected 'tag field type', got {len(cols)} columns")
            continue
        tag_text, name, type_ = cols
        rejected.add(name)
        if not NUMBER.match(tag_text) or int(tag_text) <= 0:
            rep.error(loc, f"tag must be a positive integer, got '{tag_text}'")
            continue
        tag = int(tag_text)
        kind = _kind_of(name)
        if kind is None:
            rep.error(loc, f"field name '{name}' is not a lower-case prefix and a capitalised name")
            continue
        if kind not in KINDS:
            rep.error(loc, f"field '{name}' has the unknown prefix '{kind}' "
                           f"(known: {', '.join(KINDS)})")
            continue
        if not KINDS[kind].is_message:
            if type_ != KINDS[kind].type:
                rep.error(loc, f"field '{name}' has prefix '{kind}', which takes type "
                               f"{KINDS[kind].type}, but its type is {type_}")
                continue
            sub = None
        elif kind == "m":
            if not CLASS_NAME.match(type_):
                rep.error(loc, f"field '{name}' has prefix 'm', which takes a message class "
                               f"M_<Name>, but its type is {type_}")
                continue
            sub = type_
        else:  # ma
            if not (type_.endswith("_Array") and CLASS_NAME.match(type_[: -len("_Array")])):
                rep.error(loc, f"field '{name}' has prefix 'ma', which takes an array class "
                               f"M_<Name>_Array, but its type is {type_}")
                continue
            sub = type_[: -len("_Array")]
        if name in fields:
            rep.error(loc, f"field '{name}' is already defined ({fields[name].loc})")
            continue
        field = Field(name, tag, kind, type_, sub, loc)
        for other in by_tag.get(tag, []):
            problem = _twin_problem(other, field)
            if problem:
                rep.error(loc, problem)
                break
        else:
            by_tag.setdefault(tag, []).append(field)
            fields[name] = field
            rejected.discard(name)
    return fields


def _twin_problem(a: Field, b: Field) -> str | None:
    """Why two fields may not share a tag, or None if they are twins."""
    single, array = (a, b) if b.is_array else (b, a)
    if single.is_array == array.is_array or KINDS[array.kind].twin != single.kind:
        return (f"tag {b.tag} is already used by field '{a.name}' ({a.loc}); only a single "
                f"field and its array form may share a tag")
    if single.sub != array.sub:
        return (f"twins on tag {b.tag} disagree: '{single.name}' holds {single.sub} but "
                f"'{array.name}' holds {array.sub}")
    return None


# ---- the catalogue ----


@dataclasses.dataclass
class _Set:
    name: str
    members: list[str]
    loc: Loc
    used: bool = False


@dataclasses.dataclass
class _Row:
    number: int
    name: str
    family: str
    tokens: list[str]
    loc: Loc
    role: str | None = None
    description: str | None = None
    described: bool = False  # a description line follows, right or wrong
    reply: str | None = None
    reply_loc: Loc | None = None


@dataclasses.dataclass
class _FieldRole:
    field: str
    text: str
    loc: Loc


def _read_catalogue(path: str, shown: str, family: str, rep: _Reporter,
                    sets: dict[str, _Set], rows: list[_Row],
                    roles: list[_FieldRole]) -> None:
    last: _Row | None = None  # the row just read, while its description and reply may follow
    for loc, text in _lines(path, shown):
        m = REPLY_LINE.match(text)
        if m:
            if last is None:
                rep.error(loc, "a reply line ('reply M_Name') must follow its row")
            elif m.group(1) is None or m.group(2) or not CLASS_NAME.match(m.group(1)):
                rep.error(loc, f"{last.name}: expected 'reply M_Name'")
            elif last.reply_loc is not None:
                rep.error(loc, f"{last.name}: a second reply line; a request has one likely "
                               f"reply at most ({last.reply_loc})")
            else:
                last.reply, last.reply_loc = m.group(1), loc
            continue
        row, last = last, None
        if text.startswith("="):
            m = DESCRIPTION_LINE.match(text)
            if row is None or row.described or row.reply_loc is not None:
                rep.error(loc, "a description line ('= role: text') must follow its row")
                continue
            last = row  # its reply may follow
            row.described = True
            if m is None:
                rep.error(loc, f"{row.name}: expected '= role: description'")
            elif m.group(1) not in ROLES:
                rep.error(loc, f"{row.name}: unknown role '{m.group(1)}' "
                               f"(known: {', '.join(ROLES)})")
            else:
                row.role, row.description = m.group(1), m.group(2).strip()
            continue
        m = FIELD_ROLE_LINE.match(text)
        if m:
            roles.append(_FieldRole(m.group(1), m.group(2).strip(), loc))
            continue
        if text.startswith("field"):
            rep.error(loc, "expected 'field name = role'")
            continue
        m = SET_LINE.match(text)
        if m:
            name, members = m.group(1), m.group(2).split()
            if name in sets:
                rep.error(loc, f"set {name} is already defined ({sets[name].loc})")
            elif not members:
                rep.error(loc, f"set {name} has no fields")
            else:
                sets[name] = _Set(name, members, loc)
            continue
        if text.startswith("set"):
            rep.error(loc, "expected 'set *Name* = field field ...'")
            continue
        tokens = ROW_TOKEN.findall(text)
        if len(tokens) < 2:
            rep.error(loc, "expected 'number class field ...'")
            continue
        number, name, rest = tokens[0], tokens[1], tokens[2:]
        if not NUMBER.match(number) or int(number) <= 0:
            rep.error(loc, f"message number must be a positive integer, got '{number}'")
            continue
        if not CLASS_NAME.match(name):
            rep.error(loc, f"class name '{name}' is not M_ and letters or digits")
            continue
        last = _Row(int(number), name, family, rest, loc)
        rows.append(last)


def _read_words(path: str, shown: str, rep: _Reporter) -> list[Word]:
    words: list[Word] = []
    seen: dict[str, Loc] = {}
    for loc, text in _lines(path, shown):
        m = WORD_LINE.match(text)
        phrases = [" ".join(p.lower().split()) for p in m.group(1).split(",")] if m else []
        parts = m.group(2).split() if m else []
        if not m or not all(phrases) or not parts:
            rep.error(loc, "expected 'word, word ... = part part ...'")
            continue
        for p in phrases:
            if p in seen:
                rep.error(loc, f"'{p}' is already listed ({seen[p]})")
            seen.setdefault(p, loc)
        words.append(Word(phrases, parts, loc))
    return words


def _expand(row: _Row, fields: dict[str, Field], rejected: set[str], sets: dict[str, _Set],
            rep: _Reporter) -> list[Field] | None:
    """The fields of a row in tag order, or None after reporting errors."""
    ok = True
    members: list[tuple[Field, str]] = []  # with where it came from
    own: list[Field] = []
    for token in row.tokens:
        if token.startswith("*"):
            s = sets.get(token)
            if s is None:
                rep.error(row.loc, f"{row.name}: set {token} is not defined")
                ok = False
                continue
            s.used = True
            for name in s.members:
                f = fields.get(name)
                if f is None:
                    ok = False  # reported once, at the set
                    continue
                members.append((f, f"set {token}"))
            continue
        f = fields.get(token)
        if f is None:
            if token not in rejected:  # else told at its dictionary line
                rep.error(row.loc, f"{row.name}: unknown field '{token}'")
            ok = False
            continue
        if own and f.tag < own[-1].tag:
            rep.error(row.loc, f"{row.name}: field '{f.name}' (tag {f.tag}) stands after "
                               f"'{own[-1].name}' (tag {own[-1].tag}); fields go in tag order")
            ok = False
        own.append(f)
        members.append((f, "the row"))
    by_tag: dict[int, tuple[Field, str]] = {}
    for f, origin in members:
        if f.tag in by_tag:
            first, first_origin = by_tag[f.tag]
            what = (f"field '{f.name}' is given twice" if first is f else
                    f"fields '{first.name}' and '{f.name}' share tag {f.tag}")
            rep.error(row.loc, f"{row.name}: {what} (from {first_origin} and {origin})")
            ok = False
            continue
        by_tag[f.tag] = (f, origin)
    if not ok:
        return None
    return sorted((f for f, _ in by_tag.values()), key=lambda f: f.tag)


def _check_reply(row: _Row, names: dict[str, _Row], rep: _Reporter) -> None:
    """A request's likely reply is a row of role reply."""
    target = names.get(row.reply or "")
    if row.role is not None and row.role != "request":
        rep.error(row.reply_loc, f"{row.name}: only a request has a likely reply, and "
                                 f"{row.name} is {row.role}")
    elif target is None:
        rep.error(row.reply_loc, f"{row.name}: its reply {row.reply} is no class of the "
                                 "catalogue")
    elif target.role is not None and target.role != "reply":
        rep.error(row.reply_loc, f"{row.name}: its reply {row.reply} is {target.role}, "
                                 "not a reply")


def _check_cycles(messages: dict[str, Message], rep: _Reporter) -> None:
    """A class may not hold itself, by value or through arrays, at any depth."""
    state: dict[str, int] = {}  # 1 while on the path, 2 when done

    def visit(name: str, path: list[str]) -> None:
        state[name] = 1
        msg = messages[name]
        for f in msg.fields:
            if not f.sub or f.sub not in messages:
                continue
            step = path + [f"{name}.{f.name}"]
            if state.get(f.sub) == 1:
                start = next(i for i, p in enumerate(step) if p.startswith(f.sub + "."))
                rep.error(messages[f.sub].loc,
                          f"{f.sub} holds itself: {' -> '.join(step[start:])} -> {f.sub}")
            elif f.sub not in state:
                visit(f.sub, step)
        state[name] = 2

    for name in messages:
        if name not in state:
            visit(name, [])


def load(schema_dir: str, shown_dir: str = "schema") -> Schema:
    rep = _Reporter()

    def shown(file: str) -> str:
        return f"{shown_dir}/{file}"

    dic_path = os.path.join(schema_dir, DICTIONARY)
    if not os.path.isfile(dic_path):
        raise SchemaErrors([(Loc(shown(DICTIONARY), 0), "the field dictionary is missing")])
    rejected: set[str] = set()
    fields = _read_dictionary(dic_path, shown(DICTIONARY), rep, rejected)

    sets: dict[str, _Set] = {}
    rows: list[_Row] = []
    roles: list[_FieldRole] = []
    families = []
    for file in sorted(os.listdir(schema_dir)):
        if not file.endswith(".txt") or file in (DICTIONARY, WORDS):
            continue
        family = file[: -len(".txt")]
        if not FAMILY_NAME.match(family):
            rep.error(Loc(shown(file), 0), f"family name '{family}' is not lower-case letters")
            continue
        families.append(family)
        _read_catalogue(os.path.join(schema_dir, file), shown(file), family, rep, sets, rows,
                        roles)
    words_path = os.path.join(schema_dir, WORDS)
    words = _read_words(words_path, shown(WORDS), rep) if os.path.isfile(words_path) else []

    for s in sets.values():
        for name in s.members:
            if name not in fields and name not in rejected:
                rep.error(s.loc, f"set {s.name}: unknown field '{name}'")
        dup = sorted({n for n in s.members if s.members.count(n) > 1})
        if dup:
            rep.error(s.loc, f"set {s.name}: field '{dup[0]}' is listed twice")

    messages: dict[str, Message] = {}
    numbers: dict[int, _Row] = {}
    names: dict[str, _Row] = {}
    for row in rows:
        if row.number in numbers:
            first = numbers[row.number]
            rep.error(row.loc, f"{row.name}: number {row.number} is already used by "
                               f"{first.name} ({first.loc})")
        else:
            numbers[row.number] = row
        if row.name in names:
            rep.error(row.loc, f"class {row.name} is already defined ({names[row.name].loc})")
            continue
        names[row.name] = row
        expanded = _expand(row, fields, rejected, sets, rep)
        if expanded is not None:
            messages[row.name] = Message(row.number, row.name, row.family, expanded, row.loc,
                                         row.role, row.description, row.reply, row.reply_loc)
        if not row.described:
            rep.error(row.loc, f"{row.name}: no description line ('= role: text') below the row")

    for row in rows:
        if row.reply_loc is not None:
            _check_reply(row, names, rep)

    for r in roles:
        f = fields.get(r.field)
        if f is None:
            if r.field not in rejected:
                rep.error(r.loc, f"role of unknown field '{r.field}'")
        elif f.role is not None:
            rep.error(r.loc, f"field '{r.field}' already has a role ({f.role_loc})")
        else:
            f.role, f.role_loc = r.text, r.loc
    for w in words:
        for part in w.parts:
            if not any(part.lower() in name.lower() for name in names):
                rep.error(w.loc, f"'{part}' is part of no class name")

    for s in sets.values():
        if not s.used:
            rep.error(s.loc, f"set {s.name} is defined but no row uses it")
    for f in fields.values():
        if f.sub and f.sub not in names:
            rep.error(f.loc, f"field '{f.name}' holds {f.sub}, which no catalogue row defines")
    _check_cycles(messages, rep)

    if rep.errors:
        raise SchemaErrors(rep.errors)
    return Schema(fields, list(messages.values()), families, words)
