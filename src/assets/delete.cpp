#include "assets/delete.h"

#include "assets/names.h"
#include "assets/walkers.h"

namespace orra::tavloxio::part {

std::vector<std::u16string> deleteFromPackage(const file::ScopedRef& ref, const std::u16string& name) {
  std::vector<std::u16string> removed;
  const RelationshipVisitor visit = [&](opc::model::Package& package, const opc::model::Relationship& link) {
    removeUserEntry(package, link);
    removed.push_back(link.getTarget().text());
  };
  collection errors;
  switch (classify(name)) {
    case Search::Absolute:
      forEachPartUnderPath(ref, name, visit, errors);
      break;
    // A bare name deletes among user files only, although it lists among all entries.
    case Search::BareName:
      forEachPartByFileName(ref, name, visit, errors, kUserFolder);
      break;
    case Search::Unsupported:
      errors.add("tavlox_io:general:UnsupportedSearch");
      break;
  }
  raiseGatheredErrors(errors, {});
  return removed;
}

}  // namespace orra::tavloxio::part
