#include "hosts/cli/records.h"

#include <algorithm>

#include "hosts/cli/host_json.h"
#include "hosts/cli/output.h"
#include "hosts/cli/terminal.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

/// Where the columns' fields stand in the structure.
std::vector<std::size_t> fieldsOf(const HostArray& structures, std::span<const Column> columns) {
  const std::vector<std::u16string>& names = structures.fieldNames();
  std::vector<std::size_t> fields;
  for (const Column& column : columns) {
    fields.push_back(static_cast<std::size_t>(std::ranges::find(names, column.field) - names.begin()));
  }
  return fields;
}

}  // namespace

void printTable(const HostArray& structures, std::span<const Column> columns) {
  std::vector<std::string> headings;
  for (const Column& column : columns) headings.emplace_back(column.heading);
  const auto row = [&, fields = fieldsOf(structures, columns)](std::size_t index) {
    std::vector<std::string> values;
    values.reserve(fields.size());
    for (const std::size_t field : fields)
      values.push_back(singleLine(cellText(structures.fieldAt(index, field))));
    return values;
  };
  writeTable(headings, {.count = structures.elementCount(), .row = row}, tableStyleOfOutput(),
             [](std::string_view piece) { print(piece); });
}

void printJsonList(const HostArray& structures) {
  const StructureWriter writer(structures);
  fl::i18n::JsonWriter json;
  json.beginArray();
  for (std::size_t index = 0; index < structures.elementCount(); ++index) {
    writer.write(json, index);
    if (json.text().size() >= kPieceSize) print(std::string_view(json.take()));
  }
  json.endArray();
  print(json);
}

void printRecords(OutputFormat format, const HostArray& structures, std::span<const Column> columns) {
  format == OutputFormat::Json ? printJsonList(structures) : printTable(structures, columns);
}

}  // namespace tavlox::cli
