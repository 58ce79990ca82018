"""The Python module's whole-object conversions, timed on the workloads of
bench_messages.cpp: the round trip from_dict -> to_msg -> load -> to_dict
and each of its steps, per call and per field.

    PYTHONPATH=build/python /usr/bin/python3 bench/bench_python.py [--seconds 0.5]

The objects are filled as the C++ benchmark fills them (every value set,
three elements in each value array, two elements in each repeated block down
to two levels and one below, the workload's own array longer); a field here
is one value, an element of a value array counting as one.
"""

import argparse
import datetime
import timeit

import pricemsg

# name, class, the tag of the array that gets more elements and how many,
# elements of the other arrays down to two levels
WORKLOADS = [
    ("W1_KytRateCurveB", "M_KytRateCurveB", 4711, 500, 2),
    ("W2_EqCmb", "M_EqCmb", 4938, 8, 2),
    ("W3_IrNoteFlterHwMc", "M_IrNoteFlterHwMc", 0, 0, 3),
    ("W4_SysReject", "M_SysReject", 0, 0, 2),
]


class Sampler:
    def __init__(self, tag, tag_elements, elements, wide_depth=2):
        self.tag, self.tag_elements = tag, tag_elements
        self.elements, self.wide_depth = elements, wide_depth
        self.r = 1
        self.values = 0

    def next(self):
        self.r = (self.r * 1103515245 + 12345) % 2**31
        return self.r

    def build(self, cls, depth=0):
        out = {}
        for f in cls.fields():
            r = self.next()
            if f.kind == "message":
                out[f.name] = self.build(f.held, depth + 1)
                continue
            if f.kind == "repeated message":
                n = (self.tag_elements if f.tag == self.tag
                     else self.elements if depth < self.wide_depth else 1)
                out[f.name] = [self.build(f.held, depth + 1) for _ in range(n)]
                continue
            self.values += 3 if "array" in f.kind else 1
            out[f.name] = {
                "int": r % 100000 - 50000,
                "double": r / 64.0 - 100.0,
                "bool": r % 2 == 0,
                "date": datetime.date(2000 + r % 60, 1 + r % 12, 1 + r % 28),
                "string": f"{f.name}#{r}",
                "int array": [r % 60000 - 30000] * 3,
                "double array": [r / 64.0] * 3,
            }[f.kind]
        return out


def measure(fn, seconds):
    number = 1
    while timeit.timeit(fn, number=number) < seconds / 5:
        number *= 2
    return min(timeit.repeat(fn, number=number, repeat=5)) / number


def main():
    ap = argparse.ArgumentParser(description="time the Python module's conversions")
    ap.add_argument("--seconds", type=float, default=0.5, help="roughly, per measurement")
    args = ap.parse_args()
    print(f"{'workload':<20} {'fields':>6} {'step':<10} {'us/call':>9} {'ns/field':>9}")
    for name, cls_name, tag, tag_elements, elements in WORKLOADS:
        cls = getattr(pricemsg, cls_name)
        sampler = Sampler(tag, tag_elements, elements)
        fields = sampler.build(cls)
        obj = cls.from_dict(fields)
        msg = obj.to_msg()
        back = cls()
        back.load(msg)
        assert back == obj and back.to_dict() == fields

        def round_trip():
            o = cls.from_dict(fields)
            m = o.to_msg()
            b = cls()
            b.load(m)
            return b.to_dict()

        steps = [("round trip", round_trip), ("from_dict", lambda: cls.from_dict(fields)),
                 ("to_msg", obj.to_msg), ("load", lambda: back.load(msg)),
                 ("to_dict", obj.to_dict), ("to_json", obj.to_json)]
        for step, fn in steps:
            t = measure(fn, args.seconds)
            print(f"{name:<20} {sampler.values:>6} {step:<10} {t * 1e6:>9.1f} "
                  f"{t * 1e9 / sampler.values:>9.0f}")


if __name__ == "__main__":
    main()
