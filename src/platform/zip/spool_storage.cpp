#include "platform/zip/spool_storage.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"

namespace zip {
using opc::raise;

namespace {

constexpr std::size_t kMemory = std::size_t{8} << 20;

/// A file that has no name, so that nothing is left whatever becomes of the process.
fl::filesystem::Descriptor openUnlinked(const std::string& folder) {
  fl::filesystem::Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600));
  if (file) return file;
  std::string name = folder + "/.spool-XXXXXX";
  file = fl::filesystem::Descriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (!file) raise("opc:spool:CannotCreate", folder, fl::filesystem::systemReason(errno));
  ::unlink(name.c_str());
  return file;
}

}  // namespace

SpoolStorage::SpoolStorage(std::string folder) : folder_(folder.empty() ? "." : std::move(folder)) {}

bool SpoolStorage::takeMemory(std::size_t count) {
  const std::lock_guard lock(mutex_);
  if (count > kMemory - memory_) return false;
  memory_ += count;
  return true;
}

void SpoolStorage::giveMemoryBack(std::size_t count) {
  const std::lock_guard lock(mutex_);
  memory_ -= count;
}

std::uint64_t SpoolStorage::append(const char* data, std::size_t count) {
  const std::lock_guard lock(mutex_);
  if (!file_) file_ = openUnlinked(folder_);
  const int error = fl::filesystem::writeAt(file_.get(), end_, data, count);
  if (error != 0) raise("opc:spool:CannotWrite", folder_, fl::filesystem::systemReason(error));
  end_ += count;
  return end_ - count;
}

}  // namespace zip
