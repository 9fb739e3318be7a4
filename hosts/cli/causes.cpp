#include "hosts/cli/causes.h"

#include <filesystem>

#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using foundation::core::except::except_with_causes;
using Causes = std::vector<except_with_causes>;

/// The rule of the package format that the file breaks, if it breaks one.
void addBrokenRule(Causes& causes, const std::u16string& path) {
  try {
    opc::model::Package package(path);
    package.open(opc::interfaces::OpenMode::Read);
  } catch (const opc::Exception& broken) {
    causes.push_back(broken);
  }
}

bool isWritable(const std::u16string& path, int also) {
  return access(fl::i18n::to_string(path).c_str(), W_OK | also) == 0;
}

/// What keeps a change of the file from being saved, as far as it can be seen from outside.
void addObstaclesToSaving(Causes& causes, const std::u16string& path) {
  const std::u16string target = fl::filesystem::weakly_canonical(path);
  const std::u16string folder = fl::filesystem::extract_parent_path(target);
  const bool exists = fl::filesystem::exists(target);
  // The mode is asked too: to the superuser every file is writable, and still a read-only one is left alone.
  if (exists && (!fl::filesystem::status(target).has(fl::filesystem::Permissions::OwnerWrite) ||
                 !isWritable(target, 0))) {
    causes.emplace_back("tavlox:save:FileIsReadOnly", foundation::core::except::Arguments{target});
  }
  if (!isWritable(folder, X_OK)) {
    causes.emplace_back("tavlox:save:FolderNotWritable", foundation::core::except::Arguments{folder});
  }
  std::error_code unknown;
  const auto space = std::filesystem::space(fl::i18n::to_string(folder), unknown);
  if (!unknown && space.available == 0) {
    causes.emplace_back("tavlox:save:DiskFull", foundation::core::except::Arguments{folder});
  }
}

}  // namespace

Causes findCauses(const foundation::core::except::IUserException& error) {
  Causes causes;
  if (error.GetArguments().empty() || error.GetArguments().front().empty()) return causes;
  const std::u16string& path = error.GetArguments().front();
  const bool isReading = error.GetID() == "tavlox:general:UnableToReadFile";
  const bool isSaving = error.GetID() == "tavlox_io:general:UnableToClosePackage";
  if (isReading) addBrokenRule(causes, path);
  // A file that is sound and still not read was to be changed.
  if (isSaving || (isReading && causes.empty())) addObstaclesToSaving(causes, path);
  return causes;
}

}  // namespace tavlox::cli
