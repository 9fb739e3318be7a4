// An array of up to 12 bytes is its own storage. A larger one, and every cell and structure array, holds a
// pointer to a block on the heap, with dimensions of its own and a count of the arrays that refer to it;
// whoever changes an array copies a block that has other references first. There are three kinds of block:
// elements of fixed size behind one head, cells, and structures.
//
// The pointer is kept in the bytes of the array and goes in and out by memcpy, which compilers turn into one
// load or store: bytes may be read as any type only that way.

#include "platform/arrays/host_array.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "platform/errors/exceptions.h"

namespace corvan {
namespace {

using foundation::core::except::raise;

// In the order of NumericClass.
constexpr std::array<std::string_view, 10> kClassNames{"double", "single", "int8",   "int16",  "int32",
                                                       "int64",  "uint8",  "uint16", "uint32", "uint64"};

// In the order of ArrayKind.
constexpr std::array<std::string_view, 5> kKindNames{"numeric", "logical", "char", "cell", "struct"};

/// The result of `make` for the C++ type of a numeric class. It is called for every type, and one of the ten
/// results is taken: it must be cheap and without effects.
template <class Maker>
auto forType(NumericClass numericClass, const Maker& make) {
  return [&]<class... T>(const std::tuple<T...>*) {
    return std::array{make.template operator()<T>()...}[static_cast<std::size_t>(numericClass)];
  }(static_cast<const NumericTypes*>(nullptr));
}

std::size_t elementSize(ArrayKind kind, NumericClass numericClass) {
  if (kind == ArrayKind::Logical) return sizeof(bool);
  if (kind == ArrayKind::Char) return sizeof(char16_t);
  return forType(numericClass, []<class T>() { return sizeof(T); });
}

/// The bytes of so many elements, or out of memory where no allocation could be that large.
/// Checked here, because a wrapped product would pass for a small array that is then written beyond its end,
/// and std::vector would raise length_error. Half of the address space leaves room for the head of a block.
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

/// The array with these values, of which there must be as many as it has elements.
template <class T>
HostArray filled(HostArray array, std::span<const T> values) {
  std::ranges::copy(values, array.template mutableValues<T>().begin());
  return array;
}

}  // namespace

/// What copies of one array share when it does not fit in place.
struct HostArray::Block {
  Block(std::size_t rowCount, std::size_t columnCount) : rows(rowCount), columns(columnCount) {}
  // A copy begins with one reference, that of the array it is made for.
  Block(const Block& other) : rows(other.rows), columns(other.columns) {}
  Block& operator=(const Block&) = delete;
  virtual ~Block() = default;
  /// A block of its own with the same values; arrays in cells and fields share theirs with the original's.
  virtual Block* copy() const = 0;

  /// Destroys the block with its last reference.
  void release() noexcept;

  // Blocks differ in size from their type, so the sized form of delete must not be chosen for them.
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t size, std::size_t extra) { return ::operator new(size + extra); }
  static void operator delete(void* memory) { ::operator delete(memory); }
  static void operator delete(void* memory, std::size_t) { ::operator delete(memory); }

  std::size_t references = 1;
  std::size_t rows, columns;
  // Links the blocks that wait to be destroyed. It costs a word per block, but destroying allocates nothing.
  Block* nextDoomed = nullptr;
};

void HostArray::Block::release() noexcept {
  if (--references != 0) return;
  // Cells may be nested as deeply as memory allows. Blocks that lose their last reference while another one
  // is destroyed wait in this list: a recursion would overflow the stack.
  static Block* doomed = nullptr;
  static bool isEmptying = false;
  nextDoomed = doomed;
  doomed = this;
  if (isEmptying) return;
  isEmptying = true;
  while (doomed != nullptr) {
    Block* const next = doomed;
    doomed = next->nextDoomed;
    delete next;
  }
  isEmptying = false;
}

/// Numbers, logicals or code units, in the same heap block, behind this head. The head's size is a multiple
/// of eight, which is as far as any element must be aligned.
struct HostArray::ElementBlock final : Block {
  ElementBlock(std::size_t rowCount, std::size_t columnCount, std::size_t bytes)
      : Block(rowCount, columnCount), byteCount(bytes) {}

  static ElementBlock* create(std::size_t rowCount, std::size_t columnCount, std::size_t bytes) {
    auto* const block = new (bytes) ElementBlock(rowCount, columnCount, bytes);
    std::memset(block->elements(), 0, bytes);
    return block;
  }

  // Not by `create`, which would zero the bytes that are written next.
  Block* copy() const override {
    auto* const block = new (byteCount) ElementBlock(rows, columns, byteCount);
    std::memcpy(block->elements(), elements(), byteCount);
    return block;
  }

  std::byte* elements() { return reinterpret_cast<std::byte*>(this + 1); }
  const std::byte* elements() const { return reinterpret_cast<const std::byte*>(this + 1); }

