#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvan {

enum class ArrayKind : std::uint8_t { Numeric, Logical, Char, Cell, Struct };

enum class NumericClass : std::uint8_t {
  Double, Single, Int8, Int16, Int32, Int64, UInt8, UInt16, UInt32, UInt64
};

/// The class of a host class name ("double", "int32"). Raises Corvan:Arrays:UnknownClass.
NumericClass numericClassByName(std::string_view name);
std::string_view nameOf(NumericClass numericClass);

/// A value of the host: a two-dimensional array of numbers, logicals, UTF-16 code units, cells or structures, in
/// column-major order. Copies share their data until one of them is changed. Scalars and short texts live in place;
/// structure arrays keep one column of values per field.
///
/// Asking an array for what it does not hold (a field of a numeric array, an element past the end) raises
/// Corvan:Arrays:… errors.
class HostArray {
 public:
  /// 0×0 double.
  HostArray();

  /// Zero-filled.
  static HostArray numeric(NumericClass numericClass, std::size_t rows, std::size_t columns);
  static HostArray int32Scalar(std::int32_t value);
  static HostArray int32Row(std::span<const std::int32_t> values);
  static HostArray int32Column(std::span<const std::int32_t> values);
  static HostArray doubleScalar(double value);
  static HostArray logicalScalar(bool value);
  /// 1×N, N the number of code units.
  static HostArray charRow(std::u16string_view text);
  /// Every cell is the empty double.
  static HostArray cell(std::size_t rows, std::size_t columns);
  /// Every field of every element is the empty double. Field names must differ.
  static HostArray structure(std::size_t rows, std::size_t columns, std::span<const std::u16string_view> fieldNames);

  ArrayKind kind() const;
  NumericClass numericClass() const;
  std::size_t rows() const;
  std::size_t columns() const;
  std::size_t elementCount() const;
  bool isEmpty() const { return elementCount() == 0; }
  bool isScalar() const { return elementCount() == 1; }
  bool isNumeric() const { return kind() == ArrayKind::Numeric; }

  /// The one element of a numeric, logical or char scalar.
  double scalarAsDouble() const;
  /// The code units of a char array. Valid while this array lives unchanged.
  std::u16string_view text() const;

  /// The elements of a numeric array of the class that T stands for, or of a logical array for T = bool.
  template <class T>
  std::span<const T> values() const;
  /// The same for writing; the data is no longer shared afterwards.
  template <class T>
  std::span<T> mutableValues();

  const HostArray& cellAt(std::size_t index) const;
  void setCell(std::size_t index, HostArray value);

  const std::vector<std::u16string>& fieldNames() const;
  const HostArray& fieldAt(std::size_t index, std::u16string_view name) const;
  const HostArray& fieldAt(std::size_t index, std::size_t field) const;
  void setField(std::size_t index, std::u16string_view name, HostArray value);
  void setField(std::size_t index, std::size_t field, HostArray value);

 private:
  // The implementer's own: a small tagged handle, at most 32 bytes.
};

}  // namespace corvan
