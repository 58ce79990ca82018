"""Fields in Python terms: the value of each kind, unset against zero, blocks
tied to their owner, arrays as sequences, constructors and dicts."""

import datetime
import gc
import math
import struct

import pricemsg
import pytest


def test_values_of_each_kind_and_unset_against_zero():
    c = pricemsg.M_IrCancelable()
    assert (c.iAppEndPeriodNo, c.bEventOccuredYN, c.sAppPeriodType) == (None, None, "")
    c.iAppEndPeriodNo = 0
    c.bEventOccuredYN = False
    assert c.iAppEndPeriodNo == 0 and type(c.iAppEndPeriodNo) is int
    assert c.bEventOccuredYN is False
    assert c != pricemsg.M_IrCancelable()  # set to zero is not unset
    c.iAppEndPeriodNo = None
    del c.bEventOccuredYN
    assert c == pricemsg.M_IrCancelable()
    c.iAppEndPeriodNo = -2**31
    c.iAppStartPeriodNo = 2**31 - 1
    assert (c.iAppEndPeriodNo, c.iAppStartPeriodNo) == (-2**31, 2**31 - 1)

    u = pricemsg.M_UnderData(dCurrentPrice=3)
    assert u.dCurrentPrice == 3.0 and type(u.dCurrentPrice) is float
    for d in (-0.0, math.inf, 5e-324):
        u.dCurrentPrice = d
        assert struct.pack("<d", u.dCurrentPrice) == struct.pack("<d", d)
    u.dCurrentPrice = math.nan
    assert math.isnan(u.dCurrentPrice)
    # Doubles compare by their bits: -0.0 is not 0.0, a NaN equals itself.
    assert pricemsg.M_UnderData(dCurrentPrice=-0.0) != pricemsg.M_UnderData(dCurrentPrice=0.0)
    assert u == u.copy()

    t = pricemsg.M_Tiv(nDate=datetime.date(2026, 11, 23))
    assert t.nDate == datetime.date(2026, 11, 23)
    t.nDate = "20240229"
    assert t.nDate == datetime.date(2024, 2, 29)
    t.nDate = datetime.date(999, 1, 2)
    assert t.to_dict()["nDate"] == datetime.date(999, 1, 2)
    assert '"09990102"' in t.to_text()

    # Texts: any bytes; what is not UTF-8 comes back as lone surrogates and
    # goes out as the same bytes.
    t.sMatur = "3M\u00e9"
    assert t.sMatur == "3M\u00e9"
    t.sMatur = b"\xff\x00"[:1] + b"Y"
    assert t.sMatur == "\udcffY"
    again = pricemsg.M_Tiv(sMatur=t.sMatur)
    assert again == pricemsg.M_Tiv(sMatur=b"\xffY")
    assert '"hex": "ff59"' in again.to_json()
    t.sMatur = None
    assert t.sMatur == ""


def test_blocks_stay_tied_to_their_owner():
    req = pricemsg.M_FxBarr()
    barrier = req.mOptBarr
    barrier.dStrike = 1.1
    assert req.mOptBarr.dStrike == 1.1
    deep = req.mOptBarr.mSglBarr.mBarrElmt1
    deep.dPrice = 1.3
    assert req.to_dict()["mOptBarr"]["mSglBarr"]["mBarrElmt1"]["dPrice"] == 1.3

    # The block keeps its request alive.
    del req
    gc.collect()
    barrier.dStrike = 2.0
    assert barrier.dStrike == 2.0 and barrier.mSglBarr.mBarrElmt1.dPrice == 1.3

    # Assigning a block copies it: the source stays apart, also from itself.
    a = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.5})
    b = pricemsg.M_FxBarr()
    b.mOptBarr = a.mOptBarr
    a.mOptBarr.dStrike = 9.0
    assert b.mOptBarr.dStrike == 1.5
    b.mOptBarr = b.mOptBarr
    assert b.mOptBarr.dStrike == 1.5
    b.mOptBarr = {"sOptRight": "C"}
    assert (b.mOptBarr.dStrike, b.mOptBarr.sOptRight) == (None, "C")
    b.mOptBarr = None
    assert b == pricemsg.M_FxBarr()
    with pytest.raises(TypeError, match="M_FxBarr.mOptBarr takes an M_OptBarr"):
        b.mOptBarr = pricemsg.M_OptDblBarr()


