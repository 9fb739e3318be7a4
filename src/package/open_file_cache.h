#pragma once

#include <memory>
#include <string>

#include "package/open_mode.h"
#include "platform/export_file/data_export_file.h"

namespace orra::tavloxio::file {

/// The one file that was most recently opened for reading. Its object survives the closing of its package, so
/// that the next read of the same path only reopens it.
class DataExportFileCache {
 public:
  explicit DataExportFileCache(std::shared_ptr<tavlox::DataExportFile> file) : file_(std::move(file)) {}
  const std::shared_ptr<tavlox::DataExportFile>& file() const { return file_; }

 private:
  std::shared_ptr<tavlox::DataExportFile> file_;
};

/// Gives an open file. Modify always opens a new one and leaves the cache alone; Read asks the cache for the
/// path, exactly as it is written, and otherwise opens a new file, which then takes the place of the cached
/// one.
///
/// Raises opc::model::PackageNotFound if there is no such file, and what the package library raises.
std::shared_ptr<tavlox::DataExportFile> openDataExportFile(OpenMode mode, const std::u16string& path);

}  // namespace orra::tavloxio::file
