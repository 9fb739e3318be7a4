#pragma once

#include <pybind11/pybind11.h>

/// Indexes of many sessions: bringing one up to date, and searching in it.
namespace tavlox::python {

/// Adds the class `IndexUpdate` and the function `search_index`.
void addIndex(pybind11::module_& host);

}  // namespace tavlox::python
