# Frame handling: strided views, out reuse and in place, the settings
# properties, border fill and correctors running on parallel threads.
import threading
import time

import numpy as np
import pytest

import parvex
from conftest import random_frame

W, H = 640, 480
FORMATS = ["NV12", "NV21", "I420", "RGB", "BGR"]
# A table lens that samples 1.3 times farther out than it draws: it leaves a border.
BORDER_TABLE = ((0.0, 1.0, 2.0), (0.0, 1.3, 2.6))


def padded(frame, spare=24):
    """The same picture in rows with spare bytes: a strided view."""
    wide = np.full((frame.shape[0], frame.shape[1] + spare) + frame.shape[2:], 7, np.uint8)
    wide[:, :frame.shape[1]] = frame
    return wide[:, :frame.shape[1]]


@pytest.mark.parametrize("fmt", FORMATS)
def test_views_out_and_in_place_give_the_same_frame(fmt):
    c = parvex.Corrector(W, H, fmt, k=(0.2, 0.05))
    frame = random_frame(c)
    expected = c.process(frame)
    assert np.array_equal(c.process(padded(frame)), expected)          # through the row pitch (I420: a copy)
    assert np.array_equal(c.process(np.asfortranarray(frame)), expected)  # copied
    out = padded(np.zeros_like(expected)) if fmt != "I420" else np.zeros_like(expected)
    assert c.process(frame, out=out) is out and np.array_equal(out, expected)
    view = padded(frame.copy()) if fmt != "I420" else frame.copy()
    assert c.process(view, out=view) is view and np.array_equal(view, expected)
    assert np.array_equal(frame, random_frame(c))                      # the input is left alone


def test_process_after_distort_is_a_correction_again():
    c = parvex.Corrector(W, H, "NV12", k=(0.2, 0.05))
    frame = random_frame(c)
    corrected = c.process(frame)
    distorted = c.distort(frame)
    assert not np.array_equal(distorted, corrected)
    assert np.array_equal(c.process(frame), corrected)


@pytest.mark.parametrize("name,value,fresh", [
    ("strength", 0.4, dict(strength=0.4)),
    ("zoom", 1.5, dict(zoom=1.5)),
    ("crop", (40, 30, 600, 450), dict(crop=(40, 30, 600, 450))),
])
def test_properties_equal_a_fresh_corrector(name, value, fresh):
    c = parvex.Corrector(W, H, "I420", k=(0.2, 0.05))
    frame = random_frame(c)
    setattr(c, name, value)
    assert getattr(c, name) == pytest.approx(value)
    assert np.array_equal(c.process(frame), parvex.Corrector(W, H, "I420", k=(0.2, 0.05), **fresh).process(frame))
    if name == "crop":
        c.crop = None
        assert c.crop == (0, 0, W, H)


def test_recommended_output_size_is_used():
    c = parvex.Corrector(W, H, "NV12", k=(-0.2,), output_size="recommended")
    w, h = c.output_size
    assert (w, h) == c.recommended_output_size and w % 2 == 0 and h % 2 == 0
    assert c.output_shape == (h * 3 // 2, w) and c.process(random_frame(c)).shape == c.output_shape
    assert c.engine_seconds > 0


@pytest.mark.parametrize("fmt,fill,expected", [
    ("RGB", (255, 0, 0), (255, 0, 0)),
    ("BGR", (255, 0, 0), (0, 0, 255)),
    ("NV12", "black", (16, 128)),
    ("NV12", None, (0, 0)),
])
def test_border_fill(fmt, fill, expected):
    c = parvex.Corrector(W, H, fmt, table=BORDER_TABLE, fill=fill)
    out = c.process(np.full(c.input_shape, 100, np.uint8))
    if fmt in ("RGB", "BGR"):
        corner, middle = tuple(out[0, 0]), tuple(out[H // 2, W // 2])
        assert middle == (100, 100, 100)
    else:
        corner, middle = (out[0, 0], out[H, 0]), out[H // 2, W // 2]
        assert middle == 100
    assert corner == expected


@pytest.mark.parametrize("fmt", ["NV12", "RGB"])
def test_parallel_threads_give_the_same_frames(fmt):
    frames = [random_frame((H * 3 // 2, W) if fmt == "NV12" else (H, W, 3), seed=s) for s in range(4)]
    reference = parvex.Corrector(W, H, fmt, k=(0.2, 0.05), zoom=1.2)
    expected = [reference.process(f) for f in frames]
    shared = parvex.Corrector(W, H, fmt, k=(0.2, 0.05), zoom=1.2, workers=2)
    failures = []

    def run(index):
        own = parvex.Corrector(W, H, fmt, k=(0.2, 0.05), zoom=1.2, workers=1 + index % 2)
        out = np.empty_like(expected[0])
        for round in range(6):
            k = (index + round) % len(frames)
            for c in (own, shared):
                if not np.array_equal(c.process(frames[k], out=out), expected[k]):
                    failures.append((index, round))
        own.close()

    threads = [threading.Thread(target=run, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert failures == []


def test_frame_calls_release_the_gil():
    # Python code on the main thread runs while another thread is inside a
    # frame call, which it could not if the call held the GIL.
    c = parvex.Corrector(1920, 1080, "BGR", k=(0.2, 0.05), workers=1)
    frame, out = np.zeros(c.input_shape, np.uint8), np.empty(c.output_shape, np.uint8)
    windows = []

    def run():
        for _ in range(6):
            start = time.perf_counter()
            c.process(frame, out=out)
            windows.append((start, time.perf_counter()))

    worker = threading.Thread(target=run)
    ticks = []
    worker.start()
    while worker.is_alive():
        ticks.append(time.perf_counter())
    worker.join()
    # The middle third of a call: a thread switch just before the call cannot
    # reach it (the switch interval is 5 ms, a call takes well over 15 ms).
    ticks = np.array(ticks)
    assert any(((ticks > s + (e - s) / 3) & (ticks < e - (e - s) / 3)).any() for s, e in windows)
