#include <algorithm>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/date_time/posix_time/time_formatters_limited.hpp>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/host_json.h"
#include "hosts/cli/many_files.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

/// A property's name and value, as the module's class lists them.
using Properties = std::vector<std::pair<std::string, zobs::Value>>;

/// The properties are asked for by the names that the class itself lists, so that one which a later module
/// adds is shown without a change here. Raises what the module raises.
Properties readProperties(const Request& request, const std::u16string& path) {
  const zobs::COSInterfacePointer file = openFile(request, path);
  Properties properties;
  for (const zobs::COSProperty& property : fileClass(request).properties()) {
    const std::string& name = property.name.text();
    properties.emplace_back(name, zobs::getProperty(file, name));
  }
  return properties;
}

/// A table for each file, with an empty line between them. No headings: each row begins with its name.
void printTables(const std::vector<Properties>& files) {
  for (const Properties& properties : files) {
    if (&properties != &files.front()) print("\n");
    print(Table{.rowCount = properties.size(), .row = [&](std::size_t i) {
                  const auto& [name, value] = properties[i];
                  return std::vector{fl::i18n::to_ustring(name), cellText(value)};
                }});
  }
}

/// When the file was written, in UTC after ISO 8601 and to the microsecond; the class's own text is local
/// time.
std::string modificationTime(const Properties& properties) {
  const auto name = std::ranges::find(properties, "Filename", &Properties::value_type::first);
  const auto file = fl::filesystem::status(cellText(name->second));
  return boost::posix_time::to_iso_extended_string(file.lastWriteTime) + "Z";
}

/// A list, also of one file: programs need to know the shape beforehand. Nothing where no file could be read.
void printJson(const std::vector<Properties>& files) {
  if (files.empty()) return;
  fl::i18n::JsonWriter json;
  json.beginArray();
  for (const Properties& properties : files) {
    json.beginObject();
    for (const auto& [name, value] : properties) {
      writeJson(json.member(name), value);
      if (name == "LastModified") json.member("LastModifiedUTC").value(modificationTime(properties));
    }
    json.endObject();
  }
  print(json.endArray());
}

ExitCode answerFor(const Request& request, std::span<const std::u16string> paths) {
  std::vector<Properties> files;
  for (const std::u16string& path : paths) {
    try {
      files.push_back(readProperties(request, path));
    } catch (const std::exception&) {
      // The other files are still answered.
      report(request.format, path);
    }
  }
  request.format == OutputFormat::Json ? printJson(files) : printTables(files);
  return files.size() == paths.size() ? ExitCode::Done : ExitCode::Failed;
}

ExitCode runInfo(const Request& request) {
  return answerAll(request, packagesOf(request, request.all("FILE")), {}, Joined::Tables,
                   [&](std::span<const std::u16string> paths) { return answerFor(request, paths); });
}

}  // namespace

extern const Command kInfo = {
    .name = "info",
    .summary = "Show the properties of sessions",
    .examples = R"(  tavlox info filter.tavlox
  tavlox info --json filter.tavlox | jq ".[].NumSignals"
  tavlox info *.tavlox
  tavlox info -r nightly
)",
    .details =
        R"(A property is a line: its name and its value. Several files are separated by empty lines; with --json
there is a list of objects, one for each file, in which LastModifiedUTC gives the time after ISO 8601. A file that cannot be read is reported, the others are still shown, and the exit
code is 1.
)",
    .parameters = {{"FILE", Takes::OneOrMore, "The packages, or folders of such"}, kBelowOption, kJobsOption},
    .run = runInfo,
    .check = [](const Request& request) { jobsOf(request); },
};

}  // namespace tavlox::cli
