#pragma once

#include <optional>
#include <string>

#include "platform/opc/package.h"

/// How user files are called in the package and on disk.
namespace orra::tavloxio::part {

/// The folder of the package that user files go into, are looked for in by bare name, and are stripped of.
inline constexpr char16_t kUserFolder[] = u"/user/";
/// The type of the package-level relationship that leads to a user file.
inline constexpr char16_t kUserAssetsRelationshipType[] = u"UserAssetsPartRelType";

/// What a search text names. Told apart in this order.
enum class Search {
  Absolute,     ///< a path of the package: a part, or a folder with everything below it
  BareName,     ///< a file name, looked for in every folder
  Unsupported,  ///< a relative path with folders
};
Search classify(const std::u16string& text);

/// The name in the package of a disk file stored in `folder` (the user folder if it is empty), as text. The
/// folders above the file on disk are not kept.
std::u16string entryNameFor(const std::u16string& folder, const std::u16string& diskPath);

/// The last component of a path or part name.
std::u16string fileNameOf(const std::u16string& path);

/// The name of the part that a relationship leads to. None for an external target, and for one that no part
/// can be called.
std::optional<opc::model::PartName> targetPartName(const opc::model::Relationship& link);

/// The part that a relationship leads to. Raises opc::Exception if there is none.
opc::model::Part targetPart(const opc::model::Package& package, const opc::model::Relationship& link);

}  // namespace orra::tavloxio::part
