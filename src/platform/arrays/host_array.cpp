#include "platform/arrays/host_array.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

#include "platform/arrays/host_array_blocks.h"
#include "platform/errors/exceptions.h"

namespace corvan {
namespace {

using foundation::core::except::raise;

struct ClassFacts {
  std::string_view name;
  std::size_t size;
};

// In the order of NumericClass.
constexpr std::array<ClassFacts, 10> kClasses{{{"double", 8},
                                               {"single", 4},
                                               {"int8", 1},
                                               {"int16", 2},
                                               {"int32", 4},
                                               {"int64", 8},
                                               {"uint8", 1},
                                               {"uint16", 2},
                                               {"uint32", 4},
                                               {"uint64", 8}}};

// In the order of ArrayKind.
constexpr std::array<std::string_view, 5> kKindNames{"numeric", "logical", "char", "cell", "struct"};

template <class T>
struct ClassOf;
template <>
struct ClassOf<double> : std::integral_constant<NumericClass, NumericClass::Double> {};
template <>
struct ClassOf<float> : std::integral_constant<NumericClass, NumericClass::Single> {};
template <>
struct ClassOf<std::int8_t> : std::integral_constant<NumericClass, NumericClass::Int8> {};
template <>
struct ClassOf<std::int16_t> : std::integral_constant<NumericClass, NumericClass::Int16> {};
template <>
struct ClassOf<std::int32_t> : std::integral_constant<NumericClass, NumericClass::Int32> {};
template <>
struct ClassOf<std::int64_t> : std::integral_constant<NumericClass, NumericClass::Int64> {};
template <>
struct ClassOf<std::uint8_t> : std::integral_constant<NumericClass, NumericClass::UInt8> {};
template <>
struct ClassOf<std::uint16_t> : std::integral_constant<NumericClass, NumericClass::UInt16> {};
template <>
struct ClassOf<std::uint32_t> : std::integral_constant<NumericClass, NumericClass::UInt32> {};
template <>
struct ClassOf<std::uint64_t> : std::integral_constant<NumericClass, NumericClass::UInt64> {};

std::size_t elementSize(ArrayKind kind, NumericClass numericClass) {
  if (kind == ArrayKind::Logical) return sizeof(bool);
  if (kind == ArrayKind::Char) return sizeof(char16_t);
  return kClasses[static_cast<std::size_t>(numericClass)].size;
}

/// The bytes of so many elements, or out of memory where no allocation could be that large.
std::size_t checkedBytes(std::size_t rows, std::size_t columns, std::size_t size) {
  std::size_t count = 0, bytes = 0;
  const bool overflows =
      __builtin_mul_overflow(rows, columns, &count) || __builtin_mul_overflow(count, size, &bytes);
  if (overflows || bytes > PTRDIFF_MAX / 2) throw foundation::core::except::bad_alloc();
  return bytes;
}

template <class T>
double firstAsDouble(const std::byte* elements) {
  return static_cast<double>(*reinterpret_cast<const T*>(elements));
}

double numberAsDouble(NumericClass numericClass, const std::byte* elements) {
  switch (numericClass) {
    case NumericClass::Double:
      return firstAsDouble<double>(elements);
    case NumericClass::Single:
      return firstAsDouble<float>(elements);
    case NumericClass::Int8:
      return firstAsDouble<std::int8_t>(elements);
    case NumericClass::Int16:
      return firstAsDouble<std::int16_t>(elements);
    case NumericClass::Int32:
      return firstAsDouble<std::int32_t>(elements);
    case NumericClass::Int64:
      return firstAsDouble<std::int64_t>(elements);
    case NumericClass::UInt8:
      return firstAsDouble<std::uint8_t>(elements);
    case NumericClass::UInt16:
      return firstAsDouble<std::uint16_t>(elements);
    case NumericClass::UInt32:
      return firstAsDouble<std::uint32_t>(elements);
    case NumericClass::UInt64:
      return firstAsDouble<std::uint64_t>(elements);
  }
  return 0;
}

template <class T>
HostArray filled(HostArray array, std::span<const T> values) {
  std::ranges::copy(values, array.template mutableValues<T>().begin());
  return array;
}

}  // namespace

NumericClass numericClassByName(std::string_view name) {
  const auto found = std::ranges::find(kClasses, name, &ClassFacts::name);
  if (found == kClasses.end()) raise("Corvan:Arrays:UnknownClass", name);
  return static_cast<NumericClass>(found - kClasses.begin());
}

std::string_view nameOf(NumericClass numericClass) {
  return kClasses[static_cast<std::size_t>(numericClass)].name;
}

HostArray::HostArray(ArrayKind kind, NumericClass numericClass, std::size_t rows, std::size_t columns)
    : kind_(kind), numericClass_(numericClass) {
  const std::size_t bytes = checkedBytes(rows, columns, elementSize(kind, numericClass));
  if (bytes <= kInPlaceBytes && rows < kInBlock && columns < kInBlock) {
    rows_ = static_cast<std::uint8_t>(rows);
    columns_ = static_cast<std::uint8_t>(columns);
    return;
  }
  Block* const created = ElementBlock::create(rows, columns, bytes);
  std::memcpy(data_, &created, sizeof(void*));
  rows_ = kInBlock;
}

HostArray::HostArray(ArrayKind kind, Block* block) noexcept : kind_(kind), rows_(kInBlock) {
  std::memcpy(data_, &block, sizeof(void*));
}

HostArray::HostArray(const HostArray& other) noexcept
    : kind_(other.kind_), numericClass_(other.numericClass_), rows_(other.rows_), columns_(other.columns_) {
  std::memcpy(data_, other.data_, sizeof data_);
  if (isInBlock()) block()->retain();
}

HostArray::HostArray(HostArray&& other) noexcept
    : kind_(other.kind_), numericClass_(other.numericClass_), rows_(other.rows_), columns_(other.columns_) {
  std::memcpy(data_, other.data_, sizeof data_);
  other.kind_ = ArrayKind::Numeric;
  other.numericClass_ = NumericClass::Double;
  other.rows_ = other.columns_ = 0;
}

HostArray& HostArray::operator=(HostArray other) noexcept {
  std::swap(data_, other.data_);
  std::swap(kind_, other.kind_);
  std::swap(numericClass_, other.numericClass_);
  std::swap(rows_, other.rows_);
  std::swap(columns_, other.columns_);
  return *this;
}

HostArray HostArray::numeric(NumericClass numericClass, std::size_t rows, std::size_t columns) {
  return HostArray(ArrayKind::Numeric, numericClass, rows, columns);
}

HostArray HostArray::int32Scalar(std::int32_t value) { return int32Row(std::span(&value, 1)); }

HostArray HostArray::int32Row(std::span<const std::int32_t> values) {
  return filled(numeric(NumericClass::Int32, 1, values.size()), values);
}

HostArray HostArray::int32Column(std::span<const std::int32_t> values) {
  return filled(numeric(NumericClass::Int32, values.size(), 1), values);
}

HostArray HostArray::doubleScalar(double value) {
  return filled(numeric(NumericClass::Double, 1, 1), std::span<const double>(&value, 1));
}

HostArray HostArray::logicalScalar(bool value) {
  return filled(HostArray(ArrayKind::Logical, NumericClass::Double, 1, 1), std::span<const bool>(&value, 1));
}

HostArray HostArray::charRow(std::u16string_view text) {
  HostArray row(ArrayKind::Char, NumericClass::Double, 1, text.size());
  if (!text.empty()) std::memcpy(row.ownElements(), text.data(), text.size() * sizeof(char16_t));
  return row;
}

HostArray HostArray::cell(std::size_t rows, std::size_t columns) {
  checkedBytes(rows, columns, sizeof(HostArray));
  return HostArray(ArrayKind::Cell, new CellBlock(rows, columns));
}

HostArray HostArray::structure(std::size_t rows, std::size_t columns,
                               std::span<const std::u16string_view> fieldNames) {
  checkedBytes(rows, columns, sizeof(HostArray));
  for (auto name = fieldNames.begin(); name != fieldNames.end(); ++name) {
    if (std::find(fieldNames.begin(), name, *name) != name) raise("Corvan:Arrays:DuplicateField", *name);
  }
  std::vector<std::u16string> names(fieldNames.begin(), fieldNames.end());
  return HostArray(ArrayKind::Struct, new StructureBlock(rows, columns, std::move(names)));
}

NumericClass HostArray::numericClass() const {
  requireKind(ArrayKind::Numeric);
  return numericClass_;
}

std::string_view HostArray::className() const {
  return isNumeric() ? nameOf(numericClass_) : kKindNames[static_cast<std::size_t>(kind_)];
}

std::size_t HostArray::rows() const { return isInBlock() ? block()->rows : rows_; }
std::size_t HostArray::columns() const { return isInBlock() ? block()->columns : columns_; }
std::size_t HostArray::elementCount() const { return rows() * columns(); }

double HostArray::scalarAsDouble() const {
  if (kind_ == ArrayKind::Cell || kind_ == ArrayKind::Struct) requireKind(ArrayKind::Numeric);
  if (!isScalar()) raise("Corvan:Arrays:NotScalar", rows(), columns());
  if (kind_ == ArrayKind::Char) return text().front();
  if (kind_ == ArrayKind::Logical) return values<bool>().front() ? 1 : 0;
  return numberAsDouble(numericClass_, elements());
}

std::u16string_view HostArray::text() const {
  requireKind(ArrayKind::Char);
  return {reinterpret_cast<const char16_t*>(elements()), elementCount()};
}

template <class T>
void HostArray::requireElementsOf() const {
  if constexpr (std::is_same_v<T, bool>) {
    requireKind(ArrayKind::Logical);
  } else if (!isNumeric() || numericClass_ != ClassOf<T>::value) {
    raise("Corvan:Arrays:WrongClass", className(), nameOf(ClassOf<T>::value));
  }
}

template <class T>
std::span<const T> HostArray::values() const {
  requireElementsOf<T>();
  return {reinterpret_cast<const T*>(elements()), elementCount()};
}

template <class T>
std::span<T> HostArray::mutableValues() {
  requireElementsOf<T>();
  return {reinterpret_cast<T*>(ownElements()), elementCount()};
}

template std::span<const bool> HostArray::values<bool>() const;
template std::span<const double> HostArray::values<double>() const;
template std::span<const float> HostArray::values<float>() const;
template std::span<const std::int8_t> HostArray::values<std::int8_t>() const;
template std::span<const std::int16_t> HostArray::values<std::int16_t>() const;
template std::span<const std::int32_t> HostArray::values<std::int32_t>() const;
template std::span<const std::int64_t> HostArray::values<std::int64_t>() const;
template std::span<const std::uint8_t> HostArray::values<std::uint8_t>() const;
template std::span<const std::uint16_t> HostArray::values<std::uint16_t>() const;
template std::span<const std::uint32_t> HostArray::values<std::uint32_t>() const;
template std::span<const std::uint64_t> HostArray::values<std::uint64_t>() const;
template std::span<bool> HostArray::mutableValues<bool>();
template std::span<double> HostArray::mutableValues<double>();
template std::span<float> HostArray::mutableValues<float>();
template std::span<std::int8_t> HostArray::mutableValues<std::int8_t>();
template std::span<std::int16_t> HostArray::mutableValues<std::int16_t>();
template std::span<std::int32_t> HostArray::mutableValues<std::int32_t>();
template std::span<std::int64_t> HostArray::mutableValues<std::int64_t>();
template std::span<std::uint8_t> HostArray::mutableValues<std::uint8_t>();
template std::span<std::uint16_t> HostArray::mutableValues<std::uint16_t>();
template std::span<std::uint32_t> HostArray::mutableValues<std::uint32_t>();
template std::span<std::uint64_t> HostArray::mutableValues<std::uint64_t>();

const HostArray& HostArray::cellAt(std::size_t index) const { return elementOf(cells().values, index); }

void HostArray::setCell(std::size_t index, HostArray value) {
  requireKind(ArrayKind::Cell);
  requireIndex(index);
  unshare();
  static_cast<CellBlock*>(block())->values[index] = std::move(value);
}

const std::vector<std::u16string>& HostArray::fieldNames() const { return *structures().names; }

const HostArray& HostArray::fieldAt(std::size_t index, std::u16string_view name) const {
  return fieldAt(index, fieldIndex(name));
}

const HostArray& HostArray::fieldAt(std::size_t index, std::size_t field) const {
  const auto& fields = structures().fields;
  if (field >= fields.size()) raise("Corvan:Arrays:NoSuchField", field);
  return elementOf(fields[field], index);
}

void HostArray::setField(std::size_t index, std::u16string_view name, HostArray value) {
  setField(index, fieldIndex(name), std::move(value));
}

void HostArray::setField(std::size_t index, std::size_t field, HostArray value) {
  if (field >= structures().fields.size()) raise("Corvan:Arrays:NoSuchField", field);
  requireIndex(index);
  unshare();
  static_cast<StructureBlock*>(block())->fields[field][index] = std::move(value);
}

HostArray::Block* HostArray::block() const noexcept {
  Block* pointer = nullptr;
  std::memcpy(&pointer, data_, sizeof(void*));
  return pointer;
}

void HostArray::releaseBlock() noexcept { block()->release(); }

void HostArray::unshare() {
  Block* const shared = block();
  if (!shared->isShared()) return;
  Block* const own = shared->copy();
  std::memcpy(data_, &own, sizeof(void*));
  shared->release();
}

const std::byte* HostArray::elements() const {
  return isInBlock() ? static_cast<const ElementBlock*>(block())->elements() : data_;
}

std::byte* HostArray::ownElements() {
  if (!isInBlock()) return data_;
  unshare();
  return static_cast<ElementBlock*>(block())->elements();
}

const HostArray::CellBlock& HostArray::cells() const {
  requireKind(ArrayKind::Cell);
  return static_cast<const CellBlock&>(*block());
}

const HostArray::StructureBlock& HostArray::structures() const {
  requireKind(ArrayKind::Struct);
  return static_cast<const StructureBlock&>(*block());
}

const HostArray& HostArray::elementOf(const std::vector<HostArray>& column, std::size_t index) const {
  requireIndex(index);
  return column[index];
}

std::size_t HostArray::fieldIndex(std::u16string_view name) const {
  const auto& names = fieldNames();
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) raise("Corvan:Arrays:NoSuchField", name);
  return static_cast<std::size_t>(found - names.begin());
}

void HostArray::requireKind(ArrayKind kind) const {
  if (kind_ != kind)
    raise("Corvan:Arrays:WrongClass", className(), kKindNames[static_cast<std::size_t>(kind)]);
}

void HostArray::requireIndex(std::size_t index) const {
  if (index >= elementCount()) raise("Corvan:Arrays:IndexOutOfRange", index, elementCount());
}

}  // namespace corvan
