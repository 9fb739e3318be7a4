#include "platform/opc/part_streams.h"

#include <utility>

#include "platform/errors/package_errors.h"

namespace opc {

PartInputStream::PartInputStream(std::shared_ptr<model::PackageState> state, model::PartName name)
    : state_(std::move(state)), name_(std::move(name)) {
  open();
}

void PartInputStream::open() {
  const PartView part = state_->part(name_);
  written_.reset();
  entry_.reset();
  data_ = part.data;
  if (part.entry) {
    entry_.emplace(state_->file(), state_->contents().index().entries()[*part.entry]);
  }
  if (!data_) return;
  if (!data_->spool.isFinished()) raise("opc:part:StillWritten", state_->path(), name_.text());
  if (data_->isBroken) raise("opc:part:LostData", state_->path(), name_.text());
  written_.emplace(data_->spool);
}

std::size_t PartInputStream::read(void* into, std::size_t count) {
  if (!state_->isOpen()) raise("opc:package:Closed", state_->path());
  const std::size_t got = readFromSource(into, count);
  state_->countInflated(got);
  return got;
}

std::size_t PartInputStream::readFromSource(void* into, std::size_t count) {
  if (entry_) return entry_->read(into, count);
  return written_ ? written_->read(into, count) : 0;
}

void PartInputStream::restart() { open(); }

PartOutputStream::PartOutputStream(std::shared_ptr<model::PackageState> state,
                                   std::shared_ptr<WrittenData> data)
    : state_(std::move(state)), data_(std::move(data)) {}

PartOutputStream::~PartOutputStream() {
  // Nobody can be told here; saving is refused instead.
  try {
    data_->spool.finish();
  } catch (...) {
    data_->isBroken = true;
  }
}

void PartOutputStream::write(const void* data, std::size_t count) {
  if (!state_->isOpen()) raise("opc:package:Closed", state_->path());
  try {
    data_->spool.write(data, count);
  } catch (...) {
    data_->isBroken = true;
    throw;
  }
}

}  // namespace opc
