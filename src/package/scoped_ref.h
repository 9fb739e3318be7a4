#pragma once

#include <memory>
#include <string>

#include "package/open_mode.h"
#include "platform/export_file/data_export_file.h"

namespace orra::tavloxio::file {

/// Lends one open package to the caller and closes it on scope exit. Readers of one path share a file object;
/// a Modify handle never does. Closing a modified package saves it, so the destructor may raise.
class ScopedRef {
 public:
  /// Raises tavlox:general:FileNotFound or tavlox:general:UnableToReadFile, with `path` as it was given.
  ScopedRef(OpenMode mode, const std::u16string& path);

  /// Raises tavlox_io:general:UnableToClosePackage, with the path, if the package library cannot close or
  /// save the package. While another error is in flight that error is the one reported, and this one is
  /// dropped.
  ~ScopedRef() noexcept(false);

  ScopedRef(const ScopedRef&) = delete;
  ScopedRef& operator=(const ScopedRef&) = delete;

  tavlox::DataExportFile& file() const { return *file_; }
  opc::model::Package& package() const { return file_->getPackageImpl(); }
  const std::u16string& path() const { return path_; }

 private:
  std::shared_ptr<tavlox::DataExportFile> file_;
  std::u16string path_;
  int errorsInFlight_;  // when the handle was taken
};

}  // namespace orra::tavloxio::file
