#include "assets/searching.h"

#include "assets/user_files.h"

namespace orra::tavloxio::part {
namespace {

using opc::model::Package;
using opc::model::Relationship;

/// A relationship that reaches no part has no content type to show. It is listed all the same, so that people
/// see the entry and can delete it.
std::u16string typeOf(const Package& package, const Relationship& link) {
  const auto part = package.findPart(link);
  if (!part) return {};
  const std::u16string subType = part->getContentType().getSubType();
  const std::size_t plus = subType.rfind(u'+');
  return plus == std::u16string::npos ? std::u16string() : subType.substr(plus + 1);
}

}  // namespace

std::vector<ListedEntry> listFiles(const file::ScopedRef& ref, const ListOptions& options) {
  const bool listsAll = options.search.empty() || options.search == u"*";
  const std::u16string search = listsAll ? u"/" : options.search;
  std::vector<ListedEntry> entries;
  const auto visit = [&](Package& package, const Relationship& link) {
    const std::u16string& target = link.getTarget().text();
    entries.push_back({target, fileNameOf(target), typeOf(package, link)});
  };
  collection errors;
  forEachPartFound(ref, search, visit, errors, u"/");
  // Listing what is not there is an empty answer; deleting or extracting it is an error.
  raiseGatheredErrors(errors, {"tavlox_io:general:EntryDoesNotExist"});
  return entries;
}

std::vector<std::u16string> deleteFromPackage(const file::ScopedRef& ref, const std::u16string& name) {
  std::vector<std::u16string> removed;
  const auto visit = [&](Package& package, const Relationship& link) {
    removeUserEntry(package, link);
    removed.push_back(link.getTarget().text());
  };
  collection errors;
  // A bare name deletes among user files only, although it lists among all entries.
  forEachPartFound(ref, name, visit, errors, kUserFolder);
  raiseGatheredErrors(errors, {});
  return removed;
}

}  // namespace orra::tavloxio::part
