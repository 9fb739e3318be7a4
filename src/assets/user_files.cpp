#include "assets/user_files.h"

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio::part {

namespace fs = fl::filesystem;
using opc::model::ExcludeMode;
using opc::model::Relationship;

namespace {

constexpr std::size_t kFirstOption = 2;  // after the object and the method's main input

/// Only ASCII letters have a lower case here.
std::u16string lowerCase(std::u16string text) {
  for (char16_t& unit : text) {
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit - u'A' + u'a');
  }
  return text;
}

/// Whether `target` is `name` or lies below the folder `name`: "/user/a" selects "/user/a/b.txt" but not
/// "/user/ab.txt".
bool selects(const std::u16string& name, const std::u16string& target) {
  if (!target.starts_with(name)) return false;
  return target.size() == name.size() || name.ends_with(u'/') || target[name.size()] == u'/';
}

/// Visits the links whose target matches, and adds an error when there was none.
template <class Matches>
void visitMatches(const file::ScopedRef& ref, const std::vector<Relationship>& links, const Matches& matches,
                  const std::u16string& name, const RelationshipVisitor& visit, collection& errors) {
  bool found = false;
  for (const Relationship& link : links) {
    if (!matches(link.getTarget().text())) continue;
    found = true;
    visit(ref.package(), link);
  }
  if (!found) errors.add("tavlox_io:general:EntryDoesNotExist", name);
}

}  // namespace

std::u16string fileNameOf(const std::u16string& path) {
  return fs::extract_filename(fs::make_native_form(path));
}

bool isPackagePath(const std::u16string& search) {
  return fs::is_absolute_path_when_expanded(fs::make_native_form(search));
}

OptionMap parseNameValueOptions(std::span<const zobs::Value> inputs) {
  OptionMap options;
  for (std::size_t i = kFirstOption; i + 1 < inputs.size(); i += 2) {
    const auto& name = std::get<std::u16string>(inputs[i]);
    const auto& value = std::get<std::u16string>(inputs[i + 1]);
    const std::string key = fl::i18n::to_string_lossy(name);
    if (key == "OutputPath" || key == "Path") {
      options.insert_or_assign(key, value);
    } else if (key == "Replace") {
      // "enable" is the one word that switches it on.
      options.insert_or_assign(key, lowerCase(value) == u"enable");
    } else {
      foundation::core::except::raise("Corvan:InputParser:UnmatchedParameter", name, u"");
    }
  }
  return options;
}

void forEachPartUnderPath(const file::ScopedRef& ref, const std::u16string& name,
                          const RelationshipVisitor& visit, collection& errors) {
  if (name.empty() || !isPackagePath(name)) return;
  const auto matches = [&](const std::u16string& target) { return selects(name, target); };
  visitMatches(ref, ref.package().getRelationships(ExcludeMode::None), matches, name, visit, errors);
}

void forEachPartByFileName(const file::ScopedRef& ref, const std::u16string& name,
                           const RelationshipVisitor& visit, collection& errors,
                           const std::u16string& folder) {
  if (fileNameOf(name) != name) return;
  const auto links = folder == kUserFolder ? ref.package().getRelationshipsByType(kUserAssetsRelationshipType)
                                           : ref.package().getRelationships(ExcludeMode::None);
  const auto matches = [&](const std::u16string& target) {
    return target.starts_with(folder) && fileNameOf(target) == name;
  };
  visitMatches(ref, links, matches, name, visit, errors);
}

void forEachPartFound(const file::ScopedRef& ref, const std::u16string& search,
                      const RelationshipVisitor& visit, collection& errors, const std::u16string& folder) {
  if (isPackagePath(search)) return forEachPartUnderPath(ref, search, visit, errors);
  if (fileNameOf(search) == search) return forEachPartByFileName(ref, search, visit, errors, folder);
  errors.add("tavlox_io:general:UnsupportedSearch");
}

void raiseGatheredErrors(const collection& errors, const std::set<std::string>& identifiersToLetPass) {
  if (errors.empty()) return;
  const auto error = errors.extract_except_with_causes();
  if (!identifiersToLetPass.contains(error.GetID())) throw error;
}

void removeUserEntry(opc::model::Package& package, const Relationship& link) {
  // Looked for first, so that a relationship that reaches no part goes without an error.
  const auto part = package.findPart(link);
  package.deleteRelationship(link.getID());
  if (part) package.deletePart(part->getName());
}

}  // namespace orra::tavloxio::part
