#!/usr/bin/env python3
"""Writes the hand-made seeds of api_fuzz into tests/fuzz/corpus/api/: call
sequences that reach each known hazard of the engine (found by review or by
fuzzing).
The bytes follow api_fuzz.cpp's decoding (FuzzedDataProvider takes integers
from the end of the input, most significant byte first), so this file and
the decoder change together. Run: python3 tests/fuzz/make_seeds.py"""
import os

class Seq:
    def __init__(self):
        self.consumed = []
        self.planes = 0

    def int(self, v, lo, hi, bits=32):
        rng, n = hi - lo, 0
        while n * 8 < bits and (rng >> (8 * n)) > 0:
            n += 1
        r = v - lo
        assert 0 <= r <= rng
        self.consumed += [(r >> (8 * (n - 1 - i))) & 0xFF for i in range(n)]
        return self

    def bool(self, b): return self.int(1 if b else 0, 0, 255, 8)
    def byte(self, b): return self.int(b, 0, 255, 8)
    def prob(self, p): return self.int(int(p * (2**64 - 1)), 0, 2**64 - 1, 64)
    def pick(self, i, n): return self.int(i, 0, n - 1, 64)

    # One of api_fuzz's listed doubles (index into kValues of hostileDouble).
    def dbl(self, index): return self.int(0, 0, 3).pick(index, 18)

    def bytes(self): return bytes(reversed(self.consumed))

    # ---- steps ----
    def step(self, n): return self.int(n, 0, 12)

    def init(self, fmt=3, w=320, h=240, mode=0, coef=None, num=None, buffer=None, align=0):
        """fmt: index into kFormats; coef: list of hostileDouble indices (None: zero);
        num: table points (monotone); buffer: (kind, value) or None for the asked size."""
        self.planes = [1, 1, 3, 2, 2, 3, 0, 0, 0][fmt]
        self.step(0).pick(fmt, 9).int(1, 0, 7).int(w, 320, 700).int(h, 240, 500)
        self.int(1, 0, 9).int(mode, 0, 1)
        if mode == 1:
            if num <= 12:
                self.int(1, 0, 5).int(num, 0, 12)
            else:
                self.int(0, 0, 5).bool(False).int(num, -2, 300)
            self.bool(True)
            for _ in range(num):
                self.prob(0.5)
        else:
            for i in range(4):
                if coef is None or coef[i] is None:
                    self.bool(True)
                else:
                    self.bool(False).dbl(coef[i]).bool(False)
        if buffer is None:
            self.int(7, 0, 7)
        else:
            kind, value = buffer
            self.int(kind, 0, 7)
            if kind == 0:
                self.int(value, 0, 859552 + 4096, 64)
            elif kind == 1:
                self.int(value - 859552, 0, 1 << 23, 64)
            else:
                self.int(value, 1, 100000, 32)
        return self.pick(align, 8)   # 0..4: 16, 5: 8, 6: 4, 7: 1

    def start(self): return self.step(2)
    def finalize(self, failing=False):
        if not failing:
            self.planes = 0   # frames on a finalized handle read nothing
        return self.step(1)
    def output(self, w, h): return self.step(3).bool(True).int(w, 1, 900).bool(True).int(h, 1, 700)
    def output_hostile(self, wi, hi): return self.step(3).bool(False).bool(True).pick(wi, 18).bool(False).bool(True).pick(hi, 18)
    def zoom(self, z): return self.step(5).bool(True).prob((z - 1.0) / 3.0)
    def zoom_listed(self, index): return self.step(5).bool(False).dbl(index)
    def strength_listed(self, index): return self.step(7).bool(False).dbl(index)
    def centre_listed(self, x, y): return self.step(4).dbl(x).dbl(y)
    def processors(self, i): return self.step(9).pick(i, 9)   # 0,1,2,3,16,17,18,64,256
    def fault(self, n): return self.step(10).int(n, 0, 12)

    def frame(self, kind=0, in_place=False, pitch_cases=None, equal_sizes=True):
        """kind: 0 process, 1 processEx, 2 distort, 3 distortEx."""
        ex = kind in (1, 3)
        if not self.planes:
            return self.step(11)
        self.step(11).int(kind, 0, 3).int(1, 0, 6)
        if equal_sizes:
            self.int(0 if in_place else 1, 0, 3)
        for _ in range(1 if in_place else 2):
            self.byte(0x5A)
            for p in range(self.planes):
                if ex:
                    case = pitch_cases[p] if pitch_cases else 0
                    self.int(case, 0, 5)
                    if case == 1:
                        self.int(13, 1, 64)
                self.int(1, 0, 40)
        return self


NAN, INF, BIG = 10, 11, 7   # indices of NaN, infinity and 1e300 in hostileDouble's list

def seeds():
    s = {}
    s['process_nv12'] = Seq().init().start().frame().finalize()
    s['zoom_and_in_place'] = Seq().init(fmt=2, w=321, h=241).start().zoom(1.5).frame().frame(in_place=True).frame(kind=1, pitch_cases=[1, 1, 1]).finalize()
    s['zoom_with_other_output_size'] = Seq().init(fmt=0, w=640, h=360).output(480, 270).start().zoom(1.5).frame(equal_sizes=False).finalize()
    s['many_processors'] = Seq().processors(8).init().start().frame().frame(kind=2).finalize().processors(6).init().start().frame().finalize()
    s['refused_format_then_start'] = Seq().init(fmt=5).start().frame().finalize()
    s['table_of_300_points'] = Seq().init(mode=1, num=300).start().frame().finalize()
    s['repeated_start_then_finalize'] = Seq().init().start().zoom(2.0).frame().start().frame(in_place=True).finalize(failing=True).frame().start().finalize()
    s['nan_settings'] = Seq().init().strength_listed(NAN).centre_listed(NAN, INF).start().zoom_listed(NAN).zoom_listed(INF).frame().finalize()
    s['short_buffer'] = Seq().init(buffer=(1, 859552 + 40000)).start().frame().zoom(1.5).frame().finalize()
    s['heap_fault_in_start_and_zoom'] = Seq().init().fault(3).start().start().zoom(1.3).fault(1).frame().finalize()
    s['bgr_zoom'] = Seq().init(fmt=1).start().zoom(1.7).frame().frame(kind=3).finalize()
    s['huge_output'] = Seq().init().output_hostile(14, 14).start().frame(equal_sizes=False).finalize()
    s['hostile_coefficients'] = Seq().init(coef=[BIG, NAN, INF, 12]).start().frame(kind=2).frame().finalize()
    s['misaligned_buffer'] = Seq().init(align=5).start().init(align=7).finalize()
    return s


if __name__ == '__main__':
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'corpus', 'api')
    os.makedirs(out, exist_ok=True)
    for name, seq in seeds().items():
        with open(os.path.join(out, name), 'wb') as f:
            f.write(seq.bytes())