def test_message_arrays_are_sequences():
    note = pricemsg.M_IrNotePrice()
    cfs = note.maIrNoteCF
    assert len(cfs) == 0 and list(cfs) == []
    cfs.append({"iPeriodNo": 1})
    cfs.append(pricemsg.M_IrNoteCF(iPeriodNo=2))
    third = cfs.add(iPeriodNo=3)
    assert [c.iPeriodNo for c in cfs] == [1, 2, 3]
    assert cfs[-1] == third and cfs[-3].iPeriodNo == 1
    assert [c.iPeriodNo for c in cfs[::-2]] == [3, 1]
    third.dPv = 5.0
    assert note.maIrNoteCF[2].dPv == 5.0
    cfs[0] = {"iPeriodNo": 10}
    assert note.maIrNoteCF[0].iPeriodNo == 10
    with pytest.raises(IndexError):
        cfs[3]
    with pytest.raises(IndexError):
        cfs[-4]

    # Assignment from a list, also of the array's own elements in another
    # order: they are read before the array changes.
    note.maIrNoteCF = [cfs[2], cfs[0]]
    assert [c.iPeriodNo for c in note.maIrNoteCF] == [3, 10]
    note.maIrNoteCF = note.maIrNoteCF
    assert [c.iPeriodNo for c in note.maIrNoteCF] == [3, 10]
    note.maIrNoteCF = (c for c in [{"iPeriodNo": 4}])
    assert len(cfs) == 1
    cfs.clear()
    assert len(note.maIrNoteCF) == 0 and note == pricemsg.M_IrNotePrice()


def test_value_arrays_are_sequences():
    c = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2])
    a = c.iaAppPeriodNo
    a.append(3)
    a.extend([4, 5])
    a[0] = 10
    a[-1] = 50
    assert list(a) == [10, 2, 3, 4, 50] and a == [10, 2, 3, 4, 50]
    assert (len(a), a[-2], a[1:3]) == (5, 4, [2, 3])
    a[1:4] = [0]
    assert c.iaAppPeriodNo.to_list() == [10, 0, 50]
    assert c.to_dict()["iaAppPeriodNo"] == [10, 0, 50]
    a.clear()
    assert len(c.iaAppPeriodNo) == 0
    with pytest.raises(IndexError):
        a[0]

    u = pricemsg.M_UnderData(daCorrCoeff=[1, 0.5])
    assert u.daCorrCoeff == [1.0, 0.5] and type(u.daCorrCoeff[0]) is float
    u.daCorrCoeff.append(-0.0)
    assert math.copysign(1, u.daCorrCoeff[2]) == -1
    u.daCorrCoeff = None
    assert len(u.daCorrCoeff) == 0


def test_constructors_and_dicts():
    req = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.1, "mSglBarr": {"mBarrElmt1": {"dPrice": 2}}},
                            maUnderData=[{"dCurrentPrice": 1}, pricemsg.M_UnderData()])
    assert req.mOptBarr.mSglBarr.mBarrElmt1.dPrice == 2.0
    assert len(req.maUnderData) == 2
    fields = req.to_dict()
    assert fields["maUnderData"][1]["dCurrentPrice"] is None
    assert pricemsg.M_FxBarr.from_dict(fields) == req

    # A positional object or dict is copied, keywords then replace fields.
    copy = pricemsg.M_FxBarr(req, maUnderData=[])
    assert copy.mOptBarr.dStrike == 1.1 and len(copy.maUnderData) == 0
    assert len(req.maUnderData) == 2
    assert pricemsg.M_FxBarr(fields) == req

    # The dict of the JSON form names its class; a wrong one is refused.
    import json
    assert pricemsg.M_Tiv.from_dict(json.loads(pricemsg.M_Tiv(sMatur="3M").to_json())) == \
        pricemsg.M_Tiv(sMatur="3M")
    with pytest.raises(ValueError, match="M_Tiv"):
        pricemsg.M_Tiv.from_dict({"class": "M_FxBarr"})
    with pytest.raises(ValueError):
        pricemsg.M_Tiv.from_dict({"number": 3568})


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
    assert pricemsg.find("fx barrier", role="reply") == [] or \
        all(c.role == "reply" for c in pricemsg.find("fx barrier", role="reply"))
    assert pricemsg.find("no such product at all") == []
    assert pricemsg.class_of("FxBarr") is pricemsg.M_FxBarr
    with pytest.raises(KeyError, match="nearest: M_FxBarr"):
        pricemsg.class_of("M_FxBar")
    with pytest.raises(KeyError):
        pricemsg.class_of(10**30)
    strike = [f for f in pricemsg.M_OptBarr.fields() if f.name == "dStrike"][0]
    assert (strike.kind, strike.type, strike.held) == ("double", "CDbl", None)
    held = pricemsg.M_FxBarr.fields()[0]
    assert held.held is pricemsg.M_OptBarr
    assert "dStrike" in pricemsg.M_OptBarr.__doc__ and "3439" in pricemsg.M_OptBarr.__doc__
    assert "dStrike" in dir(pricemsg.M_OptBarr())
