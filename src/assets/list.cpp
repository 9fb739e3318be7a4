#include "assets/list.h"

#include "assets/names.h"
#include "assets/walkers.h"

namespace orra::tavloxio::part {
namespace {

/// A target outside the package has no content type to show.
std::u16string typeOf(const opc::model::Package& package, const opc::model::Relationship& link) {
  if (link.getTargetMode() == opc::model::TargetMode::External) return {};
  const std::u16string subType = targetPart(package, link).getContentType().getSubType();
  const std::size_t plus = subType.rfind(u'+');
  return plus == std::u16string::npos ? std::u16string() : subType.substr(plus + 1);
}

}  // namespace

std::vector<ListedEntry> listFiles(const file::ScopedRef& ref, const ListOptions& options) {
  const bool listsAll = options.search.empty() || options.search == u"*";
  const std::u16string search = listsAll ? u"/" : options.search;
  std::vector<ListedEntry> entries;
  const RelationshipVisitor visit = [&](opc::model::Package& package, const opc::model::Relationship& link) {
    const std::u16string& target = link.getTarget().text();
    entries.push_back({target, fileNameOf(target), typeOf(package, link)});
  };
  collection errors;
  switch (classify(search)) {
    case Search::Absolute:
      forEachPartUnderPath(ref, search, visit, errors);
      break;
    case Search::BareName:
      forEachPartByFileName(ref, search, visit, errors, u"/");
      break;
    case Search::Unsupported:
      foundation::core::except::raise("tavlox_io:general:UnsupportedSearch");
  }
  // Listing what is not there is an empty answer; deleting or extracting it is an error.
  raiseGatheredErrors(errors, {"tavlox_io:general:EntryDoesNotExist"});
  return entries;
}

}  // namespace orra::tavloxio::part
