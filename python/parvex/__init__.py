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

from . import _parvex
from ._errors import Error, FormatError, ParamError, StateError, WorkBufferError

__all__ = ["Corrector", "Error", "ParamError", "StateError", "FormatError", "WorkBufferError",
           "version", "FORMATS"]

#: The library's version text.
version: str = _parvex.version
__version__ = "1.0.0"
#: Format names the module takes (the engine's names are accepted too).
FORMATS = ("NV12", "NV21", "I420", "RGB", "BGR")


class Corrector(_parvex.Corrector):
    __doc__ = _parvex.Corrector.__doc__

    #: Set by from_calibration: largest and RMS distance, in output pixels,
    #: between the calibration's lens and the engine's lens over the frame.
    fit_max_px = None
    fit_rms_px = None
    #: Set by from_calibration: {"source": ..., "notes": [...]}.
    calibration = None

    def __enter__(self):
        return self

    def __exit__(self, *exc_info):
        self.close()
        return False

    def __repr__(self):
        state = "closed" if self.closed else "open"
        w, h = self.output_size
        return (f"<parvex.Corrector {self.width}x{self.height} {self.format} -> {w}x{h}, "
                f"{'table' if self.table else 'k=' + str(self.k)}, {state}>")
