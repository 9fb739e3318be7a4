#pragma once

#include <pybind11/pybind11.h>

/// Recorded samples as NumPy arrays, and sessions made of such or of tables in files.
namespace tavlox::python {

/// Adds the functions `list_runs`, `read_each` and `read_samples` to the extension.
void addSamples(pybind11::module_& host);
/// Adds the function `record`.
void addRecording(pybind11::module_& host);

}  // namespace tavlox::python
