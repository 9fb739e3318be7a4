#include "metadata/run_list.h"

#include "package/session_parts.h"

namespace orra::tavloxio {
namespace {

constexpr char kComparisonRunClass[] = "ComparisonSet";

}  // namespace

std::unique_ptr<ObjRefArrayJSON> readRunList(const file::ScopedRef& ref) {
  const auto parts = findPartsByRelationshipType(ref, tavlox::relationship_types::kRunData);
  // A package without runs is a valid one: it may hold nothing but user files.
  if (parts.empty()) return nullptr;
  PartStream stream(parts.front(), StartAt::Beginning);
  auto runs = std::make_unique<ObjRefArrayJSON>(kRunListKind);
  runs->load(stream);
  return runs;
}

std::int32_t runCount(const ObjRefArrayJSON* runs) {
  return runs == nullptr ? 0 : static_cast<std::int32_t>(runs->size());
}

std::vector<FileRunId> runIdentifiers(const ObjRefArrayJSON* runs) {
  std::vector<FileRunId> identifiers;
  if (runs == nullptr) return identifiers;
  identifiers.reserve(runs->size());
  for (std::size_t i = 0; i < runs->size(); ++i) {
    identifiers.push_back(FileRunId{runs->getPropertyInt32(i, strings::IDLower)});
  }
  return identifiers;
}

bool containsComparisonRun(const ObjRefArrayJSON* runs) {
  if (runs == nullptr) return false;
  for (std::size_t i = 0; i < runs->size(); ++i) {
    if (runs->getPropertyString(i, strings::RunClassName) == kComparisonRunClass) return true;
  }
  return false;
}

std::int32_t countSignals(const file::ScopedRef& ref) {
  // Unsigned, so that a sum beyond the host's integers wraps instead of being undefined.
  std::uint32_t count = 0;
  for (auto& found : findPartsByRelationshipType(ref, tavlox::relationship_types::kSignalsData)) {
    // A part keeps its input open: one is let go of before the next is asked.
    const opc::model::Part part = std::move(found);
    PartStream stream(part, StartAt::Current);
    ObjRefArrayJSON signals(kSignalsPartKind);
    signals.load(stream);
    count += static_cast<std::uint32_t>(signals.size());
  }
  return static_cast<std::int32_t>(count);
}

}  // namespace orra::tavloxio
