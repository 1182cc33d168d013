// Reading Python arguments into plain numbers, with a ParamError naming the
// argument when they do not fit.
#pragma once

#include <stdint.h>

#include <pybind11/pybind11.h>

namespace parvex_python {

// A sequence of exactly `count` integers (count < 0: 1 .. -count of them;
// returns how many were read).
int readInts(const pybind11::handle &value, int count, const char *call, const char *name, const char *expected,
             int32_t *out);
int readDoubles(const pybind11::handle &value, int count, const char *call, const char *name, const char *expected,
                double *out);

}  // namespace parvex_python
