"""Failures as Python exceptions, and misuse that must not crash the
interpreter."""

import gc
import sys
import threading
import weakref

import pricemsg
import pytest


def test_wrong_values_name_class_field_and_kind():
    req = pricemsg.M_FxBarr()
    with pytest.raises(TypeError) as e:
        req.mOptBarr.dStrike = "1.1"
    assert str(e.value) == ("M_FxBarr.mOptBarr.dStrike (double of M_OptBarr) takes a float or an "
                            "int or None, not str")
    with pytest.raises(TypeError, match=r"M_FxBarr.maUnderData\[1\].dCurrentPrice .*not list"):
        pricemsg.M_FxBarr(maUnderData=[{}, {"dCurrentPrice": [1]}])
    c = pricemsg.M_IrCancelable()
    for field, value in [("iAppEndPeriodNo", True), ("iAppEndPeriodNo", 1.0),
                         ("bEventOccuredYN", 1), ("sAppPeriodType", 3),
                         ("iaAppPeriodNo", "12"), ("iaAppPeriodNo", ""),
                         ("iaAppPeriodNo", b"\x01"), ("iaAppPeriodNo", [1.5])]:
        with pytest.raises(TypeError, match=f"M_IrCancelable.{field}"):
            setattr(c, field, value)
    for text in ("", b"", "ab"):
        with pytest.raises(TypeError, match="M_FxBarr.maUnderData takes a list of M_UnderData"):
            pricemsg.M_FxBarr(maUnderData=text)
    with pytest.raises(TypeError, match="a datetime.date"):
        pricemsg.M_Tiv(nDate=20261123)
    with pytest.raises(OverflowError, match="iAppEndPeriodNo"):
        c.iAppEndPeriodNo = 2**31
    with pytest.raises(OverflowError, match="iaAppPeriodNo"):
        c.iaAppPeriodNo = [1, -2**31 - 1]
    with pytest.raises(OverflowError):
        pricemsg.M_UnderData(dCurrentPrice=10**400)
    try:
        kept = pricemsg.M_Tiv(nDate="20261301")
    except ValueError as e:  # the runtime's CDate::Set refuses a day of no calendar
        assert "M_Tiv.nDate: nDate cannot take '20261301'" in str(e)
    else:  # a runtime that checks no calendar keeps the text, which is no datetime.date
        assert kept.nDate == "20261301"
    with pytest.raises(ValueError, match=r"'a\\x00b'"):
        pricemsg.M_Tiv(sMatur="a\0b")
    assert c == pricemsg.M_IrCancelable()  # nothing refused was half set

    with pytest.raises(AttributeError, match="M_OptBarr has no field 'dStrik'; nearest: dStrike"):
        req.mOptBarr.dStrik = 1.0
    with pytest.raises(AttributeError, match="nearest: dStrike"):
        req.mOptBarr.dstrike
    with pytest.raises(AttributeError, match=r"M_FxBarr.mOptBarr: M_OptBarr has no field 'x'"):
        pricemsg.M_FxBarr(mOptBarr={"x": 1})
    with pytest.raises(TypeError, match="field names are texts"):
        pricemsg.M_FxBarr.from_dict({1: 2})
    with pytest.raises(TypeError):
        pricemsg.Message()
    with pytest.raises(TypeError):
        pricemsg.M_FxBarr(1, 2)


