#include "platform/session_index/rows.h"

#include "platform/text/conversion.h"

namespace tavlox::session_index {
namespace {

// Each cell begins with one of these.
constexpr char kNothing = 'n', kInteger = 'i', kNumber = 'd', kText = 't', kEndOfRow = '.';

template <class Value>
bool take(std::FILE* stream, Value& value) {
  return std::fread(&value, sizeof value, 1, stream) == 1;
}

bool takeText(std::FILE* stream, std::string& text) {
  std::uint64_t size = 0;
  if (!take(stream, size)) return false;
  text.resize(size);
  return size == 0 || std::fread(text.data(), size, 1, stream) == 1;
}

bool takeCell(std::FILE* stream, char type, Cell& cell) {
  switch (type) {
    case kNothing:
      cell = std::monostate();
      return true;
    case kInteger:
      return take(stream, cell.emplace<std::int64_t>());
    case kNumber:
      return take(stream, cell.emplace<double>());
    case kText:
      // The memory of a text that was there before is used again.
      if (!std::holds_alternative<std::string>(cell)) cell.emplace<std::string>();
      return takeText(stream, std::get<std::string>(cell));
    default:
      return false;
  }
}

}  // namespace

RowWriter& RowWriter::begin(RowKind kind) {
  put(&kind, 1);
  return *this;
}

RowWriter& RowWriter::nothing() {
  put(&kNothing, 1);
  return *this;
}

RowWriter& RowWriter::integer(std::int64_t number) {
  put(&kInteger, 1);
  put(&number, sizeof number);
  return *this;
}

RowWriter& RowWriter::number(double number) {
  put(&kNumber, 1);
  put(&number, sizeof number);
  return *this;
}

RowWriter& RowWriter::text(std::string_view narrow) {
  const std::uint64_t size = narrow.size();
  put(&kText, 1);
  put(&size, sizeof size);
  put(narrow.data(), narrow.size());
  return *this;
}

RowWriter& RowWriter::text(std::u16string_view text) {
  return this->text(std::string_view(fl::i18n::to_string_lossy(text)));
}

void RowWriter::end() { put(&kEndOfRow, 1); }

bool readRow(std::FILE* stream, Row& row) {
  if (!take(stream, row.kind)) return false;
  std::size_t count = 0;
  for (char type = 0; take(stream, type);) {
    if (type == kEndOfRow) {
      row.cells.resize(count);
      return true;
    }
    if (count == row.cells.size()) row.cells.emplace_back();
    if (!takeCell(stream, type, row.cells[count++])) return false;
  }
  return false;
}

}  // namespace tavlox::session_index
