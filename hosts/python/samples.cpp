// The samples of runs, read by column and time range into arrays that Python then owns. The names of runs and
// signals are resolved here, beside the session that is open anyway, so that one call reads it once.

#include "hosts/python/samples.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>
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

/// The run, with those of its signals that were asked for, in the order in which they were.
RecordedRun select(const RecordedSession& session, const Request& request, const std::u16string& name) {
  RecordedRun run = runOf(session, request, name);
  std::erase_if(run.signals, [](const RecordedSignal& signal) { return signal.column == 0; });
  if (!request.signals) return run;
  const std::vector<RecordedSignal> recorded = std::exchange(run.signals, {});
  for (const std::u16string& wanted : *request.signals) {
    const std::size_t before = run.signals.size();
    std::ranges::copy_if(recorded, std::back_inserter(run.signals),
                         [&](const RecordedSignal& signal) { return signal.name == wanted; });
    if (run.signals.size() == before) raise("tavlox:python:NoSuchSignal", request.path, run.name(), wanted);
  }
  return run;
}

/// Of the signals that the run has.
samples::SampleReader readerOf(const RecordedSession& session, const RecordedRun& run,
                               const Request& request) {
  samples::Wanted wanted{.columns = {}, .from = request.from, .to = request.to};
  for (const RecordedSignal& signal : run.signals) wanted.columns.push_back(signal.column);
  return session.read(run, std::move(wanted));
}

Table readRun(const RecordedSession& session, const RecordedRun& run, const Request& request) {
  samples::SampleReader reader = readerOf(session, run, request);
  Table table{{}, std::vector<std::vector<double>>(run.signals.size())};
  samples::SampleBlock block;
  while (reader.next(block)) {
    table.times.insert(table.times.end(), block.times.begin(), block.times.end());
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      table.columns[i].insert(table.columns[i].end(), block.values[i].begin(), block.values[i].end());
    }
  }
  return table;
}

/// Runs of the same times side by side. Raises tavlox:python:MixedTimes.
Table readAlike(const RecordedSession& session, const std::vector<RecordedRun>& runs,
                const Request& request) {
  Table all = readRun(session, runs.front(), request);
  for (std::size_t i = 1; i < runs.size(); ++i) {
    Table next = readRun(session, runs[i], request);
    if (next.times != all.times) raise("tavlox:python:MixedTimes", request.path);
    std::ranges::move(next.columns, std::back_inserter(all.columns));
  }
  return all;
}

/// The equal steps of a grid: those asked for, or the shortest mean step of a run.
struct Steps {
  double first = std::numeric_limits<double>::infinity(), last = -first, step = first;
};

Steps stepsOf(const RecordedSession& session, const std::vector<RecordedRun>& runs, const Request& request) {
  Steps steps;
  for (const RecordedRun& run : runs) {
    const samples::Wanted times{.columns = {}, .from = request.from, .to = request.to};
    const auto [first, last, rows] = samples::spanOf(session.read(run, times));
    if (rows == 0) continue;
    steps.first = std::min(steps.first, first);
    steps.last = std::max(steps.last, last);
    if (rows > 1) steps.step = std::min(steps.step, (last - first) / static_cast<double>(rows - 1));
  }
  if (request.step > 0) steps.step = request.step;
  return steps;
}

Table readOnGrid(const RecordedSession& session, const std::vector<RecordedRun>& runs,
                 const Request& request) {
  std::vector<samples::RunOnGrid> onGrid;
  Table table;
  for (const RecordedRun& run : runs) {
    std::vector<samples::Between> between;
    for (const RecordedSignal& signal : run.signals)
      between.push_back(samples::betweenSamplesOf(signal.dataTypeLabel));
    table.columns.resize(table.columns.size() + between.size());
    onGrid.emplace_back(readerOf(session, run, request), std::move(between));
  }
  std::optional<samples::Grid> grid;
  if (request.grid == u"step") {
    const Steps steps = stepsOf(session, runs, request);
    if (!(steps.first <= steps.last)) return table;
    grid.emplace(std::move(onGrid), steps.first, steps.last, steps.step);
  } else {
    grid.emplace(std::move(onGrid));
  }
  while (grid->next()) {
    table.times.push_back(grid->time());
    for (std::size_t i = 0; i < table.columns.size(); ++i) table.columns[i].push_back(grid->values()[i]);
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

/// (times, [(run, signal, units, data type, values)], name of the time).
py::tuple readSamples(const py::str& path, const py::list& runs, bool areIdentifiers,
                      const py::object& signals, double from, double to, const py::str& grid, double step) {
  Request request{toText(path), toTexts(runs), areIdentifiers, {}, from, to, toText(grid), step};
  if (!signals.is_none()) request.signals = toTexts(signals.cast<py::list>());
  struct Answer {
    std::vector<RecordedRun> runs;
    Table table;
    std::string timeHeading;
  };
  Answer answer = inTurn([&] {
    const RecordedSession session(request.path);
    Answer made;
    for (const std::u16string& run : request.runs) made.runs.push_back(select(session, request, run));
    made.timeHeading = session.read(made.runs.front(), {.columns = {}}).headings().front();
    made.table = request.grid.empty() ? readAlike(session, made.runs, request)
                                      : readOnGrid(session, made.runs, request);
    return made;
  });
  py::list columns;
  for (const RecordedRun& run : answer.runs) {
    for (const RecordedSignal& signal : run.signals) {
      columns.append(py::make_tuple(toPython(run.name()), toPython(signal.name), toPython(signal.units),
                                    toPython(signal.dataTypeLabel),
                                    toArray(std::move(answer.table.columns[columns.size()]))));
    }
  }
  return py::make_tuple(toArray(std::move(answer.table.times)), columns, py::str(answer.timeHeading));
}

/// What joins a session's signals with its runs: of each run, in the order of the run list,
/// (id, order index, number of signals). The number is None where only runs are asked for, or where the order
/// index tells the run of a signal: none of the signals was read then.
py::list listRuns(const py::str& path, bool areSignalsAsked) {
  using samples::SessionPlaces;
  const auto places = inTurn([&, file = toText(path)] {
    return SessionPlaces(file, areSignalsAsked ? SessionPlaces::Of::Signals : SessionPlaces::Of::Runs);
  });
  const bool areCounted = areSignalsAsked && places.hasSignals();
  py::list answer;
  for (const samples::RunPlace& run : places.runs()) {
    const py::object count = areCounted ? py::object(py::int_(run.signals.size())) : py::none();
    answer.append(py::make_tuple(run.id, run.orderIndex, count));
  }
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
    if (!read.run.signals.empty()) read.table = readRun(session, read.run, request);
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
