// The samples of runs, read by column and time range into arrays that Python then owns. The names of runs and
// signals are resolved here, beside the session that is open anyway, so that one call reads it once.

#include "hosts/python/samples.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

#include "hosts/python/calls.h"
#include "hosts/python/values.h"
#include "platform/errors/exceptions.h"
#include "platform/samples/grid.h"

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

/// What the caller names runs by: the identifier in decimal, or the name.
std::u16string keyOf(const RecordedRun& run, const Request& request) {
  return request.areIdentifiers ? foundation::core::except::toArgument(run.id()) : run.name();
}

const RecordedRun& runOf(const RecordedSession& session, const Request& request,
                         const std::u16string& wanted) {
  const RecordedRun* found = nullptr;
  for (const RecordedRun& run : session.runs()) {
    if (keyOf(run, request) != wanted) continue;
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

std::vector<std::u16string> toTexts(const py::list& items) {
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
  if (!signals.is_none()) request.signals = toTexts(signals.cast<py::list>());
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

/// What joins a session's signals with its runs: of each run, in the order of the run list,
/// (id, order index, number of signals).
py::list listRuns(const py::str& path) {
  struct Listed {
    std::int32_t id, orderIndex;
    std::size_t signalCount;
  };
  const auto runs = inTurn([file = toText(path)] {
    const RecordedSession session(file);
    std::vector<Listed> made;
    for (const RecordedRun& run : session.runs())
      made.push_back({run.id(), run.orderIndex, run.signals.size()});
    return made;
  });
  py::list answer;
  for (const Listed& run : runs) answer.append(py::make_tuple(run.id, run.orderIndex, run.signalCount));
  return answer;
}

/// One run with those of its signals that were wanted, in the order of the columns.
struct RunTable {
  RecordedRun run;
  Table table;
};

std::vector<RunTable> readWantedRuns(const Request& request, bool isEveryRun) {
  const auto contains = [](const auto& names, const std::u16string& name) {
    return std::ranges::find(names, name) != names.end();
  };
  const auto isUnwanted = [&](const RecordedSignal& signal) {
    return signal.column == 0 || (request.signals && !contains(*request.signals, signal.name));
  };
  const RecordedSession session(request.path);
  std::vector<RunTable> tables;
  for (const RecordedRun& run : session.runs()) {
    if (!run.samples || (!isEveryRun && !contains(request.runs, keyOf(run, request)))) continue;
    tables.push_back({run, {}});
    RunTable& read = tables.back();
    std::erase_if(read.run.signals, isUnwanted);
    Selection selection{&read.run, {}};
    for (const RecordedSignal& signal : read.run.signals) selection.signals.push_back(&signal);
    if (!selection.signals.empty()) read.table = readRun(session, selection, request);
  }
  return tables;
}

/// The samples of the wanted runs, or of all, each on its own times: [(id, order index, name, times,
/// [(signal, units, values)])]. Many sessions are asked the same, so what one of them does not have is left
/// out instead of raised; of several runs with a name each is given.
py::list readEach(const py::str& path, const py::object& runs, bool areIdentifiers, const py::object& signals,
                  double from, double to) {
  Request request{toText(path), {}, areIdentifiers, {}, from, to, {}};
  const bool isEveryRun = runs.is_none();
  if (!isEveryRun) request.runs = toTexts(runs);
  if (!signals.is_none()) request.signals = toTexts(signals);
  py::list answer;
  for (RunTable& read : inTurn([&] { return readWantedRuns(request, isEveryRun); })) {
    py::list columns;
    for (std::size_t i = 0; i < read.run.signals.size(); ++i) {
      const RecordedSignal& signal = read.run.signals[i];
      columns.append(py::make_tuple(toPython(signal.name), toPython(signal.units),
                                    toArray(std::move(read.table.columns[i]))));
    }
    answer.append(py::make_tuple(read.run.id(), read.run.orderIndex, toPython(read.run.name()),
                                 toArray(std::move(read.table.times)), columns));
  }
  return answer;
}

}  // namespace

void addSamples(py::module_& host) {
  host.def("read_samples", &readSamples);
  host.def("list_runs", &listRuns);
  host.def("read_each", &readEach);
}

}  // namespace tavlox::python
