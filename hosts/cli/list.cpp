#include "hosts/cli/entries.h"
#include "hosts/cli/module.h"
#include "hosts/cli/records.h"

namespace tavlox::cli {
namespace {

constexpr Column kColumns[] = {{"FullPath", u"FullPath"}, {"Name", u"Name"}, {"Type", u"Type"}};

ExitCode runList(const Request& request) {
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  const std::u16string search = request.has("SEARCH") ? request.one("SEARCH") : u"/";
  printRecords(request.format, listing(file, search), kColumns);
  return ExitCode::Done;
}

}  // namespace

const Command kList = {
    .name = "list",
    .summary = "Show the entries of a package",
    .examples =
        "  tavlox list filter.tavlox\n"
        "  tavlox list filter.tavlox /user\n"
        "  tavlox list filter.tavlox notes.txt\n",
    .details =
        "An entry is a line: its full path, its name and its type. A search is a path of the package, which\n"
        "stands for an entry or for all in a folder, or a bare file name, which is looked for in all "
        "folders.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"SEARCH", Takes::AtMostOne, "A path of the package or a file name; by default /"}},
    .run = runList,
};

}  // namespace tavlox::cli
