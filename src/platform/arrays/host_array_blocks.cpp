#include "platform/arrays/host_array_blocks.h"

#include <cstring>

namespace corvan {

void HostArray::Block::release() noexcept {
  if (references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  // Cells may be nested as deeply as memory allows. What a dying block lets go of waits in this list, so that
  // deep nesting costs no stack.
  thread_local Block* doomed = nullptr;
  thread_local bool isEmptying = false;
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

HostArray::ElementBlock* HostArray::ElementBlock::create(std::size_t rowCount, std::size_t columnCount,
                                                         std::size_t bytes) {
  auto* const block = new (bytes) ElementBlock(rowCount, columnCount, bytes);
  std::memset(block->elements(), 0, bytes);
  return block;
}

HostArray::Block* HostArray::ElementBlock::copy() const {
  auto* const block = new (byteCount) ElementBlock(rows, columns, byteCount);
  std::memcpy(block->elements(), elements(), byteCount);
  return block;
}

}  // namespace corvan