def test_message_errors_carry_code_text_and_path(tmp_path):
    before = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.0})
    with pytest.raises(pricemsg.MessageError) as e:
        before.load(pricemsg.M_Tiv().to_msg())
    assert (e.value.code, e.value.path) == (-28, "M_FxBarr")
    assert e.value.text == "invalid input message of service(2143,3568)"
    assert "M_FxBarr M3568" in e.value.explanation
    assert before.mOptBarr.dStrike == 1.0  # a failed load changes nothing
    with pytest.raises(pricemsg.MessageError) as e:
        before.mOptBarr.load(before.to_msg())
    assert e.value.path == "M_OptBarr" and e.value.code == -28

    with pytest.raises(pricemsg.MessageError) as e:
        pricemsg.read_file(tmp_path / "missing.msg")
    assert e.value.code == -57 and e.value.file == str(tmp_path / "missing.msg")
    bad = tmp_path / "bad.msg"
    bad.write_text("M2143 M_Tiv {\n  T198 nDate n 5\n}\n")
    with pytest.raises(pricemsg.MessageError) as e:
        pricemsg.M_Tiv.read_file(bad)
    assert (e.value.code, e.value.line, e.value.column) == (-59, 2, 16)
    assert str(e.value).startswith(f"{bad}:2:16: ")
    pricemsg.M_FxBarr().write_file(tmp_path / "barr.json")
    with pytest.raises(pricemsg.MessageError, match="not of M_Tiv") as e:
        pricemsg.M_Tiv.read_file(tmp_path / "barr.json")
    assert e.value.code == -52
    with pytest.raises(pricemsg.MessageError) as e:
        pricemsg.M_Tiv().write_file(tmp_path)
    assert e.value.code == -57
    with pytest.raises(pricemsg.MessageError, match=r"text:1:2"):
        pricemsg.M_Tiv.from_json("{,")
    with pytest.raises(pricemsg.MessageError, match="/nDate"):
        pricemsg.M_Tiv.from_json('{"class": "M_Tiv", "nDate": 5}')


def test_handles_outlive_what_they_name():
    req = pricemsg.M_FxBarr(maUnderData=[{"dCurrentPrice": 1}, {"dCurrentPrice": 2}])
    gone = weakref.ref(req)
    element = req.maUnderData[1]
    array = req.maUnderData
    del req
    gc.collect()
    assert gone() is None or True  # the handles keep the root, not the Python object
    assert element.dCurrentPrice == 2.0
    array.clear()
    with pytest.raises(ReferenceError, match=r"M_FxBarr.maUnderData\[1\] is gone"):
        element.dCurrentPrice
    with pytest.raises(ReferenceError):
        element.dCurrentPrice = 3.0
    with pytest.raises(ReferenceError):
        element.to_dict()
    with pytest.raises(ReferenceError):
        repr(element.mVolData)
    array.append({})
    array.append({"dCurrentPrice": 5})
    assert element.dCurrentPrice == 5.0  # an element is the array's place, not its content

    # Any size of index is an IndexError, as for a list.
    for index in (10**100, -10**100, 2**31, -2**31 - 1, 2):
        with pytest.raises(IndexError):
            array[index]
        with pytest.raises(IndexError):
            array[index] = {}
    with pytest.raises(TypeError):
        array[1.0]
    assert array[-10**100:10**100] == list(array)
    values = pricemsg.M_IrCancelable(iaAppPeriodNo=[1]).iaAppPeriodNo
    for index in (10**100, -2):
        with pytest.raises(IndexError):
            values[index]


def test_arrays_changed_while_iterated():
    note = pricemsg.M_IrNotePrice(maIrNoteCF=[{"iPeriodNo": i} for i in range(5)])
    seen = []
    for cf in note.maIrNoteCF:
        seen.append(cf.iPeriodNo)
        if len(seen) == 2:
            note.maIrNoteCF.clear()
    assert seen == [0, 1]
    note.maIrNoteCF = [{}]
    count = 0
    for cf in note.maIrNoteCF:
        count += 1
        if count < 4:
            note.maIrNoteCF.append(cf)  # as a list: the new elements are met too
    assert count == 4
    values = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2, 3]).iaAppPeriodNo
    got = []
    for v in values:
        got.append(v)
        values.clear()
    assert got == [1]

    # Python code run while a value is read (here __index__) may change the
    # array being filled: the value is read first.
    c = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2])

    class Sly:
        def __index__(self):
            c.iaAppPeriodNo.clear()
            return 7

    c.iaAppPeriodNo.extend([Sly()])
    assert c.iaAppPeriodNo == [7]

    class First:
        def __index__(self):
            c.iaAppPeriodNo.clear()
            return 0

    with pytest.raises(IndexError):  # the index is read before the array
        c.iaAppPeriodNo[First()] = 8
    c.iaAppPeriodNo = [1]
    with pytest.raises(IndexError):
        c.iaAppPeriodNo[First()]

    # An index whose __index__ puts a new object in place of the one indexed.
    other = pricemsg.M_IrNotePrice(maIrNoteCF=[{"iPeriodNo": 9}] * 3).to_msg()

    class Reloads:
        def __index__(self):
            note.load(other)
            return 1

    note.maIrNoteCF = [{}]
    note.maIrNoteCF[Reloads()] = {"iPeriodNo": 2}
    assert [cf.iPeriodNo for cf in note.maIrNoteCF] == [9, 2, 9]
    note.maIrNoteCF = [{}]
    assert note.maIrNoteCF[Reloads()].iPeriodNo == 9


