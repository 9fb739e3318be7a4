#include "platform/samples/recorded_session.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <istream>
#include <set>
#include <streambuf>
#include <unordered_map>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/repository/session_records.h"
#include "platform/text/conversion.h"

namespace tavlox::samples {
namespace {

using opc::model::Part;
using opc::model::PartName;

// Column 1 is the time.
constexpr std::uint32_t kFirstSignalColumn = 2;

/// Lets a stream read the data of a part. Errors pass through: records are read from the buffer itself.
class PartBuffer : public std::streambuf {
 public:
  explicit PartBuffer(const Part& part) : input_(part.getInputStream()) { input_->restart(); }

 private:
  int_type underflow() override {
    const std::size_t got = input_->read(block_.data(), block_.size());
    setg(block_.data(), block_.data(), block_.data() + got);
    return got == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

  std::shared_ptr<opc::InputStream> input_;
  std::vector<char> block_ = std::vector<char>(std::size_t{64} << 10);
};

using RunVisitor = std::function<void(const orra::RunRecord& run, std::int32_t orderIndex)>;
using SignalVisitor = std::function<void(const orra::SignalRecord&)>;

void readRuns(const DataExportFile& file, const RunVisitor& visit, orra::FieldNames only = {}) {
  const auto runLists = file.getPartsByRelationshipType(relationship_types::kRunData);
  if (runLists.empty()) return;
  // Of several run lists the first counts.
  PartBuffer buffer(runLists.front());
  std::istream stream(&buffer);
  std::int32_t place = 0;
  orra::forEachRun(
      stream,
      [&](const orra::RunRecord& run) {
        ++place;
        visit(run, run.orderIndex.value_or(place));
      },
      only);
}

void readSignals(const DataExportFile& file, const SignalVisitor& visit, orra::FieldNames only = {}) {
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSignalsData)) {
    PartBuffer buffer(part);
    std::istream stream(&buffer);
    orra::forEachSignal(stream, visit, only);
  }
}

/// The part that a run names, if there is one of that name.
std::optional<PartName> namedPart(const DataExportFile& file, const orra::RunRecord& run) {
  if (!run.samples) return std::nullopt;
  const auto name = PartName::tryFromText(*run.samples);
  return name && file.getPackageImpl().hasPart(*name) ? name : std::nullopt;
}

bool namesSamples(const RecordedRun& run) { return run.record.samples.has_value(); }
bool namesSamples(const RunPlace& run) { return run.namesSamples; }
void setSamples(RecordedRun& run, std::optional<PartName> part) { run.samples = std::move(part); }
void setSamples(RunPlace& run, std::optional<PartName> part) {
  if (part) run.samples = std::make_unique<const PartName>(std::move(*part));
}

// Of recorded runs and of places alike.
/// Gives the runs that name no part the samples parts that no run names.
template <class Run>
void shareSamples(const DataExportFile& file, std::vector<Run>& runs) {
  std::set<std::string> taken;
  for (const Run& run : runs)
    if (run.samples) taken.insert(run.samples->key());
  auto run = runs.begin();
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSamples)) {
    if (taken.contains(part.getName().key())) continue;
    run = std::find_if(run, runs.end(), [](const Run& candidate) {
      return !namesSamples(candidate) && !candidate.signals.empty();
    });
    if (run == runs.end()) return;
    setSamples(*run++, part.getName());
  }
}

template <class Run>
void findColumns(std::vector<Run>& runs) {
  for (Run& run : runs) {
    const bool isNamed =
        std::ranges::any_of(run.signals, [](const auto& signal) { return signal.column != 0; });
    std::uint32_t column = kFirstSignalColumn;
    for (auto& signal : run.signals) {
      if (!run.samples) signal.column = 0;
      // Only where no signal names one: those of a run are named all together or not at all.
      else if (!isNamed)
        signal.column = column++;
    }
  }
}

/// Whether no two runs have the same order index.
bool haveOwnOrder(const std::vector<RunPlace>& runs) {
  std::vector<std::int32_t> order;
  order.reserve(runs.size());
  for (const RunPlace& run : runs) order.push_back(run.orderIndex);
  std::ranges::sort(order);
  return std::ranges::adjacent_find(order) == order.end();
}

/// ASCII letters only, which is all that types are written in.
std::u16string inLowerCase(std::u16string_view text) {
  std::u16string lower(text);
  for (char16_t& unit : lower)
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + (u'a' - u'A'));
  return lower;
}

}  // namespace

Between betweenSamplesOf(std::u16string_view dataTypeLabel) {
  static constexpr std::u16string_view kFloatingPoint[] = {
      u"", u"double", u"single", u"half", u"real", u"float", u"float16", u"float32", u"float64"};
  const bool isFloating =
      std::ranges::find(kFloatingPoint, inLowerCase(dataTypeLabel)) != std::end(kFloatingPoint);
  return isFloating ? Between::Linear : Between::Held;
}

