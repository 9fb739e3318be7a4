#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace foundation::core::except {
class except_with_causes;
}

/// What a session keeps of its runs and signals. Each field is written down once, by name, in the tables
/// below; the members of the JSON parts, the columns of the database and what the session writer writes all
/// follow from them.
namespace orra {

/// Names of fields and keys of a run's metadata.
namespace strings {

inline constexpr char IDLower[] = "id";
inline constexpr char RunClassName[] = "runClassName";

inline constexpr char Description[] = "Description";
inline constexpr char Tag[] = "Tag";
inline constexpr char BrinVersion[] = "BrinVersion";
inline constexpr char ModelVersion[] = "ModelVersion";
inline constexpr char UserID[] = "UserID";
inline constexpr char MachineName[] = "MachineName";
inline constexpr char Platform[] = "Platform";
inline constexpr char TaskName[] = "TaskName";
inline constexpr char SolverType[] = "SolverType";
inline constexpr char SolverName[] = "SolverName";
inline constexpr char SolverMaxStepSize[] = "SolverMaxStepSize";
inline constexpr char StopEventSource[] = "StopEventSource";
inline constexpr char StopEventDescription[] = "StopEventDescription";
inline constexpr char ExecutionErrors[] = "ExecutionErrors";
inline constexpr char ExecutionWarnings[] = "ExecutionWarnings";
inline constexpr char UserString[] = "UserString";

}  // namespace strings

/// The class of a run that does not name one.
inline constexpr char kDefaultRunClass[] = "Set";

/// One run. Fields that are not set are left out of a session that is written.
/// `id` alone is required of a file; it must differ from those of the other runs.
struct RunRecord {
  std::int32_t id = 0;
  std::string runClassName = kDefaultRunClass;  ///< or "ComparisonSet"
  std::optional<std::u16string> name, dateCreated, model, simMode, status;
  std::optional<std::uint32_t> runNumber;
  std::optional<std::int32_t> orderIndex;
  std::optional<double> startTime, stopTime, updateTime, simTime, termTime, totalTime;  ///< seconds
  std::map<std::string, std::u16string, std::less<>> metadata;  ///< by the keys of kMetadataMembers
  std::optional<std::u16string> samples;  ///< the name of the part that holds its recorded samples
};

/// One signal.
/// `id` is unique within one signals part. Dimensions are sizes, a channel is a list of indices from 1.
struct SignalRecord {
  std::int32_t id = 0;
  std::int32_t runID = 0;  ///< the `id` of its run
  std::optional<std::u16string> name, domainType, description, units, displayUnits, dataTypeLabel, sampleTime,
      model, displayBlockPath, blockName, rootSource, timeSource, dataSource;
  std::optional<std::int32_t> complexity, complexCoordSystem, portIndex;
  std::optional<std::vector<std::uint64_t>> dimensions, channel;
  std::optional<std::uint32_t> column;  ///< in the samples of its run, from 1, where the time is
};

/// The text of a field, empty if it is not set.
inline const std::u16string& textOf(const std::optional<std::u16string>& field) {
  static const std::u16string empty;
  return field ? *field : empty;
}

template <class Record, class Value>
struct Field {
  std::string_view name;
  Value Record::*value;
};
// GCC deduces this from the members, clang only does so from its version 17 on.
template <class Record, class Value>
Field(std::string_view, Value Record::*) -> Field<Record, Value>;

/// The fields of a record, in the order of JSON members and of columns.
template <class Record>
// Only the two kinds of record below have fields.
inline constexpr auto kFields = nullptr;

template <>
inline constexpr auto kFields<RunRecord> = std::tuple{
    Field{strings::IDLower, &RunRecord::id},   Field{strings::RunClassName, &RunRecord::runClassName},
    Field{"name", &RunRecord::name},           Field{"dateCreated", &RunRecord::dateCreated},
    Field{"runNumber", &RunRecord::runNumber}, Field{"orderIndex", &RunRecord::orderIndex},
    Field{"model", &RunRecord::model},         Field{"simMode", &RunRecord::simMode},
    Field{"startTime", &RunRecord::startTime}, Field{"stopTime", &RunRecord::stopTime},
    Field{"status", &RunRecord::status},       Field{"updateTime", &RunRecord::updateTime},
    Field{"simTime", &RunRecord::simTime},     Field{"termTime", &RunRecord::termTime},
    Field{"totalTime", &RunRecord::totalTime}, Field{"metadata", &RunRecord::metadata},
    Field{"samples", &RunRecord::samples},
};

template <>
inline constexpr auto kFields<SignalRecord> = std::tuple{
    Field{strings::IDLower, &SignalRecord::id},
    Field{"runID", &SignalRecord::runID},
    Field{"name", &SignalRecord::name},
    Field{"domainType", &SignalRecord::domainType},
    Field{"description", &SignalRecord::description},
    Field{"units", &SignalRecord::units},
    Field{"displayUnits", &SignalRecord::displayUnits},
    Field{"dataTypeLabel", &SignalRecord::dataTypeLabel},
    Field{"complexity", &SignalRecord::complexity},
    Field{"complexCoordSystem", &SignalRecord::complexCoordSystem},
    Field{"sampleTime", &SignalRecord::sampleTime},
    Field{"model", &SignalRecord::model},
    Field{"displayBlockPath", &SignalRecord::displayBlockPath},
    Field{"blockName", &SignalRecord::blockName},
    Field{"portIndex", &SignalRecord::portIndex},
    Field{"dimensions", &SignalRecord::dimensions},
    Field{"channel", &SignalRecord::channel},
    Field{"rootSource", &SignalRecord::rootSource},
    Field{"timeSource", &SignalRecord::timeSource},
    Field{"dataSource", &SignalRecord::dataSource},
    Field{"column", &SignalRecord::column},
};

/// Calls `visit` with the name and the value of each field, in the order of the table.
template <class Record, class Visitor>
void forEachField(Record& record, const Visitor& visit) {
  std::apply([&](const auto&... field) { (visit(field.name, record.*field.value), ...); },
             kFields<std::remove_const_t<Record>>);
}

/// What a field holds, and what its member must be in JSON.
enum class FieldKind {
  Int32,   ///< an integer written without fraction and exponent
  UInt32,  ///< likewise
  Number,
  Text,
  UInt64List,
  Metadata,  ///< an object in which the entries of kMetadataMembers, where present, are texts
};

template <class Value>
inline constexpr FieldKind kKindOf = kKindOf<typename Value::value_type>;  // of an optional value
template <>
inline constexpr FieldKind kKindOf<std::int32_t> = FieldKind::Int32;
template <>
inline constexpr FieldKind kKindOf<std::uint32_t> = FieldKind::UInt32;
template <>
inline constexpr FieldKind kKindOf<double> = FieldKind::Number;
template <>
inline constexpr FieldKind kKindOf<std::string> = FieldKind::Text;
template <>
inline constexpr FieldKind kKindOf<std::u16string> = FieldKind::Text;
template <>
inline constexpr FieldKind kKindOf<std::vector<std::uint64_t>> = FieldKind::UInt64List;
template <>
inline constexpr FieldKind kKindOf<decltype(RunRecord::metadata)> = FieldKind::Metadata;

/// A field as far as it is known without its record.
struct Member {
  std::string_view name;
  FieldKind kind;
};

template <class Record>
inline constexpr auto kMembers = std::apply(
    []<class... Value>(const Field<Record, Value>&... field) {
      return std::array{Member{field.name, kKindOf<Value>}...};
    },
    kFields<Record>);

/// The entries that a run's metadata is known to have.
inline constexpr Member kMetadataMembers[] = {
    {strings::Description, FieldKind::Text},
    {strings::Tag, FieldKind::Text},
    {strings::BrinVersion, FieldKind::Text},
    {strings::ModelVersion, FieldKind::Text},
    {strings::UserID, FieldKind::Text},
    {strings::MachineName, FieldKind::Text},
    {strings::Platform, FieldKind::Text},
    {strings::TaskName, FieldKind::Text},
    {strings::SolverType, FieldKind::Text},
    {strings::SolverName, FieldKind::Text},
    {strings::SolverMaxStepSize, FieldKind::Text},
    {strings::StopEventSource, FieldKind::Text},
    {strings::StopEventDescription, FieldKind::Text},
    {strings::ExecutionErrors, FieldKind::Text},
    {strings::ExecutionWarnings, FieldKind::Text},
    {strings::UserString, FieldKind::Text},
};

/// The index of a field in its table. A name that is not there does not compile.
template <class Record>
// Searched when compiling, so that code can name fields and still use their index at no cost.
consteval std::size_t fieldIndex(std::string_view name) {
  for (std::size_t index = 0; index < kMembers<Record>.size(); ++index) {
    if (kMembers<Record>[index].name == name) return index;
  }
  throw "no such field";
}

/// The most that the parts of a session may have: what is larger is refused before it takes time or memory.
struct SessionLimits {
  std::size_t compressionRecordBytes = std::size_t{1} << 20;
  std::size_t elementBytes = std::size_t{16} << 20;     ///< of an array, as it is written
  std::size_t elementTokens = std::size_t{1} << 20;     ///< values, separators, brackets of one over 256 KiB
  std::size_t memberBytes = std::size_t{1} << 20;       ///< of those that are known, as they are kept
  std::size_t whitespaceBytes = std::size_t{64} << 20;  ///< before or behind an array
  int nesting = 128;                                    ///< levels, an array included
};
inline constexpr SessionLimits kSessionLimits;

/// Called with one thing that is wrong with a part. What it raises ends the audit.
using FaultVisitor = std::function<void(const foundation::core::except::except_with_causes& fault)>;

/// A kind of JSON part: what errors call it, and the members that its elements are known to have.
struct PartKind {
  std::string_view name;
  std::span<const Member> members;
};
// These names stand in messages.
inline constexpr PartKind kRunListKind{"run list", kMembers<RunRecord>};
inline constexpr PartKind kSignalsPartKind{"signals part", kMembers<SignalRecord>};

}  // namespace orra
