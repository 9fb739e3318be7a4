#include "assets/extract.h"

#include <cerrno>
#include <memory>
#include <optional>

#include <boost/unordered/unordered_flat_map.hpp>

#include "assets/user_files.h"
#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/files/folder.h"
#include "platform/opc/streams.h"
#include "platform/text/conversion.h"
#include "platform/text/text_hash.h"

namespace orra::tavloxio::part {

namespace fs = fl::filesystem;
using foundation::core::except::Arguments;
using foundation::core::except::except_with_causes;

namespace {

[[noreturn]] void raiseInvalid(const std::u16string& path, const except_with_causes& cause) {
  throw except_with_causes("tavlox_io:general:InvalidOutputPath", Arguments{path}, {cause});
}

/// Where an entry is written, relative to the output folder; empty for an entry that is not asked for.
using RelativePath = std::u16string (*)(const std::u16string& target);

std::u16string keepingThePath(const std::u16string& target) { return target.substr(1); }

std::u16string lessTheUserFolder(const std::u16string& target) {
  constexpr std::u16string_view folder = kUserFolder;
  return target.starts_with(folder) ? fs::make_native_form(target.substr(folder.size())) : std::u16string();
}

[[noreturn]] void raiseNotReplaced(const std::u16string& path, const std::u16string& reason) {
  raiseInvalid(path, fs::Error(fl::i18n::MessageId<2>("fl:filesystem:ReplaceFailed"), {path, reason}));
}

[[noreturn]] void raiseSystemsReason(const std::u16string& path, int error) {
  raiseNotReplaced(path, fl::i18n::to_ustring(fs::systemReason(error)));
}

/// A package that is written over while it is read is lost.
void refusePackageItself(const std::u16string& filePath, const opc::model::Package& package) {
  if (fs::weakly_canonical(filePath) != fs::weakly_canonical(package.path())) return;
  raiseNotReplaced(filePath, u"it is the package that is read");
}

/// Writes parts to files, of which many lie in one folder: that is made, found and kept open once.
class FileWriter {
 public:
  /// Gives the file's canonical path.
  std::u16string write(const std::u16string& filePath, const opc::model::Package& package,
                       const opc::model::Part& part) {
    enter(fs::extract_parent_path(filePath));
    const std::u16string name = fs::extract_filename(filePath);
    if (auto file = folder_->createFile(name)) {
      writePart(filePath, file, part);
      return fs::concatenate(canonical_, name);
    }
    // Written over if it is there, and where it leads if it is a link.
    if (fs::exists(filePath)) refusePackageItself(filePath, package);
    fs::Descriptor file = fs::createOrEmptyFile(filePath);
    if (!file) raiseSystemsReason(filePath, errno);
    writePart(filePath, file, part);
    return fs::weakly_canonical(filePath);
  }

 private:
  void enter(const std::u16string& folder) {
    if (folder_ && folder == path_) return;
    prepareOutputDirectory(folder);
    folder_.emplace(folder);
    path_ = folder;
    canonical_ = fs::weakly_canonical(folder);
  }

  static void writePart(const std::u16string& filePath, fs::Descriptor& file, const opc::model::Part& part) {
    try {
      opc::copyStream(*part.getInputStream(), file.get());
    } catch (const except_with_causes& failure) {
      raiseInvalid(filePath, failure);
    }
    if (const int error = file.close(); error != 0) raiseSystemsReason(filePath, error);
  }

  std::u16string path_, canonical_;
  std::optional<fs::Folder> folder_;
};

/// Why a relationship reaches no part.
void addMissing(collection& errors, const opc::model::Package& package,
                const opc::model::Relationship& link) {
  const std::u16string& target = link.getTarget().text();
  if (link.getTargetMode() == opc::model::TargetMode::External) {
    return errors.add("opc:package:ExternalTarget", package.path(), link.getID(), target);
  }
  errors.add("opc:part:NotFound", package.path(), target);
}

/// An external target is another thing than the part of the same name.
using Target = std::pair<opc::model::TargetMode, std::u16string>;

struct TargetHash {
  using is_avalanching = void;
  std::size_t operator()(const Target& target) const noexcept {
    const std::u16string& text = target.second;
    return fl::i18n::TextHash()({reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
  }
};

/// The visitor that extracts. A relationship that reaches no part is added to `errors` and the walk goes on:
/// one such entry must not keep the others from being extracted, and the host is to hear of every one that is
/// missing. A file that cannot be written ends the walk, since the next one would fail as well.
RelationshipVisitor writerTo(const std::u16string& folder, RelativePath relativePath,
                             std::vector<std::u16string>& written, collection& errors) {
  // The file of each target so far, empty for a missing one. Any number of relationships may lead to one
  // part, and a small package can hold many thousands; writing it for each would take minutes.
  const auto writer = std::make_shared<FileWriter>();
  return [=, &written, &errors, files = boost::unordered_flat_map<Target, std::u16string, TargetHash>()](
             opc::model::Package& package, const opc::model::Relationship& link) mutable {
    const std::u16string& target = link.getTarget().text();
    const std::u16string relative = relativePath(target);
    if (relative.empty()) return;
    const auto [file, isFirst] = files.try_emplace(Target(link.getTargetMode(), target));
    if (isFirst) {
      // Looked for before anything is written: only the name of a part becomes a path on disk, and such a
      // name cannot climb out of the folder.
      const auto part = package.findPart(link);
      if (!part) return addMissing(errors, package, link);
      file->second = writer->write(fs::concatenate(folder, relative), package, *part);
    }
    if (!file->second.empty()) written.push_back(file->second);
  };
}

}  // namespace

std::vector<std::u16string> copyFilesToDisk(const file::ScopedRef& ref, const std::u16string& name,
                                            const std::u16string& outputFolder) {
  const std::u16string folder =
      outputFolder.empty() ? fs::make_native_form(fs::current_path()) : prepareOutputDirectory(outputFolder);
  // One empty text is the answer that hosts know for a folder that may not be written; it is no error.
  if (!fs::status(folder).has(fs::Permissions::OwnerWrite)) return {u""};

  std::vector<std::u16string> written;
  collection errors;
  const auto relativePath = isPackagePath(name) ? keepingThePath : lessTheUserFolder;
  forEachPartFound(ref, name, writerTo(folder, relativePath, written, errors), errors, kUserFolder);
  raiseGatheredErrors(errors, {});
  return written;
}

std::u16string prepareOutputDirectory(const std::u16string& folder) {
  try {
    std::u16string absolute = fs::make_native_form(fs::absolute(folder));
    // By the absolute path, so that the cause of an error says which one was tried: "~" is a name like others
    // here, and a shell has expanded it before.
    if (!fs::exists(absolute)) {
      fs::create_directories(absolute);
      fs::set_permissions(absolute, fs::Permissions::OwnerAll);
    }
    return absolute;
  } catch (const fs::Error& failure) {
    raiseInvalid(folder, failure);
  }
}

}  // namespace orra::tavloxio::part