double interpolated(double time, double firstTime, double first, double secondTime, double second) {
  // Also for two equal infinities, whose difference is none. Not std::lerp, which may give the second value
  // where the first is NaN.
  if (first == second) return first;
  const double rise = second - first;
  // Multiplied first: round numbers then mostly give round numbers.
  const double exact = first + rise * (time - firstTime) / (secondTime - firstTime);
  if (std::isfinite(exact)) return exact;
  const double share = (time - firstTime) / (secondTime - firstTime);
  return (1 - share) * first + share * second;
}

RecordedSession::RecordedSession(const std::u16string& path, const SignalVisitor& visit) : path_(path) {
  file_.modifyReadPackage(path);
  std::unordered_map<std::int32_t, std::size_t> runOf;
  readRuns(file_, [&](const orra::RunRecord& record, std::int32_t orderIndex) {
    runOf.emplace(record.id, runs_.size());
    runs_.push_back({.record = record, .orderIndex = orderIndex, .samples = namedPart(file_, record)});
  });
  readSignals(file_, [&](const orra::SignalRecord& signal) {
    const auto run = runOf.find(signal.runID);
    // Readers of the records refuse such a part; here the samples of the others can still be had.
    if (run == runOf.end()) return;
    runs_[run->second].signals.push_back({signal.id, orra::textOf(signal.name), orra::textOf(signal.units),
                                          orra::textOf(signal.dataTypeLabel), signal.column.value_or(0)});
    if (visit) visit(runs_[run->second], signal);
  });
  shareSamples(file_, runs_);
  findColumns(runs_);
}

std::u16string RecordedSession::labelOf(const RecordedRun& run) const {
  std::u16string number = fl::i18n::to_ustring(fmt::format("run {}", run.id()));
  if (run.name().empty()) return number;
  const auto hasItsName = [&](const RecordedRun& other) { return other.name() == run.name(); };
  return std::ranges::count_if(runs_, hasItsName) == 1 ? run.name() : run.name() + u" (" + number + u")";
}

SampleReader RecordedSession::read(const RecordedRun& run, Wanted wanted) const {
  if (!run.samples) foundation::core::except::raise("samples:session:NoSamples", path_, run.id());
  return {file_.getPackageImpl(), *run.samples, std::move(wanted)};
}

std::u16string invalidSessionPart(const std::u16string& path) {
  DataExportFile file(false);
  file.modifyReadPackage(path);
  const auto isValid = [](const Part& part, const auto& readAll) {
    PartBuffer buffer(part);
    std::istream stream(&buffer);
    try {
      readAll(stream);
      return true;
    } catch (const foundation::core::except::except_with_causes&) {
      return false;
    }
  };
  const auto readRunList = [](std::istream& stream) { orra::forEachRun(stream, [](const auto&) {}); };
  const auto readSignalsPart = [](std::istream& stream) { orra::forEachSignal(stream, [](const auto&) {}); };
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kRunData))
    if (!isValid(part, readRunList)) return part.getName().text();
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSignalsData))
    if (!isValid(part, readSignalsPart)) return part.getName().text();
  return {};
}

SessionPlaces::SessionPlaces(const std::u16string& path, Of of, const std::u16string* onlyName) {
  DataExportFile file(false);
  file.modifyReadPackage(path);
  readRuns(file,
           [&](const orra::RunRecord& run, std::int32_t orderIndex) {
             byId_.emplace_back(run.id, runs_.size());
             runs_.push_back({run.id, orderIndex, nullptr, run.samples.has_value(), {}});
             setSamples(runs_.back(), namedPart(file, run));
           },
           {"id", "orderIndex", "samples"});
  std::ranges::sort(byId_);
  const bool hasSamples = !file.getPartsByRelationshipType(relationship_types::kSamples).empty();
  const bool allName = std::ranges::all_of(runs_, &RunPlace::namesSamples);
  // Runs that name no part get one only if they have signals.
  hasSignals_ = of == Of::Runs ? hasSamples && !allName
                               : hasSamples || std::ranges::any_of(runs_, &RunPlace::namesSamples) ||
                                     !haveOwnOrder(runs_);
  if (!hasSignals_) return;
  std::optional<std::size_t> run;
  readSignals(file,
              [&](const orra::SignalRecord& signal) {
                // Mostly one run's signals stand together.
                if (!run || runs_[*run].id != signal.runID) run = indexOf(signal.runID);
                if (!run) return;
                const bool isAsked = onlyName == nullptr || orra::textOf(signal.name) == *onlyName;
                runs_[*run].signals.push_back({signal.column.value_or(0), isAsked});
              },
              {"runID", "column", onlyName == nullptr ? "id" : "name"});
  shareSamples(file, runs_);
  findColumns(runs_);
}

const RunPlace* SessionPlaces::findRun(std::int32_t id) const {
  const std::optional<std::size_t> index = indexOf(id);
  return index ? &runs_[*index] : nullptr;
}

std::optional<std::size_t> SessionPlaces::indexOf(std::int32_t id) const {
  const auto found = std::ranges::lower_bound(byId_, id, {}, &std::pair<std::int32_t, std::size_t>::first);
  if (found == byId_.end() || found->first != id) return std::nullopt;
  return found->second;
}

}  // namespace tavlox::samples
