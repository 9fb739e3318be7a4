#include <optional>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/many_files.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/files/filesystem.h"
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
    const auto name = opc::model::PartName::tryFromText(entries.fieldAt(i, u"FullPath").text());
    if (!name || !package.hasPart(*name)) continue;
    const opc::model::Part part = package.getPart(*name);
    sized.setField(i, u"Size", HostArray::doubleScalar(static_cast<double>(part.getSize())));
    sized.setField(i, u"CompressedSize",
                   HostArray::doubleScalar(static_cast<double>(part.getCompressedSize())));
  }
  return sized;
}

/// What was asked for: packages, and perhaps something to look for in them.
struct Asked {
  std::vector<std::u16string> files;
  std::optional<std::u16string> search;
};

/// The second of two words is a search: also one that is called like a file here, since copies of entries
/// mostly are. Only a package is taken for what it is.
Asked askedFor(const Request& request) {
  Asked asked{.files = request.all("FILE")};
  if (request.has("--search")) asked.search = request.one("--search");
  const bool areFiles = request.has("--search") || request.has("--recursive") || asked.files.size() != 2;
  if (areFiles) return asked;
  const std::u16string& second = asked.files.back();
  if (second.ends_with(u".tavlox") && fl::filesystem::exists(second)) return asked;
  asked.search = second;
  asked.files.pop_back();
  return asked;
}

ExitCode runList(const Request& request) {
  const auto [files, search] = askedFor(request);
  const Packages packages = packagesOf(request, files);
  const bool isLong = request.has("--long");
  // An answer and no failure, but a mistyped search would otherwise look like an empty package.
  const auto warnOfNothing = [&, &search = search](const std::u16string& path,
                                                   const zobs::COSInterfacePointer& file) {
    tellWarning(request.format, except_with_causes("tavlox:cli:NothingMatches", {path, *search}),
                fl::i18n::didYouMean(*search, namesOf(file, *search)));
  };
  const auto answer = [&, &search = search](const std::u16string& path, const auto& add) {
    const zobs::COSInterfacePointer file = openFile(request, path);
    const HostArray entries = callForArray(file, "list", {search.value_or(u"/")});
    if (entries.elementCount() == 0 && search && !packages.areSeveral) warnOfNothing(path, file);
    add(isLong ? withSizes(entries, path) : entries);
    return ExitCode::Done;
  };
  if (isLong) return answerWithRecords(request, packages, {.columns = kLongColumns, .answer = answer});
  return answerWithRecords(request, packages, {.columns = kColumns, .answer = answer});
}

}  // namespace

extern const Command kList = {
    .name = "list",
    .summary = "Show the entries of a package",
    .examples = R"(  tavlox list filter.tavlox
  tavlox list filter.tavlox /user
  tavlox list filter.tavlox notes.txt
  tavlox list -l filter.tavlox
  tavlox list -r nightly --search notes.txt
)",
    .details =
        R"(An entry is a line: its full path, its name and its type; with -l also the bytes of its data, as
it is and as it is kept. A search is a path of the package, which
stands for an entry or for all in a folder, or a bare file name, which is looked for in all folders.

Several packages and folders may be named; each record then begins with the path of its package, Filename. The second of two words is a search, unless it is a file whose name ends in .tavlox; --search says it in any case.
)",
    .parameters = {{"FILE", Takes::OneOrMore, "The packages, or folders of such; behind one, a search"},
                   {"--search", Takes::Value, "A path of the package or a file name; by default /", "SEARCH"},
                   {"--long", Takes::Flag, "Show sizes as well, in bytes", {}, "-l"},
                   kBelowOption,
                   kJobsOption},
    .run = runList,
    .check = [](const Request& request) { jobsOf(request); },
};

}  // namespace tavlox::cli
