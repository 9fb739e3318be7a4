#pragma once

#include <atomic>
#include <memory>

#include "platform/arrays/host_array.h"

namespace corvan {

/// What copies of one array share when it does not fit in place. Counts its references atomically: a host may
/// hand values to another thread, and beside the allocation of the block the count costs nothing.
struct HostArray::Block {
  Block(std::size_t rowCount, std::size_t columnCount) : rows(rowCount), columns(columnCount) {}
  Block(const Block& other) : rows(other.rows), columns(other.columns) {}
  Block& operator=(const Block&) = delete;
  virtual ~Block() = default;
  virtual Block* copy() const = 0;

  void retain() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
  /// Destroys the block with its last reference.
  void release() noexcept;
  bool isShared() const noexcept { return references.load(std::memory_order_acquire) != 1; }

  // Blocks differ in size from their type, so the sized form of delete must not be chosen for them.
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t size, std::size_t extra) { return ::operator new(size + extra); }
  static void operator delete(void* memory) { ::operator delete(memory); }
  static void operator delete(void* memory, std::size_t) { ::operator delete(memory); }

  std::atomic<std::size_t> references{1};
  std::size_t rows, columns;
  Block* nextDoomed = nullptr;
};

/// Numbers, logicals or code units, in the same heap block, behind this head.
struct HostArray::ElementBlock final : Block {
  static ElementBlock* create(std::size_t rowCount, std::size_t columnCount, std::size_t bytes);
  Block* copy() const override;

  std::byte* elements() { return reinterpret_cast<std::byte*>(this + 1); }
  const std::byte* elements() const { return reinterpret_cast<const std::byte*>(this + 1); }

  std::size_t byteCount;

 private:
  ElementBlock(std::size_t rowCount, std::size_t columnCount, std::size_t bytes)
      : Block(rowCount, columnCount), byteCount(bytes) {}
};

struct HostArray::CellBlock final : Block {
  CellBlock(std::size_t rowCount, std::size_t columnCount)
      : Block(rowCount, columnCount), values(rowCount * columnCount) {}
  Block* copy() const override { return new CellBlock(*this); }

  std::vector<HostArray> values;
};

/// One column of values per field, in the order of the names. The names never change, so copies share them.
struct HostArray::StructureBlock final : Block {
  StructureBlock(std::size_t rowCount, std::size_t columnCount, std::vector<std::u16string> fieldNames)
      : Block(rowCount, columnCount),
        names(std::make_shared<const std::vector<std::u16string>>(std::move(fieldNames))),
        fields(names->size(), std::vector<HostArray>(rowCount * columnCount)) {}
  Block* copy() const override { return new StructureBlock(*this); }

  std::shared_ptr<const std::vector<std::u16string>> names;
  std::vector<std::vector<HostArray>> fields;
};

}  // namespace corvan
