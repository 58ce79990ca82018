"""Fields in Python terms: the value of each kind, unset against zero, blocks
tied to their owner, arrays as sequences, constructors and dicts."""

import datetime
import json
import math
import struct

import pricemsg
import pytest


def test_values_of_each_kind_and_unset_against_zero():
    c = pricemsg.M_IrCancelable()
    assert (c.iAppEndPeriodNo, c.bEventOccuredYN, c.sAppPeriodType) == (None, None, "")
    c.iAppEndPeriodNo, c.bEventOccuredYN = 0, False
    assert (type(c.iAppEndPeriodNo), c.bEventOccuredYN) == (int, False)
    assert c != pricemsg.M_IrCancelable()  # set to zero is not unset
    c.iAppEndPeriodNo = None
    del c.bEventOccuredYN
    assert c == pricemsg.M_IrCancelable()
    c.iAppEndPeriodNo, c.iAppStartPeriodNo = -2**31, 2**31 - 1
    assert (c.iAppEndPeriodNo, c.iAppStartPeriodNo) == (-2**31, 2**31 - 1)

    u = pricemsg.M_UnderData(dCurrentPrice=3)
    assert type(u.dCurrentPrice) is float
    for d in (-0.0, math.inf, 5e-324):
        u.dCurrentPrice = d
        assert struct.pack("<d", u.dCurrentPrice) == struct.pack("<d", d)
    u.dCurrentPrice = math.nan
    assert math.isnan(u.dCurrentPrice)

    t = pricemsg.M_Tiv(nDate="20240229")
    assert t.nDate == datetime.date(2024, 2, 29)
    t.nDate = datetime.date(999, 1, 2)
    assert t.to_dict()["nDate"] == datetime.date(999, 1, 2) and '"09990102"' in t.to_text()
    # Texts: any bytes; what is not UTF-8 comes back as lone surrogates and
    # goes out as the same bytes.
    t.sMatur = "3M\u00e9"
    assert t.sMatur == "3M\u00e9"
    t.sMatur = b"\xffY"
    again = pricemsg.M_Tiv(sMatur=t.sMatur)
    assert t.sMatur == "\udcffY" and again == pricemsg.M_Tiv(sMatur=b"\xffY")
    assert '"hex": "ff59"' in again.to_json()
    t.sMatur = None
    assert t.sMatur == ""


def test_blocks_stay_tied_to_their_owner():
    req = pricemsg.M_FxBarr()
    barrier = req.mOptBarr
    barrier.dStrike = 1.1
    req.mOptBarr.mSglBarr.mBarrElmt1.dPrice = 1.3
    assert req.to_dict()["mOptBarr"]["mSglBarr"]["mBarrElmt1"]["dPrice"] == 1.3
    assert req.mOptBarr.dStrike == 1.1

    # Assigning a block copies it: the source stays apart, also from itself.
    a, b = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.5}), pricemsg.M_FxBarr()
    b.mOptBarr = a.mOptBarr
    a.mOptBarr.dStrike = 9.0
    b.mOptBarr = b.mOptBarr
    assert b.mOptBarr.dStrike == 1.5
    b.mOptBarr = {"sOptRight": "C"}
    assert (b.mOptBarr.dStrike, b.mOptBarr.sOptRight) == (None, "C")
    b.mOptBarr = None
    assert b == pricemsg.M_FxBarr()
    with pytest.raises(TypeError, match="M_FxBarr.mOptBarr takes an M_OptBarr"):
        b.mOptBarr = pricemsg.M_OptDblBarr()


