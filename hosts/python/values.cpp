#include "hosts/python/values.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>

#include "platform/zobs/class.h"

namespace tavlox::python {
namespace {

using corvan::ArrayKind;
using corvan::HostArray;
using corvan::NumericClass;
using corvan::NumericTypes;

SharedArray partOf(const SharedArray& whole, const HostArray& part) { return {whole, &part}; }

py::object owned(PyObject* made) {
  if (made == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(made);
}

/// Gives `use` the elements of a numeric or logical array as what they are.
template <class Use, std::size_t I = 0>
auto withNumbers(const HostArray& array, const Use& use) {
  if (array.kind() == ArrayKind::Logical) return use(array.values<bool>());
  if constexpr (I + 1 < std::tuple_size_v<NumericTypes>) {
    if (array.numericClass() != NumericClass{I}) return withNumbers<Use, I + 1>(array, use);
  }
  return use(array.values<std::tuple_element_t<I, NumericTypes>>());
}

std::vector<py::ssize_t> shapeOf(const HostArray& array) {
  const auto rows = static_cast<py::ssize_t>(array.rows()),
             columns = static_cast<py::ssize_t>(array.columns());
  if (rows == 1 || columns == 1 || (rows == 0 && columns == 0)) return {rows * columns};
  return {rows, columns};
}

/// A copy: the module's memory is neither kept alive by a view of it nor seen to change.
template <class T>
py::object numbersToPython(const HostArray& array, std::span<const T> values, Scalars scalars) {
  if (array.isScalar() && scalars == Scalars::Plain) return py::cast(values.front());
  py::array_t<T, py::array::f_style> copy(shapeOf(array));
  std::ranges::copy(values, copy.mutable_data());
  return copy;
}

/// A list, of lists where there are two dimensions, from elements that lie column by column.
template <class Element>
py::list toList(const HostArray& array, const Element& element) {
  const std::vector<py::ssize_t> shape = shapeOf(array);
  py::list list;
  for (std::size_t row = 0; row < static_cast<std::size_t>(shape.front()); ++row) {
    if (shape.size() == 1) {
      list.append(element(row));
      continue;
    }
    py::list cells;
    for (std::size_t i = row; i < array.elementCount(); i += array.rows()) cells.append(element(i));
    list.append(std::move(cells));
  }
  return list;
}

py::object charsToPython(const HostArray& array) {
  if (array.rows() <= 1) return toPython(array.text());
  py::list lines;
  for (std::size_t row = 0; row < array.rows(); ++row) {
    std::u16string line;
    for (std::size_t i = row; i < array.elementCount(); i += array.rows()) line += array.text()[i];
    lines.append(toPython(line));
  }
  return lines;
}

bool isOneNumberOf(const HostArray& cell, const HostArray& first) {
  return cell.kind() == first.kind() && cell.isScalar() &&
         (!first.isNumeric() || cell.numericClass() == first.numericClass());
}

/// The numbers of a column, or none if not all of its elements are one number of the class of the first.
template <class T>
py::object numericColumn(std::span<const HostArray> cells) {
  py::array_t<T> column(static_cast<py::ssize_t>(cells.size()));
  T* number = column.mutable_data();
  for (const HostArray& cell : cells) {
    if (!isOneNumberOf(cell, cells.front())) return py::none();
    *number++ = cell.values<T>().front();
  }
  return column;
}

/// Makes the Python values of one column's cells. Texts that occur again, in the next element or in one
/// soon after, become the same object, which saves most of the time and memory of a column of units or types.
class CellConverter {
 public:
  CellConverter(const SharedArray& structures, Scalars scalars)
      : structures_(structures), scalars_(scalars) {}

  py::object operator()(const HostArray& cell) {
    if (cell.kind() == ArrayKind::Char && cell.rows() <= 1) return text(cell.text());
    if (cell.isNumeric() && scalars_ == Scalars::AsArrays) return numbers(cell);
    return toPython(partOf(structures_, cell), scalars_);
  }

 private:
  // The texts stand in the cells, which stay where they are while a column is made.
  struct Slot {
    std::u16string_view text;
    py::object value;
  };

  py::object text(std::u16string_view wanted) {
    // The text before, first: finding that it is the same takes less than its hash.
    if (last_ == nullptr || last_->text != wanted) {
      last_ = &slots_[std::hash<std::u16string_view>()(wanted) % slots_.size()];
      if (!last_->value || last_->text != wanted) *last_ = {wanted, toPython(wanted)};
    }
    return last_->value;
  }

  py::object numbers(const HostArray& cell) {
    if (lastCell_ != nullptr && isSame(cell, *lastCell_)) return lastArray_;
    lastCell_ = &cell;
    lastArray_ =
        withNumbers(cell, [&](auto values) { return numbersToPython(cell, values, Scalars::AsArrays); });
    // Many elements may have it, and changing one must not change the others.
    py::detail::array_proxy(lastArray_.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return lastArray_;
  }

  static bool isSame(const HostArray& a, const HostArray& b) {
    if (a.numericClass() != b.numericClass() || a.rows() != b.rows() || a.columns() != b.columns())
      return false;
    return withNumbers(a, [&](auto values) {
      const auto others = b.values<typename decltype(values)::value_type>();
      return values.empty() || std::memcmp(values.data(), others.data(), values.size_bytes()) == 0;
    });
  }

  const SharedArray& structures_;
  Scalars scalars_;
  std::array<Slot, 1024> slots_;
  Slot* last_ = nullptr;
  const HostArray* lastCell_ = nullptr;
  py::object lastArray_;
};

/// An array of NumPy's as one of the host: its elements column by column.
template <class T>
SharedValue fromArray(const py::array& array, std::size_t rows, std::size_t columns) {
  const auto values = py::array_t<T, py::array::f_style | py::array::forcecast>::ensure(array);
  if (!values) throw py::error_already_set();
  // Nothing raises from here on: an array that was given up would be destroyed in nobody's turn.
  HostArray made = HostArray::numeric(corvan::numericClassOf<T>(), rows, columns);
  std::copy_n(values.data(), values.size(), made.mutableValues<T>().begin());
  return share(std::move(made));
}

template <std::size_t... I>
SharedValue sharedArray(const py::array& array, std::index_sequence<I...>) {
  if (array.ndim() > 2) return {};
  const auto rows = static_cast<std::size_t>(array.ndim() > 0 ? array.shape(0) : 1);
  const auto columns = static_cast<std::size_t>(array.ndim() > 1 ? array.shape(1) : 1);
  SharedValue made;
  // NumPy has several types of one size (int64, long long): sort and size tell what the elements are.
  const auto take = [&]<class T>(T) {
    const char sort = std::is_floating_point_v<T> ? 'f' : std::is_signed_v<T> ? 'i' : 'u';
    if (made || array.dtype().kind() != sort || array.itemsize() != sizeof(T)) return;
    made = fromArray<T>(array, rows, columns);
  };
  (take(std::tuple_element_t<I, NumericTypes>()), ...);
  // Host arrays of logicals are made as scalars only.
  if (array.dtype().kind() == 'b' && array.size() == 1)
    made = share(HostArray::logicalScalar(array.cast<bool>()));
  return made;
}

SharedValue sharedInteger(py::handle value) {
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow != 0) return {};
  // The class that hosts know identifiers and indices by, as far as it reaches.
  if (std::in_range<std::int32_t>(number))
    return share(HostArray::int32Scalar(static_cast<std::int32_t>(number)));
  HostArray wide = HostArray::numeric(NumericClass::Int64, 1, 1);
  wide.mutableValues<std::int64_t>().front() = number;
  return share(std::move(wide));
}

/// The text of a path, whose bytes need not be any: what is no UTF-8 becomes lone surrogates, which no name
/// may have, so the module refuses them.
py::object pathText(py::handle path) {
  py::object name = owned(PyOS_FSPath(path.ptr()));
  if (!PyBytes_Check(name.ptr())) return name;
  return owned(PyUnicode_DecodeFSDefaultAndSize(PyBytes_AS_STRING(name.ptr()), PyBytes_GET_SIZE(name.ptr())));
}

}  // namespace

py::str toPython(std::u16string_view text) {
  const auto size = static_cast<py::ssize_t>(text.size());
  const bool isPlain = std::ranges::none_of(text, [](char16_t unit) { return (unit & 0xF800) == 0xD800; });
  // Told the order of the bytes, the decoder takes no first U+FEFF for a mark of it.
  int order = std::endian::native == std::endian::little ? -1 : 1;
  return owned(isPlain ? PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, text.data(), size)
                       : PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()), size * 2,
                                               "surrogatepass", &order));
}

