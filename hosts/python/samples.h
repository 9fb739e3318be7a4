#pragma once

#include <pybind11/pybind11.h>

/// Recorded samples as NumPy arrays, and sessions made of such.
namespace tavlox::python {

/// Adds the functions `read_samples` and `record` to the extension.
void addSamples(pybind11::module_& host);

}  // namespace tavlox::python
