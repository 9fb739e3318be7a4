#include "platform/repository/sql/statement.h"

#include <sqlite3.h>

#include "platform/repository/sql/database.h"
#include "platform/text/conversion.h"

namespace orra::sql {
namespace {

// A null pointer would bind NULL.
const char* dataOf(std::string_view bytes) { return bytes.data() == nullptr ? "" : bytes.data(); }

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }

Statement::Statement(Database& database, const char* sql) : database_(database) {
  constexpr int kWholeText = -1;
  sqlite3_stmt* prepared = nullptr;
  require(
      sqlite3_prepare_v3(database.handle(), sql, kWholeText, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr));
  handle_.reset(prepared);
}

Statement::~Statement() = default;

Statement& Statement::bind(int parameter, std::int64_t integer) {
  require(sqlite3_bind_int64(handle_.get(), parameter, integer));
  return *this;
}

Statement& Statement::bind(int parameter, double number) {
  require(sqlite3_bind_double(handle_.get(), parameter, number));
  return *this;
}

Statement& Statement::bind(int parameter, std::string_view text) {
  require(
      sqlite3_bind_text64(handle_.get(), parameter, dataOf(text), text.size(), SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

Statement& Statement::bindBlob(int parameter, std::string_view bytes) {
  require(sqlite3_bind_blob64(handle_.get(), parameter, dataOf(bytes), bytes.size(), SQLITE_STATIC));
  return *this;
}

Statement& Statement::bindNull(int parameter) {
  require(sqlite3_bind_null(handle_.get(), parameter));
  return *this;
}

bool Statement::step() {
  const int code = sqlite3_step(handle_.get());
  if (code == SQLITE_ROW) return true;
  reset();
  if (code != SQLITE_DONE) database_.fail(code);
  return false;
}

void Statement::reset() noexcept { sqlite3_reset(handle_.get()); }

bool Statement::isOnRow() const noexcept { return sqlite3_stmt_busy(handle_.get()) != 0; }

std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }

double Statement::number(int column) const { return sqlite3_column_double(handle_.get(), column); }

std::string_view Statement::bytes(int column) const {
  const auto* data = static_cast<const char*>(sqlite3_column_blob(handle_.get(), column));
  if (data == nullptr) return {};
  return {data, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column))};
}

std::u16string Statement::text(int column) const {
  try {
    return fl::i18n::to_ustring(bytes(column));
  } catch (const fl::i18n::ConversionError& error) {
    database_.failAsCorrupt(error.what());
  }
}

void Statement::require(int code) const {
  if (code != SQLITE_OK) database_.fail(code);
}

}  // namespace orra::sql
