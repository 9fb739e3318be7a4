#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/opc/package.h"
#include "platform/text/suggestion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using foundation::core::except::except_with_causes;

constexpr Column kColumns[] = {{"FullPath", u"FullPath"}, {"Name", u"Name"}, {"Type", u"Type"}};

constexpr Column kLongColumns[] = {{"FullPath", u"FullPath"},
                                   {"Name", u"Name"},
                                   {"Type", u"Type"},
                                   {"Size", u"Size"},
                                   {"CompressedSize", u"CompressedSize"}};

/// The entries with the bytes of their data, as it is and as it is kept. The module's method knows nothing of
/// sizes, the package does. A relationship that reaches no part has none, and its fields stay empty.
HostArray withSizes(const HostArray& entries, const std::u16string& path) {
  std::vector<std::u16string_view> fields;
  for (const Column& column : kLongColumns) fields.push_back(column.field);
  HostArray sized = HostArray::structure(1, entries.elementCount(), fields);
  opc::model::Package package(path);
  package.open(opc::interfaces::OpenMode::Read);
  for (std::size_t i = 0; i < entries.elementCount(); ++i) {
    for (const Column& column : kColumns) sized.setField(i, column.field, entries.fieldAt(i, column.field));
    const opc::model::PartName name(entries.fieldAt(i, u"FullPath").text());
    if (!package.hasPart(name)) continue;
    const opc::model::Part part = package.getPart(name);
    sized.setField(i, u"Size", HostArray::doubleScalar(static_cast<double>(part.getSize())));
    sized.setField(i, u"CompressedSize",
                   HostArray::doubleScalar(static_cast<double>(part.getCompressedSize())));
  }
  return sized;
}

ExitCode runList(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const HostArray entries = callForArray(file, "list", {request.oneOr("SEARCH", u"/")});
  // An answer and no failure, but a mistyped search would otherwise look like an empty package.
  if (entries.elementCount() == 0 && request.has("SEARCH")) {
    const std::u16string& search = request.one("SEARCH");
    tellWarning(request.format, except_with_causes("tavlox:cli:NothingMatches", {path, search}),
                fl::i18n::didYouMean(search, namesOf(file, search)));
  }
  if (!request.has("--long"))
    printRecords(request.format, entries, kColumns);
  else
    printRecords(request.format, withSizes(entries, path), kLongColumns);
  return ExitCode::Done;
}

}  // namespace

extern const Command kList = {
    .name = "list",
    .summary = "Show the entries of a package",
    .examples = R"(  tavlox list filter.tavlox
  tavlox list filter.tavlox /user
  tavlox list filter.tavlox notes.txt
  tavlox list -l filter.tavlox
)",
    .details =
        R"(An entry is a line: its full path, its name and its type; with -l also the bytes of its data, as
it is and as it is kept. A search is a path of the package, which
stands for an entry or for all in a folder, or a bare file name, which is looked for in all folders.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"SEARCH", Takes::AtMostOne, "A path of the package or a file name; by default /"},
                   {"--long", Takes::Flag, "Show sizes as well, in bytes", {}, "-l"}},
    .run = runList,
};

}  // namespace tavlox::cli
