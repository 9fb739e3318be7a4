// Rows are taken apart by libcsv, which calls back for each cell and each end of a row. It calls back through
// C, where nothing may be thrown: cells are only put aside there. Lines without a quote, which nearly all
// are, are cut at the delimiters where they stand, which takes a fraction of the time.
#include "platform/tables/csv_rows.h"

#include <exception>
#include <new>

#include <csv.h>

namespace tavlox::tables {
namespace {

// No number or heading comes near it; a cell that does is the rest of the file behind a lone quote.
constexpr std::size_t kLongestCell = std::size_t{64} * 1024;

/// The line with its cells one blank apart.
void collapseBlanks(std::string_view line, std::string& collapsed) {
  collapsed.clear();
  bool isQuoted = false, isDue = false;
  for (const char character : line) {
    if (!isQuoted && (character == ' ' || character == '\t')) {
      isDue = !collapsed.empty();
      continue;
    }
    // None before the end of the line, where it would begin another cell, nor in "speed [m/s]".
    if (isDue && character != '\r' && character != '\n' && character != '[') collapsed += ' ';
    isDue = false;
    if (character == '"') isQuoted = !isQuoted;
    collapsed += character;
  }
}

}  // namespace

/// The parser of the C library.
struct CsvRows::Parser {
  // Strict: a quote in an unquoted cell is an error, and so is a quoted cell that the file ends in.
  Parser() {
    if (csv_init(&handle, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~Parser() { csv_free(&handle); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  static void onCell(void* text, std::size_t size, void* owner) {
    CsvRows& rows = *static_cast<CsvRows*>(owner);
    try {
      rows.text_.append(static_cast<const char*>(text), size);
      rows.ends_.push_back(rows.text_.size());
    } catch (...) {
      rows.parser_->failure = std::current_exception();
    }
  }

  static void onEndOfRow(int, void* owner) { static_cast<CsvRows*>(owner)->isRowComplete_ = true; }

  /// The library's state is 0 before a row begins, and only then.
  bool isInRow() const { return handle.pstate != 0; }

  csv_parser handle{};
  std::exception_ptr failure;
};

CsvRows::CsvRows(char delimiter)
    : parser_(std::make_unique<Parser>()), delimiter_(delimiter), collapsesBlanks_(delimiter == ' ') {
  csv_set_delim(&parser_->handle, static_cast<unsigned char>(delimiter));
}

CsvRows::~CsvRows() = default;

/// What libcsv makes of a line without quotes.
CsvRows::Outcome CsvRows::takeSimple(std::string_view line) {
  while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
  const auto withoutBlanks = [this](std::string_view cell) {
    const auto isBlank = [this](char character) {
      return (character == ' ' || character == '\t') && character != delimiter_;
    };
    while (!cell.empty() && isBlank(cell.front())) cell.remove_prefix(1);
    while (!cell.empty() && isBlank(cell.back())) cell.remove_suffix(1);
    return cell;
  };
  if (withoutBlanks(line).empty()) return Outcome::None;
  isRowComplete_ = isSimple_ = true;
  for (;;) {
    const std::size_t end = line.find(delimiter_);
    cells_.push_back(withoutBlanks(line.substr(0, end)));
    if (end == std::string_view::npos) return Outcome::Row;
    line.remove_prefix(end + 1);
  }
}

CsvRows::Outcome CsvRows::take(std::string_view line) {
  if (isRowComplete_) {
    text_.clear();
    ends_.clear();
    cells_.clear();
    isRowComplete_ = isSimple_ = false;
  }
  if (collapsesBlanks_) {
    collapseBlanks(line, collapsed_);
    line = collapsed_;
  }
  if (!isInRow() && line.find('"') == std::string_view::npos) return takeSimple(line);
  const std::size_t parsed =
      csv_parse(&parser_->handle, line.data(), line.size(), Parser::onCell, Parser::onEndOfRow, this);
  return outcome(parsed == line.size());
}

CsvRows::Outcome CsvRows::finish() {
  if (isRowComplete_) return Outcome::None;
  return outcome(csv_fini(&parser_->handle, Parser::onCell, Parser::onEndOfRow, this) == 0);
}

CsvRows::Outcome CsvRows::outcome(bool isSound) {
  if (parser_->failure) std::rethrow_exception(parser_->failure);
  if (!isSound) {
    // The only other failures are those of memory.
    if (csv_error(&parser_->handle) != CSV_EPARSE) throw std::bad_alloc();
    return Outcome::BadQuote;
  }
  if (isRowComplete_) return Outcome::Row;
  return parser_->handle.entry_pos > kLongestCell ? Outcome::TooLong : Outcome::None;
}

bool CsvRows::isInRow() const { return parser_->isInRow(); }

}  // namespace tavlox::tables
