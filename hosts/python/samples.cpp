// The samples of runs, read by column and time range into arrays that Python then owns, and sessions written
// from such arrays. The names of runs and signals are resolved here, beside the session that is open anyway,
// so that one call reads it once.

#include "hosts/python/samples.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

#include "hosts/python/calls.h"
#include "hosts/python/values.h"
#include "platform/errors/exceptions.h"
#include "platform/export_file/session_writer.h"
#include "platform/samples/grid.h"
#include "platform/text/conversion.h"

namespace tavlox::python {
namespace {

using foundation::core::except::raise;
using samples::RecordedRun;
using samples::RecordedSession;
using samples::RecordedSignal;

/// What the caller asked for.
struct Request {
  std::u16string path;
  std::vector<std::u16string> runs;  ///< names, or identifiers in decimal
  bool areIdentifiers = false;
  std::optional<std::vector<std::u16string>> signals;  ///< every signal with samples if there are none
  double from = -std::numeric_limits<double>::infinity(), to = -from;  ///< seconds
  std::u16string grid;                                                 ///< "", "union" or "step"
  double step = 0;  ///< seconds; 0 for the shortest mean step of the runs
};

/// One run's part of what was asked for. The signals belong to the session that was read.
struct Selection {
  const RecordedRun* run;
  std::vector<const RecordedSignal*> signals;

