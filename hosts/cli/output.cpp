// Results may be large: a session can have a million signals. So tables and lists of
// records are made row by row and leave in pieces; they are never held as one text. Standard output is
// buffered by the C library, which may report a full disk or a closed pipe at any later write, or at the
// final flush.
#include "hosts/cli/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/cli/host_json.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using fl::i18n::JsonWriter;
using Widths = std::vector<std::size_t>;

constexpr std::string_view kGap = "  ";
// Large enough that writes cost nothing beside the making of the rows.
constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
// Bytes of a member that are kept for the next record.
constexpr std::size_t kLongestKept = 1024;

/// Raises tavlox:cli:CannotWriteOutput with the reason in errno, which must be that of the call just made.
void requireSuccess(bool done) {
  if (done) return;
  foundation::core::except::raise("tavlox:cli:CannotWriteOutput", fl::filesystem::systemReason(errno));
}

/// The values of one row as they will be printed: widths must be those of the escaped texts.
std::vector<std::string> shownRow(const Table& table, std::size_t index) {
  std::vector<std::string> values;
  for (const std::u16string& value : table.row(index)) values.push_back(singleLine(value));
  return values;
}

/// What a row shows of a value, by the shortest way: there may be a million rows.
std::string shownValue(const HostArray& value) {
  if (value.kind() == corvan::ArrayKind::Char && value.rows() <= 1) return singleLine(value.text());
  if (!value.isNumeric() || !value.isScalar()) return singleLine(cellText(value));
  JsonWriter json;
  writeJson(json, value);
  return json.text() == "null" ? std::string() : json.take();
}

