#!/usr/bin/python3
"""parvex.Corrector.process against cv2.remap, one thread each, same frames.

OpenCV gets what its users build for this job: fixed-point maps (CV_16SC2,
from cv2.initUndistortRectifyMap + cv2.convertMaps) prepared once, bilinear
remap per frame; NV12 as OpenCV users do it, the Y plane with the full map and
the interleaved UV plane (a 2-channel half-size image) with a half-size map.
The lens is the same barrel lens for both (parvex k1 = 0.2, k2 = 0.05; OpenCV
the matching radial terms), so both warp the whole frame.

Samples alternate (parvex, remap, parvex, ...) and the medians are compared.
The binding's own cost per frame is the wall time of process() minus the time
spent inside the library's frame call (Corrector.engine_seconds).

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_remap_bench.py [--frames N]
"""
import argparse
import statistics
import time

import cv2
import numpy as np

import parvex

W, H = 1920, 1080
K_PARVEX = (0.2, 0.05)


def opencv_maps(width, height):
    """Fixed-point maps of a barrel correction centred on the frame."""
    f = 0.5 * np.hypot(width, height)  # parvex normalises radii by half the diagonal
    camera = np.array([[f, 0, width / 2], [0, f, height / 2], [0, 0, 1]], np.float64)
    dist = np.array([-0.2, 0.05, 0, 0, 0], np.float64)
    m1, m2 = cv2.initUndistortRectifyMap(camera, dist, None, camera, (width, height), cv2.CV_32FC1)
    return cv2.convertMaps(m1, m2, cv2.CV_16SC2)


def remap_bgr(maps, frame, out):
    cv2.remap(frame, maps[0], maps[1], cv2.INTER_LINEAR, dst=out)


def remap_nv12(maps, frame, out):
    (y1, y2), (c1, c2) = maps
    cv2.remap(frame[:H], y1, y2, cv2.INTER_LINEAR, dst=out[:H])
    uv_in = frame[H:].reshape(H // 2, W // 2, 2)
    uv_out = out[H:].reshape(H // 2, W // 2, 2)
    cv2.remap(uv_in, c1, c2, cv2.INTER_LINEAR, dst=uv_out)


def run(fmt, frames):
    corrector = parvex.Corrector(W, H, fmt, k=K_PARVEX, workers=1)
    frame = np.random.default_rng(1).integers(0, 256, corrector.input_shape, dtype=np.uint8)
    frame = cv2.GaussianBlur(frame, (5, 5), 0)
    out_p, out_cv = np.empty_like(frame), np.empty_like(frame)
    if fmt == "BGR":
        maps, remap = opencv_maps(W, H), remap_bgr
    else:
        maps, remap = (opencv_maps(W, H), opencv_maps(W // 2, H // 2)), remap_nv12
    corrector.process(frame, out=out_p)  # warm-up: border probe, first-touch of pages
    remap(maps, frame, out_cv)
    t_p, t_cv, overhead = [], [], []
    for _ in range(frames):
        engine0 = corrector.engine_seconds
        t0 = time.perf_counter()
        corrector.process(frame, out=out_p)
        t1 = time.perf_counter()
        remap(maps, frame, out_cv)
        t2 = time.perf_counter()
        engine = corrector.engine_seconds - engine0
        t_p.append(t1 - t0)
        t_cv.append(t2 - t1)
        overhead.append((t1 - t0 - engine) / engine)
    p, cv = statistics.median(t_p), statistics.median(t_cv)
    print(f"{fmt:5s} {W}x{H}  parvex {p * 1e3:7.2f} ms   cv2.remap {cv * 1e3:7.2f} ms   "
          f"ratio {p / cv:5.2f}   binding overhead {statistics.median(overhead) * 100:5.2f} % per frame")
    return p / cv, statistics.median(overhead)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--frames", type=int, default=40, help="samples per side (default 40)")
    args = parser.parse_args()
    cv2.setNumThreads(1)
    print(f"{parvex.version}; OpenCV {cv2.__version__}; one thread each; ratio < 1: parvex is faster")
    worst = max(run(fmt, args.frames)[1] for fmt in ("NV12", "BGR"))
    if worst >= 0.03:
        print(f"binding overhead {worst * 100:.2f} % is above 3 %")
        raise SystemExit(1)


if __name__ == "__main__":
    main()
