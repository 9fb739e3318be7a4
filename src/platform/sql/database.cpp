#include "platform/sql/database.h"

#include <chrono>
#include <thread>

#include <sqlite3.h>

#include "platform/errors/catalog.h"
#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"
#include "platform/text/conversion.h"

namespace orra::sql {

using foundation::core::except::raise;

namespace {

constexpr int kBusyMilliseconds = 100;
// Longer than another indexer needs to make the indexes of some millions of signals.
constexpr int kSharedBusyMilliseconds = 60'000;

// The journal and what is sorted stay in memory, so that a killed process leaves one file.
constexpr char kSettings[] =
    "PRAGMA journal_mode = MEMORY;"
    "PRAGMA temp_store = MEMORY;"
    "PRAGMA synchronous = OFF;";

/// The rule and the remedy; `reason` is SQLite's.
std::u16string inUse(std::string_view reason) {
  constexpr fl::i18n::MessageId<1> kInUse = "sqldb:ssdb:InUse";
  return fl::i18n::catalogText(kInUse, {foundation::core::except::toArgument(reason)});
}

// Extended codes hold the primary one in their low byte.
int primary(int code) { return code & 0xFF; }

// A null pointer would bind NULL.
const char* dataOf(std::string_view bytes) { return bytes.data() == nullptr ? "" : bytes.data(); }

}  // namespace

void Release::operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
void Release::operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }

Database::Database(const std::string& path, Use use) : path_(path), use_(use) {
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(opened);  // a failed opening gives a handle as well, to ask why
  if (code != SQLITE_OK) fail(code);
  sqlite3_busy_timeout(opened, use == Use::PrivateCopy ? kBusyMilliseconds : kSharedBusyMilliseconds);
  if (use == Use::PrivateCopy) execute(kSettings);
}

void Database::defineNumberOf(const char* name, std::optional<double> (*function)(std::string_view)) {
  const auto call = [](sqlite3_context* context, int, sqlite3_value** arguments) {
    if (sqlite3_value_type(*arguments) != SQLITE_TEXT) return sqlite3_result_value(context, *arguments);
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(*arguments));
    const auto toNumber =
        reinterpret_cast<std::optional<double> (*)(std::string_view)>(sqlite3_user_data(context));
    const auto number =
        toNumber(std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(*arguments))));
    number ? sqlite3_result_double(context, *number) : sqlite3_result_null(context);
  };
  const int code =
      sqlite3_create_function_v2(handle(), name, 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC,
                                 reinterpret_cast<void*>(function), call, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code);
}

std::int64_t Database::lastRow() const noexcept { return sqlite3_last_insert_rowid(handle()); }

void Database::execute(const std::string& sql) {
  beginEntered();
  const int code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code);
}

void Database::executeInTurn(const std::string& sql) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kPause(5);
  const auto deadline = Clock::now() + std::chrono::milliseconds(kSharedBusyMilliseconds);
  int code = 0;
  while (primary(code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr)) == SQLITE_BUSY &&
         Clock::now() < deadline)
    std::this_thread::sleep_for(kPause);
  if (code != SQLITE_OK) fail(code);
}

