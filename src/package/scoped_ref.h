#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/export_file/data_export_file.h"

/// How the module opens package files.
namespace orra::tavloxio::file {

/// Queries read, changes modify.
enum class OpenMode : std::int32_t { Read = 0, Modify = 1 };

/// Gives an open file. The file most recently opened for reading is cached; its object survives the closing
/// of its package, so that the next read of the same path, exactly as it is written, only reopens it. Modify
/// always opens a new file and leaves the cache alone.
///
/// Raises opc::model::PackageNotFound if there is no such file, and what the package library raises.
std::shared_ptr<tavlox::DataExportFile> openDataExportFile(OpenMode mode, const std::u16string& path);

/// Lends one open package to the caller and closes it on scope exit. Readers of one path share a file object,
/// so of two that are nested the one that ends first closes the package for both; a Modify handle never
/// shares. Closing a modified package saves it, so the destructor may raise.
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
  /// The open package; the reference is valid as long as this handle.
  opc::model::Package& package() const { return file_->getPackageImpl(); }
  /// The path as it was given, which is how errors name the file.
  const std::u16string& path() const { return path_; }

 private:
  std::shared_ptr<tavlox::DataExportFile> file_;
  std::u16string path_;
  int errorsInFlight_;  // when the handle was taken
};

}  // namespace orra::tavloxio::file
