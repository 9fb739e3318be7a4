#include "queries/run_record.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "queries/record_fields.h"

namespace orra::tavloxio {

using corvan::HostArray;

namespace {

/// The value of an entry of the run's metadata, empty if the run has none of that key.
template <const auto& Key>
HostArray metadata(const Set& run, corvan::TextPool& texts) {
  return texts.charRow(run.getRunMetaDataUstring(Key));
}

/// The value of a getter that gives seconds.
template <auto Getter>
HostArray number(const Set& run, corvan::TextPool&) {
  return HostArray::doubleScalar((run.*Getter)());
}

// The identifier is the caller's, not the repository's: it is set when the record is made.
HostArray identifierSetByCaller(const Set&, corvan::TextPool&) { return HostArray(); }

HostArray runIndex(const Set& run, corvan::TextPool&) {
  // Bit for bit: the host's field is signed, the recorded number is not.
  return HostArray::int32Scalar(static_cast<std::int32_t>(run.getRunNumber()));
}

// The order and the names are what scripts see. Names of the host and of the repository differ here and
// there; where they seem to be crossed a remark stands at the line.
const RecordField<Set> kFields[] = {
    {u"id", identifierSetByCaller},
    {u"Name", text<&Set::getRunDisplayName>},
    {u"Description", metadata<strings::Description>},
    {u"Tag", metadata<strings::Tag>},
    {u"DateCreated", text<&Set::getDateString>},
    {u"RunIndex", runIndex},
    {u"Model", text<&Set::getModel>},
    {u"SimMode", text<&Set::getSimMode>},
    {u"StartTime", number<&Set::getStartTime>},
    {u"StopTime", number<&Set::getStopTime>},
    {u"BrinVersion", metadata<strings::BrinVersion>},
    {u"ModelVersion", metadata<strings::ModelVersion>},
    {u"UserID", metadata<strings::UserID>},
    {u"MachineName", metadata<strings::MachineName>},
    {u"Platform", metadata<strings::Platform>},
    {u"TaskName", metadata<strings::TaskName>},
    {u"SolverType", metadata<strings::SolverType>},
    {u"SolverName", metadata<strings::SolverName>},
    {u"SolverStepSize", metadata<strings::SolverMaxStepSize>},  // what hosts know as the step size
    {u"Status", text<&Set::getRunStatus>},
    {u"StopEventSource", metadata<strings::StopEventSource>},
    {u"StopEventDescription", metadata<strings::StopEventDescription>},
    {u"ExecutionErrors", metadata<strings::ExecutionErrors>},
    {u"ExecutionWarnings", metadata<strings::ExecutionWarnings>},
    {u"ModelInitializationTime", number<&Set::getUpdateTime>},  // updating is what initialises a model
    {u"ModelExecutionTime", number<&Set::getSimTime>},
    {u"ModelTerminationTime", number<&Set::getTermTime>},
    {u"ModelTotalElapsedTime", number<&Set::getTotalTime>},
    {u"UserString", metadata<strings::UserString>},
};

}  // namespace

HostArray runIdentifierColumn(MetadataCache& cache) {
  const std::vector<FileRunId> runs = cache.getRunIDs();
  // The host names its classes by text and resolves them itself.
  HostArray column = HostArray::numeric(corvan::numericClassByName("int32"), runs.size(), 1);
  std::ranges::transform(runs, column.mutableValues<std::int32_t>().begin(),
                         [](FileRunId run) { return static_cast<std::int32_t>(run); });
  return column;
}

FileRunId toRunIdentifier(const HostArray& value) {
  if (!value.isNumeric() || !value.isScalar() || value.isEmpty()) return FileRunId{0};
  // Hosts pass identifiers as doubles; converting one that does not fit into 32 bits would be undefined.
  const double whole = std::trunc(value.scalarAsDouble());
  constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
  // Written so that a value that is not a number is outside, too.
  return FileRunId{whole >= kLowest && whole <= kHighest ? static_cast<std::int32_t>(whole) : 0};
}

HostArray runRecord(MetadataCache& cache, FileRunId run) {
  // Fails for an unknown run before anything is made.
  const std::shared_ptr<Set> set = cache.lookupRun(run);
  // Made once: a copy of the empty record shares its field names.
  static const HostArray emptyRecord = makeRecords(kFields, 1);
  HostArray record = emptyRecord;
  runTransaction(*set->getObjectReference().getObjectManager(), [&] {
    corvan::TextPool texts;
    std::ranges::transform(kFields, record.fieldValues().begin(),
                           [&](const RecordField<Set>& field) { return field.read(*set, texts); });
  });
  record.setField(0, u"id", HostArray::int32Scalar(static_cast<std::int32_t>(run)));
  return record;
}

}  // namespace orra::tavloxio
