#include "platform/repository/sql/database.h"

#include <sqlite3.h>

#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"

namespace orra::sql {

using foundation::core::except::raise;

namespace {

constexpr int kBusyMilliseconds = 100;

// The journal and what is sorted stay in memory, so that a killed process leaves one file.
constexpr char kSettings[] =
    "PRAGMA journal_mode = MEMORY;"
    "PRAGMA temp_store = MEMORY;"
    "PRAGMA synchronous = OFF;";

}  // namespace

void Database::Close::operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }

Database::Database(const std::string& path) : path_(path) {
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(opened);  // a failed opening gives a handle as well, to ask why
  if (code != SQLITE_OK) fail(code);
  sqlite3_busy_timeout(opened, kBusyMilliseconds);
  execute(kSettings);
}

Database::~Database() = default;

void Database::execute(const char* sql) {
  const int code = sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code);
}

bool Database::isInTransaction() const noexcept { return sqlite3_get_autocommit(handle()) == 0; }

void Database::resetStatements() noexcept {
  for (sqlite3_stmt* at = nullptr; (at = sqlite3_next_stmt(handle(), at)) != nullptr;) {
    if (sqlite3_stmt_busy(at) != 0) sqlite3_reset(at);
  }
}

void Database::fail(int code) const {
  const int primaryCode = code & 0xFF;
  if (primaryCode == SQLITE_NOMEM || handle_ == nullptr) throw foundation::core::except::bad_alloc();
  std::string text = sqlite3_errmsg(handle());
  switch (primaryCode) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      raise("sqldb:ssdb:Locked", path_, text);
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      raise("sqldb:ssdb:Corrupt", path_, text);
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
      if (const int reason = sqlite3_system_errno(handle()))
        text += ": " + fl::filesystem::systemReason(reason);
      break;
    default:
      break;
  }
  raise("sqldb:ssdb:Failed", path_, text);
}

void Database::failAsCorrupt(const std::string& reason) const { raise("sqldb:ssdb:Corrupt", path_, reason); }

}  // namespace orra::sql
