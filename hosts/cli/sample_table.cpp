// Checking CSV with libcsv, which is given the bytes in pieces as they are read and calls back for each cell
// and each end of a row. What a cell must be depends on where it stands: cells of the first row are headings,
// the first cell of each later row is a time, all others are samples. libcsv does not count lines and calls
// back through C, so lines are split here, for messages, and exceptions are kept until the parser has
// returned.
#include "hosts/cli/sample_table.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>

#include <csv.h>
#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_ustring;
using foundation::core::except::raise;

// Simulators print times with few digits, so steps that were equal differ a little in a table.
constexpr double kStepTolerance = 1e-3;
// Bytes of a cell that a message quotes.
constexpr std::size_t kShownOfCell = 40;
// Bytes. No number or heading comes near it; a cell that does is the rest of the file behind a lone quote.
constexpr std::size_t kLongestCell = std::size_t{64} * 1024;

struct TimeUnit {
  std::u16string_view name;
  double seconds;
};
// The micro sign and the Greek letter mu look alike, and both are used.
constexpr TimeUnit kTimeUnits[] = {
    {u"s", 1},     {u"sec", 1},    {u"ms", 1e-3},  {u"us", 1e-6}, {u"\u00B5s", 1e-6}, {u"\u03BCs", 1e-6},
    {u"ns", 1e-9}, {u"ps", 1e-12}, {u"fs", 1e-15}, {u"min", 60},  {u"h", 3600},
};

/// The whole cell as a number, whatever the locale.
std::optional<double> parseNumber(std::string_view cell) {
  // from_chars knows no plus sign, but some simulators write one.
  if (cell.starts_with('+') && !cell.starts_with("+-")) cell.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), number);
  if (error != std::errc() || end != cell.data() + cell.size()) return std::nullopt;
  return number;
}

/// A cell as a message shows it.
std::string shown(std::string_view cell) {
  return cell.size() <= kShownOfCell ? std::string(cell) : std::string(cell.substr(0, kShownOfCell)) + "...";
}

}  // namespace

ColumnHeading parseHeading(std::string_view heading) {
  ColumnHeading parsed{.heading = to_ustring(heading), .name = to_ustring(heading), .unit = std::nullopt};
  // A blank must stand before the bracket: "bus[3]" is a name with an index.
  const std::size_t bracket = heading.rfind(" [");
  if (bracket == std::string_view::npos || !heading.ends_with(']')) return parsed;
  const std::string_view name = heading.substr(0, heading.find_last_not_of(' ', bracket) + 1);
  // "[V]" alone is a name: every signal needs one.
  if (name.empty()) return parsed;
  parsed.name = to_ustring(name);
  parsed.unit = to_ustring(heading.substr(bracket + 2, heading.size() - bracket - 3));
  return parsed;
}

