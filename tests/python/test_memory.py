"""No leak over many rounds: the objects and runtime messages that the
module holds go when Python lets them go, and neither Python's memory nor
the process's grows from round to round."""

import gc
import tracemalloc

import pricemsg

live = pricemsg._core._live  # (objects, runtime messages) alive


def rss_kib():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * 4


def round_trip(template, fields):
    req = pricemsg.M_IrNoteFlterHwMc.from_dict(fields)
    curves = req.mIrHwMcParam.maKytRateCrvB
    element = curves[0]
    reply = pricemsg.M_IrNoteFlterHwMc()
    reply.load(req.to_msg())
    assert reply == template and reply.to_dict() == fields
    assert pricemsg.M_IrNoteFlterHwMc.from_json(req.to_json()) == template
    curves.clear()
    for failing in (lambda: element.sCcy, lambda: pricemsg.M_Tiv().load(reply.to_msg()),
                    lambda: pricemsg.M_FxBarr(mOptBarr={"dStrike": "x"})):
        try:
            failing()
        except (ReferenceError, pricemsg.MessageError, TypeError):
            pass
    reply.diff(req)
    repr(reply)
    req.mIrFloater = reply.mIrFloater
    req.to_msg().to_capsule()
    pricemsg.Msg.from_capsule(reply.to_msg().to_capsule())


def test_no_leak_over_many_rounds():
    template = pricemsg.M_IrNoteFlterHwMc.template()
    fields = template.to_dict()
    gc.collect()
    base = live()
    # A block holds its request, and no more.
    block = pricemsg.M_FxBarr().mOptBarr
    copy = block.copy()
    assert live()[0] == base[0] + 2
    del block, copy
    gc.collect()
    assert live() == base

    round_trip(template, fields)
    rss = rss_kib()
    tracemalloc.start()
    first = tracemalloc.take_snapshot()
    for _ in range(3000):
        round_trip(template, fields)
    gc.collect()
    grown = sum(s.size_diff for s in tracemalloc.take_snapshot().compare_to(first, "filename"))
    tracemalloc.stop()
    assert live() == base
    assert grown < 64 * 1024, grown
    # A leak of one runtime message a round would be some megabytes here.
    assert rss_kib() - rss < 2048
