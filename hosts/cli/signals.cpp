#include "hosts/cli/module.h"
#include "hosts/cli/records.h"

namespace tavlox::cli {
namespace {

constexpr Column kColumns[] = {{"name", u"Name"},
                               {"run", u"RunOrderIndex"},
                               {"units", u"StoredUnits"},
                               {"type", u"DataType"},
                               {"block path", u"FullBlockPath"}};

ExitCode runSignals(const Request& request) {
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  const zobs::Value found = request.has("--name") ? call(file, "getSignalInfoByName", {request.one("--name")})
                                                  : call(file, "getAllSignalsInfo");
  printRecords(request.format, std::get<corvan::HostArray>(found), kColumns);
  return ExitCode::Done;
}

}  // namespace

const Command kSignals = {
    .name = "signals",
    .summary = "Show the signals of a session",
    .examples =
        "  tavlox signals filter.tavlox\n"
        "  tavlox signals filter.tavlox --name \"v(out)\"\n"
        "  tavlox signals --json filter.tavlox | jq '.[] | select(.StoredUnits == \"V\") | .Name'\n",
    .details =
        "A signal is a line: name, place of its run among the runs, units, data type and block path; with\n"
        "--json it is an object with every field that is recorded of a signal, in a list. Nothing is "
        "printed,\n"
        "with --json an empty list, if there is no signal of the name.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"--name", Takes::Value, "Only the signals of exactly this name, in all runs", "NAME"}},
    .run = runSignals,
};

}  // namespace tavlox::cli
