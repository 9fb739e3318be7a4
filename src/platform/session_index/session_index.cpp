// The texts to search in stand in a table of their own, each once, and the two full-text tables are of that
// one: sessions of one model share nearly all of their names, and indexing a text costs more than all else.
#include "platform/session_index/session_index.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <tuple>
#include <unordered_map>

#include <fcntl.h>

#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/sql/database.h"
#include "platform/text/conversion.h"

namespace tavlox::session_index {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_string_lossy;
using foundation::core::except::raise;
using orra::sql::Database;
using orra::sql::Statement;
using orra::sql::Transaction;

// "TXIX": by this the file is told from databases of other programs.
constexpr std::int64_t kApplication = 0x54584958;
constexpr std::int64_t kVersion = 1;
// The clocks of file systems are as coarse as this, in nanoseconds.
constexpr std::int64_t kCoarsestClock = 2'000'000'000;

// The texts of a package are all over these indexes: kept up to date, each of them costs a page to write,
// which is more than all else that an update of many packages writes. Made at the end they cost a tenth.
constexpr const char* kDropTextIndexes = "DROP INDEX IF EXISTS signals_text; DROP INDEX IF EXISTS runs_text";
constexpr const char* kMakeTextIndexes =
    "CREATE INDEX IF NOT EXISTS signals_text ON signals (text);"
    "CREATE INDEX IF NOT EXISTS runs_text ON runs (text)";
constexpr const char* kDropUnusedTexts =
    "DELETE FROM texts WHERE NOT EXISTS (SELECT 1 FROM signals WHERE text = texts.row)"
    " AND NOT EXISTS (SELECT 1 FROM runs WHERE text = texts.row)"
    " AND NOT EXISTS (SELECT 1 FROM files WHERE text = texts.row)";

std::string quoted(std::u16string_view name) { return "\"" + to_string_lossy(name) + "\""; }

/// `, "Name" TEXT NOT NULL DEFAULT '', "StopTime" NUMERIC …`
std::string columnDefinitions(std::span<const filter::Field> fields) {
  std::string sql;
  for (const filter::Field& field : fields)
    sql += ", " + quoted(field.name) +
           (field.kind == filter::Kind::Text ? " TEXT NOT NULL DEFAULT ''" : " NUMERIC");
  return sql;
}

/// `INSERT INTO runs (file, text, …) VALUES (?, ?, …)`
std::string insertion(const std::string& table, std::span<const filter::Field> fields) {
  std::string names = "file, text", places = "?, ?";
  for (const filter::Field& field : fields) {
    names += ", " + quoted(field.name);
    places += ", ?";
  }
  return "INSERT INTO " + table + " (" + names + ") VALUES (" + places + ")";
}

/// The fields of a record behind the path, which stands with the file.
std::span<const filter::Field> ownFields(Subject subject) { return fieldsOf(subject).subspan(1); }

std::string schema() {
  const auto records = [](const std::string& table, Subject subject) {
    return "CREATE TABLE " + table +
           " (row INTEGER PRIMARY KEY, file INTEGER NOT NULL, text INTEGER NOT NULL" +
           columnDefinitions(ownFields(subject)) + "); CREATE INDEX " + table + "_file ON " + table +
           " (file);";
  };
  return "CREATE TABLE files (row INTEGER PRIMARY KEY, text INTEGER NOT NULL, inode INTEGER NOT NULL, "
         "modified INTEGER NOT NULL, changed INTEGER NOT NULL, indexed INTEGER NOT NULL" +
         columnDefinitions(fieldsOf(Subject::Files)) +
         "); CREATE UNIQUE INDEX files_filename ON files (\"Filename\");"
         "CREATE INDEX files_text ON files (text);" +
         records("runs", Subject::Runs) + records("signals", Subject::Signals) +
         "CREATE TABLE texts (row INTEGER PRIMARY KEY, text TEXT NOT NULL UNIQUE);"
         "CREATE VIRTUAL TABLE words USING fts5(text, content='texts', content_rowid='row', "
         "columnsize=0, tokenize='unicode61');"
         "CREATE VIRTUAL TABLE pieces USING fts5(text, content='texts', content_rowid='row', "
         "columnsize=0, tokenize='trigram');"
         "CREATE TRIGGER texts_insert AFTER INSERT ON texts BEGIN"
         "  INSERT INTO words (rowid, text) VALUES (new.row, new.text);"
         "  INSERT INTO pieces (rowid, text) VALUES (new.row, new.text);"
         "END;"
         "CREATE TRIGGER texts_delete AFTER DELETE ON texts BEGIN"
         "  INSERT INTO words (words, rowid, text) VALUES ('delete', old.row, old.text);"
         "  INSERT INTO pieces (pieces, rowid, text) VALUES ('delete', old.row, old.text);"
         "END;"
         "PRAGMA application_id = " +
         std::to_string(kApplication) + "; PRAGMA user_version = " + std::to_string(kVersion) + ";";
}

/// The path as SQLite opens it. To be updated a file that is not there is made, empty: opening alone must
/// never make one.
std::string openable(const std::u16string& path, SessionIndex::Access access) {
  std::string native = fs::toNativeName(fs::absolute(path));
  if (access == SessionIndex::Access::Read) {
    if (!fs::exists(path)) raise("tavlox:index:NotFound", path);
    return native;
  }
  const fs::Descriptor file(::open(native.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  if (!file) raise("tavlox:index:CannotMake", path, fs::systemReason(errno));
  return native;
}

/// The one number that the SQL gives.
std::int64_t numberOf(Database& database, const char* sql) {
  Statement statement(database, sql);
  statement.step();
  return statement.integer(0);
}

void bindCell(Statement& statement, int parameter, const Cell& cell) {
  if (const auto* text = std::get_if<std::string>(&cell)) {
    statement.bind(parameter, *text);
  } else if (const auto* integer = std::get_if<std::int64_t>(&cell)) {
    statement.bind(parameter, *integer);
  } else if (const auto* number = std::get_if<double>(&cell)) {
    statement.bind(parameter, *number);
  } else {
    statement.bindNull(parameter);
  }
}

void bindValue(Statement& statement, int parameter, const filter::Value& value, std::string& narrow) {
  if (const auto* number = std::get_if<double>(&value)) {
    statement.bind(parameter, *number);
    return;
  }
  narrow = to_string_lossy(std::get<std::u16string>(value));
  statement.bind(parameter, narrow);
}

std::int64_t integerOf(const Cell& cell) { return std::get<std::int64_t>(cell); }
const std::string& textOf(const Cell& cell) { return std::get<std::string>(cell); }

/// A text in which SQLite sees one phrase to look for, whatever it holds.
std::string asPhrase(std::string_view word) {
  std::string phrase = "\"";
  for (const char byte : word) phrase.append(byte == '"' ? 2 : 1, byte);
  return phrase + "\"";
}

std::vector<std::string> phrasesOf(const std::u16string& words) {
  std::vector<std::string> phrases;
  const std::string narrow = to_string_lossy(words);
  constexpr const char* kBlanks = " \t\r\n\v\f";
  for (std::size_t at = narrow.find_first_not_of(kBlanks); at != narrow.npos;) {
    const std::size_t end = std::min(narrow.find_first_of(kBlanks, at), narrow.size());
    phrases.push_back(asPhrase(std::string_view(narrow).substr(at, end - at)));
    at = narrow.find_first_not_of(kBlanks, end);
  }
  return phrases;
}

// What tables and conditions call the columns: "signals."Name"". The path belongs to the file.
std::vector<std::string> columnsOf(Subject subject) {
  static constexpr const char* kTables[] = {"files.", "runs.", "signals."};
  std::vector<std::string> columns;
  for (const filter::Field& field : fieldsOf(subject))
    columns.push_back((columns.empty() ? "files." : kTables[static_cast<int>(subject)]) + quoted(field.name));
  return columns;
}

std::string searchSql(Subject subject, std::size_t phraseCount, const std::string& condition) {
  static constexpr const char* kTables[] = {"files", "runs", "signals"};
  const std::string table = kTables[static_cast<int>(subject)];
  std::string sql;
  for (const std::string& column : columnsOf(subject)) sql += (sql.empty() ? "SELECT " : ", ") + column;
  sql += " FROM " + table;
  if (subject != Subject::Files) sql += " JOIN files ON files.row = " + table + ".file";
  sql += " WHERE 1";
  for (std::size_t i = 0; i < phraseCount; ++i)
    sql +=
        " AND " + table +
        ".text IN (SELECT rowid FROM words WHERE words MATCH ? UNION SELECT rowid FROM pieces WHERE pieces "
        "MATCH ?)";
  if (!condition.empty()) sql += " AND (" + condition + ")";
  return sql + " ORDER BY files.\"Filename\", " + table + ".row";
}

}  // namespace

/// The database and the statements of an update, prepared once.
struct SessionIndex::State {
  State(const std::u16string& path, Access access)
      : database(openable(path, access), orra::sql::Use::Shared) {
    database.defineNumberOf("number_of", filter::numberOf);
    // Of 1 KiB each.
    database.execute("PRAGMA cache_size = -65536");
    if (access == Access::Update && isEmpty()) {
      Transaction transaction(database, Transaction::Lock::AtOnce);
      // Another indexer may have been quicker.
      if (isEmpty()) database.execute(schema());
      transaction.commit();
    }
    // Somebody else may be about to make it.
    if (access == Access::Read && isEmpty()) raise("tavlox:index:NotFound", path);
    if (numberOf(database, "PRAGMA application_id") != kApplication) raise("tavlox:index:NotAnIndex", path);
    const std::int64_t version = numberOf(database, "PRAGMA user_version");
    if (version != kVersion) raise("tavlox:index:OtherVersion", path, version, kVersion);
    if (access == Access::Read) return;
    // Readers see the last transaction while the next one is written, and none waits for the disk.
    // What they write is synced every 64 MiB: a package is much less, and waiting costs more than writing it.
    database.executeInTurn("PRAGMA journal_mode = WAL");
    database.execute("PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 16384");
    update.emplace(database);
  }

  bool isEmpty() {
    return numberOf(database, "SELECT count(*) FROM sqlite_schema") == 0 &&
           numberOf(database, "PRAGMA application_id") == 0;
  }

  /// The row of a text in the table of these.
  std::int64_t textRow(const std::string& text) {
    const auto known = textRows.find(text);
    if (known != textRows.end()) return known->second;
    const std::int64_t row = findOrInsertText(text);
    // Long ones are of one package, or of few.
    constexpr std::size_t kMost = 50'000, kLongest = 500;
    if (textRows.size() == kMost) textRows.clear();
    if (text.size() <= kLongest) textRows.emplace(text, row);
    return row;
  }

  std::int64_t findOrInsertText(const std::string& text) {
    Statement& find = update->findText.bind(1, text);
    const Statement::ResetAtEnd resetAtEnd(find);
    if (find.step()) return find.integer(0);
    update->insertText.bind(1, text).execute();
    return database.lastRow();
  }

  /// Forgets the rows of texts that may be others by now: somebody else has written, or what was written here
  /// was rolled back. Called in a transaction, so that nobody else writes any more.
  void checkTextRows() {
    Statement& version = update->dataVersion;
    const Statement::ResetAtEnd resetAtEnd(version);
    version.step();
    const std::pair state(version.integer(0), database.rollbacks());
    if (state != textRowsOf) textRows.clear();
    textRowsOf = state;
  }

  /// Takes a package out, but for its texts. Whether it was there.
  bool forget(const std::string& path) {
    Statement& find = update->findFile.bind(1, path);
    if (!find.step()) return false;
    const std::int64_t file = find.integer(0);
    find.reset();
    for (Statement* statement : {&update->dropSignals, &update->dropRuns, &update->dropFile})
      statement->bind(1, file).execute();
    hasUnusedTexts = true;
    return true;
  }

  void finishTexts() {
    Transaction transaction(database, Transaction::Lock::AtOnce);
    database.execute(kMakeTextIndexes);
    if (hasUnusedTexts) database.execute(kDropUnusedTexts);
    transaction.commit();
  }

  /// The cells of a record but for the last, its text, behind file and text.
  void insert(Statement& statement, std::int64_t file, const Row& row) {
    statement.bind(1, file).bind(2, textRow(textOf(row.cells.back())));
    for (std::size_t i = 0; i + 1 < row.cells.size(); ++i)
      bindCell(statement, static_cast<int>(i) + 3, row.cells[i]);
    statement.execute();
  }

  struct Update {
    explicit Update(Database& database);
    Statement dataVersion, findText, insertText, findFile, insertFile, finishFile, insertRun, insertSignal,
        addStatistics, dropSignals, dropRuns, dropFile;
  };

  Database database;
  std::optional<Update> update;
  bool hasUnusedTexts = false;                             ///< perhaps
  std::unordered_map<std::string, std::int64_t> textRows;  ///< some that are known
  std::pair<std::int64_t, std::uint64_t> textRowsOf;       ///< the version of the data, and the rollbacks
};

SessionIndex::State::Update::Update(Database& database)
    : dataVersion(database, "PRAGMA data_version"),
      findText(database, "SELECT row FROM texts WHERE text = ?"),
      insertText(database, "INSERT INTO texts (text) VALUES (?)"),
      findFile(database,
               "SELECT row, inode, \"Size\", modified, changed, indexed FROM files WHERE \"Filename\" = ?"),
      insertFile(database,
                 "INSERT INTO files (text, \"Filename\", inode, \"Size\", modified, changed, indexed, "
                 "\"LastModified\") VALUES (0, ?, ?, ?, ?, ?, ?, ?)"),
      finishFile(
          database,
          "UPDATE files SET text = ?2, \"Description\" = ?3, \"Version\" = ?4, \"Error\" = ?5, "
          "\"ErrorMessage\" = ?6, \"NumRuns\" = ?7, \"NumSignals\" = ?8, \"SampleCount\" = ?9 WHERE row = ?1"),
      insertRun(database, insertion("runs", ownFields(Subject::Runs))),
      insertSignal(database, insertion("signals", signalFieldsWithoutStatistics().subspan(1))),
      addStatistics(database,
                    "UPDATE signals SET \"SamplesPart\" = ?2, \"SamplesColumn\" = ?3, \"Minimum\" = ?4, "
                    "\"Maximum\" = ?5, \"SampleCount\" = ?6 WHERE row = ?1"),
      dropSignals(database, "DELETE FROM signals WHERE file = ?"),
      dropRuns(database, "DELETE FROM runs WHERE file = ?"),
      dropFile(database, "DELETE FROM files WHERE row = ?") {}

SessionIndex::SessionIndex(const std::u16string& path, Access access) {
  try {
    state_ = std::make_unique<State>(path, access);
  } catch (const foundation::core::except::except_with_causes& error) {
    // What SQLite cannot read is for the user no damaged index, but another file.
    if (error.GetID() != "sqldb:shared:Corrupt") throw;
    raise("tavlox:index:NotAnIndex", path);
  }
}

SessionIndex::~SessionIndex() = default;

bool SessionIndex::isCurrent(const std::u16string& package) {
  const std::string path = fs::toNativeName(package);
  Statement& known = state_->update->findFile.bind(1, path);
  const Statement::ResetAtEnd resetAtEnd(known);
  if (!known.step()) return false;
  const fs::FileIdentity file = fs::identityOf(path);
  const bool isSame = known.integer(1) == static_cast<std::int64_t>(file.inode) &&
                      known.integer(2) == static_cast<std::int64_t>(file.size) &&
                      known.integer(3) == file.modified && known.integer(4) == file.changed;
  // A change right behind the reading may have left the times as they were.
  return isSame && std::max(file.modified, file.changed) + kCoarsestClock < known.integer(5);
}

void SessionIndex::expect(std::size_t packages) {
  Transaction transaction(state_->database, Transaction::Lock::AtOnce);
  const std::int64_t known = numberOf(state_->database, "SELECT count(*) FROM files");
  // Making the indexes again reads all that is known.
  constexpr std::int64_t kShare = 4;
  if (static_cast<std::int64_t>(packages) * kShare > known) state_->database.execute(kDropTextIndexes);
  transaction.commit();
}

SessionIndex::Package SessionIndex::take(std::FILE* rows) {
  State::Update& update = *state_->update;
  Transaction transaction(state_->database, Transaction::Lock::AtOnce);
  state_->checkTextRows();
  Row row;
  if (!readRow(rows, row)) return {Taken::CutOff, false};
  const std::string path = textOf(row.cells[0]);
  const bool wasThere = state_->forget(path);
  const bool isThere = row.kind == RowKind::File;
  if (isThere) {
    for (std::size_t i = 0; i < row.cells.size(); ++i)
      bindCell(update.insertFile, static_cast<int>(i) + 1, row.cells[i]);
    update.insertFile.execute();
  }
  const std::int64_t file = state_->database.lastRow();
  std::int64_t runs = 0, signals = 0, samples = 0, firstSignal = 0;
  std::string description, version, error, message;
  while (true) {
    if (!readRow(rows, row)) return {Taken::CutOff, false};
    if (row.kind == RowKind::End) break;
    switch (row.kind) {
      case RowKind::Run:
        state_->insert(update.insertRun, file, row);
        ++runs;
        break;
      case RowKind::Signal:
        state_->insert(update.insertSignal, file, row);
        if (signals++ == 0) firstSignal = state_->database.lastRow();
        break;
      case RowKind::Statistics:
        // Rows of one transaction are numbered without gaps.
        std::get<std::int64_t>(row.cells[0]) += firstSignal;
        for (std::size_t i = 0; i < row.cells.size(); ++i)
          bindCell(update.addStatistics, static_cast<int>(i) + 1, row.cells[i]);
        update.addStatistics.execute();
        samples += integerOf(row.cells[5]);
        break;
      case RowKind::Properties:
        description = textOf(row.cells[0]);
        version = textOf(row.cells[1]);
        break;
      default:
        // Of several errors the first is kept.
        if (error.empty()) std::tie(error, message) = std::tie(textOf(row.cells[0]), textOf(row.cells[1]));
        if (integerOf(row.cells[2]) == 0) break;
        update.dropSignals.bind(1, file).execute();
        update.dropRuns.bind(1, file).execute();
        runs = signals = samples = 0;
    }
  }
  if (isThere) {
    const std::string text = path + "\n" + description + "\n" + message;
    update.finishFile.bind(1, file).bind(2, state_->textRow(text)).bind(3, description).bind(4, version);
    update.finishFile.bind(5, error)
        .bind(6, message)
        .bind(7, runs)
        .bind(8, signals)
        .bind(9, samples)
        .execute();
  }
  transaction.commit();
  if (!isThere) return {Taken::Gone, false};
  return {wasThere ? Taken::Changed : Taken::Added, !error.empty()};
}

std::size_t SessionIndex::dropVanished(const std::u16string& folder, const PackageSearch& found) {
  const auto isBelow = [](std::u16string_view path, std::u16string_view above) {
    return path.starts_with(above) && (above.ends_with(u'/') || path.substr(above.size()).starts_with(u'/'));
  };
  Transaction transaction(state_->database, Transaction::Lock::AtOnce);
  std::vector<std::string> vanished;
  Statement all(state_->database, "SELECT \"Filename\" FROM files");
  while (all.step()) {
    const std::u16string path = fl::i18n::to_ustring_lossy(all.bytes(0));
    const auto mayBeThere = [&](const std::u16string& unread) { return isBelow(path, unread); };
    if (!isBelow(path, folder) || std::ranges::binary_search(found.packages, path)) continue;
    if (!std::ranges::any_of(found.unreadableFolders, mayBeThere)) vanished.emplace_back(all.bytes(0));
  }
  for (const std::string& path : vanished) state_->forget(path);
  transaction.commit();
  return vanished.size();
}

void SessionIndex::finish() {
  state_->finishTexts();
  state_->update.reset();
  try {
    state_->database.execute("PRAGMA journal_mode = DELETE");
  } catch (const foundation::core::except::except_with_causes& error) {
    if (error.GetID() != "sqldb:shared:Locked") throw;
  }
}

std::size_t SessionIndex::unreadableCount() {
  return static_cast<std::size_t>(
      numberOf(state_->database, "SELECT count(*) FROM files WHERE \"Error\" != ''"));
}

void SessionIndex::search(Subject subject, const std::u16string& words, const filter::Filter* where,
                          const std::function<void(std::span<const Cell>)>& visit) {
  const std::vector<std::string> phrases = phrasesOf(words);
  const std::vector<std::string> columns = columnsOf(subject);
  const filter::Filter::Sql condition = where == nullptr ? filter::Filter::Sql{} : where->sql(columns);
  Statement found(state_->database, searchSql(subject, phrases.size(), condition.condition));
  int parameter = 0;
  // Each is looked for as words and as a piece.
  for (const std::string& phrase : phrases) {
    found.bind(++parameter, phrase);
    found.bind(++parameter, phrase);
  }
  std::vector<std::string> texts(condition.values.size());
  for (std::size_t i = 0; i < texts.size(); ++i) bindValue(found, ++parameter, condition.values[i], texts[i]);
  const std::span<const filter::Field> fields = fieldsOf(subject);
  std::vector<Cell> cells(fields.size());
  while (found.step()) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const int column = static_cast<int>(i);
      if (fields[i].kind == filter::Kind::Text) {
        cells[i] = std::string(found.bytes(column));
      } else if (found.isNull(column)) {
        cells[i] = std::monostate();
      } else {
        cells[i] = found.number(column);
      }
    }
    visit(cells);
  }
}

}  // namespace tavlox::session_index
