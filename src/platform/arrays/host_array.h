#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/// The values that a host computes with, as modules take and give them.
namespace corvan {

/// What the elements of an array are.
enum class ArrayKind : std::uint8_t { Numeric, Logical, Char, Cell, Struct };

/// What the elements of a numeric array are. The order is that of NumericTypes and of the table of class
/// names.
enum class NumericClass : std::uint8_t {
  Double,
  Single,
  Int8,
  Int16,
  Int32,
  Int64,
  UInt8,
  UInt16,
  UInt32,
  UInt64
};

/// The C++ types of the numeric classes, in the order of NumericClass.
using NumericTypes = std::tuple<double, float, std::int8_t, std::int16_t, std::int32_t, std::int64_t,
                                std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t>;

/// The numeric class that a C++ type stands for. For a type that stands for none the call does not compile.
template <class T>
consteval NumericClass numericClassOf() {
  return []<std::size_t... I>(std::index_sequence<I...>) {
    static_assert((std::is_same_v<T, std::tuple_element_t<I, NumericTypes>> || ...), "no numeric class");
    return NumericClass(((std::is_same_v<T, std::tuple_element_t<I, NumericTypes>> ? I : 0) + ...));
  }
  (std::make_index_sequence<std::tuple_size_v<NumericTypes>>());
}

/// The class of a host class name ("double", "int32"). Raises Corvan:Arrays:UnknownClass.
NumericClass numericClassByName(std::string_view name);
/// What the host calls the class; valid for the life of the process.
std::string_view nameOf(NumericClass numericClass);

/// What a HostArray is made of; by itself without ownership, so that it is copied and moved as plain bytes.
struct HostArrayContent {
  // 12 bytes hold a double, three int32 or a text of six code units; with the four bytes behind them an array
  // has 16.
  static constexpr std::size_t kInPlaceBytes = 12;

  // The elements themselves, or a pointer to a block with a reference of the array's own.
  alignas(8) std::byte data_[kInPlaceBytes] = {};
  ArrayKind kind_ = ArrayKind::Numeric;
  NumericClass numericClass_ = NumericClass::Double;  // of no meaning for the other kinds
  std::uint8_t rows_ = 0;
  std::uint8_t columns_ = 0;

  bool hasBytesOf(const HostArrayContent& other) const noexcept {
    return std::memcmp(this, &other, sizeof *this) == 0;
  }
  /// Compilers make two moves of a memcpy; the members one by one would go through memory.
  void assign(const HostArrayContent& other) noexcept { std::memcpy(this, &other, sizeof *this); }
  static HostArrayContent copyOf(const HostArrayContent& other) noexcept {
    HostArrayContent copied;
    copied.assign(other);
    return copied;
  }
};

/// A value of the host: a two-dimensional array of numbers, logicals, UTF-16 code units, cells or structures,
/// in column-major order. Copies share their data until one of them is changed. Scalars and short texts live
/// in place; structure arrays keep one column of values per field. Like all of the platform, not for two
/// threads at once: copies share their count of references, which is not guarded.
///
/// Asking an array for what it does not hold raises Corvan:Arrays:WrongClass, NotScalar, IndexOutOfRange or
/// NoSuchField. Elements are counted from 0. A moved-from array is the empty double. What raises leaves the
/// array as it was. What makes or changes an array raises foundation::core::except::bad_alloc, or
/// std::bad_alloc, when memory is out, also for dimensions whose product no memory could hold.
class HostArray : private HostArrayContent {
 public:
  /// 0×0 double.
  HostArray() = default;

  // Each of these makes an array of its own. Dimensions of 0 are allowed everywhere: a 0×5 array is empty and
  // still has five columns.

