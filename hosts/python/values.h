#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <pybind11/pybind11.h>

#include "hosts/python/calls.h"
#include "platform/arrays/host_array.h"

/// Host values as Python people expect them, and the other way round.
namespace tavlox::python {

/// Every code unit is kept, also a lone surrogate: whether a text is well-formed is for the module to judge.
py::str toPython(std::u16string_view text);
/// Of a `str`; anything else raises TypeError.
std::u16string toText(py::handle text);
std::vector<std::u16string> toTexts(const py::list& texts);

/// An array that lives as long as the value it came in. Its parts are shared the same way, since copying one
/// would change a count that a module may change at the same time.
using SharedArray = std::shared_ptr<const corvan::HostArray>;

/// What a number by itself becomes.
enum class Scalars { Plain, AsArrays };

/// Numbers and logicals become int, float and bool, more than one of them a NumPy array of that class that
/// owns its data: of one dimension for a row or a column, else of two. Char rows become str, char arrays of
/// several rows a list of them. Cells become a list, of rows where they have two dimensions. Structures
/// become what `tavlox._records.from_host` makes of a Structure.
py::object toPython(const SharedArray& array, Scalars scalars = Scalars::Plain);
/// Nothing becomes None, an object what `tavlox._classes.from_host` makes of an Object.
py::object toPython(const SharedValue& value);

/// Takes None, bool, int, float, str, os.PathLike, NumPy scalars and arrays of up to two dimensions (one
/// dimension is a column), and objects of registered classes. Null for anything else, also for an integer
/// beyond 64 bits. What stands for one integer becomes an int32 where that reaches, whatever its own size.
SharedValue toShared(py::handle value);

/// An object that a module made.
struct Object {
  SharedValue value;
  int generation = processGeneration();

  /// Whether another process, the parent of a fork, made it; then it must not be used any more.
  bool isForeign() const { return generation != processGeneration(); }
};

/// A structure array as the Python side reads it: by column, or by element and field. Both are indices.
class Structure {
 public:
  explicit Structure(SharedArray array) : array_(std::move(array)) {}

  /// The same structures, in whose fields of these names a number by itself is an array, too.
  Structure withLists(const py::object& names) const;

  py::tuple names() const;
  std::size_t size() const { return array_->elementCount(); }
  py::object value(std::size_t index, std::size_t field) const;
  /// A NumPy array of the numbers' class, made without a Python object per element, where each element is one
  /// number of one class; else one of objects, in which equal texts, and equal arrays, are one object.
  py::object column(std::size_t field) const;

 private:
  Scalars scalarsOf(std::size_t field) const {
    return lists_.contains(field) ? Scalars::AsArrays : Scalars::Plain;
  }

  SharedArray array_;
  std::set<std::size_t> lists_;  ///< fields
};

}  // namespace tavlox::python
