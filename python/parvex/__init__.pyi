from os import PathLike
from typing import Any, ClassVar, Dict, List, Literal, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

Frame = npt.NDArray[np.uint8]
Size = Tuple[int, int]
Rect = Tuple[int, int, int, int]
Format = Literal["NV12", "NV21", "I420", "RGB", "BGR", "RGB888", "BGR888",
                 "YUV420_SEMIPLANAR", "YVU420_SEMIPLANAR", "YUV420_PLANAR"]

version: str
__version__: str
FORMATS: Tuple[str, ...]

class Error(Exception):
    code: int
    code_name: str
    call: str
    argument: Optional[str]
    def __init__(self, message: str, code: int, code_name: str, call: str, argument: Optional[str] = ...) -> None: ...

class ParamError(Error, ValueError): ...
class StateError(Error, RuntimeError): ...
class FormatError(Error, ValueError): ...
class WorkBufferError(Error, MemoryError): ...
class CalibrationError(ValueError): ...

class Corrector:
    """Corrects (or applies) radial lens distortion in numpy frames."""

    version: ClassVar[str]
    fit_max_px: Optional[float]
    fit_rms_px: Optional[float]
    calibration: Optional[Dict[str, Any]]

    def __init__(
        self,
        width: int,
        height: int,
        format: Format = "NV12",
        *,
        k: Optional[Sequence[float]] = None,
        table: Optional[Tuple[Sequence[float], Sequence[float]]] = None,
        center: Optional[Tuple[float, float]] = None,
        output_size: Union[None, Size, Literal["recommended"]] = None,
        strength: float = 1.0,
        zoom: float = 1.0,
        crop: Optional[Rect] = None,
        workers: Optional[int] = None,
        fill: Union[None, Literal["black"], Tuple[int, int, int]] = "black",
        full_range: bool = False,
    ) -> None: ...
    @classmethod
    def from_calibration(
        cls,
        source: Union[str, PathLike, Dict[str, Any]],
        width: int,
        height: int,
        format: Format = "NV12",
        *,
        kind: Literal["auto", "opencv", "opencv-fisheye", "android", "lensfun"] = "auto",
        form: Literal["best", "k", "table"] = "best",
        lens: Optional[str] = None,
        focal_mm: Optional[float] = None,
        crop_factor: Optional[float] = None,
        **settings: Any,
    ) -> "Corrector": ...
    def process(self, frame: Frame, out: Optional[Frame] = None) -> Frame:
        """Corrects one frame; `out` receives it without allocation (`out is frame`: in place)."""
    def distort(self, frame: Frame, out: Optional[Frame] = None) -> Frame:
        """Applies the lens distortion instead (lenses given by k only)."""
    def close(self) -> None: ...
    def __enter__(self) -> "Corrector": ...
    def __exit__(self, *exc_info: Any) -> Literal[False]: ...
    @property
    def closed(self) -> bool: ...
    strength: float
    zoom: float
    @property
    def crop(self) -> Rect: ...
    @crop.setter
    def crop(self, value: Optional[Rect]) -> None: ...
    @property
    def recommended_output_size(self) -> Size: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def format(self) -> str: ...
    @property
    def engine_format(self) -> str: ...
    @property
    def output_size(self) -> Size: ...
    @property
    def input_shape(self) -> Tuple[int, ...]: ...
    @property
    def output_shape(self) -> Tuple[int, ...]: ...
    @property
    def k(self) -> Optional[Tuple[float, float, float, float]]: ...
    @property
    def table(self) -> Optional[Tuple[List[float], List[float]]]: ...
    @property
    def center(self) -> Tuple[float, float]: ...
    @property
    def fill(self) -> Optional[Tuple[int, int, int]]: ...
    @property
    def workers(self) -> Optional[int]: ...
    @property
    def engine_seconds(self) -> float: ...
