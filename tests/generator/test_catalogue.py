"""Checks of the catalogue rows against the composition rules of the families,
and of the schema tables that the generator writes from them.

Each rule ties the numbers (and fields) of related classes together, so a
row transcribed with a wrong number or a missing field breaks one of them.
The tables are read back from the generated C++ and compared with the schema.
"""

import os
import re
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

import emit_tables  # noqa: E402
from schema import KINDS, load  # noqa: E402

SCHEMA = load(os.path.join(ROOT, "schema"))
BY_NAME = {m.name: m for m in SCHEMA.messages}


def number(name):
    return BY_NAME[name].number


def field_names(name):
    return [f.name for f in BY_NAME[name].fields]


class CompositionRules(unittest.TestCase):
    def pairs(self, pairs, offset, count):
        self.assertEqual(len(pairs), count, pairs)
        for low, high in pairs:
            with self.subTest(low=low, high=high):
                self.assertEqual(number(high), number(low) + offset)

    def test_fx_option_request_is_its_equity_twin_plus_26(self):
        option_request = {"mSensitivityB", "maUnderSpecB", "maUnderData", "mInstInfo",
                          "maRisklessCrv", "mDcntCrv", "mOptSched"}
        equity = [m.name for m in SCHEMA.messages
                  if m.family == "equity" and m.name.startswith("M_Eq")
                  and option_request <= set(field_names(m.name))]
        special = {"M_EqFwd": "M_FxFwdStart", "M_EqFwdBarr": "M_FxFwdStartBarr",
                   "M_EqFwdDblBarr": "M_FxFwdStartDblBarr"}
        pairs = [(eq, special.get(eq, "M_Fx" + eq[len("M_Eq"):])) for eq in equity]
        self.pairs(pairs, 26, 23)
        for eq, fx in pairs:
            self.assertEqual(field_names(eq), field_names(fx), fx)
            self.assertEqual(BY_NAME[fx].family, "fx")

    def test_star_request_is_its_payoff_plus_28_and_periodic_plus_6(self):
        def requests(prefix, exclude=None):
            return [(m.name + "Payoff", m.name) for m in SCHEMA.messages
                    if m.name.startswith(prefix) and m.name + "Payoff" in BY_NAME
                    and not (exclude and m.name.startswith(exclude))]

        star = requests("M_Star", exclude="M_StarPrdic")
        self.pairs(star, 28, 28)
        self.pairs(requests("M_StarPrdic"), 6, 6)
        for payoff, request in star:
            self.assertIn("m" + payoff[len("M_"):], field_names(request))

    def test_fx_target_twin_is_its_structure_plus_11(self):
        twins = [m.name for m in SCHEMA.messages
                 if m.name.startswith("M_FxFwd") and m.name.endswith("Tgt")]
        pairs = [(t[:-3] if t != "M_FxFwdStdTgt" else "M_FxFwdStdB", t) for t in twins]
        self.pairs(pairs, 11, 11)
        for structure, twin in pairs:
            extra = set(field_names(twin)) - set(field_names(structure))
            self.assertEqual(extra, {"mTgtRedmption", "mMcParam", "mMonTgt"}, twin)

    def test_equity_swap_is_its_equity_request_plus_610_or_9(self):
        def swaps(prefix):
            found = []
            for m in SCHEMA.messages:
                if not m.name.startswith(prefix):
                    continue
                self.assertEqual(field_names(m.name)[0], "mIrNoteVanilla", m.name)
                request = "M_" + m.name[len("M_EqSwap"):]
                self.assertIn("m" + request[len("M_"):], field_names(m.name))
                found.append((request, m.name))
            return found

        periodic = swaps("M_EqSwapStarPrdic")
        star = [p for p in swaps("M_EqSwapStar") if p not in periodic]
        self.pairs(star, 610, 37)
        self.pairs(periodic, 9, 6)


