"""Failures as Python exceptions, and misuse that must not crash the
interpreter."""

import concurrent.futures
import gc
import threading

import pricemsg
import pytest


def test_wrong_values_and_names_say_class_field_and_kind():
    req = pricemsg.M_FxBarr()
    with pytest.raises(TypeError) as e:
        req.mOptBarr.dStrike = "1.1"
    assert str(e.value) == ("M_FxBarr.mOptBarr.dStrike (double of M_OptBarr) takes a float or an "
                            "int or None, not str")
    c = pricemsg.M_IrCancelable()
    cases = [
        (TypeError, r"M_FxBarr.maUnderData\[1\].dCurrentPrice .*not list",
         lambda: pricemsg.M_FxBarr(maUnderData=[{}, {"dCurrentPrice": [1]}])),
        (TypeError, "a datetime.date", lambda: pricemsg.M_Tiv(nDate=20261123)),
        (ValueError, r"'a\\x00b'", lambda: pricemsg.M_Tiv(sMatur="a\0b")),
        (OverflowError, "iAppEndPeriodNo", lambda: setattr(c, "iAppEndPeriodNo", 2**31)),
        (OverflowError, "iaAppPeriodNo", lambda: setattr(c, "iaAppPeriodNo", [1, -2**31 - 1])),
        (OverflowError, "", lambda: pricemsg.M_UnderData(dCurrentPrice=10**400)),
        (AttributeError, "M_OptBarr has no field 'dStrik'; nearest: dStrike",
         lambda: setattr(req.mOptBarr, "dStrik", 1.0)),
        (AttributeError, "nearest: dStrike", lambda: req.mOptBarr.dstrike),
        (AttributeError, r"M_FxBarr.mOptBarr: M_OptBarr has no field 'x'",
         lambda: pricemsg.M_FxBarr(mOptBarr={"x": 1})),
        (TypeError, "field names are texts", lambda: pricemsg.M_FxBarr.from_dict({1: 2})),
        (TypeError, "", lambda: pricemsg.Message()),
        (TypeError, "", lambda: pricemsg.M_FxBarr(1, 2)),
    ]
    # Texts are sequences, but not of elements.
    cases += [(TypeError, "M_FxBarr.maUnderData takes a list of M_UnderData",
               lambda t=text: pricemsg.M_FxBarr(maUnderData=t)) for text in ("", b"", "ab")]
    cases += [(TypeError, f"M_IrCancelable.{field}", lambda f=field, v=value: setattr(c, f, v))
              for field, value in [("iAppEndPeriodNo", True), ("iAppEndPeriodNo", 1.0),
                                   ("bEventOccuredYN", 1), ("sAppPeriodType", 3),
                                   ("iaAppPeriodNo", "12"), ("iaAppPeriodNo", ""),
                                   ("iaAppPeriodNo", b"\x01"), ("iaAppPeriodNo", [1.5])]]
    for error, match, call in cases:
        with pytest.raises(error, match=match):
            call()
    assert c == pricemsg.M_IrCancelable()  # nothing refused was half set
    try:
        kept = pricemsg.M_Tiv(nDate="20261301")
    except ValueError as e:  # the runtime's CDate::Set refuses a day of no calendar
        assert "M_Tiv.nDate: nDate cannot take '20261301'" in str(e)
    else:  # a runtime that checks no calendar keeps the text, which is no datetime.date
        assert kept.nDate == "20261301"


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
    assert (e.value.code, e.value.path) == (-28, "M_OptBarr")

    with pytest.raises(pricemsg.MessageError) as e:
        pricemsg.read_file(tmp_path / "missing.msg")
    assert (e.value.code, e.value.file) == (-57, str(tmp_path / "missing.msg"))
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


