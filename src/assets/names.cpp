#include "assets/names.h"

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"

namespace orra::tavloxio::part {

namespace fs = fl::filesystem;

Search classify(const std::u16string& text) {
  const std::u16string native = fs::make_native_form(text);
  if (fs::is_absolute_path_when_expanded(native)) return Search::Absolute;
  return fs::extract_filename(native) == text ? Search::BareName : Search::Unsupported;
}

std::u16string entryNameFor(const std::u16string& folder, const std::u16string& diskPath) {
  const std::u16string packageFolder = fs::make_native_form(folder.empty() ? kUserFolder : folder);
  return fs::make_generic_form(fs::concatenate(packageFolder, fileNameOf(diskPath)));
}

std::u16string fileNameOf(const std::u16string& path) {
  return fs::extract_filename(fs::make_native_form(path));
}

std::optional<opc::model::PartName> targetPartName(const opc::model::Relationship& link) {
  if (link.getTargetMode() == opc::model::TargetMode::External) return std::nullopt;
  try {
    return opc::model::PartName(link.getTarget().text());
  } catch (const opc::Exception&) {
    return std::nullopt;
  }
}

opc::model::Part targetPart(const opc::model::Package& package, const opc::model::Relationship& link) {
  if (link.getTargetMode() == opc::model::TargetMode::External) {
    opc::raise("opc:package:ExternalTarget", package.path(), link.getID(), link.getTarget().text());
  }
  return package.getPart(opc::model::PartName(link.getTarget().text()));
}

}  // namespace orra::tavloxio::part
