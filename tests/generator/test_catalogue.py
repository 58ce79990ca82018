"""Checks of the catalogue rows against the composition rules of the families.

Each rule ties the numbers (and fields) of related classes together, so a
row transcribed with a wrong number or a missing field breaks one of them.
"""

import os
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "generator"))

from schema import load  # noqa: E402

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


if __name__ == "__main__":
    unittest.main()
