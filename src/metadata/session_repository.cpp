#include "metadata/session_repository.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_only.hpp>

#include "package/session_parts.h"

// Runs first, since each signal names its run by the identifier in the file, which the map of the loaded runs
// translates. Files choose their identifiers freely; the repository's are unique in the process, so that an
// object that was looked up before a reload cannot be taken for one of the new content.
namespace orra::tavloxio {

namespace except = foundation::core::except;
namespace relationship_types = tavlox::relationship_types;

void loadRunData(const file::ScopedRef& ref, ObjectManager& manager, RunIdMap& runIdMap) {
  // Of several run lists the first counts, as for the number of runs.
  const auto runLists = findPartsByRelationshipType(ref, relationship_types::kRunData);
  if (runLists.empty()) return;
  PartStream runList(runLists.front(), StartAt::Beginning);
  RunIdMap loaded;
  std::vector<RunId> newRuns;
  Set::loadRunsFromJSON(manager, runList, loaded, newRuns, Application::SessionFile);
  // Entries of an earlier load stay, and mostly there was none.
  if (runIdMap.empty()) runIdMap.swap(loaded);
  for (const auto& [inFile, run] : loaded) runIdMap[inFile] = run;

  for (auto& found : findPartsByRelationshipType(ref, relationship_types::kSignalsData)) {
    // A part keeps its input open: one is let go of before the next is asked.
    const opc::model::Part part = std::move(found);
    PartStream stream(part, StartAt::Beginning);
    ObjRefArrayJSON signals(kSignalsPartKind, ObjRefArrayJSON::Reading::WithRows);
    // Rows are stored while they are parsed: a signals part may be larger than memory.
    signals.load(stream);
    object::loadSignals(manager, signals, runIdMap, nullptr, false, 0, nullptr);
  }
}

void appendSignals(Signals& result, boost::ptr_vector<ObjectRef>& references) {
  for (const ObjectRef& reference : references) {
    result.push_back(*Signal::getSignalFromObjRef(std::make_unique<ObjectRef>(reference)));
  }
  references.clear();
}

void throwCollected(const except::collection& errors) {
  if (errors.empty()) return;
  // The host expects the pause before every error, also where there is nothing to wait for.
  boost::this_thread::sleep(boost::posix_time::milliseconds(500));
  // Later errors mostly follow from the first.
  const auto first = errors.extract_except_with_causes();
  if (first.GetID() == "sqldb:ssdb:Corrupt") {
    except::raiseCollection("simulation_data_repository:sdr:InternalError");
  }
  if (first.GetID() == "sqldb:ssdb:Locked") {
    except::raise("sqldb:ssdb:Locked", first.GetID(), first.GetMessageTxt());
  }
  throw errors;
}

}  // namespace orra::tavloxio