std::u16string toText(py::handle text) {
  if (!PyUnicode_Check(text.ptr())) throw py::type_error("a str is needed");
  const char* const encoding = std::endian::native == std::endian::little ? "utf-16-le" : "utf-16-be";
  const py::object bytes = owned(PyUnicode_AsEncodedString(text.ptr(), encoding, "surrogatepass"));
  std::u16string units(static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())) / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), PyBytes_AS_STRING(bytes.ptr()), units.size() * sizeof(char16_t));
  return units;
}

std::vector<std::u16string> toTexts(const py::list& texts) {
  std::vector<std::u16string> all;
  for (const py::handle text : texts) all.push_back(toText(text));
  return all;
}

py::object toPython(const SharedArray& array, Scalars scalars) {
  switch (array->kind()) {
    case ArrayKind::Numeric:
    case ArrayKind::Logical:
      return withNumbers(*array, [&](auto values) { return numbersToPython(*array, values, scalars); });
    case ArrayKind::Char:
      return charsToPython(*array);
    case ArrayKind::Cell:
      return toList(*array, [&](std::size_t i) { return toPython(partOf(array, array->cellAt(i))); });
    case ArrayKind::Struct:
      return py::module_::import("tavlox._records").attr("from_host")(Structure(array));
  }
  return py::none();
}