  samples::Wanted wanted(const Request& request) const {
    samples::Wanted wanted{.columns = {}, .from = request.from, .to = request.to};
    for (const RecordedSignal* signal : signals) wanted.columns.push_back(signal->column);
    return wanted;
  }
};

/// Columns of numbers over one column of times.
struct Table {
  std::vector<double> times;
  std::vector<std::vector<double>> columns;
};

const RecordedRun& runOf(const RecordedSession& session, const Request& request,
                         const std::u16string& wanted) {
  const RecordedRun* found = nullptr;
  for (const RecordedRun& run : session.runs()) {
    const bool isWanted = request.areIdentifiers ? foundation::core::except::toArgument(run.id()) == wanted
                                                 : run.name() == wanted;
    if (!isWanted) continue;
    // Names of runs need not differ, and which one is meant is not guessed.
    if (found != nullptr) raise("tavlox:python:SeveralRuns", request.path, wanted);
    found = &run;
  }
  if (found == nullptr) raise("tavlox:python:NoSuchRun", request.path, wanted);
  return *found;
}

Selection select(const RecordedSession& session, const Request& request, const std::u16string& name) {
  Selection selection{&runOf(session, request, name), {}};
  const std::vector<RecordedSignal>& signals = selection.run->signals;
  if (!request.signals) {
    for (const RecordedSignal& signal : signals) {
      if (signal.column != 0) selection.signals.push_back(&signal);
    }
    return selection;
  }
  for (const std::u16string& wanted : *request.signals) {
    const std::size_t before = selection.signals.size();
    for (const RecordedSignal& signal : signals) {
      if (signal.name == wanted && signal.column != 0) selection.signals.push_back(&signal);
    }
    if (selection.signals.size() == before) {
      raise("tavlox:python:NoSuchSignal", request.path, selection.run->name(), wanted);
    }
  }
  return selection;
}

Table readRun(const RecordedSession& session, const Selection& selection, const Request& request) {
  samples::SampleReader reader = session.read(*selection.run, selection.wanted(request));
  Table table{{}, std::vector<std::vector<double>>(selection.signals.size())};
  samples::SampleBlock block;
  while (reader.next(block)) {
    table.times.insert(table.times.end(), block.times.begin(), block.times.end());
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      table.columns[i].insert(table.columns[i].end(), block.values[i].begin(), block.values[i].end());
    }
  }
  return table;
}

/// Runs that were sampled at the same times side by side; nothing if they were not.
std::optional<Table> readAlike(const RecordedSession& session, const std::vector<Selection>& selections,
                               const Request& request) {
  Table all = readRun(session, selections.front(), request);
  for (std::size_t i = 1; i < selections.size(); ++i) {
    Table next = readRun(session, selections[i], request);
    if (next.times != all.times) return std::nullopt;
    std::ranges::move(next.columns, std::back_inserter(all.columns));
  }
  return all;
}

Table readOnGrid(const RecordedSession& session, const std::vector<Selection>& selections,
                 const Request& request) {
  std::vector<samples::RunOnGrid> runs;
  double first = std::numeric_limits<double>::infinity(), last = -first, step = first;
  std::size_t columns = 0;
  for (const Selection& selection : selections) {
    std::vector<samples::Between> between;
    for (const RecordedSignal* signal : selection.signals) {
      between.push_back(samples::betweenSamplesOf(signal->dataTypeLabel));
    }
    columns += between.size();
    runs.emplace_back(session.read(*selection.run, selection.wanted(request)), std::move(between));
    if (request.grid != u"step") continue;
    const samples::Wanted times{.columns = {}, .from = request.from, .to = request.to};
    const samples::Span span = samples::spanOf(session.read(*selection.run, times));
    if (span.rows == 0) continue;
    first = std::min(first, span.first);
    last = std::max(last, span.last);
    if (span.rows > 1) step = std::min(step, (span.last - span.first) / static_cast<double>(span.rows - 1));
  }
  if (request.step > 0) step = request.step;
  Table table{{}, std::vector<std::vector<double>>(columns)};
  if (request.grid == u"step" && !(first <= last)) return table;
  samples::Grid grid = request.grid == u"step" ? samples::Grid(std::move(runs), first, last, step)
                                               : samples::Grid(std::move(runs));
  while (grid.next()) {
    table.times.push_back(grid.time());
    for (std::size_t i = 0; i < columns; ++i) table.columns[i].push_back(grid.values()[i]);
  }
  return table;
}

/// A NumPy array that takes the numbers over.
py::array toArray(std::vector<double> numbers) {
  auto owner = std::make_unique<std::vector<double>>(std::move(numbers));
  const py::capsule capsule(owner.get(),
                            [](void* vector) { delete static_cast<std::vector<double>*>(vector); });
  const std::vector<double>& kept = *owner.release();
  return py::array_t<double>(static_cast<py::ssize_t>(kept.size()), kept.data(), capsule);
}

std::vector<std::u16string> toTexts(const py::iterable& items) {
  std::vector<std::u16string> texts;
  for (const py::handle item : items) texts.push_back(toText(item));
  return texts;
}

/// What a column is of.
struct Label {
  std::u16string run, signal, units, dataType;
};

/// (times, [(run, signal, units, data type, values)], name of the time).
py::tuple readSamples(const py::str& path, const py::list& runs, bool areIdentifiers,
                      const py::object& signals, double from, double to, const py::str& grid, double step) {
  Request request{toText(path), toTexts(runs), areIdentifiers, {}, from, to, toText(grid), step};
  if (!signals.is_none()) request.signals = toTexts(signals);
  struct Answer {
    Table table;
    std::vector<Label> labels;
    std::string timeHeading;
  };
  Answer answer = inTurn([&] {
    const RecordedSession session(request.path);
    std::vector<Selection> selections;
    for (const std::u16string& run : request.runs) selections.push_back(select(session, request, run));
    Answer made;
    made.timeHeading = session.read(*selections.front().run, {.columns = {}}).headings().front();
    for (const Selection& selection : selections) {
      for (const RecordedSignal* signal : selection.signals) {
        made.labels.push_back({selection.run->name(), signal->name, signal->units, signal->dataTypeLabel});
      }
    }
    if (!request.grid.empty()) {
      made.table = readOnGrid(session, selections, request);
    } else if (auto table = readAlike(session, selections, request)) {
      made.table = std::move(*table);
    } else {
      raise("tavlox:python:MixedTimes", request.path);
    }
    return made;
  });
  py::list columns;
  for (std::size_t i = 0; i < answer.labels.size(); ++i) {
    const Label& label = answer.labels[i];
    columns.append(py::make_tuple(toPython(label.run), toPython(label.signal), toPython(label.units),
                                  toPython(label.dataType), toArray(std::move(answer.table.columns[i]))));
  }
  return py::make_tuple(toArray(std::move(answer.table.times)), columns, py::str(answer.timeHeading));
}

/// One column of a run that is to be recorded. The numbers belong to the array, which nobody else frees or
/// resizes while the call refers to it.
struct NewColumn {
  std::u16string name, unit, dataType;
  std::span<const double> values;
  py::array_t<double> owner;
};

struct NewRun {
  std::u16string name, source;
  std::vector<std::pair<std::u16string, std::u16string>> fields;  ///< by the names that hosts show them under
  double step = 0;                 ///< in the unit of the time; NaN if it varies, 0 for a single row
  std::vector<NewColumn> columns;  ///< the time's first
};

NewColumn newColumn(const py::tuple& column) {
  auto values = column[3].cast<py::array_t<double>>();
  const std::span<const double> numbers(values.data(), static_cast<std::size_t>(values.size()));
  return {toText(column[0]), toText(column[1]), toText(column[2]), numbers, std::move(values)};
}

NewRun newRun(const py::tuple& run) {
  NewRun made{toText(run[0]), toText(run[1]), {}, run[3].cast<double>(), {}};
  for (const py::handle field : run[2]) {
    const auto pair = field.cast<py::tuple>();
    made.fields.emplace_back(toText(pair[0]), toText(pair[1]));
  }
  for (const py::handle column : run[4]) made.columns.push_back(newColumn(column.cast<py::tuple>()));
  return made;
}

/// Raises tavlox:python:NoSuchField for a name that runs have no text field of.
void setField(orra::RunRecord& record, const std::u16string& path, const std::u16string& field,
              const std::u16string& value) {
  static constexpr std::pair<std::u16string_view, std::optional<std::u16string> orra::RunRecord::*> kTexts[] =
      {
          {u"DateCreated", &orra::RunRecord::dateCreated},
          {u"Model", &orra::RunRecord::model},
          {u"SimMode", &orra::RunRecord::simMode},
          {u"Status", &orra::RunRecord::status},
      };
  for (const auto& [name, member] : kTexts) {
    if (name == field) return void(record.*member = value);
  }
  // The one key that hosts show under another name.
  const std::string key =
      field == u"SolverStepSize" ? orra::strings::SolverMaxStepSize : fl::i18n::to_string_lossy(field);
  if (std::ranges::none_of(orra::kMetadataMembers, [&](const auto& known) { return known.name == key; })) {
    raise("tavlox:python:NoSuchField", path, field);
  }
  record.metadata[key] = value;
}

/// A heading as the reader of samples takes it, quoted where it must be (RFC 4180).
std::string heading(const NewColumn& column) {
  std::string text = fl::i18n::to_string(column.name);
  if (!column.unit.empty()) text += " [" + fl::i18n::to_string(column.unit) + "]";
  if (text.find_first_of(",\"\r\n") == std::string::npos && text.front() != ' ' && text.back() != ' ')
    return text;
  std::string quoted = "\"";
  for (const char c : text) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + "\"";
}

/// The table in pieces of some size: each number with the fewest digits that read back the same.
void writeTable(const NewRun& run, const SessionWriter::Sink& keep) {
  constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
  std::string piece;
  for (const NewColumn& column : run.columns) piece += (piece.empty() ? "" : ",") + heading(column);
  piece += '\n';
  char number[32];
  for (std::size_t row = 0; row < run.columns.front().values.size(); ++row) {
    for (const NewColumn& column : run.columns) {
      const auto written = std::to_chars(std::begin(number), std::end(number), column.values[row]);
      piece.append(number, written.ptr) += ',';
    }
    piece.back() = '\n';
    if (piece.size() < kPieceSize) continue;
    keep(piece);
    piece.clear();
  }
  keep(piece);
}

/// The step as sessions have it: seconds with nine digits, or "variable".
std::u16string sampleTime(double seconds) {
  if (std::isnan(seconds)) return u"variable";
  char text[32];
  const auto written =
      std::to_chars(std::begin(text), std::end(text), seconds, std::chars_format::general, 9);
  return fl::i18n::to_ustring({text, written.ptr});
}

orra::SignalRecord signalOf(const NewRun& run, const samples::TimeUnit& unit, std::size_t column) {
  const NewColumn& recorded = run.columns[column];
  orra::SignalRecord signal;
  signal.name = recorded.name;
  signal.units = signal.displayUnits = recorded.unit;
  signal.dataTypeLabel = recorded.dataType;
  signal.complexity = 0;
  signal.dimensions = {1};
  if (run.step != 0) signal.sampleTime = sampleTime(unit.toSeconds(run.step));
  if (!run.source.empty()) signal.rootSource = run.source;
  signal.timeSource = fl::i18n::to_ustring(heading(run.columns.front()));
  signal.dataSource = fl::i18n::to_ustring(heading(recorded));
  signal.column = static_cast<std::uint32_t>(column + 1);
  return signal;
}

void write(const std::u16string& path, const std::vector<NewRun>& runs, const std::u16string& description,
           bool mayReplace) {
  using Existing = SessionWriter::Existing;
  SessionWriter writer(path, mayReplace ? Existing::Replace : Existing::Refuse);
  std::int32_t lastSignal = 0;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const NewRun& run = runs[i];
    const NewColumn& time = run.columns.front();
    const samples::TimeUnit* const unit = samples::findTimeUnit(fl::i18n::to_string_lossy(time.unit));
    if (unit == nullptr) raise("tavlox:record:UnknownTimeUnit", run.source, 1, 1, time.unit);
    orra::RunRecord record;
    record.id = static_cast<std::int32_t>(i + 1);
    record.runNumber = static_cast<std::uint32_t>(record.id);
    record.name = run.name;
    record.startTime = unit->toSeconds(time.values.front());
    record.stopTime = unit->toSeconds(time.values.back());
    record.samples = u"/session/data/" + foundation::core::except::toArgument(record.id) + u".csv";
    for (const auto& [field, value] : run.fields) setField(record, path, field, value);
    writer.addRun(record);
    writer.addSamples(record.id, [&](const SessionWriter::Sink& keep) { writeTable(run, keep); });
    for (std::size_t column = 1; column < run.columns.size(); ++column) {
      orra::SignalRecord signal = signalOf(run, *unit, column);
      signal.id = ++lastSignal;
      signal.runID = record.id;
      writer.addSignal(signal);
    }
  }
  writer.setCompressionType(u"normal");
  if (!description.empty()) writer.setDescription(description);
  // Only here the file appears.
  writer.close();
}

/// A run is (name, source, [(field, value)], step, [(name, unit, data type, values)]), the time's column
/// first, all of one length and none empty.
void record(const py::str& path, const py::list& runs, const py::str& description, bool mayReplace) {
  std::vector<NewRun> made;
  for (const py::handle run : runs) made.push_back(newRun(run.cast<py::tuple>()));
  inTurn([&, file = toText(path), text = toText(description)] {
    write(file, made, text, mayReplace);
    return true;
  });
}

}  // namespace

void addSamples(py::module_& host) {
  host.def("read_samples", &readSamples);
  host.def("record", &record);
}

}  // namespace tavlox::python