def test_handles_outlive_what_they_name():
    req = pricemsg.M_FxBarr(maUnderData=[{"dCurrentPrice": 1}, {"dCurrentPrice": 2}])
    element, array = req.maUnderData[1], req.maUnderData
    del req
    gc.collect()
    assert element.dCurrentPrice == 2.0  # the handles keep the root
    array.clear()
    with pytest.raises(ReferenceError, match=r"M_FxBarr.maUnderData\[1\] is gone"):
        element.dCurrentPrice
    for use in (lambda: setattr(element, "dCurrentPrice", 3.0), element.to_dict,
                lambda: repr(element.mVolData)):
        with pytest.raises(ReferenceError):
            use()
    array.append({})
    array.append({"dCurrentPrice": 5})
    assert element.dCurrentPrice == 5.0  # an element is the array's place, not its content
    # Any size of index is an IndexError, as for a list.
    values = pricemsg.M_IrCancelable(iaAppPeriodNo=[1]).iaAppPeriodNo
    for index in (10**100, -10**100, 2**31, -2**31 - 1, 2):
        for use in (lambda: array[index], lambda: array.__setitem__(index, {}),
                    lambda: values[index]):
            with pytest.raises(IndexError):
                use()
    with pytest.raises(TypeError):
        array[1.0]
    assert array[-10**100:10**100] == list(array)


def test_arrays_changed_while_in_use():
    note = pricemsg.M_IrNotePrice(maIrNoteCF=[{"iPeriodNo": i} for i in range(5)])
    seen = []
    for cf in note.maIrNoteCF:
        seen.append(cf.iPeriodNo)
        if len(seen) == 2:
            note.maIrNoteCF.clear()
    assert seen == [0, 1]
    note.maIrNoteCF = [{}]
    for count, cf in enumerate(note.maIrNoteCF, 1):
        if count < 4:
            note.maIrNoteCF.append(cf)  # as a list: the new elements are met too
    assert count == 4
    values, got = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2, 3]).iaAppPeriodNo, []
    for v in values:
        got.append(v)
        values.clear()
    assert got == [1]

    # Python code run while a value or an index is read (here __index__)
    # may change the array or put a new object in place of the one indexed.
    c = pricemsg.M_IrCancelable(iaAppPeriodNo=[1, 2])
    other = pricemsg.M_IrNotePrice(maIrNoteCF=[{"iPeriodNo": 9}] * 3).to_msg()

    class Meddles:
        def __init__(self, value, meddle):
            self.value, self.meddle = value, meddle

        def __index__(self):
            self.meddle()
            return self.value

    c.iaAppPeriodNo.extend([Meddles(7, c.iaAppPeriodNo.clear)])
    assert c.iaAppPeriodNo == [7]  # the value is read first
    with pytest.raises(IndexError):  # the index is read before the array
        c.iaAppPeriodNo[Meddles(0, c.iaAppPeriodNo.clear)] = 8
    c.iaAppPeriodNo = [1]
    with pytest.raises(IndexError):
        c.iaAppPeriodNo[Meddles(0, c.iaAppPeriodNo.clear)]
    note.maIrNoteCF = [{}]
    note.maIrNoteCF[Meddles(1, lambda: note.load(other))] = {"iPeriodNo": 2}
    assert [cf.iPeriodNo for cf in note.maIrNoteCF] == [9, 2, 9]
    note.maIrNoteCF = [{}]
    assert note.maIrNoteCF[Meddles(1, lambda: note.load(other))].iPeriodNo == 9


def test_objects_not_made_by_their_class_and_capsules():
    blank = pricemsg.M_FxBarr.__new__(pricemsg.M_FxBarr)
    for call in (blank.to_dict, blank.to_msg, blank.copy, lambda: blank.mOptBarr,
                 lambda: setattr(blank, "mOptBarr", None), lambda: pricemsg.M_FxBarr(blank),
                 lambda: pricemsg.Message.to_dict(object())):
        with pytest.raises(TypeError):
            call()
    msg = pricemsg.M_Tiv(sMatur="1Y").to_msg()
    capsule = msg.to_capsule()
    with pytest.raises(ValueError, match="handed over"):
        pricemsg.M_Tiv().load(msg)
    assert "handed over" in repr(msg)
    back = pricemsg.Msg.from_capsule(capsule)
    for taken in (capsule, object()):  # a capsule is taken once
        with pytest.raises(ValueError):
            pricemsg.Msg.from_capsule(taken)
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

    def convert():
        while not stop.is_set():
            out = pricemsg.M_IrNoteFlterHwMc()
            out.load(req.to_msg())
            assert out == expected == pricemsg.M_IrNoteFlterHwMc.from_json(req.to_json())

    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        running = [pool.submit(convert) for _ in range(3)]
        for _ in range(300):
            req.mIrHwMcParam.maKytRateCrvB = expected.mIrHwMcParam.maKytRateCrvB
            req.load(expected.to_msg())
        stop.set()
    for done in running:
        done.result()  # raises what the thread raised
