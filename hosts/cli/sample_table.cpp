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

constexpr double kStepTolerance = 1e-3;
constexpr std::size_t kShownOfCell = 40;
constexpr std::size_t kLongestCell = std::size_t{64} * 1024;

struct TimeUnit {
  std::u16string_view name;
  double seconds;
};
constexpr TimeUnit kTimeUnits[] = {
    {u"s", 1},     {u"sec", 1},    {u"ms", 1e-3},  {u"us", 1e-6}, {u"\u00B5s", 1e-6}, {u"\u03BCs", 1e-6},
    {u"ns", 1e-9}, {u"ps", 1e-12}, {u"fs", 1e-15}, {u"min", 60},  {u"h", 3600},
};

/// The whole cell as a number, whatever the locale.
std::optional<double> parseNumber(std::string_view cell) {
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
  const std::size_t bracket = heading.rfind(" [");
  if (bracket == std::string_view::npos || !heading.ends_with(']')) return parsed;
  const std::string_view name = heading.substr(0, heading.find_last_not_of(' ', bracket) + 1);
  if (name.empty()) return parsed;
  parsed.name = to_ustring(name);
  parsed.unit = to_ustring(heading.substr(bracket + 2, heading.size() - bracket - 3));
  return parsed;
}

/// The parser of the C library, which calls back for each cell and each end of a row.
struct SampleTable::Parser {
  Parser() {
    if (csv_init(&handle, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~Parser() { csv_free(&handle); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  /// Runs inside a callback: nothing may be thrown through the C library.
  template <class Work>
  void guarded(const Work& work) noexcept {
    if (failure) return;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
  }

  static void onCell(void* text, std::size_t size, void* owner) {
    SampleTable& table = *static_cast<SampleTable*>(owner);
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
  if (!headingIsComplete_) raise("tavlox:record:EmptyTable", path_, 1, 1);
  if (rowCount_ == 0) raise("tavlox:record:NoRows", path_, 2, 1);
}

void SampleTable::refuseSyntax() const {
  if (csv_error(&parser_->handle) != CSV_EPARSE) throw std::bad_alloc();
  raise("tavlox:record:BadQuoting", path_, line_, column_);
}

void SampleTable::takeCell(std::string_view cell) {
  if (!headingIsComplete_) return takeHeading(cell);
  if (column_ > columns_.size()) raise("tavlox:record:UnevenRow", path_, line_, column_, columns_.size());
  if (column_ == 1) return takeTime(cell);
  if (!parseNumber(cell)) raise("tavlox:record:SampleNotANumber", path_, line_, column_, shown(cell));
}

void SampleTable::takeHeading(std::string_view cell) {
  if (cell.empty()) raise("tavlox:record:EmptyHeading", path_, line_, column_);
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
  if (earlierRows == 0) {
    first_ = *time;
    return;
  }
  if (step <= 0) raise("tavlox:record:TimeNotIncreasing", path_, line_, column_, shown(cell));
  shortestStep_ = earlierRows == 1 ? step : std::min(shortestStep_, step);
  longestStep_ = std::max(longestStep_, step);
}

void SampleTable::endRow() {
  if (!headingIsComplete_) return endHeading();
  if (column_ <= columns_.size()) raise("tavlox:record:UnevenRow", path_, line_, column_, columns_.size());
}

void SampleTable::endHeading() {
  if (columns_.size() < 2) raise("tavlox:record:NoSignals", path_, line_, column_);
  const std::u16string asked = time().unit.value_or(u"s");
  const auto* const unit = std::ranges::find(kTimeUnits, std::u16string_view(asked), &TimeUnit::name);
  if (unit == std::end(kTimeUnits)) raise("tavlox:record:UnknownTimeUnit", path_, line_, 1, asked);
  secondsPerUnit_ = unit->seconds;
  headingIsComplete_ = true;
}

std::u16string SampleTable::sampleTime() const {
  if (rowCount_ < 2) return {};
  const double mean = (last_ - first_) / static_cast<double>(rowCount_ - 1);
  if (longestStep_ - shortestStep_ > kStepTolerance * mean) return u"variable";
  return to_ustring(fmt::format("{:.9g}", mean * secondsPerUnit_));
}

}  // namespace tavlox::cli
