#include "platform/session_index/rows.h"

#include <cstring>

#include "platform/text/conversion.h"

namespace tavlox::session_index {
namespace {

// A row is its kind, the number of its bytes, and the cells. Each cell begins with one of these; a text has
// its length in front.
constexpr char kNothing = 'n', kInteger = 'i', kNumber = 'd', kText = 't';

/// Takes a value from the front of the bytes; false if they are too few.
template <class Value>
bool take(std::string_view& bytes, Value& value) {
  if (bytes.size() < sizeof value) return false;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes.remove_prefix(sizeof value);
  return true;
}

bool takeText(std::string_view& bytes, Cell& cell) {
  std::uint64_t size = 0;
  if (!take(bytes, size) || bytes.size() < size) return false;
  // The memory of a text that was there before is used again.
  if (!std::holds_alternative<std::string>(cell)) cell.emplace<std::string>();
  std::get<std::string>(cell).assign(bytes.substr(0, size));
  bytes.remove_prefix(size);
  return true;
}

bool takeCell(std::string_view& bytes, Cell& cell) {
  char type = 0;
  if (!take(bytes, type)) return false;
  switch (type) {
    case kNothing:
      cell = std::monostate();
      return true;
    case kInteger:
      return take(bytes, cell.emplace<std::int64_t>());
    case kNumber:
      return take(bytes, cell.emplace<double>());
    case kText:
      return takeText(bytes, cell);
    default:
      return false;
  }
}

}  // namespace

void RowWriter::put(char type, const void* value, std::size_t size) {
  row_ += type;
  row_.append(static_cast<const char*>(value), size);
}

RowWriter& RowWriter::begin(RowKind kind) {
  row_.assign(1, static_cast<char>(kind));
  row_.append(sizeof(std::uint64_t), '\0');  // filled in at the end
  return *this;
}

RowWriter& RowWriter::nothing() {
  row_ += kNothing;
  return *this;
}

RowWriter& RowWriter::integer(std::int64_t number) {
  put(kInteger, &number, sizeof number);
  return *this;
}

RowWriter& RowWriter::number(double number) {
  put(kNumber, &number, sizeof number);
  return *this;
}

RowWriter& RowWriter::text(std::string_view narrow) {
  const std::uint64_t size = narrow.size();
  put(kText, &size, sizeof size);
  row_.append(narrow);
  return *this;
}

RowWriter& RowWriter::text(std::u16string_view text) {
  return this->text(std::string_view(fl::i18n::to_string_lossy(text)));
}

void RowWriter::end() {
  const std::uint64_t size = row_.size() - 1 - sizeof size;
  std::memcpy(row_.data() + 1, &size, sizeof size);
  static_cast<void>(std::fwrite(row_.data(), 1, row_.size(), stream_));
}

bool readRow(std::FILE* stream, Row& row) {
  char head[1 + sizeof(std::uint64_t)];
  if (std::fread(head, sizeof head, 1, stream) != 1) return false;
  std::uint64_t size = 0;
  std::memcpy(&size, head + 1, sizeof size);
  row.kind = static_cast<RowKind>(head[0]);
  row.bytes.resize(size);
  if (size > 0 && std::fread(row.bytes.data(), size, 1, stream) != 1) return false;
  std::size_t count = 0;
  for (std::string_view rest = row.bytes; !rest.empty(); ++count) {
    if (count == row.cells.size()) row.cells.emplace_back();
    if (!takeCell(rest, row.cells[count])) return false;
  }
  row.cells.resize(count);
  return true;
}

}  // namespace tavlox::session_index