def test_objects_not_made_by_their_class():
    blank = pricemsg.M_FxBarr.__new__(pricemsg.M_FxBarr)
    for call in (blank.to_dict, blank.to_msg, blank.copy, lambda: blank.mOptBarr,
                 lambda: setattr(blank, "mOptBarr", None), lambda: pricemsg.M_FxBarr(blank)):
        with pytest.raises(TypeError):
            call()
    with pytest.raises(TypeError):
        pricemsg.Message.to_dict(object())

    msg = pricemsg.M_Tiv(sMatur="1Y").to_msg()
    capsule = msg.to_capsule()
    with pytest.raises(ValueError, match="handed over"):
        pricemsg.M_Tiv().load(msg)
    assert "handed over" in repr(msg)
    back = pricemsg.Msg.from_capsule(capsule)
    with pytest.raises(ValueError):
        pricemsg.Msg.from_capsule(capsule)  # taken once
    with pytest.raises(ValueError):
        pricemsg.Msg.from_capsule(object())
    assert back.to_object() == pricemsg.M_Tiv(sMatur="1Y")
    pricemsg.M_Tiv(sMatur="2Y").to_msg().to_capsule()  # one never taken frees its message


def test_python_code_run_inside_a_conversion_cannot_change_its_object():
    req = pricemsg.M_FxBarr(maUnderData=[{"dCurrentPrice": i} for i in range(50)])
    caught = []

    class Meddler:
        def __del__(self):
            try:
                req.maUnderData.clear()
            except RuntimeError as e:
                caught.append(str(e))

    # A garbage cycle with a finalizer, in the older generation, and a
    # collection set off by the fortieth new container: inside to_dict,
    # whose dicts are such containers, not in the call that leads there.
    threshold = gc.get_threshold()
    gc.collect()
    gc.disable()
    try:
        meddler = Meddler()
        meddler.self = meddler
        gc.collect(0)
        del meddler
        to_dict = req.to_dict
        gc.set_threshold(40, 0, 0)
        gc.enable()
        fields = to_dict()
    finally:
        gc.set_threshold(*threshold)
        gc.enable()
    assert caught and "in use by a conversion of this thread" in caught[0]
    assert len(fields["maUnderData"]) == 50 and len(req.maUnderData) == 50


def test_threads_share_objects_without_harm():
    req = pricemsg.M_IrNoteFlterHwMc.template()
    expected = req.copy()
    stop = threading.Event()
    errors = []

    def convert():
        try:
            while not stop.is_set():
                out = pricemsg.M_IrNoteFlterHwMc()
                out.load(req.to_msg())
                assert out == expected
                assert pricemsg.M_IrNoteFlterHwMc.from_json(req.to_json()) == expected
        except Exception as e:  # noqa: BLE001
            errors.append(e)

    threads = [threading.Thread(target=convert) for _ in range(3)]
    for t in threads:
        t.start()
    for _ in range(300):
        req.mIrHwMcParam.maKytRateCrvB = expected.mIrHwMcParam.maKytRateCrvB
        req.load(expected.to_msg())
    stop.set()
    for t in threads:
        t.join()
    assert not errors, errors
    assert sys.getrefcount(req) >= 2
