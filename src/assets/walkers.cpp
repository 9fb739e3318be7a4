#include "assets/walkers.h"

#include "assets/names.h"
#include "platform/files/filesystem.h"

namespace orra::tavloxio::part {

using opc::model::ExcludeMode;
using opc::model::Relationship;

namespace {

/// Whether `target` is `name` or lies below the folder `name`: "/user/a" selects "/user/a/b.txt" but not
/// "/user/ab.txt".
bool selects(const std::u16string& name, const std::u16string& target) {
  if (!target.starts_with(name)) return false;
  return target.size() == name.size() || name.ends_with(u'/') || target[name.size()] == u'/';
}

/// Visits the links that match, and notes it when there was none.
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

void forEachPartUnderPath(const file::ScopedRef& ref, const std::u16string& name,
                          const RelationshipVisitor& visit, collection& errors) {
  if (name.empty() || classify(name) != Search::Absolute) return;
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

void raiseGatheredErrors(const collection& errors, const std::set<std::string>& identifiersToLetPass) {
  if (errors.empty()) return;
  const auto error = errors.extract_except_with_causes();
  if (!identifiersToLetPass.contains(error.GetID())) throw error;
}

void removeUserEntry(opc::model::Package& package, const Relationship& link) {
  package.deleteRelationship(link.getID());
  if (const auto name = targetPartName(link)) package.deletePart(*name);
}

}  // namespace orra::tavloxio::part
