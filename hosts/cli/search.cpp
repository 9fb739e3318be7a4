#include <optional>

#include "hosts/cli/command.h"
#include "hosts/cli/many_files.h"
#include "platform/session_index/found_records.h"
#include "platform/session_index/session_index.h"

namespace tavlox::cli {
namespace {

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

// Records that are printed at once.
constexpr std::size_t kPiece = 1024;

Subject subjectOf(const Request& request) {
  return session_index::subjectOf(request.oneOr("--in", u"signals"));
}

std::span<const Column> columnsOf(Subject subject) {
  if (subject == Subject::Files) return kFileColumns;
  return subject == Subject::Runs ? std::span<const Column>(kRunColumns) : kSignalColumns;
}

std::optional<filter::Filter> conditionOf(const Request& request) {
  if (!request.has("--where")) return std::nullopt;
  return filter::Filter(request.one("--where"), session_index::fieldsOf(subjectOf(request)));
}

ExitCode runSearch(const Request& request) {
  const std::optional<filter::Filter> where = conditionOf(request);
  SessionIndex index(request.one("INDEX"), SessionIndex::Access::Read);
  session_index::FoundRecords found(subjectOf(request));
  RecordPrinter printer(request.format, columnsOf(subjectOf(request)), session_index::kLists);
  index.search(subjectOf(request), request.oneOr("TEXT", u""), where ? &*where : nullptr,
               [&](std::span<const session_index::Cell> cells) {
                 found.add(cells);
                 if (found.size() == kPiece) printer.add(found.take());
               });
  printer.add(found.take());
  printer.finish();
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
)",
    .parameters = {{"INDEX", Takes::One, "What the command \"index\" made"},
                   {"TEXT", Takes::AtMostOne, "The words to look for; all records if there are none"},
                   {"--in", Takes::Value, "What to find: signals, runs or files; by default signals", "WHAT"},
                   kWhereOption},
    .run = runSearch,
    .check = [](const Request& request) { conditionOf(request), subjectOf(request); },
};

}  // namespace tavlox::cli
