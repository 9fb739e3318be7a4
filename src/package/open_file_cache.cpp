#include "package/open_file_cache.h"

#include <optional>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio::file {
namespace {

using tavlox::DataExportFile;

struct CacheEntry {
  std::u16string path;
  std::shared_ptr<DataExportFileCache> cached;
};

// The module's only process-wide object. It needs no construction at load, and its destruction at unload
// releases the package that is still held.
constinit std::optional<CacheEntry> openFileCache;

[[noreturn]] void raiseNotFound(const std::u16string& path) {
  throw opc::model::PackageNotFound(fl::i18n::to_string(path));
}

std::shared_ptr<DataExportFile> openForModification(const std::u16string& path) {
  auto file = std::make_shared<DataExportFile>(false);
  file->modify(path);
  file->getPackageImpl().open(packageMode(OpenMode::Modify));
  return file;
}

std::shared_ptr<DataExportFile> reopenCached(const std::u16string& path) {
  if (!fl::filesystem::exists(path)) {
    openFileCache.reset();
    raiseNotFound(path);
  }
  auto file = openFileCache->cached->file();
  if (!file->getPackageImpl().isOpen()) file->getPackageImpl().open(packageMode(OpenMode::Read));
  return file;
}

std::shared_ptr<DataExportFile> openNew(const std::u16string& path) {
  if (!fl::filesystem::exists(path)) raiseNotFound(path);
  auto file = std::make_shared<DataExportFile>(false);
  file->initReadPackage(path);
  file->modifyReadPackage(path);
  // Replaced only now: a file that cannot be read must leave the previous one cached.
  openFileCache = CacheEntry{path, std::make_shared<DataExportFileCache>(file)};
  return file;
}

}  // namespace

std::shared_ptr<DataExportFile> openDataExportFile(OpenMode mode, const std::u16string& path) {
  if (mode == OpenMode::Modify) return openForModification(path);
  const bool isCached = openFileCache.has_value() && openFileCache->path == path;
  return isCached ? reopenCached(path) : openNew(path);
}

}  // namespace orra::tavloxio::file
