#include <algorithm>
#include <limits>
#include <optional>

#include "hosts/cli/command.h"
#include "hosts/cli/many_files.h"
#include "platform/errors/exceptions.h"
#include "platform/session_index/session_index.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using session_index::Cell;
using session_index::SessionIndex;
using session_index::Subject;

constexpr Column kFileColumns[] = {{"file", u"Filename"},
                                   {"runs", u"NumRuns"},
                                   {"signals", u"NumSignals"},
                                   {"description", u"Description"},
                                   {"error", u"ErrorMessage"}};
constexpr Column kRunColumns[] = {{"file", u"Filename"}, {"id", u"RunID"},        {"name", u"Name"},
                                  {"model", u"Model"},   {"start", u"StartTime"}, {"stop", u"StopTime"},
                                  {"status", u"Status"}};
constexpr Column kSignalColumns[] = {
    {"file", u"Filename"},           {"run id", u"RunID"},    {"name", u"Name"},
    {"units", u"StoredUnits"},       {"minimum", u"Minimum"}, {"maximum", u"Maximum"},
    {"block path", u"FullBlockPath"}};

// Kept as JSON in the index, and given out as the lists they are.
constexpr std::u16string_view kLists[] = {u"Dimensions", u"Channel"};

// Records that are printed at once.
constexpr std::size_t kPiece = 1024;

/// Raises tavlox:index:NoSuchSubject.
Subject subjectOf(const Request& request) {
  const std::u16string name = request.oneOr("--in", u"signals");
  if (name == u"files") return Subject::Files;
  if (name == u"runs") return Subject::Runs;
  if (name == u"signals") return Subject::Signals;
  foundation::core::except::raise("tavlox:index:NoSuchSubject", name);
}

std::span<const Column> columnsOf(Subject subject) {
  if (subject == Subject::Files) return kFileColumns;
  return subject == Subject::Runs ? std::span<const Column>(kRunColumns) : kSignalColumns;
}

/// "[3,4]" as an array.
HostArray listOf(std::string_view json) {
  std::vector<double> numbers;
  for (std::size_t at = 1; at < json.size(); at = std::min(json.find(',', at), json.size() - 1) + 1) {
    const std::size_t end = json.find_first_of(",]", at);
    if (const auto number = filter::numberOf(json.substr(at, end - at))) numbers.push_back(*number);
  }
  HostArray list = HostArray::numeric(corvan::numericClassByName("double"), 1, numbers.size());
  std::ranges::copy(numbers, list.mutableValues<double>().begin());
  return list;
}

HostArray toHost(const Cell& cell, bool isList) {
  if (const auto* text = std::get_if<std::string>(&cell))
    return isList ? listOf(*text) : HostArray::charRow(fl::i18n::to_ustring_lossy(*text));
  // Nothing is shown for what is not there: JSON has null for it.
  const auto* number = std::get_if<double>(&cell);
  return HostArray::doubleScalar(number == nullptr ? std::numeric_limits<double>::quiet_NaN() : *number);
}

/// Collects records and prints them in pieces.
class FoundRecords {
 public:
  FoundRecords(OutputFormat format, Subject subject) : printer_(format, columnsOf(subject), kLists) {
    for (const filter::Field& field : session_index::fieldsOf(subject)) names_.push_back(field.name);
  }

  void add(std::span<const Cell> cells) {
    rows_.emplace_back(cells.begin(), cells.end());
    if (rows_.size() == kPiece) flush();
  }

  void finish() {
    flush();
    printer_.finish();
  }

 private:
  void flush() {
    HostArray records = HostArray::structure(1, rows_.size(), names_);
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      for (std::size_t field = 0; field < names_.size(); ++field) {
        const bool isList = std::ranges::find(kLists, names_[field]) != std::end(kLists);
        records.setField(i, field, toHost(rows_[i][field], isList));
      }
    }
    printer_.add(records);
    rows_.clear();
  }

  RecordPrinter printer_;
  std::vector<std::u16string_view> names_;
  std::vector<std::vector<Cell>> rows_;
};

std::optional<filter::Filter> conditionOf(const Request& request) {
  if (!request.has("--where")) return std::nullopt;
  return filter::Filter(request.one("--where"), session_index::fieldsOf(subjectOf(request)));
}

ExitCode runSearch(const Request& request) {
  const std::optional<filter::Filter> where = conditionOf(request);
  SessionIndex index(request.one("INDEX"), SessionIndex::Access::Read);
  FoundRecords found(request.format, subjectOf(request));
  index.search(subjectOf(request), request.oneOr("TEXT", u""), where ? &*where : nullptr,
               [&](std::span<const Cell> cells) { found.add(cells); });
  found.finish();
  return ExitCode::Done;
}

}  // namespace

extern const Command kSearch = {
    .name = "search",
    .summary = "Find signals, runs and files in an index",
    .examples = R"(  tavlox search nightly.sqlite "wheel speed"
  tavlox search nightly.sqlite speed --where "StoredUnits != 'rad/s'"
  tavlox search nightly.sqlite --in runs --where "SolverName = 'ode4'"
  tavlox search nightly.sqlite --in files --where "Error is not empty"
)",
    .details =
        R"(Found is what has all words of the text, in any order and case: as words, or from three letters on also as pieces
of words. Of signals the name, block path and description are looked at, of runs the name, model, status, description,
tag, user, machine, task, solver, stop event, errors and warnings, of files the path, description and error.

A signal is a line: its package, id of its run, name, units, minimum, maximum and block path; with --json it is an
object with every field that "signals" shows, and Minimum, Maximum and SampleCount.

)" TAVLOX_CONDITION_HELP,
    .parameters = {{"INDEX", Takes::One, "What the command \"index\" made"},
                   {"TEXT", Takes::AtMostOne, "The words to look for; all records if there are none"},
                   {"--in", Takes::Value, "What to find: signals, runs or files; by default signals", "WHAT"},
                   kWhereOption},
    .run = runSearch,
    .check = [](const Request& request) { conditionOf(request), subjectOf(request); },
};

}  // namespace tavlox::cli
