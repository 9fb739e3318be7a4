// Any bytes as a run list and as a signals part of one repository: they are loaded, or refused with the one
// error that says why; loading them into the database sees as many as reading them alone does, and an audit
// finds fault with what is refused only.

#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/errors/exceptions.h"
#include "platform/repository/signal.h"

namespace {

constexpr char kInvalid[] = "simulation_data_repository:sdr:InvalidSessionData";

/// The number of elements, or nothing if the part is refused.
template <class Read>
std::optional<std::size_t> count(const Read& read) {
  try {
    return read();
  } catch (const foundation::core::except::IUserException& error) {
    if (error.GetID() != kInvalid) std::abort();
    return std::nullopt;
  }
}

/// The elements that an audit finds nothing wrong with; nothing if there is a fault.
std::optional<std::size_t> countAudited(const orra::PartKind& kind, const std::string& json) {
  std::istringstream stream(json);
  std::size_t sound = 0, faults = 0;
  orra::ObjRefArrayJSON(kind).audit(
      stream, [&](std::size_t, const orra::Row&) { ++sound; }, [&](const auto&) { ++faults; });
  return faults == 0 ? std::optional(sound) : std::nullopt;
}

std::optional<std::size_t> countAlone(const orra::PartKind& kind, const std::string& json) {
  const auto counted = count([&] {
    std::istringstream stream(json);
    orra::ObjRefArrayJSON array(kind);
    array.load(stream);
    return array.size();
  });
  if (counted != countAudited(kind, json)) std::abort();
  return counted;
}

/// What is loaded is rolled back, so that one database serves every input.
void load(orra::ObjectManager& manager, const std::string& json) {
  orra::RunIdMap runIds;
  std::vector<orra::RunId> runs;
  std::istringstream runList(json);
  const auto loadedRuns = count([&] {
    orra::Set::loadRunsFromJSON(manager, runList, runIds, runs, orra::Application::SessionFile);
    return runs.size();
  });
  if (loadedRuns != countAlone(orra::kRunListKind, json)) std::abort();

  std::istringstream one(R"([{"id":1}])"), stream(json);
  if (!runIds.contains(orra::FileRunId{1})) {
    orra::Set::loadRunsFromJSON(manager, one, runIds, runs, orra::Application::SessionFile);
  }
  const auto loadedSignals = count([&] {
    orra::ObjRefArrayJSON signals(orra::kSignalsPartKind, orra::ObjRefArrayJSON::Reading::WithRows);
    signals.load(stream);
    orra::object::loadSignals(manager, signals, runIds, nullptr, false, 0, nullptr);
    return signals.size();
  });
  // A signal of an unknown run is refused here only.
  if (loadedSignals && loadedSignals != countAlone(orra::kSignalsPartKind, json)) std::abort();
}

}  // namespace

void sessionJson(std::string_view bytes) {
  static orra::ObjectManager* const manager = [] {
    auto* created = new orra::ObjectManager;
    created->initializeObjectManager("", "");
    return created;
  }();
  foundation::core::except::collection rolledBack;
  manager->safeTransaction(
      [&] {
        load(*manager, std::string(bytes));
        throw foundation::core::except::collection();
      },
      rolledBack);
}
