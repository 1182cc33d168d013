"""Exceptions of the parvex module, one per library result code."""

from typing import Optional


class Error(Exception):
    """Base of every parvex error.

    code       the library's result code (an int), e.g. 0x80000001
    code_name  its name, e.g. "PARVEX_ERROR_PARAM"
    call       the call that failed ("initialize", "process", "Corrector", ...)
    argument   the argument at fault ("frame", "out", "zoom, output_size", ...) or None
    """

    def __init__(self, message: str, code: int, code_name: str, call: str, argument: Optional[str] = None):
        where = f"{call}({argument})" if argument else call
        super().__init__(f"{where}: {message} [{code_name}]")
        self.code = code
        self.code_name = code_name
        self.call = call
        self.argument = argument


class ParamError(Error, ValueError):
    """PARVEX_ERROR_PARAM: a value out of range, or a frame of the wrong kind."""


class StateError(Error, RuntimeError):
    """PARVEX_ERROR_STATE: the call does not fit the engine's state (a closed corrector)."""


class FormatError(Error, ValueError):
    """PARVEX_ERROR_IMAGE_FORMAT: a format the engine does not take."""


class WorkBufferError(Error, MemoryError):
    """PARVEX_ERROR_MALLOC: the work buffer is too small or its heap failed."""


_BY_CODE = {
    0x80000001: ParamError,
    0x80000002: StateError,
    0x80000010: FormatError,
    0xC0000000: WorkBufferError,
}


def error_for(code: int, code_name: str, call: str, argument: Optional[str], message: str) -> Error:
    """The exception for a result code (used by the compiled core)."""
    return _BY_CODE.get(code, Error)(message, code, code_name, call, argument)


class CalibrationError(ValueError):
    """A calibration that cannot be read or converted; the message names the file and the field."""