  /// Zero-filled.
  static HostArray numeric(NumericClass numericClass, std::size_t rows, std::size_t columns);
  static HostArray int32Scalar(std::int32_t value) {
    return scalar(ArrayKind::Numeric, NumericClass::Int32, value);
  }
  static HostArray int32Row(std::span<const std::int32_t> values);
  static HostArray doubleScalar(double value) {
    return scalar(ArrayKind::Numeric, NumericClass::Double, value);
  }
  static HostArray logicalScalar(bool value) {
    return scalar(ArrayKind::Logical, NumericClass::Double, value);
  }
  /// 1×N, N the number of code units, which are taken as they are: a lone surrogate is no error.
  static HostArray charRow(std::u16string_view text) {
    if (text.size() > kInPlaceBytes / sizeof(char16_t)) return longCharRow(text);
    HostArray row = scalar(ArrayKind::Char, NumericClass::Double, char16_t{});
    row.columns_ = static_cast<std::uint8_t>(text.size());
    // An empty view may hold a null pointer, which memcpy must not be given even for no bytes.
    if (!text.empty()) std::memcpy(row.data_, text.data(), text.size() * sizeof(char16_t));
    return row;
  }
  /// Every cell is the empty double.
  static HostArray cell(std::size_t rows, std::size_t columns);
  /// Every field of every element is the empty double. Raises Corvan:Arrays:DuplicateField when two names are
  /// equal.
  static HostArray structure(std::size_t rows, std::size_t columns,
                             std::span<const std::u16string_view> fieldNames);

  // Here, to be compiled into the callers: arrays are copied and moved by the million.
  /// Copying shares the data and never allocates.
  HostArray(const HostArray& other) noexcept : HostArrayContent(copyOf(other)) {
    if (isInBlock()) addReference();
  }
  HostArray(HostArray&& other) noexcept : HostArrayContent(copyOf(other)) { other.forget(); }
  // By value: `other` was copied or moved before, and takes the old data with it.
  HostArray& operator=(HostArray other) noexcept {
    const HostArrayContent old = copyOf(*this);
    assign(other);
    other.assign(old);
    return *this;
  }
  ~HostArray() {
    if (isInBlock()) releaseBlock();
  }

  ArrayKind kind() const { return kind_; }
  /// Raises Corvan:Arrays:WrongClass when the array is not numeric.
  NumericClass numericClass() const;
  /// What the host calls the class: "double", "logical", "char", "cell", "struct".
  std::string_view className() const;
  std::size_t rows() const { return isInBlock() ? rowsOfBlock() : rows_; }
  std::size_t columns() const { return isInBlock() ? columnsOfBlock() : columns_; }
  /// Rows times columns; code units for a char array.
  std::size_t elementCount() const { return rows() * columns(); }
  bool isEmpty() const { return elementCount() == 0; }
  bool isScalar() const { return elementCount() == 1; }
  bool isNumeric() const { return kind() == ArrayKind::Numeric; }
  /// Whether the two share their data or hold the same in place, told without looking at the elements. Arrays
  /// that share nothing may be equal all the same.
  bool isCopyOf(const HostArray& other) const noexcept { return hasBytesOf(other); }

  /// The one element of a numeric, logical or char scalar: a logical as 0 or 1, a code unit as its number. A
  /// 64-bit integer is rounded where a double cannot hold it.
  double scalarAsDouble() const;
  /// The code units of a char array. Valid while this array stays where it is, unchanged.
  std::u16string_view text() const {
    requireKind(ArrayKind::Char);
    return {reinterpret_cast<const char16_t*>(elements()), elementCount()};
  }

  /// The elements of a numeric array of the class that T stands for, or of a logical array for T = bool,
  /// column by column. Nothing is converted: any other class raises Corvan:Arrays:WrongClass. Valid while
  /// this array stays where it is, unchanged.
  template <class T>
  std::span<const T> values() const {
    requireElementsOf<T>();
    return {reinterpret_cast<const T*>(elements()), elementCount()};
  }
  /// The same for writing; the data is no longer shared afterwards.
  template <class T>
  std::span<T> mutableValues() {
    requireElementsOf<T>();
    return {reinterpret_cast<T*>(ownElements()), elementCount()};
  }

  /// The value in a cell. The reference is valid until this array is changed or goes.
  const HostArray& cellAt(std::size_t index) const;
  void setCell(std::size_t index, HostArray value);