void widen(Widths& widths, const std::vector<std::string>& values) {
  widths.resize(std::max(widths.size(), values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) widths[i] = std::max(widths[i], displayWidth(values[i]));
}

/// How many columns of a table are shown: all that fit into `width` with the gaps between them, but one at
/// least.
std::size_t shownColumns(const Widths& widths, std::size_t width) {
  std::size_t used = 0, shown = 0;
  for (; shown < widths.size(); ++shown) {
    used += widths[shown] + (shown == 0 ? 0 : kGap.size());
    if (used > width) break;
  }
  return std::max<std::size_t>(shown, std::min<std::size_t>(1, widths.size()));
}

/// Leaves out the columns that do not fit the terminal, and says how to see them. A line that the terminal
/// breaks shows no table any more.
void fitToTerminal(Widths& widths, const std::vector<std::string>& headings) {
  if (habits().isWide || !isTerminal(stdout)) return;
  const std::size_t shown = shownColumns(widths, columnsOf(stdout));
  if (shown == widths.size()) return;
  const auto hidden = std::span(headings).subspan(std::min(shown, headings.size()));
  printError(fmt::format("tavlox: the terminal is too narrow for {}; --wide shows all columns\n",
                         hidden.empty() ? "the whole table" : fmt::format("{}", fmt::join(hidden, ", "))));
  widths.resize(shown);
}

/// The last value of a row is not padded: no line ends in spaces.
std::string alignedLine(const std::vector<std::string>& values, const Widths& widths) {
  std::string line;
  for (std::size_t i = 0; i < std::min(values.size(), widths.size()); ++i) {
    line += values[i];
    if (i + 1 == widths.size()) break;
    line.append(widths[i] - displayWidth(values[i]), ' ').append(kGap);
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

/// The values of a tab-separated line, which hold no tab: singleLine escapes those.
std::vector<std::string> valuesOf(std::string_view line) {
  std::vector<std::string> values;
  for (std::size_t tab; (tab = line.find('\t')) != std::string_view::npos; line.remove_prefix(tab + 1))
    values.emplace_back(line.substr(0, tab));
  values.emplace_back(line);
  return values;
}

}  // namespace

void print(std::string_view text) {
  // The progress line is on standard error, but most often on the same terminal.
  eraseProgress();
  requireSuccess(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void print(JsonWriter& json) { print(json.take() + "\n"); }

void flushOutput() { requireSuccess(std::fflush(stdout) == 0); }

JsonWriter beginAnswer(const std::u16string& package) {
  JsonWriter json;
  json.beginObject().member("Filename").value(fl::filesystem::absolute(package));
  return json;
}

void printPaths(const Request& request, std::string_view member, const std::vector<std::u16string>& paths) {
  if (request.format == OutputFormat::Text) {
    for (const std::u16string& path : paths) print(singleLine(path) + "\n");
    return;
  }
  JsonWriter json = beginAnswer(request.one("FILE"));
  json.member(member).beginArray();
  for (const std::u16string& path : paths) json.value(path);
  json.endArray().endObject();
  print(json);
}

void writeTable(const Table& table, TableStyle style, const std::function<void(std::string_view)>& write) {
  const bool isAligned = style != TableStyle::TabSeparated;
  Widths widths;
  std::string piece;
  // Rows are made a second time below, because keeping them would cost more than making them.
  if (isAligned) {
    widen(widths, table.headings);
    for (std::size_t i = 0; i < table.rowCount; ++i) widen(widths, shownRow(table, i));
    fitToTerminal(widths, table.headings);
    const Colours colours = style == TableStyle::AlignedInColour ? Colours::On : Colours::Off;
    if (!table.headings.empty()) piece = bold(alignedLine(table.headings, widths), colours) + "\n";
  }
  for (std::size_t i = 0; i < table.rowCount; ++i) {
    const std::vector<std::string> values = shownRow(table, i);
    piece += isAligned ? alignedLine(values, widths) : fmt::format("{}", fmt::join(values, "\t"));
    piece += '\n';
    if (piece.size() < kPieceSize) continue;
    write(piece);
    piece.clear();
  }
  write(piece);
}

void print(const Table& table) {
  // Programs get no padding and no headings: cut and awk then work as they are.
  TableStyle style = TableStyle::TabSeparated;
  if (isTerminal(stdout)) {
    style = coloursFor(stdout) == Colours::On ? TableStyle::AlignedInColour : TableStyle::Aligned;
  }
  writeTable(table, style, [](std::string_view piece) { print(piece); });
}

RecordPrinter::RecordPrinter(OutputFormat format, std::span<const Column> columns,
                             std::span<const std::u16string_view> lists)
    : columns_(columns),
      lists_(lists),
      isJson_(format == OutputFormat::Json),
      isForPeople_(isTerminal(stdout)) {}

void RecordPrinter::add(const HostArray& structures) {
  isJson_ ? addObjects(structures) : addRows(structures);
}

void RecordPrinter::findMembers(const HostArray& structures) {
  for (const std::u16string& name : structures.fieldNames()) {
    JsonWriter member;
    member.append(members_.empty() ? "{" : ",").member(fl::i18n::to_string_lossy(name));
    members_.push_back({member.take(), std::ranges::find(lists_, name) != lists_.end(), {}, {}});
  }
}

void RecordPrinter::addObjects(const HostArray& structures) {
  if (members_.empty()) findMembers(structures);
  std::vector<std::span<const HostArray>> fields;
  for (std::size_t field = 0; field < members_.size(); ++field)
    fields.push_back(structures.fieldValues(field));
  for (std::size_t index = 0; index < structures.elementCount(); ++index) {
    json_.append(std::exchange(isFirst_, false) ? "[" : ",");
    for (std::size_t field = 0; field < members_.size(); ++field) {
      addMember(members_[field], fields[field][index]);
      // Also within an object, whose texts may have a megabyte each.
      if (json_.text().size() >= kPieceSize) print(std::string_view(json_.take()));
    }
    json_.append("}");
  }
}

void RecordPrinter::addMember(Member& member, const HostArray& value) {
  if (!member.written.empty() && member.value.isCopyOf(value)) {
    json_.append(member.written);
    return;
  }
  const std::size_t begin = json_.text().size();
  const bool isBare = member.isList && value.isScalar();
  json_.append(member.name);
  if (isBare) json_.append("[");
  writeJson(json_, value);
  if (isBare) json_.append("]");
  // What is long costs more memory than time to write again.
  const bool isShort = json_.text().size() - begin <= kLongestKept;
  member.written.assign(json_.text(), begin, isShort ? std::string::npos : 0);
  member.value = isShort ? value : HostArray();
}

void RecordPrinter::finish() {
  if (isJson_) return print(json_.append(isFirst_ ? "[]" : "]"));
  if (isForPeople_) return printAligned();
  print(lines_);
}

void RecordPrinter::addRows(const HostArray& structures) {
  if (fields_.empty()) {
    const std::vector<std::u16string>& names = structures.fieldNames();
    for (const Column& column : columns_)
      fields_.push_back(static_cast<std::size_t>(std::ranges::find(names, column.field) - names.begin()));
  }
  for (std::size_t i = 0; i < structures.elementCount(); ++i) {
    for (std::size_t column = 0; column < fields_.size(); ++column) {
      const std::string value = shownValue(structures.fieldAt(i, fields_[column]));
      if (isForPeople_) {
        widths_.resize(fields_.size());
        widths_[column] = std::max(widths_[column], displayWidth(value));
      }
      lines_.append(value) += column + 1 < fields_.size() ? '\t' : '\n';
    }
    if (isForPeople_ || lines_.size() < kPieceSize) continue;
    print(lines_);
    lines_.clear();
  }
}

void RecordPrinter::addLines(std::string_view lines) {
  lines_ += lines;
  for (; !lines.empty(); lines.remove_prefix(lines.find('\n') + 1))
    widen(widths_, valuesOf(lines.substr(0, lines.find('\n'))));
}

void RecordPrinter::printAligned() {
  std::vector<std::string> headings;
  for (const Column& column : columns_) headings.emplace_back(column.heading);
  widen(widths_, headings);
  fitToTerminal(widths_, headings);
  std::string piece = bold(alignedLine(headings, widths_), coloursFor(stdout)) + "\n";
  for (std::string_view rest = lines_; !rest.empty(); rest.remove_prefix(rest.find('\n') + 1)) {
    piece.append(alignedLine(valuesOf(rest.substr(0, rest.find('\n'))), widths_)) += '\n';
    if (piece.size() < kPieceSize) continue;
    print(piece);
    piece.clear();
  }
  print(piece);
}

void printRecords(OutputFormat format, const HostArray& structures, std::span<const Column> columns,
                  std::span<const std::u16string_view> lists) {
  RecordPrinter printer(format, columns, lists);
  printer.add(structures);
  printer.finish();
}

}  // namespace tavlox::cli
