"""Every class of the schema, one case each: its template to a dict and back,
to a runtime message and back, to JSON and to text and back, all equal; one
field changed, and diff names that field alone."""

import datetime

import pricemsg
import pytest

CLASSES = pricemsg.classes()


def leaves(fields, path=""):
    """(dict, key, path as diff names it) of each value of a to_dict() form,
    depth first into blocks and the first element of message arrays."""
    for name, value in fields.items():
        here = f"{path}.{name}" if path else name
        if isinstance(value, dict):
            yield from leaves(value, here)
        elif isinstance(value, list) and value and isinstance(value[0], dict):
            yield from leaves(value[0], here + "[0]")
        else:
            yield fields, name, here


def another(value):
    """Another value of the same Python type."""
    if isinstance(value, datetime.date):
        return value + datetime.timedelta(days=1)
    return {bool: lambda v: not v, int: lambda v: v + 1, float: lambda v: v + 1.5,
            str: lambda v: v + "x", list: lambda v: v + [7]}[type(value)](value)


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

    # The first single value, else the first value array with elements.
    found = list(leaves(fields))
    found = ([f for f in found if not isinstance(f[0][f[1]], list)] +
             [f for f in found if f[0][f[1]]])
    if not found:  # blocks of texts only, "" in the template as in a new object
        assert empty == filled
        return
    holder, name, path = found[0]
    holder[name] = another(holder[name])
    changed = cls.from_dict(fields)
    assert changed != filled
    assert [d.path for d in filled.diff(changed)] == [path]
    assert filled == cls.template()
