#include "platform/opc/streams.h"

#include <array>
#include <istream>
#include <ostream>

#include "platform/errors/package_errors.h"
#include "platform/opc/open_package.h"
#include "platform/progress/progress.h"

namespace opc {

namespace {

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

std::uint64_t copyStream(InputStream& from, std::ostream& to, std::uint64_t expected) {
  Block block;
  std::uint64_t copied = 0;
  while (const std::size_t count = from.read(block.data(), block.size())) {
    to.write(block.data(), static_cast<std::streamsize>(count));
    if (!to) raise("opc:stream:CannotWrite", copied);
    copied += count;
    report(u"Extracting", copied, expected);
  }
  // What the stream still buffers must meet a full disk here, not in a destructor that cannot say so.
  if (!to.flush()) raise("opc:stream:CannotWrite", copied);
  return copied;
}

const std::string& OutputStream::packagePath() const { return package_->path(); }

std::uint64_t copyStream(std::istream& from, std::u16string_view file, OutputStream& to,
                         std::uint64_t expected) {
  // Whatever ends the copy early, what was copied so far must not pass for the whole.
  struct Abandon {
    OutputStream* unfinished;
    ~Abandon() {
      if (unfinished) unfinished->abandon();
    }
  } abandon{&to};
  // A file that did not open fails without being at its end, and must not pass for an empty one.
  if (from.fail() && !from.eof()) raise("opc:stream:CannotRead", to.packagePath(), file, 0);
  Block block;
  std::uint64_t copied = 0;
  while (from) {
    from.read(block.data(), block.size());
    if (from.bad()) raise("opc:stream:CannotRead", to.packagePath(), file, copied);
    const auto count = static_cast<std::size_t>(from.gcount());
    if (count == 0) break;
    to.write(block.data(), count);
    copied += count;
    report(u"Storing", copied, expected);
  }
  abandon.unfinished = nullptr;
  return copied;
}

}  // namespace opc
