#pragma once

#include <string>

#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"

/// Where commands keep what is not finished, and what becomes of it when the program is asked to end.
namespace tavlox::cli {

/// SIGINT, SIGTERM or SIGHUP came while a temporary folder was there. No std::exception: nothing between the
/// place that raises it and `main`, which ends the program by the signal, may take it for a failure.
struct Interrupted {
  int signal;
};
/// Raises Interrupted if such a signal came. Long work calls this now and then; progress reports do.
void endIfInterrupted();

/// A folder ".tavlox-XXXXXX", for this user only, that goes with the object. While it is there, signals that
/// ask the program to end are kept for `endIfInterrupted`; a second one ends it at once. One stands at a
/// time.
class TemporaryFolder {
 public:
  /// Removes what killed programs left in `parent`, then makes the folder there. Raises
  /// tavlox:cli:CannotMakeFolder.
  explicit TemporaryFolder(const std::u16string& parent);
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// As `parent` was given, with the folder's name behind it.
  const std::u16string& path() const { return path_; }
  /// The open folder, for calls that take paths relative to it; valid as long as the object.
  int descriptor() const { return folder_.get(); }

  /// The error, and each of its causes, as it would read if `meant` stood in the place of this folder: people
  /// never asked for the temporary path, and it is gone when they read it.
  foundation::core::except::except_with_causes inTermsOf(
      const std::u16string& meant, const foundation::core::except::except_with_causes& error) const;

 private:
  std::u16string path_;
  fl::filesystem::Descriptor folder_;
};

}  // namespace tavlox::cli