void Database::execute(Step step) {
  // A savepoint that is not inside a transaction is one.
  constexpr const char* kSteps[] = {"SAVEPOINT work", "RELEASE work"};
  auto& statement = steps_[static_cast<std::size_t>(step)];
  if (statement == nullptr) {
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v3(handle(), kSteps[static_cast<std::size_t>(step)], -1,
                                        SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    statement.reset(prepared);
    if (code != SQLITE_OK) fail(code);
  }
  // The result of reset is the one of the step before it.
  sqlite3_step(statement.get());
  const int code = sqlite3_reset(statement.get());
  if (code != SQLITE_OK) fail(code);
}

// One on a row keeps the database locked, also when the transaction it read in has ended.
void Database::resetStatements() noexcept {
  for (sqlite3_stmt* at = nullptr; (at = sqlite3_next_stmt(handle(), at)) != nullptr;) {
    if (sqlite3_stmt_busy(at) != 0) sqlite3_reset(at);
  }
}

void Database::fail(int code) const {
  if (primary(code) == SQLITE_NOMEM || handle_ == nullptr) throw foundation::core::except::bad_alloc();
  // The text belongs to the last call on this handle, and is copied before anything else is asked of it.
  std::string text = sqlite3_errmsg(handle());
  switch (primary(code)) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      if (use_ == Use::Shared) raise("sqldb:shared:Locked", path_);
      // The sentence is an argument: modules raise the error again with this message as its argument, and a
      // sentence in the text itself would then be said twice.
      raise("sqldb:ssdb:Locked", path_, inUse(text));
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      if (use_ == Use::Shared) raise("sqldb:shared:Corrupt", path_, text);
      raise("sqldb:ssdb:Corrupt", path_, text);
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
      if (const int reason = sqlite3_system_errno(handle()))
        text += ": " + fl::filesystem::systemReason(reason);
      break;
    default:
      break;
  }
  if (use_ == Use::Shared) raise("sqldb:shared:Failed", path_, text);
  raise("sqldb:ssdb:Failed", path_, text);
}

void Database::failAsCorrupt(const std::string& reason) const {
  if (use_ == Use::Shared) raise("sqldb:shared:Corrupt", path_, reason);
  raise("sqldb:ssdb:Corrupt", path_, reason);
}

Statement::Statement(Database& database, const std::string& sql) : database_(database) {
  constexpr int kWholeText = -1;
  sqlite3_stmt* prepared = nullptr;
  require(sqlite3_prepare_v3(database.handle(), sql.c_str(), kWholeText, SQLITE_PREPARE_PERSISTENT, &prepared,
                             nullptr));
  handle_.reset(prepared);
}

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
  database_.beginEntered();
  // Reset at once behind the last row and after a failure: a statement left there would keep its lock.
  const int code = sqlite3_step(handle_.get());
  if (code == SQLITE_ROW) return true;
  reset();
  if (code != SQLITE_DONE) database_.fail(code);
  return false;
}

void Statement::reset() noexcept { sqlite3_reset(handle_.get()); }
bool Statement::isNull(int column) const { return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL; }
std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
double Statement::number(int column) const { return sqlite3_column_double(handle_.get(), column); }

std::string_view Statement::bytes(int column) const {
  // Asked before the length, as SQLite demands: the length is that of the form last asked for.
  const auto* data = static_cast<const char*>(sqlite3_column_blob(handle_.get(), column));
  if (data == nullptr) return {};
  return {data, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column))};
}

void Statement::require(int code) const {
  if (code != SQLITE_OK) database_.fail(code);
}

Transaction::Transaction(Database& database, Lock lock) : database_(database) {
  // Now and not when it begins: the statement that begins it may be one that goes on from its row.
  if (database_.begun_ > 0) database_.resetStatements();
  if (lock == Lock::AtOnce && database_.entered_ == 0) {
    database_.execute("BEGIN IMMEDIATE");
    isLocked_ = true;
    ++database_.begun_;
  }
  ++database_.entered_;
  ++database_.stretch_;
}

Transaction::~Transaction() {
  if (!committed_ && hasBegun()) {
    database_.resetStatements();
    // Refused only where the database has rolled everything back of its own accord, as on a full disk.
    const char* const undo = isLocked_ ? "ROLLBACK" : "ROLLBACK TO work; RELEASE work";
    sqlite3_exec(database_.handle(), undo, nullptr, nullptr, nullptr);
    ++database_.rollbacks_;
    --database_.begun_;
  }
  --database_.entered_;
  ++database_.stretch_;
}

void Transaction::commit() {
  if (hasBegun()) {
    // A statement that is still on a row would keep the database locked.
    database_.resetStatements();
    isLocked_ ? database_.execute("COMMIT") : database_.execute(Database::Step::Commit);
    --database_.begun_;
  }
  committed_ = true;
}

}  // namespace orra::sql