  std::size_t byteCount;
};

/// Cells, column by column. A cell is an array like any other, the empty double until it is set.
struct HostArray::CellBlock final : Block {
  CellBlock(std::size_t rowCount, std::size_t columnCount)
      : Block(rowCount, columnCount), values(rowCount * columnCount) {}
  Block* copy() const override { return new CellBlock(*this); }

  std::vector<HostArray> values;
};

/// One column of values per field, behind each other in the order of the names. The names never change, so
/// copies share them.
struct HostArray::StructureBlock final : Block {
  StructureBlock(std::size_t rowCount, std::size_t columnCount, std::vector<std::u16string> fieldNames)
      : Block(rowCount, columnCount),
        names(std::make_shared<const std::vector<std::u16string>>(std::move(fieldNames))),
        values(names->size() * rowCount * columnCount) {}
  Block* copy() const override { return new StructureBlock(*this); }

  std::shared_ptr<const std::vector<std::u16string>> names;
  std::vector<HostArray> values;
};

NumericClass numericClassByName(std::string_view name) {
  const auto found = std::ranges::find(kClassNames, name);
  if (found == kClassNames.end()) raise("Corvan:Arrays:UnknownClass", name);
  return static_cast<NumericClass>(found - kClassNames.begin());
}

std::string_view nameOf(NumericClass numericClass) {
  return kClassNames[static_cast<std::size_t>(numericClass)];
}

HostArray::HostArray(ArrayKind kind, NumericClass numericClass, std::size_t rows, std::size_t columns) {
  kind_ = kind;
  numericClass_ = numericClass;
  const std::size_t bytes = checkedBytes(rows, columns, elementSize(kind, numericClass));
  // A 0×300 array needs no bytes, but its dimensions do not fit into one byte each.
  if (bytes <= kInPlaceBytes && rows < kInPool && columns <= UINT8_MAX) {
    rows_ = static_cast<std::uint8_t>(rows);
    columns_ = static_cast<std::uint8_t>(columns);
    return;
  }
  Block* const created = ElementBlock::create(rows, columns, bytes);
  std::memcpy(data_, &created, sizeof(void*));
  rows_ = kInBlock;
}

HostArray::HostArray(ArrayKind kind, Block* block) noexcept {
  kind_ = kind;
  rows_ = kInBlock;
  std::memcpy(data_, &block, sizeof(void*));
}

HostArray HostArray::numeric(NumericClass numericClass, std::size_t rows, std::size_t columns) {
  return HostArray(ArrayKind::Numeric, numericClass, rows, columns);
}

HostArray HostArray::int32Row(std::span<const std::int32_t> values) {
  return filled(numeric(NumericClass::Int32, 1, values.size()), values);
}

HostArray HostArray::longCharRow(std::u16string_view text) {
  HostArray row(ArrayKind::Char, NumericClass::Double, 1, text.size());
  std::memcpy(row.ownElements(), text.data(), text.size() * sizeof(char16_t));
  return row;
}

HostArray HostArray::cell(std::size_t rows, std::size_t columns) {
  // Checked before the block multiplies the two.
  checkedBytes(rows, columns, sizeof(HostArray));
  return HostArray(ArrayKind::Cell, new CellBlock(rows, columns));
}

