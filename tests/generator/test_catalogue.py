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


def fields(name):
    return [f.name for f in BY_NAME[name].fields]


class CompositionRules(unittest.TestCase):
    def pairs(self, pairs, offset, count):
        """Each (low, high) pair: high is numbered low + offset."""
        self.assertEqual(len(pairs), count, pairs)
        for low, high in pairs:
            self.assertEqual(BY_NAME[high].number, BY_NAME[low].number + offset, (low, high))

    def test_fx_option_request_is_its_equity_twin_plus_26(self):
        request = {"mSensitivityB", "maUnderSpecB", "maUnderData", "mInstInfo", "maRisklessCrv",
                   "mDcntCrv", "mOptSched"}
        special = {"M_EqFwd": "M_FxFwdStart", "M_EqFwdBarr": "M_FxFwdStartBarr",
                   "M_EqFwdDblBarr": "M_FxFwdStartDblBarr"}
        pairs = [(m.name, special.get(m.name, "M_Fx" + m.name[4:])) for m in SCHEMA.messages
                 if m.family == "equity" and m.name.startswith("M_Eq")
                 and request <= set(fields(m.name))]
        self.pairs(pairs, 26, 23)
        for eq, fx in pairs:
            self.assertEqual((fields(eq), BY_NAME[fx].family), (fields(fx), "fx"), fx)

    def test_star_request_is_its_payoff_plus_28_and_periodic_plus_6(self):
        def requests(prefix):
            return [(m.name + "Payoff", m.name) for m in SCHEMA.messages
                    if m.name.startswith(prefix) and m.name + "Payoff" in BY_NAME]

        periodic = requests("M_StarPrdic")
        star = [p for p in requests("M_Star") if p not in periodic]
        self.pairs(star, 28, 28)
        self.pairs(periodic, 6, 6)
        for payoff, request in star:
            self.assertIn("m" + payoff[2:], fields(request))

    def test_fx_target_twin_is_its_structure_plus_11(self):
        twins = [m.name for m in SCHEMA.messages
                 if m.name.startswith("M_FxFwd") and m.name.endswith("Tgt")]
        pairs = [(t[:-3] if t != "M_FxFwdStdTgt" else "M_FxFwdStdB", t) for t in twins]
        self.pairs(pairs, 11, 11)
        for structure, twin in pairs:
            self.assertEqual(set(fields(twin)) - set(fields(structure)),
                             {"mTgtRedmption", "mMcParam", "mMonTgt"}, twin)

    def test_equity_swap_is_its_equity_request_plus_610_or_9(self):
        swaps = [m.name for m in SCHEMA.messages if m.name.startswith("M_EqSwapStar")]
        for swap in swaps:
            self.assertEqual(fields(swap)[0], "mIrNoteVanilla", swap)
            self.assertIn("m" + swap[len("M_EqSwap"):], fields(swap))
        pairs = [("M_" + s[len("M_EqSwap"):], s) for s in swaps]
        self.pairs([p for p in pairs if not p[1].startswith("M_EqSwapStarPrdic")], 610, 37)
        self.pairs([p for p in pairs if p[1].startswith("M_EqSwapStarPrdic")], 9, 6)


if __name__ == "__main__":
    unittest.main()
