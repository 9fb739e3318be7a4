#include "platform/repository/set.h"

#include <utility>

#include "platform/repository/members.h"
#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/object_manager.h"
#include "platform/repository/repository.h"
#include "platform/repository/sql/transaction.h"
#include "platform/text/conversion.h"

namespace orra {
namespace {

std::int32_t runOf(const Set& set) {
  return static_cast<std::int32_t>(set.getObjectReference().identifier());
}

sql::RowCursor::Lease rowOf(const Set& set) {
  return set.getObjectReference().getObjectManager()->repository().runs().row(runOf(set));
}

/// Appends a reference for each identifier.
auto appendTo(boost::ptr_vector<ObjectRef>& references, ObjectManager& manager) {
  return [&references, &manager](std::int64_t identifier) {
    references.push_back(new ObjectRef(&manager, identifier));
  };
}

}  // namespace

void Set::loadRunsFromJSON(ObjectManager& manager, std::istream& stream, IdentifierMap& fileToRepository,
                           std::vector<std::int32_t>& newRuns, Application) {
  Repository& repository = manager.repository();
  std::vector<std::pair<std::int32_t, std::int32_t>> loaded;
  sql::Transaction transaction(repository.database());
  ObjRefArrayJSON(kRunListKind).load(stream, [&](std::size_t index, const Row& row) {
    const auto inFile = static_cast<std::int32_t>(row[0]->get_int64().value());
    const std::int32_t run = newRunIdentifier(inFile);
    repository.runs().add(run, index + 1, row);
    loaded.emplace_back(inFile, run);
  });
  transaction.commit();
  for (const auto& [inFile, run] : loaded) {
    fileToRepository[inFile] = run;
    newRuns.push_back(run);
  }
}

bool Set::lookupSet(std::int32_t run, std::shared_ptr<Set>& result, ObjectManager& manager, bool mustExist) {
  result.reset();
  RunTable& runs = manager.repository().runs();
  if (mustExist) runs.row(run);
  if (!runs.has(run)) return false;
  result = std::make_shared<Set>(ObjectRef(&manager, run));
  return true;
}

void Set::getAllSignals(ObjectManager& manager, SignalQueryType type, std::int32_t run,
                        boost::ptr_vector<ObjectRef>& references) {
  if (type == SignalQueryType::None) return;
  manager.repository().signals().forEachOf(run, appendTo(references, manager));
}

void Set::getAllSignalsByName(ObjectManager& manager, const std::u16string& name, std::int32_t run,
                              boost::ptr_vector<ObjectRef>& references) {
  // No signal has a name that is not well-formed: loading refuses it.
  if (!fl::i18n::is_well_formed(name)) return;
  manager.repository().signals().forEachNamed(fl::i18n::to_string(name), run, appendTo(references, manager));
}

std::u16string Set::getRunMetaDataUstring(std::string_view key) const {
  return getObjectReference().getObjectManager()->repository().runs().metadata(runOf(*this), key);
}

std::u16string Set::getRunDisplayName() const { return rowOf(*this)->text(RunTable::Name); }
std::string Set::getDateString() const { return std::string(rowOf(*this)->bytes(RunTable::DateCreated)); }
std::uint32_t Set::getRunNumber() const {
  return static_cast<std::uint32_t>(rowOf(*this)->integer(RunTable::RunNumber));
}
std::int32_t Set::getOrderIndex() const {
  return static_cast<std::int32_t>(rowOf(*this)->integer(RunTable::OrderIndex));
}
std::u16string Set::getModel() const { return rowOf(*this)->text(RunTable::Model); }
std::string Set::getSimMode() const { return std::string(rowOf(*this)->bytes(RunTable::SimMode)); }
double Set::getStartTime() const { return rowOf(*this)->number(RunTable::StartTime); }
double Set::getStopTime() const { return rowOf(*this)->number(RunTable::StopTime); }
std::u16string Set::getRunStatus() const { return rowOf(*this)->text(RunTable::Status); }
double Set::getUpdateTime() const { return rowOf(*this)->number(RunTable::UpdateTime); }
double Set::getSimTime() const { return rowOf(*this)->number(RunTable::SimTime); }
double Set::getTermTime() const { return rowOf(*this)->number(RunTable::TermTime); }
double Set::getTotalTime() const { return rowOf(*this)->number(RunTable::TotalTime); }

}  // namespace orra