HostArray HostArray::structure(std::size_t rows, std::size_t columns,
                               std::span<const std::u16string_view> fieldNames) {
  checkedBytes(checkedBytes(rows, columns, 1), fieldNames.size(), sizeof(HostArray));
  // Each name against those before it: records have tens of fields, for which a set would take longer.
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

std::size_t HostArray::rowsOfBlock() const noexcept { return rows_ == kInPool ? 1 : block()->rows; }

std::size_t HostArray::columnsOfBlock() const noexcept {
  if (rows_ != kInPool) return block()->columns;
  std::uint32_t length = 0;
  std::memcpy(&length, pooled(), sizeof length);
  return length;
}

double HostArray::scalarAsDouble() const {
  // For these two this always raises: the message says that a number is needed.
  if (kind_ == ArrayKind::Cell || kind_ == ArrayKind::Struct) requireKind(ArrayKind::Numeric);
  if (!isScalar()) raise("Corvan:Arrays:NotScalar", rows(), columns());
  if (kind_ == ArrayKind::Char) return text().front();
  if (kind_ == ArrayKind::Logical) return values<bool>().front() ? 1 : 0;
  return forType(numericClass_, []<class T>() { return &firstAsDouble<T>; })(elements());
}

const HostArray& HostArray::cellAt(std::size_t index) const {
  const CellBlock& block = cells();
  requireIndex(index);
  return block.values[index];
}

void HostArray::setCell(std::size_t index, HostArray value) {
  requireKind(ArrayKind::Cell);
  requireIndex(index);
  // Given a copy of this very array, `value` holds a second reference to the block, so that the array goes on
  // with another one: no array comes to contain itself.
  unshare();
  static_cast<CellBlock*>(block())->values[index] = std::move(value);
}

const std::vector<std::u16string>& HostArray::fieldNames() const { return *structures().names; }

const HostArray& HostArray::fieldAt(std::size_t index, std::u16string_view name) const {
  return fieldAt(index, fieldIndex(name));
}

const HostArray& HostArray::fieldAt(std::size_t index, std::size_t field) const {
  const StructureBlock& block = structures();
  if (field >= block.names->size()) raise("Corvan:Arrays:NoSuchField", field);
  requireIndex(index);
  return block.values[field * elementCount() + index];
}

void HostArray::setField(std::size_t index, std::u16string_view name, HostArray value) {
  setField(index, fieldIndex(name), std::move(value));
}

void HostArray::setField(std::size_t index, std::size_t field, HostArray value) {
  if (field >= structures().names->size()) raise("Corvan:Arrays:NoSuchField", field);
  requireIndex(index);
  unshare();
  static_cast<StructureBlock*>(block())->values[field * elementCount() + index] = std::move(value);
}

std::span<HostArray> HostArray::fieldValues() {
  requireKind(ArrayKind::Struct);
  unshare();
  return static_cast<StructureBlock*>(block())->values;
}

std::span<const HostArray> HostArray::fieldValues(std::size_t field) const {
  if (field >= structures().names->size()) raise("Corvan:Arrays:NoSuchField", field);
  return std::span(static_cast<const StructureBlock*>(block())->values)
      .subspan(field * elementCount(), elementCount());
}

HostArray::Block* HostArray::block() const noexcept {
  Block* pointer = nullptr;
  std::memcpy(&pointer, data_, sizeof(void*));
  return pointer;
}

void HostArray::addReference() noexcept { ++block()->references; }
void HostArray::releaseBlock() noexcept { block()->release(); }

std::byte* HostArray::pooled() const noexcept {
  std::uint32_t offset = 0;
  std::memcpy(&offset, data_ + sizeof(void*), sizeof offset);
  return static_cast<ElementBlock*>(block())->elements() + offset;
}

void HostArray::unshare() {
  Block* const shared = block();
  if (shared->references == 1) return;
  // If memory is out here, the array still refers to the shared block.
  Block* const own = shared->copy();
  std::memcpy(data_, &own, sizeof(void*));
  shared->release();
}

const std::byte* HostArray::elementsOfBlock() const noexcept {
  if (rows_ == kInPool) return pooled() + sizeof(std::uint32_t);
  return static_cast<const ElementBlock*>(block())->elements();
}

// Not for texts of a pool: char arrays are not written to once they are made.
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

std::size_t HostArray::fieldIndex(std::u16string_view name) const {
  // One by one: there are few names. Who sets a field of many elements does it by the index.
  const auto& names = fieldNames();
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) raise("Corvan:Arrays:NoSuchField", name);
  return static_cast<std::size_t>(found - names.begin());
}

HostArray TextPool::charRow(std::u16string_view text) {
  constexpr std::size_t kFirst = 512, kMost = 16'384, kHead = sizeof(std::uint32_t);
  const std::size_t bytes = text.size() * sizeof(char16_t);
  // A text that would fill a good part of a block gets its own, so that little is left unused at the end.
  if (bytes <= HostArray::kInPlaceBytes || bytes > kFirst / 2) return HostArray::charRow(text);
  if (kHead + bytes > size_ - used_) {
    // Small at first: a record of its own has few texts.
    size_ = std::clamp(2 * size_, kFirst, kMost);
    block_ = HostArray::numeric(NumericClass::UInt8, 1, size_);
    used_ = 0;
  }
  HostArray row = block_;
  const auto offset = static_cast<std::uint32_t>(used_);
  std::memcpy(row.data_ + sizeof(void*), &offset, sizeof offset);
  row.kind_ = ArrayKind::Char;
  row.rows_ = HostArray::kInPool;
  const auto length = static_cast<std::uint32_t>(text.size());
  std::memcpy(row.pooled(), &length, kHead);
  std::memcpy(row.pooled() + kHead, text.data(), bytes);
  // The next text begins where its length is aligned.
  used_ += (kHead + bytes + kHead - 1) / kHead * kHead;
  used_ = std::min(used_, size_);
  return row;
}

void HostArray::raiseOtherKind(ArrayKind kind) const {
  raise("Corvan:Arrays:WrongClass", className(), kKindNames[static_cast<std::size_t>(kind)]);
}

void HostArray::requireClass(NumericClass numericClass) const {
  if (isNumeric() && numericClass_ == numericClass) return;
  raise("Corvan:Arrays:WrongClass", className(), nameOf(numericClass));
}

void HostArray::requireIndex(std::size_t index) const {
  if (index >= elementCount()) raise("Corvan:Arrays:IndexOutOfRange", index, elementCount());
}

}  // namespace corvan
