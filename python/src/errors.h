// Library result codes as Python exceptions. The exception classes live in
// parvex/_errors.py; each one carries the code, the call and the argument.
#pragma once

#include <stdint.h>

#include <string>

namespace parvex_python {

// "PARVEX_ERROR_PARAM", ... ("0x8000...." for a code the header does not name).
std::string codeName(uint32_t code);

// Raises the exception class that matches `code` (ParamError for
// PARVEX_ERROR_PARAM, StateError, FormatError, WorkBufferError, else Error).
// `argument` names the offending argument ("" when none); needs the GIL.
[[noreturn]] void raiseError(uint32_t code, const std::string &call, const std::string &argument,
                             const std::string &message);

// Up-front refusal of an argument: a ParamError without a library call.
[[noreturn]] void raiseParam(const std::string &call, const std::string &argument, const std::string &message);

}  // namespace parvex_python