/// The parser of the C library, which calls back for each cell and each end of a row.
struct SampleTable::Parser {
  // Strict: a quote in an unquoted cell is an error, and so is a quoted cell that the file ends in.
  Parser() {
    if (csv_init(&handle, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~Parser() { csv_free(&handle); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  /// Runs inside a callback: nothing may be thrown through the C library.
  template <class Work>
  void guarded(const Work& work) noexcept {
    // The parser goes on to the end of the piece after a failure; the first failure is the one to tell.
    if (failure) return;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
  }

  static void onCell(void* text, std::size_t size, void* owner) {
    SampleTable& table = *static_cast<SampleTable*>(owner);
    // Counted also when the cell was refused, so that line and column stay right.
    table.bytesSinceCell_ = 0;
    table.parser_->guarded([&] { table.takeCell({static_cast<const char*>(text), size}); });
    ++table.column_;
  }

  static void onEndOfRow(int, void* owner) {
    SampleTable& table = *static_cast<SampleTable*>(owner);
    table.parser_->guarded([&] { table.endRow(); });
    table.column_ = 1;
  }

  csv_parser handle{};
  std::exception_ptr failure;
};

SampleTable::SampleTable(std::u16string path)
    : path_(std::move(path)), parser_(std::make_unique<Parser>()), byteOrderMark_("\xEF\xBB\xBF") {}
SampleTable::~SampleTable() = default;

void SampleTable::take(std::string_view bytes) {
  while (!byteOrderMark_.empty() && !bytes.empty()) {
    // The mark may arrive in pieces, so it is taken off byte by byte.
    if (bytes.front() != byteOrderMark_.front()) {
      byteOrderMark_ = {};
      break;
    }
    bytes.remove_prefix(1);
    byteOrderMark_.remove_prefix(1);
  }
  // Line by line, because the parser does not say in which line it is.
  while (!bytes.empty()) {
    const std::size_t size = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
    parseLine(bytes.substr(0, size));
    bytes.remove_prefix(size);
  }
}

/// Takes one line with its end, or a piece of one.
void SampleTable::parseLine(std::string_view piece) {
  bytesSinceCell_ += piece.size();
  const std::size_t parsed =
      csv_parse(&parser_->handle, piece.data(), piece.size(), Parser::onCell, Parser::onEndOfRow, this);
  // A cell's own error comes first: it was found before the byte at which the parser stopped.
  if (parser_->failure) std::rethrow_exception(parser_->failure);
  if (parsed != piece.size()) refuseSyntax();
  // Most often a quote that is never closed: the parser would go on to fill the memory.
  if (bytesSinceCell_ > kLongestCell) raise("tavlox:record:CellTooLong", path_, line_, column_);
  if (piece.ends_with('\n')) ++line_;
}

void SampleTable::finish() {
  const int result = csv_fini(&parser_->handle, Parser::onCell, Parser::onEndOfRow, this);
  if (parser_->failure) std::rethrow_exception(parser_->failure);
  if (result != 0) refuseSyntax();
  // The last line may have had no end, so rows are counted only now.
  if (!headingIsComplete_) raise("tavlox:record:EmptyTable", path_, 1, 1);
  if (rowCount_ == 0) raise("tavlox:record:NoRows", path_, 2, 1);
}

void SampleTable::refuseSyntax() const {
  // The only other failures are those of memory.
  if (csv_error(&parser_->handle) != CSV_EPARSE) throw std::bad_alloc();
  raise("tavlox:record:BadQuoting", path_, line_, column_);
}

void SampleTable::takeCell(std::string_view cell) {
  if (!headingIsComplete_) return takeHeading(cell);
  if (column_ > columns_.size()) raise("tavlox:record:UnevenRow", path_, line_, column_, columns_.size());
  // A sample may be "nan" or "inf"; the number itself is not kept.
  if (column_ == 1) return takeTime(cell);
  if (!parseNumber(cell)) raise("tavlox:record:SampleNotANumber", path_, line_, column_, shown(cell));
}

void SampleTable::takeHeading(std::string_view cell) {
  if (cell.empty()) raise("tavlox:record:EmptyHeading", path_, line_, column_);
  // Only headings become texts of the session; a sample that is no number is refused for that.
  if (!fl::i18n::is_well_formed(cell)) raise("tavlox:record:HeadingNotUtf8", path_, line_, column_);
  columns_.push_back(parseHeading(cell));
}

void SampleTable::takeTime(std::string_view cell) {
  const std::optional<double> time = parseNumber(cell);
  if (!time || !std::isfinite(*time))
    raise("tavlox:record:TimeNotANumber", path_, line_, column_, shown(cell));
  const std::uint64_t earlierRows = rowCount_++;
  const double step = *time - last_;
  last_ = *time;
  // The first row has no step.
  if (earlierRows == 0) {
    first_ = *time;
    return;
  }
  // Equal times are refused too: a sample would have two values at one time.
  if (step <= 0) raise("tavlox:record:TimeNotIncreasing", path_, line_, column_, shown(cell));
  shortestStep_ = earlierRows == 1 ? step : std::min(shortestStep_, step);
  longestStep_ = std::max(longestStep_, step);
}

void SampleTable::endRow() {
  if (!headingIsComplete_) return endHeading();
  // The column counts from 1 and is the next cell's, so a full row ends one behind the last.
  if (column_ <= columns_.size()) raise("tavlox:record:UnevenRow", path_, line_, column_, columns_.size());
}

void SampleTable::endHeading() {
  if (columns_.size() < 2) raise("tavlox:record:NoSignals", path_, line_, column_);
  // A table that names no unit is in seconds.
  const std::u16string asked = time().unit.value_or(u"s");
  // An unknown unit is an error, not seconds: wrong times would look right.
  const auto* const unit = std::ranges::find(kTimeUnits, std::u16string_view(asked), &TimeUnit::name);
  if (unit == std::end(kTimeUnits)) raise("tavlox:record:UnknownTimeUnit", path_, line_, 1, asked);
  secondsPerUnit_ = unit->seconds;
  headingIsComplete_ = true;
}

std::u16string SampleTable::sampleTime() const {
  if (rowCount_ < 2) return {};
  // All in the table's unit; the tolerance is relative, so the unit does not matter to it.
  const double mean = (last_ - first_) / static_cast<double>(rowCount_ - 1);
  if (longestStep_ - shortestStep_ > kStepTolerance * mean) return u"variable";
  return to_ustring(fmt::format("{:.9g}", mean * secondsPerUnit_));
}

}  // namespace tavlox::cli
