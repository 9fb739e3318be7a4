#include "hosts/cli/command.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"

namespace tavlox::cli {
namespace {

constexpr Column kColumns[] = {{"FullPath", u"FullPath"}, {"Name", u"Name"}, {"Type", u"Type"}};

ExitCode runList(const Request& request) {
  // Finding nothing is an answer, an empty table, and not an error.
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  printRecords(request.format, callForArray(file, "list", {request.oneOr("SEARCH", u"/")}), kColumns);
  return ExitCode::Done;
}

}  // namespace

extern const Command kList = {
    .name = "list",
    .summary = "Show the entries of a package",
    .examples = R"(  tavlox list filter.tavlox
  tavlox list filter.tavlox /user
  tavlox list filter.tavlox notes.txt
)",
    .details =
        R"(An entry is a line: its full path, its name and its type. A search is a path of the package, which
stands for an entry or for all in a folder, or a bare file name, which is looked for in all folders.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"SEARCH", Takes::AtMostOne, "A path of the package or a file name; by default /"}},
    .run = runList,
};

}  // namespace tavlox::cli
