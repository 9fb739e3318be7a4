#include <algorithm>
#include <charconv>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/recorded_fields.h"
#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using RunIDs = std::vector<std::int32_t>;

constexpr Column kColumns[] = {{"id", u"RunID"},     {"order", u"RunOrderIndex"}, {"name", u"Name"},
                               {"model", u"Model"},  {"start", u"StartTime"},     {"stop", u"StopTime"},
                               {"status", u"Status"}};

RunIDs parseRunIDs(const Request& request) {
  RunIDs ids;
  for (const std::u16string& word : request.all("ID")) {
    const std::string narrow = fl::i18n::to_string(word);
    const char* const last = narrow.data() + narrow.size();
    const auto [end, error] = std::from_chars(narrow.data(), last, ids.emplace_back());
    if (error != std::errc() || end != last) foundation::core::except::raise("tavlox:cli:NotARunID", word);
  }
  return ids;
}

RunIDs readRunIDs(const zobs::COSInterfacePointer& file) {
  const HostArray column = callForArray(file, "getAllRunIDs");
  const auto ids = column.values<std::int32_t>();
  return {ids.begin(), ids.end()};
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

/// The module says no more of an unknown run than that something could not be read.
std::u16string hintFor(std::int32_t id, const RunIDs& present) {
  if (std::ranges::find(present, id) != present.end()) return {};
  return fl::i18n::to_ustring(fmt::format("there is no run {}; the file has {}", id, runsThereAre(present)));
}

ExitCode runRuns(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const RunIDs present = readRunIDs(file);
  const RunIDs asked = request.has("ID") ? parseRunIDs(request) : present;
  const samples::SessionPlaces places(path, samples::SessionPlaces::Of::Runs);
  RunPlacer placer;
  RecordPrinter printer(request.format, kColumns);
  std::size_t answered = 0;
  for (const std::int32_t id : asked) {
    HostArray record;
    try {
      record = callForArray(file, "getRunInfo", {HostArray::int32Scalar(id)});
    } catch (const std::exception&) {
      // The other runs are still answered.
      report(request.format, path, hintFor(id, present));
      continue;
    }
    // Printed as it comes: a session may have hundreds of thousands of runs.
    printer.add(placer.withPlace(record, places.findRun(id)));
    ++answered;
  }
  if (answered > 0 || (asked.empty() && request.format == OutputFormat::Json)) printer.finish();
  return answered == asked.size() ? ExitCode::Done : ExitCode::Failed;
}

}  // namespace

extern const Command kRuns = {
    .name = "runs",
    .summary = "Show the runs of a session",
    .examples = R"(  tavlox runs filter.tavlox
  tavlox runs filter.tavlox 1 3
  tavlox runs --json filter.tavlox | jq '.[].SolverName'
)",
    .details =
        R"(A run is a line: id, place among the runs, name, model, start and stop time in
seconds, and status. With --json it is an object with every field that is
recorded of a run, in a list; SamplesPart is the part that holds its samples. A
run that cannot be read is reported, the others are still shown, and the exit
code is 1.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"ID", Takes::Any, "The runs to show; all of them if none is named"}},
    .run = runRuns,
    .check = [](const Request& request) { parseRunIDs(request); },
};

}  // namespace tavlox::cli