py::object toPython(const SharedValue& value) {
  if (const auto* text = std::get_if<std::u16string>(value.get())) return toPython(*text);
  if (const auto* array = std::get_if<HostArray>(value.get())) return toPython(SharedArray(value, array));
  const auto* const object = std::get_if<zobs::COSInterfacePointer>(value.get());
  if (object == nullptr || !*object) return py::none();
  return py::module_::import("tavlox._classes")
      .attr("from_host")(Object{value}, (*object)->getClass().getIdentifier().text());
}

SharedValue toShared(py::handle value) {
  if (value.is_none()) return share({});
  if (PyUnicode_Check(value.ptr())) return share(toText(value));
  if (PyBool_Check(value.ptr())) return share(HostArray::logicalScalar(value.ptr() == Py_True));
  if (PyLong_Check(value.ptr())) return sharedInteger(value);
  if (py::isinstance<Object>(value)) return value.cast<const Object&>().value;
  if (py::hasattr(value, "__fspath__")) return share(toText(pathText(value)));
  // Before Python's float, which NumPy's double is, too.
  if (!py::hasattr(value, "__array__") || !py::hasattr(value, "dtype")) {
    if (!PyFloat_Check(value.ptr())) return {};
    return share(HostArray::doubleScalar(PyFloat_AS_DOUBLE(value.ptr())));
  }
  const auto array = py::array::ensure(value);
  if (!array) throw py::error_already_set();
  // Which size NumPy's integer has depends on how it was computed, not on what it is meant for.
  const bool isInteger = array.ndim() == 0 && (array.dtype().kind() == 'i' || array.dtype().kind() == 'u');
  if (SharedValue one = isInteger ? sharedInteger(py::int_(array)) : SharedValue()) return one;
  return sharedArray(array, std::make_index_sequence<std::tuple_size_v<NumericTypes>>());
}

py::tuple Structure::names() const {
  py::list names;
  for (const std::u16string& name : array_->fieldNames()) names.append(toPython(name));
  return py::tuple(names);
}

Structure Structure::withLists(const py::object& names) const {
  Structure made = *this;
  const std::vector<std::u16string>& fields = array_->fieldNames();
  for (std::size_t field = 0; field < fields.size(); ++field) {
    if (names.contains(toPython(fields[field]))) made.lists_.insert(field);
  }
  return made;
}

py::object Structure::value(std::size_t index, std::size_t field) const {
  return toPython(partOf(array_, array_->fieldAt(index, field)), scalarsOf(field));
}

py::object Structure::column(std::size_t field) const {
  const std::span<const HostArray> cells = std::as_const(*array_).fieldValues(field);
  const Scalars scalars = scalarsOf(field);
  py::object column = py::none();
  if (!cells.empty() && cells.front().kind() <= ArrayKind::Logical && cells.front().isScalar() &&
      scalars == Scalars::Plain) {
    column = withNumbers(cells.front(), [&](auto values) {
      return numericColumn<typename decltype(values)::value_type>(cells);
    });
  }
  if (!column.is_none()) return column;
  py::array objects(py::dtype("O"), static_cast<py::ssize_t>(cells.size()));
  auto* place = static_cast<PyObject**>(objects.mutable_data());
  CellConverter convert(array_, scalars);
  for (const HostArray& cell : cells) {
    // NumPy has filled it with nothing or with None.
    Py_XDECREF(std::exchange(*place++, convert(cell).release().ptr()));
  }
  return objects;
}

}  // namespace tavlox::python