def c_array(source, name):
    """The entries of the C++ array `name` in `source`: brace groups as tuples of
    their items, plain numbers as ints."""
    body = re.search(r"const \w+ " + name + r"\[\] = \{\n(.*?)^\};", source, re.S | re.M).group(1)
    body = re.sub(r"//[^\n]*", "", body)
    groups = re.findall(r"\{([^{}]*)\}", body)
    item = re.compile(r'"((?:[^"\\]|\\.)*)"|\'([^\']*)\'|([^,\s]+)')
    if groups:
        return [tuple(a or b or c for a, b, c in item.findall(g)) for g in groups]
    return [int(n) for n in re.findall(r"-?\d+", body)]


class SchemaTables(unittest.TestCase):
    SOURCE = emit_tables.source(SCHEMA)

    def test_kinds_follow_the_table_of_kinds_in_the_order_of_the_enum(self):
        with open(os.path.join(ROOT, "frame", "SchemaTables.h"), encoding="utf-8") as fh:
            header = fh.read()
        enum = re.search(r"enum class Kind : uint8_t \{(.*?)\};", header, re.S).group(1)
        self.assertEqual(re.findall(r"^\s*(k\w+),", enum, re.M), [k.enum for k in KINDS.values()])
        rows = c_array(self.SOURCE, "kKinds")
        self.assertEqual(rows, [(k.prefix, k.words, k.letter, "true" if k.is_array else "false")
                                for k in KINDS.values()])

    def test_fields_classes_members_and_indexes_give_back_the_schema(self):
        fields = c_array(self.SOURCE, "kFields")
        classes = c_array(self.SOURCE, "kClasses")
        members = c_array(self.SOURCE, "kMembers")
        keys = [(int(f[0]), f[1]) for f in fields]
        self.assertEqual(keys, sorted(keys))
        self.assertEqual({f[1] for f in fields}, set(SCHEMA.fields))
        for tag, name, kind, type_, held, role in fields:
            f = SCHEMA.fields[name]
            self.assertEqual((int(tag), kind, type_, role),
                             (f.tag, "Kind::" + KINDS[f.kind].enum, f.type,
                              emit_tables.c_string(f.role)[1:-1]))
            self.assertEqual(classes[int(held)][0] if int(held) >= 0 else None, f.sub, name)
        self.assertEqual(len(classes), len(SCHEMA.messages))
        for (name, number, family, first, count, role, about, reply), msg in zip(
                classes, SCHEMA.messages):
            run = members[int(first):int(first) + int(count)]
            self.assertEqual((name, int(number), family, role, about),
                             (msg.name, msg.number, msg.family, msg.role or "",
                              emit_tables.c_string(msg.description)[1:-1]))
            self.assertEqual(classes[int(reply)][0] if int(reply) >= 0 else None, msg.reply, name)
            self.assertEqual([fields[i][1] for i in run], [f.name for f in msg.fields], name)

        by_number = c_array(self.SOURCE, "kClassesByNumber")
        by_name = c_array(self.SOURCE, "kClassesByName")
        fields_by_name = c_array(self.SOURCE, "kFieldsByName")
        self.assertEqual([int(classes[i][1]) for i in by_number],
                         sorted(m.number for m in SCHEMA.messages))
        self.assertEqual([classes[i][0] for i in by_name], sorted(m.name for m in SCHEMA.messages))
        self.assertEqual([fields[i][1] for i in fields_by_name], sorted(SCHEMA.fields))

    def test_words_give_back_the_word_list_one_phrase_a_row_sorted(self):
        rows = c_array(self.SOURCE, "kWords")
        count = int(re.search(r"const int kWordCount = (\d+);", self.SOURCE).group(1))
        expected = {p: " ".join(w.parts) for w in SCHEMA.words for p in w.phrases}
        self.assertEqual(count, len(expected))
        self.assertEqual(rows[:count], sorted(expected.items()))
        # A phrase is found as typed: lower case, with single spaces.
        for phrase, parts in rows[:count]:
            self.assertEqual(phrase, " ".join(phrase.lower().split()))
            self.assertTrue(parts.split(), phrase)


if __name__ == "__main__":
    unittest.main()
