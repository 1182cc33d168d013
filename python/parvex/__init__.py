"""parvex: lens-distortion correction of numpy frames.

    import cv2, parvex
    image = cv2.imread("photo.jpg")                      # (h, w, 3) BGR
    with parvex.Corrector(image.shape[1], image.shape[0], "BGR", k=(0.2, 0.05)) as c:
        corrected = c.process(image)

    # From an OpenCV calibration (camera matrix and distortion coefficients):
    c = parvex.Corrector.from_calibration("camera.yaml", 1920, 1080, format="NV12")
    print(c.fit_max_px, c.fit_rms_px)                    # how well the engine's lens fits

Frames are uint8 arrays: NV12 / NV21 / I420 as (h * 3 // 2, w), as OpenCV lays
them out; RGB / BGR as (h, w, 3). See help(parvex.Corrector).
"""

import json
import os

from . import _parvex
from ._errors import CalibrationError, Error, FormatError, ParamError, StateError, WorkBufferError

__all__ = ["Corrector", "Error", "ParamError", "StateError", "FormatError", "WorkBufferError",
           "CalibrationError", "version", "FORMATS"]

#: The library's version text.
version: str = _parvex.version
__version__ = "1.0.0"
#: Format names the module takes (the engine's names are accepted too).
FORMATS = ("NV12", "NV21", "I420", "RGB", "BGR")


class Corrector(_parvex.Corrector):
    __doc__ = _parvex.Corrector.__doc__

    #: The library's version text (also parvex.version).
    version = _parvex.version
    #: Set by from_calibration: largest and RMS distance, in output pixels,
    #: between the calibration's lens and the engine's lens over the frame.
    fit_max_px = None
    fit_rms_px = None
    #: Set by from_calibration: {"source": ..., "notes": [...]}.
    calibration = None

    @classmethod
    def from_calibration(cls, source, width, height, format="NV12", *, kind="auto", form="best",
                         lens=None, focal_mm=None, crop_factor=None, **settings):
        """A corrector for the lens of a calibration.

        source     a calibration file (OpenCV YAML/XML from cv2.FileStorage, with
                   camera_matrix and distortion_coefficients; Android camera
                   metadata as JSON; a Lensfun XML database), or a dict of Android
                   metadata (e.g. {"android.lens.intrinsicCalibration": [...],
                   "android.lens.distortion": [...], ...}).
        width, height, format   the frames to correct (the calibration is scaled to them).
        kind       "auto" (from the content), "opencv", "opencv-fisheye", "android", "lensfun".
        form       "best" (whichever fits better), "k" (four coefficients) or "table".
        lens, focal_mm, crop_factor   Lensfun: the lens model, its focal length and
                   the crop factor of the camera that took the frames.
        settings   any other Corrector argument (output_size, strength, zoom, crop, ...).

        The result has fit_max_px and fit_rms_px: how far, in output pixels,
        the engine's lens lands from the calibration's over the frame; and
        calibration = {"source", "notes", "fill_scale"} (an output pixel at
        distance d from the centre shows what a camera with focal lengths
        fx / fill_scale, fy / fill_scale would see: pass that camera matrix as
        newCameraMatrix to cv2.undistort to compare).
        """
        common = dict(kind=kind, form=form, lens=lens or "", focal_mm=float(focal_mm or 0.0),
                      crop_factor=float(crop_factor or 0.0))
        if isinstance(source, dict):
            found = _parvex.load_calibration(json.dumps(source), True, "<dict>", width, height, **common)
        else:
            path = os.fspath(source)
            if not os.path.isfile(path):
                raise FileNotFoundError(f"calibration file not found: {path}")
            found = _parvex.load_calibration(path, False, path, width, height, **common)
        for name in ("k", "table", "center"):
            if name in settings:
                raise ParamError("the calibration gives the lens and its centre", 0x80000001,
                                 "PARVEX_ERROR_PARAM", "from_calibration", name)
        lens_args = {"k": found["k"]} if "k" in found else {"table": found["table"]}
        corrector = cls(width, height, format, center=found.get("center"), **lens_args, **settings)
        corrector.fit_max_px = found["fit_max_px"]
        corrector.fit_rms_px = found["fit_rms_px"]
        corrector.calibration = {key: found[key] for key in ("source", "notes", "fill_scale")}
        return corrector

    def __enter__(self):
        """The corrector itself; leaving the block closes it."""
        return self

    def __exit__(self, *exc_info):
        """Closes the corrector (exceptions pass on)."""
        self.close()
        return False

    def __repr__(self):
        state = "closed" if self.closed else "open"
        w, h = self.output_size
        return (f"<parvex.Corrector {self.width}x{self.height} {self.format} -> {w}x{h}, "
                f"{'table' if self.table else 'k=' + str(self.k)}, {state}>")
