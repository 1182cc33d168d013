#include "arguments.h"

#include <string>
#include <type_traits>

#include "errors.h"

namespace py = pybind11;

namespace parvex_python {

namespace {

template <typename T>
int readNumbers(const py::handle &value, int count, const char *call, const char *name, const char *expected, T *out) {
    const int most = count < 0 ? -count : count, least = count < 0 ? 1 : count;
    auto refuse = [&]() { raiseParam(call, name, std::string(name) + " must be " + expected); };
    if (!py::isinstance<py::sequence>(value) || py::isinstance<py::str>(value)) refuse();
    const py::sequence seq = py::reinterpret_borrow<py::sequence>(value);
    const py::ssize_t n = static_cast<py::ssize_t>(seq.size());
    if (n < least || n > most) refuse();
    for (py::ssize_t i = 0; i < n; ++i) {
        const py::object item = seq[i];
        // Integers only where integers are meant: no silent truncation of 1.5.
        if (std::is_integral<T>::value && !py::isinstance<py::int_>(item) &&
            !py::hasattr(item, "__index__"))
            refuse();
        try {
            out[i] = item.cast<T>();
        } catch (const py::cast_error &) {
            refuse();
        }
    }
    return static_cast<int>(n);
}

}  // namespace

int readInts(const py::handle &value, int count, const char *call, const char *name, const char *expected,
             int32_t *out) {
    return readNumbers(value, count, call, name, expected, out);
}

int readDoubles(const py::handle &value, int count, const char *call, const char *name, const char *expected,
                double *out) {
    return readNumbers(value, count, call, name, expected, out);
}

}  // namespace parvex_python
