#include "platform/session_index/shown_fields.h"

#include <algorithm>

#include "platform/errors/exceptions.h"
#include "platform/repository/signal_domain.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

namespace tavlox::session_index {
namespace {

using filter::Field;
using filter::Kind;
using orra::RunRecord;
using orra::SignalRecord;
using samples::RecordedRun;
namespace strings = orra::strings;

// ---- runs ----

struct RunField {
  std::u16string_view name;
  Kind kind;
  void (*write)(const RecordedRun&, RowWriter&);
};

template <const auto& Key>
void metadata(const RecordedRun& run, RowWriter& row) {
  const auto found = run.record.metadata.find(Key);
  row.text(found == run.record.metadata.end() ? std::u16string_view() : found->second);
}
template <auto Member>
void runText(const RecordedRun& run, RowWriter& row) {
  row.text(orra::textOf(run.record.*Member));
}
template <auto Member>
void seconds(const RecordedRun& run, RowWriter& row) {
  row.number((run.record.*Member).value_or(0));
}
void runID(const RecordedRun& run, RowWriter& row) { row.integer(run.id()); }
void runOrder(const RecordedRun& run, RowWriter& row) { row.integer(run.orderIndex); }
void runSamples(const RecordedRun& run, RowWriter& row) {
  row.text(run.samples ? std::u16string_view(run.samples->text()) : std::u16string_view());
}
void runNumber(const RecordedRun& run, RowWriter& row) {
  // Signed, as hosts show it.
  row.integer(static_cast<std::int32_t>(run.record.runNumber.value_or(0)));
}

constexpr RunField kRunFields[] = {
    {u"RunID", Kind::Number, runID},
    {u"RunOrderIndex", Kind::Number, runOrder},
    {u"SamplesPart", Kind::Text, runSamples},
    {u"id", Kind::Number, runID},
    {u"Name", Kind::Text, runText<&RunRecord::name>},
    {u"Description", Kind::Text, metadata<strings::Description>},
    {u"Tag", Kind::Text, metadata<strings::Tag>},
    {u"DateCreated", Kind::Text, runText<&RunRecord::dateCreated>},
    {u"RunIndex", Kind::Number, runNumber},
    {u"Model", Kind::Text, runText<&RunRecord::model>},
    {u"SimMode", Kind::Text, runText<&RunRecord::simMode>},
    {u"StartTime", Kind::Number, seconds<&RunRecord::startTime>},
    {u"StopTime", Kind::Number, seconds<&RunRecord::stopTime>},
    {u"BrinVersion", Kind::Text, metadata<strings::BrinVersion>},
    {u"ModelVersion", Kind::Text, metadata<strings::ModelVersion>},
    {u"UserID", Kind::Text, metadata<strings::UserID>},
    {u"MachineName", Kind::Text, metadata<strings::MachineName>},
    {u"Platform", Kind::Text, metadata<strings::Platform>},
    {u"TaskName", Kind::Text, metadata<strings::TaskName>},
    {u"SolverType", Kind::Text, metadata<strings::SolverType>},
    {u"SolverName", Kind::Text, metadata<strings::SolverName>},
    {u"SolverStepSize", Kind::Text, metadata<strings::SolverMaxStepSize>},
    {u"Status", Kind::Text, runText<&RunRecord::status>},
    {u"StopEventSource", Kind::Text, metadata<strings::StopEventSource>},
    {u"StopEventDescription", Kind::Text, metadata<strings::StopEventDescription>},
    {u"ExecutionErrors", Kind::Text, metadata<strings::ExecutionErrors>},
    {u"ExecutionWarnings", Kind::Text, metadata<strings::ExecutionWarnings>},
    {u"ModelInitializationTime", Kind::Number, seconds<&RunRecord::updateTime>},
    {u"ModelExecutionTime", Kind::Number, seconds<&RunRecord::simTime>},
    {u"ModelTerminationTime", Kind::Number, seconds<&RunRecord::termTime>},
    {u"ModelTotalElapsedTime", Kind::Number, seconds<&RunRecord::totalTime>},
    {u"UserString", Kind::Text, metadata<strings::UserString>},
};

// ---- signals ----

struct Recorded {
  const RecordedRun& run;
  const SignalRecord& signal;
};
struct SignalField {
  std::u16string_view name;
  Kind kind;
  void (*write)(const Recorded&, RowWriter&);
};

template <auto Member>
void signalText(const Recorded& recorded, RowWriter& row) {
  row.text(orra::textOf(recorded.signal.*Member));
}
template <auto Member>
void list(const Recorded& recorded, RowWriter& row) {
  fl::i18n::JsonWriter json;
  json.beginArray();
  // The low 32 bits of each number, as hosts show it.
  if (const auto& numbers = recorded.signal.*Member)
    for (const std::uint64_t number : *numbers)
      json.value(static_cast<std::int64_t>(static_cast<std::int32_t>(number)));
  row.text(std::string_view(json.endArray().text()));
}
void runOfSignal(const Recorded& recorded, RowWriter& row) { row.integer(recorded.run.id()); }
void orderOfSignal(const Recorded& recorded, RowWriter& row) { row.integer(recorded.run.orderIndex); }
// Known when the samples are found, which is behind the reading of the signals.
void noPart(const Recorded&, RowWriter& row) { row.text(std::string_view()); }
void noColumn(const Recorded&, RowWriter& row) { row.integer(0); }
void domain(const Recorded& recorded, RowWriter& row) {
  row.text(orra::domainText(fl::i18n::to_string_lossy(orra::textOf(recorded.signal.domainType))));
}
void complexity(const Recorded& recorded, RowWriter& row) {
  row.text(recorded.signal.complexity == 1 ? std::string_view("complex") : "real");
}
void complexFormat(const Recorded& recorded, RowWriter& row) {
  static constexpr std::string_view kFormats[] = {"real-imaginary", "magnitude-phase", "magnitude", "phase"};
  const auto format = static_cast<std::uint32_t>(recorded.signal.complexCoordSystem.value_or(0));
  row.text(format < std::size(kFormats) ? kFormats[format] : std::string_view());
}
void portIndex(const Recorded& recorded, RowWriter& row) {
  row.integer(recorded.signal.portIndex.value_or(0));
}

constexpr SignalField kSignalFields[] = {
    {u"RunID", Kind::Number, runOfSignal},
    {u"SamplesPart", Kind::Text, noPart},
    {u"SamplesColumn", Kind::Number, noColumn},
    {u"Name", Kind::Text, signalText<&SignalRecord::name>},
    {u"RunOrderIndex", Kind::Number, orderOfSignal},
    {u"Domain", Kind::Text, domain},
    {u"Description", Kind::Text, signalText<&SignalRecord::description>},
    {u"DisplayUnits", Kind::Text, signalText<&SignalRecord::displayUnits>},
    {u"StoredUnits", Kind::Text, signalText<&SignalRecord::units>},
    {u"DataType", Kind::Text, signalText<&SignalRecord::dataTypeLabel>},
    {u"Complexity", Kind::Text, complexity},
    {u"ComplexFormat", Kind::Text, complexFormat},
    {u"SampleTime", Kind::Text, signalText<&SignalRecord::sampleTime>},
    {u"Model", Kind::Text, signalText<&SignalRecord::model>},
    {u"FullBlockPath", Kind::Text, signalText<&SignalRecord::displayBlockPath>},
    {u"BlockName", Kind::Text, signalText<&SignalRecord::blockName>},
    {u"PortIndex", Kind::Number, portIndex},
    {u"Dimensions", Kind::Text, list<&SignalRecord::dimensions>},
    {u"Channel", Kind::Text, list<&SignalRecord::channel>},
    {u"RootSource", Kind::Text, signalText<&SignalRecord::rootSource>},
    {u"TimeSource", Kind::Text, signalText<&SignalRecord::timeSource>},
    {u"DataSource", Kind::Text, signalText<&SignalRecord::dataSource>},
};
constexpr Field kStatistics[] = {
    {u"Minimum", Kind::Number}, {u"Maximum", Kind::Number}, {u"SampleCount", Kind::Number}};

constexpr Field kFileFields[] = {{u"Filename", Kind::Text},     {u"Size", Kind::Number},
                                 {u"LastModified", Kind::Text}, {u"NumRuns", Kind::Number},
                                 {u"NumSignals", Kind::Number}, {u"SampleCount", Kind::Number},
                                 {u"Description", Kind::Text},  {u"Version", Kind::Text},
                                 {u"Error", Kind::Text},        {u"ErrorMessage", Kind::Text}};

/// With the path in front.
template <class Shown>
std::vector<Field> named(std::span<const Shown> fields) {
  std::vector<Field> all{{u"Filename", Kind::Text}};
  for (const Shown& field : fields) all.push_back({field.name, field.kind});
  return all;
}

const std::vector<Field>& signalFields() {
  static const std::vector<Field> fields = [] {
    std::vector<Field> all = named(std::span<const SignalField>(kSignalFields));
    all.insert(all.end(), std::begin(kStatistics), std::end(kStatistics));
    return all;
  }();
  return fields;
}

/// Texts of one record, each on a line: a word found across the border of two would be none.
void writeText(std::initializer_list<std::u16string_view> texts, RowWriter& row) {
  std::u16string all;
  for (const std::u16string_view text : texts)
    if (!text.empty()) all.append(text) += u'\n';
  row.text(all);
}

}  // namespace

Subject subjectOf(const std::u16string& name) {
  static constexpr std::u16string_view kNames[] = {u"files", u"runs", u"signals"};
  const auto found = std::ranges::find(kNames, name);
  if (found == std::end(kNames)) foundation::core::except::raise("tavlox:index:NoSuchSubject", name);
  return static_cast<Subject>(found - std::begin(kNames));
}

std::span<const Field> fieldsOf(Subject subject) {
  static const std::vector<Field> runs = named(std::span<const RunField>(kRunFields));
  if (subject == Subject::Files) return kFileFields;
  return subject == Subject::Runs ? runs : signalFields();
}

std::span<const Field> signalFieldsWithoutStatistics() {
  return std::span(signalFields()).first(signalFields().size() - std::size(kStatistics));
}

void writeRun(const RecordedRun& run, RowWriter& row) {
  for (const RunField& field : kRunFields) field.write(run, row);
  const auto of = [&](const char* key) {
    const auto found = run.record.metadata.find(std::string_view(key));
    return found == run.record.metadata.end() ? std::u16string_view() : std::u16string_view(found->second);
  };
  writeText({run.name(), orra::textOf(run.record.model), orra::textOf(run.record.status),
             of(strings::Description), of(strings::Tag), of(strings::UserID), of(strings::MachineName),
             of(strings::TaskName), of(strings::SolverType), of(strings::SolverName),
             of(strings::StopEventSource), of(strings::StopEventDescription), of(strings::ExecutionErrors),
             of(strings::ExecutionWarnings), of(strings::UserString)},
            row);
}

void writeSignal(const RecordedRun& run, const SignalRecord& signal, RowWriter& row) {
  const Recorded recorded{run, signal};
  for (const SignalField& field : kSignalFields) field.write(recorded, row);
  writeText({orra::textOf(signal.name), orra::textOf(signal.displayBlockPath), orra::textOf(signal.blockName),
             orra::textOf(signal.description)},
            row);
}

}  // namespace tavlox::session_index
