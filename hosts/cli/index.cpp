#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/many_files.h"
#include "platform/session_index/index_update.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using session_index::IndexUpdate;

void printCounts(const Request& request, const IndexUpdate::Counts& counts) {
  const std::pair<const char*, std::size_t> shown[] = {{"Added", counts.added},
                                                       {"Changed", counts.changed},
                                                       {"Unchanged", counts.unchanged},
                                                       {"Removed", counts.removed},
                                                       {"Unreadable", counts.unreadable}};
  if (request.format == OutputFormat::Text) {
    return print(Table{.rowCount = std::size(shown), .row = [&](std::size_t i) {
                         return std::vector{fl::i18n::to_ustring(shown[i].first),
                                            foundation::core::except::toArgument(shown[i].second)};
                       }});
  }
  fl::i18n::JsonWriter json = beginAnswer(request.one("--output"));
  for (const auto& [name, count] : shown) json.member(name).value(static_cast<std::uint64_t>(count));
  json.endObject();
  print(json);
}

ExitCode runIndex(const Request& request) {
  IndexUpdate update(request.all("FOLDER"), request.one("--output"), jobsOf(request));
  while (update.step()) {
  }
  for (const auto& problem : update.problems()) tellError(request.format, problem);
  printCounts(request, update.counts());
  if (!update.problems().empty()) return ExitCode::Failed;
  return update.counts().unreadable == 0 ? ExitCode::Done : ExitCode::Found;
}

}  // namespace

extern const Command kIndex = {
    .name = "index",
    .summary = "Make many sessions searchable",
    .examples = R"(  tavlox index nightly -o nightly.sqlite
  tavlox search nightly.sqlite "wheel speed"
  sqlite3 nightly.sqlite "select SolverName, count(*) from runs group by 1"
)",
    .details =
        R"(All packages below the folders are put into one SQLite file: their runs and signals, and minimum, maximum and
count of what was recorded. Made again, an index takes only what changed, and loses what is there no more. Packages
that cannot be read are in it with their error: tavlox search INDEX --in files --where "Error is not empty".

Shown are how many packages were added, changed, unchanged and removed, and how many in the index are unreadable.
A file that is no index is never replaced. Whatever ends the program, the index is sound.

Exit code: 0 done; 3 done, and packages are unreadable; 1 it failed, or a folder could not be read.
)",
    .parameters = {{"FOLDER", Takes::OneOrMore, "The folders to look in, and in all below them"},
                   {"--output", Takes::Value, "The index to make or to bring up to date", "INDEX", "-o"},
                   kJobsOption},
    .run = runIndex,
    .check =
        [](const Request& request) {
          jobsOf(request);
          if (!request.has("--output")) foundation::core::except::raise("tavlox:index:NoOutput");
        },
};

}  // namespace tavlox::cli
