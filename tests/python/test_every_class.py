"""Every class of the schema, one case each: its template to a dict and back,
to a runtime message and back, to JSON and back, all equal; one field
changed, and diff names that field alone."""

import pricemsg
import pytest

from conftest import another, diff_path, first_leaf, get_path, set_path

CLASSES = pricemsg.classes()


def test_every_class_is_a_type_of_its_own_name():
    assert len(CLASSES) == 1159
    assert len({c.__name__ for c in CLASSES}) == 1159
    assert len({c.number for c in CLASSES}) == 1159
    for cls in CLASSES:
        assert getattr(pricemsg, cls.__name__) is cls
        assert issubclass(cls, pricemsg.Message)
        assert pricemsg.class_of(cls.number) is cls
        assert cls.role and cls.description and cls.family


@pytest.mark.parametrize("cls", CLASSES, ids=lambda c: c.__name__)
def test_round_trips(cls):
    filled = cls.template()
    fields = filled.to_dict()
    assert list(fields) == [f.name for f in cls.fields()]
    assert cls.from_dict(fields) == filled
    assert cls(**fields) == filled

    loaded = cls()
    loaded.load(filled.to_msg())
    assert loaded == filled
    assert loaded.to_dict() == fields
    assert cls.from_json(filled.to_json()) == filled
    assert cls.from_text(filled.to_text()) == filled

    empty = cls()
    assert cls.from_dict(empty.to_dict()) == empty
    again = cls.template()
    again.load(empty.to_msg())
    assert again == empty

    path = first_leaf(fields)
    if path is None:  # blocks of texts only, "" in the template as in a new object
        assert empty == filled
        return
    assert (empty == filled) == (empty.to_dict() == fields)
    changed = filled.copy()
    set_path(changed, path, another(get_path(filled, path)))
    assert changed != filled
    assert [d.path for d in filled.diff(changed)] == [diff_path(path)]
    assert filled == cls.template()
