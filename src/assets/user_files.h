#pragma once

#include <functional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <variant>

#include "package/scoped_ref.h"
#include "platform/errors/exceptions.h"
#include "platform/opc/package.h"
#include "platform/zobs/object.h"

/// What adding, extracting, listing and deleting user files have in common: the names of the files, the
/// options, and how entries of a package are selected.
namespace orra::tavloxio::part {

using foundation::core::except::collection;

/// The folder of the package for user files: where they are stored, and where a bare name is looked for.
inline constexpr char16_t kUserFolder[] = u"/user/";
/// The type of the package-level relationship that leads to a user file.
inline constexpr char16_t kUserAssetsRelationshipType[] = u"UserAssetsPartRelType";

/// The last component of a path or part name.
std::u16string fileNameOf(const std::u16string& path);

/// Whether a search text is a path of the package, to a part or a folder, rather than a file name.
bool isPackagePath(const std::u16string& search);

/// "OutputPath" and "Path" hold a text, "Replace" a logical.
using OptionMap = std::unordered_map<std::string, std::variant<std::u16string, bool>>;

/// The name/value pairs of a method's inputs, from the third input on. A trailing name without a value is
/// ignored; a name that occurs twice keeps its last value; "Replace" is true for the word "enable" in any
/// case and false for all others. Raises Corvan:InputParser:UnmatchedParameter, with the name and an empty
/// text, for an unknown name.
OptionMap parseNameValueOptions(std::span<const zobs::Value> inputs);

/// The value of an option; empty or false if it was not given.
template <class OptionValue>
OptionValue optionOf(const OptionMap& options, const std::string& name) {
  const auto option = options.find(name);
  return option != options.end() ? std::get<OptionValue>(option->second) : OptionValue{};
}

/// What is done with a relationship that a walker selects. Its errors leave the walk at once.
using RelationshipVisitor = std::function<void(opc::model::Package&, const opc::model::Relationship&)>;

/// Visits every package-level relationship, of any type, whose target is `name` or lies in the folder `name`,
/// in the package's order. "/" selects all. Nothing happens if `name` is no absolute path. Adds
/// tavlox_io:general:EntryDoesNotExist, with the name, if nothing matched.
void forEachPartUnderPath(const file::ScopedRef& ref, const std::u16string& name,
                          const RelationshipVisitor& visit, collection& errors);

/// Visits every relationship whose target's file name is `name` and whose target begins with `folder`: user
/// files only if the folder is the user folder, otherwise relationships of every type. Nothing happens if
/// `name` has a folder part. Adds tavlox_io:general:EntryDoesNotExist, with the name, if nothing matched.
void forEachPartByFileName(const file::ScopedRef& ref, const std::u16string& name,
                           const RelationshipVisitor& visit, collection& errors,
                           const std::u16string& folder);

/// Visits what a search text selects: walks by path for an absolute one, by file name in `folder` for a bare
/// one. Adds tavlox_io:general:UnsupportedSearch for a relative path with folders.
void forEachPartFound(const file::ScopedRef& ref, const std::u16string& search,
                      const RelationshipVisitor& visit, collection& errors, const std::u16string& folder);

/// Raises what was gathered as one error with causes, unless its identifier is among those to let pass.
void raiseGatheredErrors(const collection& errors, const std::set<std::string>& identifiersToLetPass);

/// Deletes a relationship, and the part it reaches if there is one.
void removeUserEntry(opc::model::Package& package, const opc::model::Relationship& link);

}  // namespace orra::tavloxio::part
