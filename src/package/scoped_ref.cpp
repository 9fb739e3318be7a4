#include "package/scoped_ref.h"

#include <exception>
#include <optional>

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio::file {
namespace {

using foundation::core::except::raise;
using tavlox::DataExportFile;

/// The file most recently opened for reading. Queries come in series for one file, and its package keeps the
/// directory, content types and relationships that it has read; one file is enough for that.
struct DataExportFileCache {
  std::u16string path;
  std::shared_ptr<DataExportFile> file;
};

// Its destruction, when the module is unloaded, releases the package that is still held.
constinit std::optional<DataExportFileCache> openFileCache;

constexpr opc::interfaces::OpenMode packageMode(OpenMode mode) {
  return mode == OpenMode::Modify ? opc::interfaces::OpenMode::Modify : opc::interfaces::OpenMode::Read;
}

std::shared_ptr<DataExportFile> openForModification(const std::u16string& path) {
  auto file = std::make_shared<DataExportFile>(false);
  file->modify(path);
  file->getPackageImpl().open(packageMode(OpenMode::Modify));
  return file;
}

std::shared_ptr<DataExportFile> openForReading(const std::u16string& path) {
  const bool isCached = openFileCache.has_value() && openFileCache->path == path;
  // Looked for first: the cached object of a file that is gone must not answer for it, nor hold its memory.
  if (!fl::filesystem::exists(path)) {
    if (isCached) openFileCache.reset();
    throw opc::model::PackageNotFound(fl::i18n::to_string(path));
  }
  if (isCached) {
    // A file that was changed in the meantime is read anew: the package compares when it is opened.
    auto file = openFileCache->file;
    if (!file->getPackageImpl().isOpen()) file->getPackageImpl().open(packageMode(OpenMode::Read));
    return file;
  }
  auto file = std::make_shared<DataExportFile>(false);
  file->initReadPackage(path);
  file->modifyReadPackage(path);
  // Replaced only now: a file that cannot be read must leave the previous one cached.
  openFileCache = DataExportFileCache{path, file};
  return file;
}

/// Hosts know two errors of opening. Why a file cannot be read (damaged, no permission, out of memory) is not
/// among them.
std::shared_ptr<DataExportFile> openTranslated(OpenMode mode, const std::u16string& path) {
  try {
    return openDataExportFile(mode, path);
  } catch (const opc::model::PackageNotFound&) {
    raise("tavlox:general:FileNotFound", path);
  } catch (...) {
    raise("tavlox:general:UnableToReadFile", path);
  }
}

}  // namespace

std::shared_ptr<DataExportFile> openDataExportFile(OpenMode mode, const std::u16string& path) {
  return mode == OpenMode::Modify ? openForModification(path) : openForReading(path);
}

ScopedRef::ScopedRef(OpenMode mode, const std::u16string& path)
    : file_(openTranslated(mode, path)), path_(path), errorsInFlight_(std::uncaught_exceptions()) {}

ScopedRef::~ScopedRef() noexcept(false) {
  // A second error during unwinding would end the process; the first one is what the caller must hear of.
  const auto anotherIsInFlight = [this] { return std::uncaught_exceptions() > errorsInFlight_; };
  try {
    file_->closePackage();
  } catch (const opc::Exception&) {
    if (!anotherIsInFlight()) raise("tavlox_io:general:UnableToClosePackage", path_);
  } catch (...) {
    if (!anotherIsInFlight()) throw;
  }
}

}  // namespace orra::tavloxio::file
