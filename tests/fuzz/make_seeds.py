#!/usr/bin/env python3
"""Writes the seeds that describe 30 bodies into tests/fuzz/corpus (named by their SHA-1, as
libFuzzer names corpus files). Each is a byte string in the fuzz driver's input format
(fuzz_driver.cpp: ByteReader, ChooseGeometry, AddBody, Driver::Run and the calls it makes);
the output is the same on every run. Mutations of these reach inputs of 30 bodies over several
re-initialisations and tracking frames, which random growth from small seeds does not."""
import hashlib
import os
import random
import struct

CREATE, START, RESET, DESTROY, REINIT, TRACK, WILD, NULLF, GEOMETRY, EDIT = 0, 1, 2, 3, 4, 6, 8, 9, 10, 11


class Seed:
    def __init__(self, rng):
        self.b = bytearray()
        self.rng = rng
        self.scene = 0

    def u8(self, v):
        self.b.append(v & 0xFF)

    def bits(self, v, n):
        self.b += struct.pack("<I", v & 0xFFFFFFFF)[:n]

    def within(self, lo, hi, value):
        """Encodes value for ByteReader::In(lo, hi)."""
        span = hi - lo + 1
        v = value - lo
        if span > 65536:
            self.bits(v, 4)
        elif span > 256:
            self.bits(v, 2)
        else:
            self.u8(v)

    def body(self, W, H, cls):
        r = self.rng
        w, h = r.randint(W // 10, W // 4), r.randint(H // 6, H // 3)
        self.within(1, W, w)
        self.within(1, H, h)
        self.within(-(W // 4), W, r.randint(0, W - w))
        self.within(-(H // 4), H, r.randint(0, H - h))
        self.within(-8, 8, r.randint(-3, 3))
        self.within(-8, 8, r.randint(-3, 3))
        self.bits(r.getrandbits(32), 4)  # texture seed
        self.within(0, 3, cls)
        self.bits(r.getrandbits(32), 4)  # extra
        self.scene += 1

    def op(self, slot, kind):
        self.u8(slot)
        self.u8(kind)

    def frame(self, slot, first):
        self.op(slot, REINIT if first else TRACK)
        for _ in range(self.scene):
            self.within(-2, 2, self.rng.randint(-2, 2))  # jitter
            self.within(-1, 31, self.rng.randint(-1, 31))  # the identity the body comes with


def scene_of_30(rng, geometry, W, H, classes, switches, script):
    """Geometry, 4 bodies at the start and 26 added, a handle, then the frame script."""
    s = Seed(rng)
    s.b += geometry
    s.bits(rng.getrandbits(32), 4)  # background
    s.within(0, 4, 4)
    for i in range(4):
        s.body(W, H, classes(i))
    for i in range(4, 30):
        s.op(0, EDIT)
        s.u8(0)  # add a body
        s.body(W, H, classes(i))
    s.op(0, CREATE)
    s.u8(1)
    s.u8(switches)
    s.op(0, START)
    for step in script:
        if step == "R":
            s.frame(0, True)
        elif step == "T":
            s.frame(0, False)
        elif step == "reset":
            s.op(0, RESET)
        elif step == "push":  # a body to an edge of the frame
            s.op(0, EDIT)
            s.u8(3)
            s.within(0, s.scene - 1, rng.randrange(s.scene))
            s.u8(rng.randrange(7))  # 7 would set it racing and read two more bytes
        elif step == "extra":  # a 31st body, refused on re-initialisation
            s.op(0, EDIT)
            s.u8(0)
            s.body(W, H, 0)
        elif step == "drop":
            s.op(0, EDIT)
            s.u8(2)
            s.within(0, s.scene - 1, 0)
            s.scene -= 1
    return bytes(s.b)


def ordinary(width, height, pad):
    """ChooseGeometry's ordinary case: width 2..256, height 2..192, stride width + 0..24."""
    return bytes([0, (width - 2) % 255, (height - 2) % 191, pad])


def small(width, height, stride):
    """ChooseGeometry's small-numbers case (13): width -3..40, height -3..40, stride -3..48."""
    return bytes([13, width + 3, height + 3, stride + 3])


def main():
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
    seeds = [
        # One class, re-initialise and track twice, re-initialise again (identities carried).
        scene_of_30(random.Random(1), ordinary(200, 150, 8), 200, 150, lambda i: 1, 0, "RTTRT"),
        # Four classes, debug log and dump on, bodies pushed to the edges between frames.
        scene_of_30(random.Random(2), ordinary(200, 150, 0), 200, 150, lambda i: i % 4, 3,
                    ["R", "T", "push", "push", "T", "R", "T"]),
        # A 31st body is refused, one body leaves, a reset, then 29 bodies re-initialised.
        scene_of_30(random.Random(3), ordinary(160, 120, 16), 160, 120, lambda i: i % 2, 0,
                    ["R", "T", "extra", "R", "drop", "drop", "reset", "R", "T", "T"]),
        # A stride below the width: boxes bounded by the width, tracking by the stride.
        scene_of_30(random.Random(4), small(40, 40, 30), 40, 40, lambda i: 1, 0, "RTRTT"),
    ]
    for data in seeds:
        name = hashlib.sha1(data).hexdigest()
        with open(os.path.join(out, name), "wb") as f:
            f.write(data)
        print(name, len(data))


if __name__ == "__main__":
    main()
