#include <algorithm>
#include <charconv>

#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/records.h"
#include "hosts/cli/run_hint.h"
#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;

constexpr Column kColumns[] = {{"id", u"id"},           {"name", u"Name"},     {"model", u"Model"},
                               {"start", u"StartTime"}, {"stop", u"StopTime"}, {"status", u"Status"}};

std::int32_t parseRunID(const std::u16string& word) {
  const std::string narrow = fl::i18n::to_string(word);
  std::int32_t id = 0;
  const auto [end, error] = std::from_chars(narrow.data(), narrow.data() + narrow.size(), id);
  if (error != std::errc() || end != narrow.data() + narrow.size()) {
    foundation::core::except::raise("tavlox:cli:NotARunID", word);
  }
  return id;
}

std::vector<std::int32_t> parseRunIDs(const Request& request) {
  std::vector<std::int32_t> ids;
  for (const std::u16string& word : request.all("ID")) ids.push_back(parseRunID(word));
  return ids;
}

std::vector<std::int32_t> readRunIDs(const zobs::COSInterfacePointer& file) {
  const zobs::Value column = call(file, "getAllRunIDs");
  const auto ids = std::get<HostArray>(column).values<std::int32_t>();
  return {ids.begin(), ids.end()};
}

/// The records one after the other, in one array.
HostArray joined(const std::vector<HostArray>& records) {
  const std::vector<std::u16string>& names = records.front().fieldNames();
  HostArray all =
      HostArray::structure(1, records.size(), std::vector<std::u16string_view>(names.begin(), names.end()));
  for (std::size_t i = 0; i < records.size(); ++i) {
    for (std::size_t field = 0; field < names.size(); ++field)
      all.setField(i, field, records[i].fieldAt(0, field));
  }
  return all;
}

ExitCode runRuns(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const std::vector<std::int32_t> present = readRunIDs(file);
  const std::vector<std::int32_t> asked = request.has("ID") ? parseRunIDs(request) : present;
  std::vector<HostArray> records;
  for (const std::int32_t id : asked) {
    try {
      records.push_back(std::get<HostArray>(call(file, "getRunInfo", {HostArray::int32Scalar(id)})));
    } catch (const std::exception&) {
      // The other runs are still answered.
      const bool isKnown = std::ranges::find(present, id) != present.end();
      report(std::current_exception(), request.format, path,
             isKnown ? std::u16string() : unknownRunHint(id, present));
    }
  }
  if (!records.empty()) {
    printRecords(request.format, joined(records), kColumns);
  } else if (asked.empty() && request.format == OutputFormat::Json) {
    printJsonList(HostArray::structure(1, 0, {}));
  }
  return records.size() == asked.size() ? ExitCode::Done : ExitCode::Failed;
}

}  // namespace

const Command kRuns = {
    .name = "runs",
    .summary = "Show the runs of a session",
    .examples =
        "  tavlox runs filter.tavlox\n"
        "  tavlox runs filter.tavlox 1 3\n"
        "  tavlox runs --json filter.tavlox | jq '.[].SolverName'\n",
    .details =
        "A run is a line: id, name, model, start and stop time in seconds, and status. With --json it is an\n"
        "object with every field that is recorded of a run, in a list. A run that cannot be read is "
        "reported,\n"
        "the others are still shown, and the exit code is 1.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"ID", Takes::Any, "The runs to show; all of them if none is named"}},
    .run = runRuns,
    .check = [](const Request& request) { parseRunIDs(request); },
};

}  // namespace tavlox::cli
