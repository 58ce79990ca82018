"""Every class of the schema, one case each: its template to a dict and back,
to a runtime message and back, to JSON and to text and back, all equal."""

import pricemsg
import pytest

CLASSES = pricemsg.classes()


def test_every_class_is_a_type_of_its_own_name():
    assert len({c.__name__ for c in CLASSES}) == len({c.number for c in CLASSES}) == 1159
    for cls in CLASSES:
        assert getattr(pricemsg, cls.__name__) is pricemsg.class_of(cls.number) is cls
        assert issubclass(cls, pricemsg.Message) and cls.role and cls.description and cls.family


@pytest.mark.parametrize("cls", CLASSES, ids=lambda c: c.__name__)
def test_round_trips(cls):
    filled = cls.template()
    fields = filled.to_dict()
    assert list(fields) == [f.name for f in cls.fields()]
    assert cls.from_dict(fields) == cls(**fields) == filled
    loaded = cls()
    loaded.load(filled.to_msg())
    assert loaded == filled and loaded.to_dict() == fields
    assert cls.from_json(filled.to_json()) == cls.from_text(filled.to_text()) == filled
    empty = cls()
    assert cls.from_dict(empty.to_dict()) == empty
    loaded.load(empty.to_msg())
    assert loaded == empty
