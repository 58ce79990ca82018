"""What the tests of the Python module share: where the sources are, and the
path of a field in the to_dict() form and in the form diff() writes."""

import datetime
import os

import pytest

SOURCE_DIR = os.environ.get("PRICEMSG_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def leaves(fields, path=()):
    """The paths (names and indexes) and values of a to_dict() form, in field
    order, blocks and the first element of each array depth first."""
    for name, value in fields.items():
        here = path + (name,)
        if isinstance(value, dict):
            yield from leaves(value, here)
        elif isinstance(value, list) and value and isinstance(value[0], dict):
            yield from leaves(value[0], here + (0,))
        else:
            yield here, value


def first_leaf(fields):
    """The first single value, else the first value array with elements."""
    found = list(leaves(fields))
    for path, value in found:
        if not isinstance(value, list):
            return path
    for path, value in found:
        if value:
            return path
    return None


def diff_path(path):
    """The path of diff() and of the reflection: "maLegs[0].dStrike"."""
    out = ""
    for step in path:
        out += f"[{step}]" if isinstance(step, int) else ("." if out else "") + step
    return out


def get_path(obj, path):
    for step in path:
        obj = obj[step] if isinstance(step, int) else getattr(obj, step)
    return obj


def set_path(obj, path, value):
    setattr(get_path(obj, path[:-1]), path[-1], value)


def another(value):
    """Another value of the same Python type."""
    if isinstance(value, bool):
        return not value
    if isinstance(value, int):
        return value + 1
    if isinstance(value, float):
        return value + 1.5
    if isinstance(value, datetime.date):
        return value + datetime.timedelta(days=1)
    if isinstance(value, str):
        return value + "x"
    if isinstance(value, list):
        return value + [7]
    raise AssertionError(f"no other value for {value!r}")


@pytest.fixture
def workdir(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    return tmp_path
