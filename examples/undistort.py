#!/usr/bin/python3
"""Corrects a photo with the lens of an OpenCV calibration file and shows the
photo and the corrected picture side by side.

    /usr/bin/python3 examples/undistort.py camera.yaml photo.jpg [--save before_after.png]

camera.yaml is what cv2.FileStorage writes after cv2.calibrateCamera: a
camera_matrix (3x3) and distortion_coefficients (k1 k2 p1 p2 [k3 ...]), for
the size in image_width / image_height (the photo may have another size of the
same shape; the calibration is scaled to it). Nothing is calibrated here.
"""
import argparse
import sys

import cv2
import numpy as np

import parvex


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("calibration", help="OpenCV calibration file (YAML or XML)")
    parser.add_argument("photo", help="picture to correct (anything cv2.imread reads)")
    parser.add_argument("--save", metavar="PNG", help="write the side-by-side picture instead of showing it")
    args = parser.parse_args()

    photo = cv2.imread(args.photo)  # (h, w, 3) BGR: goes straight in as "BGR"
    if photo is None:
        sys.exit(f"cannot read {args.photo}")
    height, width = photo.shape[:2]
    with parvex.Corrector.from_calibration(args.calibration, width, height, "BGR") as corrector:
        corrected = corrector.process(photo)
        print(f"{corrector.calibration['source']} lens as "
              f"{'k=' + str(corrector.k) if corrector.k else 'a table of radii'}; "
              f"fit error {corrector.fit_max_px:.2f} px max, {corrector.fit_rms_px:.2f} px RMS")
        for note in corrector.calibration["notes"]:
            print("  " + note)

    side_by_side = np.hstack([photo, corrected])
    for x, label in ((10, "photo"), (width + 10, "parvex")):
        cv2.putText(side_by_side, label, (x, 40), cv2.FONT_HERSHEY_SIMPLEX, 1.2, (0, 255, 255), 2)
    if args.save:
        cv2.imwrite(args.save, side_by_side)
        print(f"wrote {args.save}")
        return
    scale = min(1.0, 1600 / side_by_side.shape[1])
    cv2.imshow("photo | parvex", cv2.resize(side_by_side, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA))
    cv2.waitKey(0)


if __name__ == "__main__":
    main()
