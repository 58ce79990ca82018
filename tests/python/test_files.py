"""Runtime messages, message files in both forms, dumps and templates."""

import datetime
import pickle

import pricemsg


def sample():
    return pricemsg.M_KytVolSurface(iVolCrvId=7, maKytVolSfcElmt=[
        {"dVol": 0.25, "mTivMatur": {"nDate": datetime.date(2026, 11, 23)}, "dStrike": -0.0},
        {"dVol": float("nan")}])


def test_messages_and_files_in_both_forms(tmp_path):
    obj = sample()
    msg = obj.to_msg()
    assert repr(msg) == "<pricemsg.Msg 1264 M_KytVolSurface>"
    assert pricemsg.from_msg(msg) == msg.to_object() == obj
    assert (msg.to_json(), msg.to_text()) == (obj.to_json(), obj.to_text())
    assert pricemsg.Msg.from_text(obj.to_text()).to_object() == obj
    assert pricemsg.Msg.from_json(obj.to_json().encode()).to_object() == obj
    for name in ("surface.msg", "surface.json"):
        path = tmp_path / name
        obj.write_file(path)
        assert path.read_text()[0] == ("{" if name.endswith(".json") else "M")
        assert pricemsg.read_file(path) == pricemsg.M_KytVolSurface.read_file(str(path)) == obj
        assert pricemsg.Msg.read_file(path).to_object() == obj
        msg.write_file(tmp_path / ("again-" + name))
        assert (tmp_path / ("again-" + name)).read_bytes() == path.read_bytes()
    assert pickle.loads(pickle.dumps(obj)) == obj


def test_dump_template_and_a_block_loaded_in_place():
    dump = sample().dump()
    assert "iVolCrvId" in dump and "20261123" in dump
    assert pricemsg.M_Tiv.template().nDate == datetime.date(2000, 1, 1)
    # A block loads in place.
    obj = sample()
    obj.maKytVolSfcElmt[0].load(pricemsg.M_KytVolSurfaceElmt(dVol=0.5).to_msg())
    assert obj.maKytVolSfcElmt[0].dVol == 0.5 and obj.iVolCrvId == 7
