#!/usr/bin/python3
"""parvexcorrect against OpenCV's cameraundistort (gstreamer1.0-opencv) in one run.

Both elements correct the same 1920x1080 test-card frames from the same OpenCV
calibration (written here with cv2.FileStorage: the file for parvexcorrect's
`calibration`, its text for cameraundistort's `settings`). Pipelines end in
fakesink sync=false; each is run `--rounds` times, alternating, and the best
frames per second are printed. The source alone is timed too, so that the
cost per frame of each element can be told apart from videotestsrc's.

RGB: both elements take RGB. NV12: cameraundistort needs videoconvert to RGB
and back; parvexcorrect corrects NV12 as it is.

Usage: GST_PLUGIN_PATH=build/release/gst /usr/bin/python3 bench/gst_undistort_compare.py [--frames N] [--rounds R]
Needs python3-gi, gir1.2-gstreamer-1.0, gstreamer1.0-opencv, python3-opencv.
"""
import argparse
import os
import sys
import tempfile
import time

import cv2
import numpy as np
import gi

gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

WIDTH, HEIGHT = 1920, 1080


def write_calibration(directory):
    """A barrel lens (k1 -0.25, k2 0.08, k3 -0.01; no tangential terms)."""
    path = os.path.join(directory, "camera.yml")
    fs = cv2.FileStorage(path, cv2.FILE_STORAGE_WRITE)
    fs.write("image_width", WIDTH)
    fs.write("image_height", HEIGHT)
    fs.write("cameraMatrix", np.array([[1400.0, 0, 960.0], [0, 1400.0, 540.0], [0, 0, 1]]))
    fs.write("distCoeffs", np.array([[-0.25, 0.08, 0, 0, -0.01]]))
    fs.release()
    with open(path) as f:
        return path, f.read()


def source(fmt, frames):
    return (f"videotestsrc num-buffers={frames} pattern=smpte ! "
            f"video/x-raw,format={fmt},width={WIDTH},height={HEIGHT},framerate=30/1")


def run(description, settings, sink="fakesink sync=false"):
    """Plays the pipeline to EOS; returns the wall and the CPU time (all
    threads of this process) in seconds."""
    pipeline = Gst.parse_launch(f"{description} ! {sink}")
    undistort = pipeline.get_by_name("cu")
    if undistort is not None:
        undistort.set_property("settings", settings)
    bus = pipeline.get_bus()
    start, cpu = time.perf_counter(), time.process_time()
    pipeline.set_state(Gst.State.PLAYING)
    msg = bus.timed_pop_filtered(Gst.CLOCK_TIME_NONE, Gst.MessageType.EOS | Gst.MessageType.ERROR)
    elapsed, cpu = time.perf_counter() - start, time.process_time() - cpu
    pipeline.set_state(Gst.State.NULL)
    if msg.type == Gst.MessageType.ERROR:
        err, debug = msg.parse_error()
        sys.exit(f"{description}: {err.message} ({debug})")
    return elapsed, cpu


def first_frame(description, settings, directory, name):
    path = os.path.join(directory, name)
    run(description, settings, f"filesink location={path}")
    with open(path, "rb") as f:
        return f.read()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--frames", type=int, default=200)
    parser.add_argument("--rounds", type=int, default=2)
    args = parser.parse_args()
    Gst.init(None)
    for element in ("cameraundistort", "parvexcorrect", "videoconvert"):
        if Gst.ElementFactory.find(element) is None:
            sys.exit(f"no element {element} (GST_PLUGIN_PATH for parvexcorrect; gstreamer1.0-opencv for cameraundistort)")

    with tempfile.TemporaryDirectory() as directory:
        calibration, settings = write_calibration(directory)
        cu = "cameraundistort name=cu"
        pc = f"parvexcorrect calibration={calibration}"
        to_rgb, to_nv12 = "videoconvert ! video/x-raw,format=RGB", "videoconvert ! video/x-raw,format=NV12"
        cases = [
            ("RGB", "source alone", lambda n: source("RGB", n)),
            ("RGB", "cameraundistort", lambda n: f"{source('RGB', n)} ! {cu}"),
            ("RGB", "parvexcorrect", lambda n: f"{source('RGB', n)} ! {pc}"),
            ("NV12", "source alone", lambda n: source("NV12", n)),
            ("NV12", "videoconvert, cameraundistort, videoconvert",
             lambda n: f"{source('NV12', n)} ! {to_rgb} ! {cu} ! {to_nv12}"),
            ("NV12", "parvexcorrect", lambda n: f"{source('NV12', n)} ! {pc}"),
        ]
        # Both must change the picture, or the settings were not understood.
        # (Their pictures differ in scale: each fills the frame its own way.)
        plain = first_frame(source("RGB", 1), settings, directory, "plain.rgb")
        outputs = [first_frame(make(1), settings, directory, "out.rgb") for _, _, make in cases[1:3]]
        for (_, name, _), out in zip(cases[1:3], outputs):
            if out == plain:
                sys.exit(f"{name} left the frame unchanged")

        best, cpu_ms = {}, {}
        for _ in range(args.rounds):
            for fmt, name, make in cases:
                wall, cpu = run(make(args.frames), settings)
                best[fmt, name] = max(best.get((fmt, name), 0.0), args.frames / wall)
                cpu_ms[fmt, name] = min(cpu_ms.get((fmt, name), float("inf")), 1000 * cpu / args.frames)
        print(f"{WIDTH}x{HEIGHT}, {args.frames} frames, best of {args.rounds} rounds, {os.cpu_count()} CPUs")
        print("  (CPU: milliseconds of processor time per frame, all threads, the source's included)")
        for fmt, name, _ in cases:
            fps, cpu = best[fmt, name], cpu_ms[fmt, name]
            extra = "" if name == "source alone" else f"  (+{cpu - cpu_ms[fmt, 'source alone']:6.2f} over the source)"
            print(f"  {fmt:4s} {name:45s} {fps:7.1f} fps  CPU {cpu:6.2f} ms/frame{extra}")


if __name__ == "__main__":
    main()
