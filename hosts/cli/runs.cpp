#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/many_files.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/recorded_fields.h"
#include "hosts/cli/selection.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/samples/recorded_session.h"
#include "platform/session_index/shown_fields.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using RunIDs = std::vector<std::int32_t>;

constexpr Column kColumns[] = {{"id", u"RunID"},     {"order", u"RunOrderIndex"}, {"name", u"Name"},
                               {"model", u"Model"},  {"start", u"StartTime"},     {"stop", u"StopTime"},
                               {"status", u"Status"}};

/// What was asked for: files and ids may stand behind each other.
struct Asked {
  std::vector<std::u16string> files;
  std::optional<RunIDs> ids;
};

/// Behind the first file a word is the id of a run, unless there is a file of that name or it is written as
/// one.
Asked askedFor(const Request& request) {
  Asked asked;
  const auto addID = [&](std::int32_t id) {
    if (!asked.ids) asked.ids.emplace();
    asked.ids->push_back(id);
  };
  for (const std::u16string& word : request.all("FILE")) {
    const bool isFile =
        word.ends_with(u".tavlox") || word.find(u'/') != std::u16string::npos || fl::filesystem::exists(word);
    if (!asked.files.empty() && !isFile) {
      addID(toRunID(word));
    } else {
      asked.files.push_back(word);
    }
  }
  for (const std::u16string& word : request.all("--id")) addID(toRunID(word));
  return asked;
}

/// The ids of the session's runs, in the order of the run list.
RunIDs idsOf(const samples::SessionPlaces& places) {
  RunIDs ids;
  std::ranges::transform(places.runs(), std::back_inserter(ids), &samples::RunPlace::id);
  return ids;
}

/// "the runs 1, 2 and 3"; long lists are cut.
std::string runsThereAre(const RunIDs& present) {
  constexpr std::size_t kMostNamed = 10;
  if (present.empty()) return "no runs";
  if (present.size() == 1) return fmt::format("only the run {}", present.front());
  const bool isLong = present.size() > kMostNamed;
  const auto named = std::span(present).first(isLong ? kMostNamed : present.size() - 1);
  const std::string rest =
      isLong ? fmt::format("{} more", present.size() - kMostNamed) : std::to_string(present.back());
  return fmt::format("the runs {} and {}", fmt::join(named, ", "), rest);
}

/// For whoever asked for a run that is not there; else empty.
std::u16string hintFor(const samples::RunPlace* run, const samples::SessionPlaces& places) {
  return run != nullptr ? u"" : fl::i18n::to_ustring("the file has " + runsThereAre(idsOf(places)));
}

ExitCode runRuns(const Request& request) {
  const Asked asked = askedFor(request);
  const Where where(request, session_index::fieldsOf(session_index::Subject::Runs));
  const auto answer = [&](const std::u16string& path, const auto& add) {
    const zobs::COSInterfacePointer file = openFile(request, path);
    const samples::SessionPlaces places(path, samples::SessionPlaces::Of::Runs);
    RunPlacer placer;
    ExitCode result = ExitCode::Done;
    for (const std::int32_t id : asked.ids ? *asked.ids : idsOf(places)) {
      const samples::RunPlace* const place = places.findRun(id);
      HostArray record;
      try {
        // The module would say no more than that something could not be read.
        if (place == nullptr) foundation::core::except::raise("tavlox:samples:NoSuchRun", path, id);
        record = callForArray(file, "getRunInfo", {HostArray::int32Scalar(id)});
      } catch (const std::exception&) {
        // The other runs are still answered.
        report(request.format, path, hintFor(place, places));
        result = ExitCode::Failed;
        continue;
      }
      // Printed as it comes: a session may have hundreds of thousands of runs.
      add(where.select(placer.withPlace(std::move(record), *place), path));
    }
    return result;
  };
  return answerWithRecords(request, packagesOf(request, asked.files),
                           {.columns = kColumns, .answer = answer});
}

}  // namespace

extern const Command kRuns = {
    .name = "runs",
    .summary = "Show the runs of a session",
    .examples = R"(  tavlox runs filter.tavlox
  tavlox runs filter.tavlox 1 3
  tavlox runs --json filter.tavlox | jq '.[].SolverName'
  tavlox runs -r nightly --where "SolverName = 'ode4' and StopTime > 10"
)",
    .details =
        R"(A run is a line: id, place among the runs, name, model, start and stop time in
seconds, and status. With --json it is an object with every field that is
recorded of a run, in a list; SamplesPart is the part that holds its samples. A
run that cannot be read is reported, the others are still shown, and the exit
code is 1.

Several packages and folders may be named; each record then begins with the path of its package, Filename. A whole
number behind the first of them is the id of a run, unless there is a file of that name.
)",
    .parameters = {{"FILE", Takes::OneOrMore,
                    "The packages, or folders of such, and behind them ids of runs"},
                   {"--id", Takes::Values, "Only the run of this id; may be repeated", "ID"},
                   kWhereOption,
                   kBelowOption,
                   kJobsOption},
    .run = runRuns,
    .check =
        [](const Request& request) {
          askedFor(request);
          jobsOf(request);
          Where(request, session_index::fieldsOf(session_index::Subject::Runs));
        },
};

}  // namespace tavlox::cli