def test_arrays_are_sequences():
    note = pricemsg.M_IrNotePrice()
    cfs = note.maIrNoteCF
    cfs.append({"iPeriodNo": 1})
    cfs.append(pricemsg.M_IrNoteCF(iPeriodNo=2))
    third = cfs.add(iPeriodNo=3)
    assert [c.iPeriodNo for c in cfs] == [1, 2, 3] and cfs[-1] == third
    assert [c.iPeriodNo for c in cfs[::-2]] == [3, 1]
    third.dPv = 5.0
    cfs[0] = {"iPeriodNo": 10}
    assert (note.maIrNoteCF[2].dPv, note.maIrNoteCF[0].iPeriodNo) == (5.0, 10)
    # From a list, also of the array's own elements in another order: they
    # are read before the array changes.
    note.maIrNoteCF = [cfs[2], cfs[0]]
    note.maIrNoteCF = note.maIrNoteCF
    assert [c.iPeriodNo for c in note.maIrNoteCF] == [3, 10]
    note.maIrNoteCF = (c for c in [{"iPeriodNo": 4}])
    assert len(cfs) == 1
    cfs.clear()
    assert note == pricemsg.M_IrNotePrice()

    c = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2])
    a = c.iaAppPeriodNo
    a.append(3)
    a.extend([4, 5])
    a[0], a[-1] = 10, 50
    assert a == [10, 2, 3, 4, 50] and (len(a), a[-2], a[1:3]) == (5, 4, [2, 3])
    a[1:4] = [0]
    assert c.to_dict()["iaAppPeriodNo"] == c.iaAppPeriodNo.to_list() == [10, 0, 50]
    u = pricemsg.M_UnderData(daCorrCoeff=[1, -0.0])
    assert u.daCorrCoeff == [1.0, 0.0] and type(u.daCorrCoeff[0]) is float
    assert math.copysign(1, u.daCorrCoeff[1]) == -1
    u.daCorrCoeff = None
    assert len(u.daCorrCoeff) == 0


def test_constructors_and_dicts():
    req = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.1, "mSglBarr": {"mBarrElmt1": {"dPrice": 2}}},
                            maUnderData=[{"dCurrentPrice": 1}, pricemsg.M_UnderData()])
    assert req.mOptBarr.mSglBarr.mBarrElmt1.dPrice == 2.0
    fields = req.to_dict()
    assert fields["maUnderData"][1]["dCurrentPrice"] is None
    assert pricemsg.M_FxBarr.from_dict(fields) == pricemsg.M_FxBarr(fields) == req
    # A positional object is copied, keywords then replace fields.
    copy = pricemsg.M_FxBarr(req, maUnderData=[])
    assert req.diff(copy) == [("maUnderData[0]", "(element)", "(none)"),
                              ("maUnderData[1]", "(element)", "(none)")]
    with pytest.raises(TypeError, match="one class"):
        req.diff(req.mOptBarr)
    # The dict of the JSON form names its class; a wrong one is refused.
    tiv = pricemsg.M_Tiv(sMatur="3M")
    assert pricemsg.M_Tiv.from_dict(json.loads(tiv.to_json())) == tiv
    for wrong in ({"class": "M_FxBarr"}, {"number": 3568}):
        with pytest.raises(ValueError):
            pricemsg.M_Tiv.from_dict(wrong)


def test_repr_and_catalogue():
    assert repr(pricemsg.M_FxBarr()) == "M_FxBarr()"
    r = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.1, "sOptRight": "C"})
    assert repr(r) == 'M_FxBarr(mOptBarr.sOptRight="C", mOptBarr.dStrike=1.1)'
    many = pricemsg.M_IrNoteCF(**{f.name: 1.0 for f in pricemsg.M_IrNoteCF.fields()
                                  if f.kind == "double"})
    assert repr(many).endswith(", +8 more)") and len(repr(many)) < 200
    assert "maIrNoteCF[0]" in repr(pricemsg.M_IrNotePrice(maIrNoteCF=[{}]))

    found = pricemsg.find("fx barrier")
    assert found[0] is pricemsg.M_FxBarr and all(c.family == "fx" for c in found)
    replies = pricemsg.find("note", role="reply")
    assert replies and all(c.role == "reply" for c in replies)
    assert pricemsg.find("no such product at all") == []
    assert pricemsg.class_of("FxBarr") is pricemsg.M_FxBarr
    with pytest.raises(KeyError, match="nearest: M_FxBarr"):
        pricemsg.class_of("M_FxBar")
    with pytest.raises(KeyError):
        pricemsg.class_of(10**30)
    strike = [f for f in pricemsg.M_OptBarr.fields() if f.name == "dStrike"][0]
    assert (strike.kind, strike.type, strike.held) == ("double", "CDbl", None)
    assert pricemsg.M_FxBarr.fields()[0].held is pricemsg.M_OptBarr
    assert "dStrike" in pricemsg.M_OptBarr.__doc__ and "3439" in pricemsg.M_OptBarr.__doc__
    assert "dStrike" in dir(pricemsg.M_OptBarr())
