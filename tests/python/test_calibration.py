# Calibration round trip: a corrector built from an OpenCV calibration file
# draws a synthetic dot chart where cv2.undistort draws it.
import cv2
import numpy as np
import pytest

import parvex

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


def dot_chart(spacing=24, sigma=2.2):
    ys, xs = np.mgrid[0:H, 0:W].astype(np.float32)
    chart = np.zeros((H, W), np.float32)
    for cy in np.arange(spacing / 2, H, spacing):
        for cx in np.arange(spacing / 2, W, spacing):
            chart += np.exp(-((xs - cx) ** 2 + (ys - cy) ** 2) / (2 * sigma**2))
    grey = np.clip(chart * 255, 0, 255).astype(np.uint8)
    return cv2.cvtColor(grey, cv2.COLOR_GRAY2BGR)


def dot_centres(image, margin=12):
    grey = cv2.cvtColor(image, cv2.COLOR_BGR2GRAY)
    count, labels, stats, _ = cv2.connectedComponentsWithStats((grey > 60).astype(np.uint8))
    centres = []
    for i in range(1, count):
        x, y, w, h, area = stats[i]
        if area < 6 or x < margin or y < margin or x + w > W - margin or y + h > H - margin:
            continue
        weights = grey[y:y + h, x:x + w].astype(np.float64) * (labels[y:y + h, x:x + w] == i)
        gy, gx = np.mgrid[y:y + h, x:x + w]
        centres.append(((weights * gx).sum() / weights.sum(), (weights * gy).sum() / weights.sum()))
    return np.array(centres)


@pytest.mark.parametrize("form", ["best", "k"])
@pytest.mark.parametrize("name", CASES)
def test_opencv_calibration_matches_cv2_undistort(tmp_path, name, form):
    path = tmp_path / "camera.yaml"
    write_calibration(path, CASES[name])
    corrector = parvex.Corrector.from_calibration(path, W, H, "BGR", form=form, fill=None)
    assert corrector.calibration["source"] == "OpenCV"
    assert (corrector.k is not None) == (form == "k")
    assert 0 <= corrector.fit_rms_px <= corrector.fit_max_px < 1.5

    chart = dot_chart()
    scale = corrector.calibration["fill_scale"]
    new_camera = CAMERA.copy()
    new_camera[0, 0] /= scale
    new_camera[1, 1] /= scale
    expected = dot_centres(cv2.undistort(chart, CAMERA, np.array(CASES[name]), newCameraMatrix=new_camera))
    got = dot_centres(corrector.process(chart))
    assert len(expected) > 100 and abs(len(got) - len(expected)) < 0.1 * len(expected)
    distance = np.linalg.norm(got[:, None, :] - expected[None, :, :], axis=2).min(axis=1)
    assert np.median(distance) < 0.15
    assert distance.max() < corrector.fit_max_px + 0.5


def test_android_metadata_dict_gives_the_same_lens(tmp_path):
    path = tmp_path / "camera.yaml"
    k1, k2, p1, p2, k3 = CASES["barrel"]
    write_calibration(path, CASES["barrel"])
    metadata = {
        "android.lens.intrinsicCalibration": [CAMERA[0, 0], CAMERA[1, 1], CAMERA[0, 2], CAMERA[1, 2], 0.0],
        "android.lens.distortion": [k1, k2, k3, p1, p2],
        "android.sensor.info.preCorrectionActiveArraySize": [0, 0, W, H],
    }
    chart = dot_chart()
    from_android = parvex.Corrector.from_calibration(metadata, W, H, "BGR")
    assert from_android.calibration["source"] == "Android"
    assert np.array_equal(from_android.process(chart), parvex.Corrector.from_calibration(path, W, H, "BGR").process(chart))


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
