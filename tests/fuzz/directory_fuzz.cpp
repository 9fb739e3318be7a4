// Any bytes at all, read as an archive: refused with an error, or read within what the directory declares.

#include <array>
#include <cstdlib>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/directory.h"
#include "platform/zip/entry_reader.h"

namespace {

/// An inflating archive of a few kilobytes may say gigabytes; the fuzzer has more use for other inputs.
constexpr std::uint64_t kEnough = 1 << 20;

void require(bool holds) {
  if (!holds) std::abort();
}

void readEntry(const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Entry& entry) {
  zip::EntryReader reader(file, entry);
  std::array<char, 1000> buffer;
  std::uint64_t total = 0;
  try {
    while (const std::size_t count = reader.read(buffer.data(), buffer.size())) {
      total += count;
      require(count <= buffer.size() && total <= entry.size);
      if (total > kEnough) return;
    }
    require(total == entry.size);
  } catch (const opc::Exception&) {
  }
}

void checkLayout(const zip::Directory& directory, std::uint64_t fileSize) {
  require(directory.offset() <= fileSize);
  for (const zip::Entry& entry : directory.entries()) {
    require(entry.headerOffset < entry.dataOffset && entry.dataOffset <= entry.endOffset);
    require(entry.endOffset <= directory.offset() &&
            entry.compressedSize <= entry.endOffset - entry.dataOffset);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int descriptor = memfd_create("archive", MFD_CLOEXEC);
  require(descriptor >= 0 && write(descriptor, data, size) == static_cast<ssize_t>(size));
  try {
    const auto file =
        std::make_shared<const fl::filesystem::InputFile>("/proc/self/fd/" + std::to_string(descriptor));
    const auto directory = zip::Directory::read(*file);
    checkLayout(directory, size);
    for (const zip::Entry& entry : directory.entries()) readEntry(file, entry);
  } catch (const opc::model::PackageOpenFailed&) {
  }
  close(descriptor);
  return 0;
}
