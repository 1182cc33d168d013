# Correctors built from calibrations: an OpenCV file gives the tool's frames,
# Android metadata the same lens as the matching OpenCV file, and a Lensfun
# entry is found by lens and focal length.
import cv2
import numpy as np
import pytest

import parvex
from conftest import random_frame, run_tool

W, H = 640, 480
CAMERA = np.array([[560.0, 0, 324.0], [0, 560.0, 236.0], [0, 0, 1]])
CASES = {  # distortion coefficients k1 k2 p1 p2 k3
    "barrel": [-0.30, 0.10, 0.0, 0.0, -0.015],
    "pincushion": [0.12, 0.02, 0.0, 0.0, 0.0],
}


def write_calibration(path, dist):
    fs = cv2.FileStorage(str(path), cv2.FILE_STORAGE_WRITE)
    fs.write("image_width", W)
    fs.write("image_height", H)
    fs.write("camera_matrix", CAMERA)
    fs.write("distortion_coefficients", np.array(dist, np.float64).reshape(1, -1))
    fs.release()


# The tool's --calibration path is checked against OpenCV's undistortion in
# the calibration tests; the module must give the same frames through it.
@pytest.mark.parametrize("form,tool_form", [("best", "best"), ("k", "coefficients")])
@pytest.mark.parametrize("name", CASES)
def test_opencv_calibration_equals_the_tool(tool, tmp_path, name, form, tool_form):
    path = tmp_path / "camera.yaml"
    write_calibration(path, CASES[name])
    corrector = parvex.Corrector.from_calibration(path, W, H, "BGR", form=form, fill=None)
    assert corrector.calibration["source"] == "OpenCV"
    assert (corrector.k is not None) == (form == "k")
    assert 0 <= corrector.fit_rms_px <= corrector.fit_max_px < 1.5
    frame = random_frame(corrector)
    expected = run_tool(tool, tmp_path, "correct", "BGR",
                        ["--calibration", str(path), "--form", tool_form, "--fill", "none"], frame, None)
    assert np.array_equal(corrector.process(frame), expected)


def test_android_metadata_dict_gives_the_same_lens(tmp_path):
    path = tmp_path / "camera.yaml"
    k1, k2, p1, p2, k3 = CASES["barrel"]
    write_calibration(path, CASES["barrel"])
    metadata = {
        "android.lens.intrinsicCalibration": [CAMERA[0, 0], CAMERA[1, 1], CAMERA[0, 2], CAMERA[1, 2], 0.0],
        "android.lens.distortion": [k1, k2, k3, p1, p2],
        "android.sensor.info.preCorrectionActiveArraySize": [0, 0, W, H],
    }
    frame = random_frame((H, W, 3))
    from_android = parvex.Corrector.from_calibration(metadata, W, H, "BGR")
    assert from_android.calibration["source"] == "Android"
    assert np.array_equal(from_android.process(frame), parvex.Corrector.from_calibration(path, W, H, "BGR").process(frame))


def test_lensfun_entry_by_lens_and_focal_length(tmp_path):
    path = tmp_path / "lenses.xml"
    path.write_text("""<lensdatabase><lens><maker>Acme</maker><model>Zoom 18-55mm</model><mount>A</mount>
        <cropfactor>1.5</cropfactor><calibration><distortion model="poly3" focal="24" k1="-0.02"/>
        </calibration></lens></lensdatabase>""")
    c = parvex.Corrector.from_calibration(path, 960, 640, "NV12", lens="Acme Zoom 18-55mm", focal_mm=24)
    assert c.calibration["source"] == "Lensfun" and c.fit_max_px < 1.0
    assert c.center == pytest.approx((480, 320), abs=0.5)  # the middle of the frame
    with pytest.raises(parvex.CalibrationError, match="(?i)lens"):
        parvex.Corrector.from_calibration(path, 960, 640, lens="Other 50mm", focal_mm=50)