  /// In the order in which `structure` was given them. Valid as cellAt's reference is.
  const std::vector<std::u16string>& fieldNames() const;
  /// The value of one element's field, found by its name or, without a search, by its index among the names.
  const HostArray& fieldAt(std::size_t index, std::u16string_view name) const;
  const HostArray& fieldAt(std::size_t index, std::size_t field) const;
  /// Fields can be set but not added: the names are settled when the array is made.
  void setField(std::size_t index, std::u16string_view name, HostArray value);
  void setField(std::size_t index, std::size_t field, HostArray value);
  /// The values of all fields, to be set one after the other: those of the first field in all elements,
  /// behind them those of the second, and so on. Valid while this array stays unchanged otherwise and no copy
  /// of it is made.
  std::span<HostArray> fieldValues();
  /// The values of one field in all elements, to be read.
  std::span<const HostArray> fieldValues(std::size_t field) const;

 private:
  friend class TextPool;
  struct Block;
  struct ElementBlock;
  struct CellBlock;
  struct StructureBlock;

  // As a row count: the dimensions stand in the block, or the array is a text of a TextPool, whose place in
  // the block stands behind the pointer and whose length stands at that place.
  static constexpr std::uint8_t kInBlock = 0xFF, kInPool = 0xFE;

  template <class T>
  static HostArray scalar(ArrayKind kind, NumericClass numericClass, T value) noexcept {
    HostArray made;
    std::memcpy(made.data_, &value, sizeof value);
    made.kind_ = kind;
    made.numericClass_ = numericClass;
    made.rows_ = made.columns_ = 1;
    return made;
  }
  static HostArray longCharRow(std::u16string_view text);
  // Zero-filled elements of fixed size, in place if they fit.
  HostArray(ArrayKind kind, NumericClass numericClass, std::size_t rows, std::size_t columns);
  // Takes over the first reference of a new block.
  HostArray(ArrayKind kind, Block* block) noexcept;

  bool isInBlock() const { return rows_ >= kInPool; }
  // These may be asked of an array in a block only.
  std::size_t rowsOfBlock() const noexcept;
  std::size_t columnsOfBlock() const noexcept;
  const std::byte* elementsOfBlock() const noexcept;
  Block* block() const noexcept;
  void addReference() noexcept;
  void releaseBlock() noexcept;
  // Makes this the empty double without releasing anything.
  void forget() noexcept {
    kind_ = ArrayKind::Numeric;
    numericClass_ = NumericClass::Double;
    rows_ = columns_ = 0;
  }
  // The bytes of a text of a pool, its length first.
  std::byte* pooled() const noexcept;
  // Gives this array a block that no other refers to, copying the shared one if there are others.
  void unshare();
  // Where numbers, logicals or code units begin; `ownElements` unshares them for writing.
  const std::byte* elements() const { return isInBlock() ? elementsOfBlock() : data_; }
  std::byte* ownElements();
  const CellBlock& cells() const;
  const StructureBlock& structures() const;
  std::size_t fieldIndex(std::u16string_view name) const;
  void requireKind(ArrayKind kind) const {
    if (kind_ != kind) raiseOtherKind(kind);
  }
  [[noreturn]] void raiseOtherKind(ArrayKind kind) const;
  void requireClass(NumericClass numericClass) const;
  void requireIndex(std::size_t index) const;
  template <class T>
  void requireElementsOf() const {
    if constexpr (std::is_same_v<T, bool>) {
      requireKind(ArrayKind::Logical);
    } else {
      requireClass(numericClassOf<T>());
    }
  }
};

static_assert(sizeof(HostArray) == 16, "structure arrays hold millions of these");

/// Makes the char rows of an array that has many. Those that do not fit in place lie side by side in blocks,
/// which costs neither an allocation nor a head for each. A block (up to 16 KiB) stays in memory as long as
/// any of its texts.
class TextPool {
 public:
  /// As HostArray::charRow.
  HostArray charRow(std::u16string_view text);

 private:
  HostArray block_;  ///< that is being filled
  std::size_t size_ = 0, used_ = 0;
};

}  // namespace corvan
