#include "package/scoped_ref.h"

#include <exception>

#include "package/open_file_cache.h"
#include "platform/errors/exceptions.h"
#include "platform/errors/package_errors.h"

namespace orra::tavloxio::file {
namespace {

using foundation::core::except::raise;

std::shared_ptr<tavlox::DataExportFile> openTranslated(OpenMode mode, const std::u16string& path) {
  try {
    return openDataExportFile(mode, path);
  } catch (const opc::model::PackageNotFound&) {
    raise("tavlox:general:FileNotFound", path);
  } catch (...) {
    raise("tavlox:general:UnableToReadFile", path);
  }
}

void closeTranslated(tavlox::DataExportFile& file, const std::u16string& path) {
  try {
    file.closePackage();
  } catch (const opc::Exception&) {
    raise("tavlox_io:general:UnableToClosePackage", path);
  }
}

}  // namespace

ScopedRef::ScopedRef(OpenMode mode, const std::u16string& path)
    : file_(openTranslated(mode, path)), path_(path), errorsInFlight_(std::uncaught_exceptions()) {}

ScopedRef::~ScopedRef() noexcept(false) {
  try {
    closeTranslated(*file_, path_);
  } catch (...) {
    // A second error during unwinding would end the process; the first one is what the caller must hear of.
    if (std::uncaught_exceptions() > errorsInFlight_) return;
    throw;
  }
}

}  // namespace orra::tavloxio::file
