#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/many_files.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/recorded_fields.h"
#include "platform/session_index/shown_fields.h"
#include "platform/text/suggestion.h"

namespace tavlox::cli {
namespace {

using foundation::core::except::except_with_causes;

// Those by which people tell signals apart; the others are in the JSON.
constexpr Column kColumns[] = {{"run id", u"RunID"},  {"run order", u"RunOrderIndex"},
                               {"name", u"Name"},     {"units", u"StoredUnits"},
                               {"type", u"DataType"}, {"block path", u"FullBlockPath"}};

// Lists, also where they have one number.
constexpr std::u16string_view kLists[] = {u"Dimensions", u"Channel"};

/// Says which name may have been meant, where no signal has the one that was asked for.
void warnOfUnknownName(const Request& request, const std::u16string& path,
                       const zobs::COSInterfacePointer& file) {
  const corvan::HostArray all = callForArray(file, "getAllSignalsInfo");
  std::vector<std::u16string> names;
  for (std::size_t i = 0; i < all.elementCount(); ++i) names.emplace_back(all.fieldAt(i, u"Name").text());
  tellWarning(request.format, except_with_causes("tavlox:cli:NoSuchSignal", {path, request.one("--name")}),
              fl::i18n::didYouMean(request.one("--name"), names));
}

/// Says why there is no signal to show, where there is more to say than that none was recorded. Signals of
/// runs that are not in the run list are not answered, and the module says nothing of it. Counted are the
/// signals of all signals parts.
void warnOfNoSignals(const Request& request, const Packages& packages, const std::u16string& path,
                     const zobs::COSInterfacePointer& file) {
  const auto count = [&](const char* property) {
    return std::get<corvan::HostArray>(zobs::getProperty(file, property)).values<std::int32_t>()[0];
  };
  if (count("NumRuns") == 0 && count("NumSignals") > 0) {
    warn(request.format, "tavlox:cli:SignalsLeftOut", path, count("NumSignals"));
  } else if (request.has("--name") && !packages.areSeveral) {
    // Among many packages there are such that do not have it.
    warnOfUnknownName(request, path, file);
  }
}

/// Both of the module's methods give a structure array with a field for everything recorded; text shows the
/// columns above, JSON all of it and where the samples are.
ExitCode runSignals(const Request& request) {
  const Where where(request, session_index::signalFieldsWithoutStatistics());
  const Packages packages = packagesOf(request, request.all("FILE"));
  const std::u16string name = request.oneOr("--name", u"");
  const auto answer = [&](const std::u16string& path, const auto& add) {
    const zobs::COSInterfacePointer file = openFile(request, path);
    const corvan::HostArray found = request.has("--name") ? callForArray(file, "getSignalInfoByName", {name})
                                                          : callForArray(file, "getAllSignalsInfo");
    if (found.elementCount() == 0) warnOfNoSignals(request, packages, path, file);
    const samples::SessionPlaces places(path, samples::SessionPlaces::Of::Signals,
                                        request.has("--name") ? &name : nullptr);
    forEachWithPlace(found, places,
                     [&](const corvan::HostArray& records) { add(where.select(records, path)); });
    return ExitCode::Done;
  };
  return answerWithRecords(request, packages, {.columns = kColumns, .lists = kLists, .answer = answer});
}

}  // namespace

extern const Command kSignals = {
    .name = "signals",
    .summary = "Show the signals of a session",
    .examples = R"help(  tavlox signals filter.tavlox
  tavlox signals filter.tavlox --name "v(out)"
  tavlox signals --json filter.tavlox | jq '.[] | [.RunID, .Name]'
  tavlox signals -r nightly --where "StoredUnits != 'rad/s'"
)help",
    .details =
        R"(A signal is a line: id of its run, place of that among the runs, name, units,
data type and block path; with --json it is an object with every field that is
recorded of a signal, in a list. SamplesPart is the part with its samples,
SamplesColumn its column there, from 1, where the time is; 0 if there are none.
If there is no signal of the name, that is said on standard error, and with --json
the list is empty.

Several packages and folders may be named; each record then begins with the path of its package, Filename.
)",
    .parameters = {{"FILE", Takes::OneOrMore, "The packages, or folders of such"},
                   {"--name", Takes::Value, "Only the signals of exactly this name, in all runs", "NAME"},
                   kWhereOption,
                   kBelowOption,
                   kJobsOption},
    .run = runSignals,
    .check =
        [](const Request& request) {
          jobsOf(request);
          Where(request, session_index::signalFieldsWithoutStatistics());
        },
};

}  // namespace tavlox::cli
