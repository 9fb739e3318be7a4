#include "platform/opc/streams.h"

#include <array>

#include "platform/errors/package_errors.h"
#include "platform/opc/open_package.h"
#include "platform/progress/progress.h"

namespace opc {

namespace {

using fl::filesystem::systemReason;

// Large enough that the calls do not count, small enough to stay in the cache.
using Block = std::array<char, std::size_t{64} * 1024>;

/// Reports about once per MiB.
void report(const char16_t* activity, std::uint64_t copied, std::uint64_t expected) {
  constexpr std::uint64_t kStep = std::uint64_t{1} << 20;
  if (copied % kStep < sizeof(Block)) corvan::reportProgress({activity, copied, expected});
}

}  // namespace

InputStream::InputStream(std::shared_ptr<OpenPackage> package, model::PartName part)
    : package_(std::move(package)), part_(std::move(part)) {
  restart();
}

void InputStream::restart() {
  // Asked anew each time: the data may have been replaced since the last reading began.
  const PartView part = package_->part(part_);
  written_.reset();
  entry_.reset();
  data_ = part.data;
  size_ = part.size();
  if (part.entry) entry_.emplace(package_->file(), *part.entry);
  // A part that was created and never written to is empty.
  if (!data_) return;
  package_->checkIsComplete(*data_, part_);
  written_.emplace(*data_);
}

std::size_t InputStream::read(void* into, std::size_t count) {
  package_->checkIsOpen();
  std::size_t got = 0;
  // At most one of the two is there; at the end neither is.
  if (entry_) got = entry_->read(into, count);
  if (written_) got = written_->read(into, count);
  package_->countInflated(got);
  // Whoever lists thousands of parts holds a stream of each: at its end it gives its buffers back.
  if (got == 0 && count > 0) {
    entry_.reset();
    written_.reset();
  }
  return got;
}

OutputStream::OutputStream(std::shared_ptr<OpenPackage> package, std::shared_ptr<zip::Spool> data)
    : package_(std::move(package)), data_(std::move(data)) {}

OutputStream::~OutputStream() {
  try {
    data_->finish();
  } catch (...) {
    // Nobody can be told here. The data says itself that it is broken, and saving is refused.
  }
}

void OutputStream::write(const void* data, std::size_t count) {
  package_->checkIsOpen();
  data_->write(data, count);
}

std::streamsize InputStreamSource::read(char* into, std::streamsize count) {
  // A source that gives 0 has not ended for Boost, so an empty request must not look like the end.
  if (count <= 0) return 0;
  const std::size_t got = input_->read(into, static_cast<std::size_t>(count));
  return got == 0 ? -1 : static_cast<std::streamsize>(got);
}

void copyStream(InputStream& from, int file) {
  Block block;
  std::uint64_t copied = 0;
  while (const std::size_t count = from.read(block.data(), block.size())) {
    const int error = fl::filesystem::writeAt(file, copied, block.data(), count);
    if (error != 0) raise("opc:stream:CannotWrite", copied, systemReason(error));
    copied += count;
    report(u"Extracting", copied, from.size());
  }
}

const std::string& OutputStream::packagePath() const { return package_->path(); }

void copyFile(const fl::filesystem::OpenFile& from, std::u16string_view name, OutputStream& to) {
  // Whatever ends the copy early, what was copied so far must not pass for the whole.
  struct Abandon {
    OutputStream* unfinished;
    ~Abandon() {
      if (unfinished) unfinished->abandon();
    }
  } abandon{&to};
  Block block;
  std::uint64_t copied = 0;
  for (;;) {
    const auto [count, error] =
        fl::filesystem::readSomeAt(from.descriptor.get(), copied, block.data(), block.size());
    if (error != 0) raise("opc:stream:CannotRead", to.packagePath(), name, copied, systemReason(error));
    to.write(block.data(), count);
    copied += count;
    report(u"Storing", copied, from.size);
    // The end shows in a read of nothing. That one is spared where less came than was asked for and the size
    // agrees; what the system makes up while it is read has a size of 0.
    if (count == 0 || (count < block.size() && copied == from.size)) break;
  }
  abandon.unfinished = nullptr;
}

}  // namespace opc
