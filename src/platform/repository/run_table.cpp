#include "platform/repository/run_table.h"

#include <algorithm>

#include "platform/errors/exceptions.h"
#include "platform/repository/member_binding.h"
#include "platform/repository/members.h"
#include "platform/repository/obj_ref_array_json.h"

namespace orra {

using foundation::core::except::raise;

namespace {

constexpr char kSchema[] = R"(
  CREATE TABLE runs (
    id INTEGER PRIMARY KEY, name TEXT, dateCreated TEXT, runNumber INTEGER, orderIndex INTEGER, model TEXT,
    simMode TEXT, startTime REAL, stopTime REAL, status TEXT, updateTime REAL, simTime REAL, termTime REAL,
    totalTime REAL);
  CREATE TABLE run_metadata (run INTEGER, key TEXT, value TEXT, PRIMARY KEY (run, key)) WITHOUT ROWID;
)";

constexpr std::size_t kOrderIndexMember = 5;
constexpr std::size_t kMetadataMember = 15;
static_assert(columnOf(kOrderIndexMember) == RunTable::OrderIndex);
static_assert(columnOf(kMetadataMember) == RunTable::TotalTime + 1);

sql::Database& withTables(sql::Database& database) {
  database.execute(kSchema);
  return database;
}

}  // namespace

RunTable::RunTable(sql::Database& database)
    : insert_(withTables(database), "INSERT INTO runs VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      insertMetadata_(database, "INSERT INTO run_metadata VALUES (?, ?, ?)"),
      findMetadata_(database,
                    "SELECT value FROM runs LEFT JOIN run_metadata ON run = id AND key = ?2 WHERE id = ?1"),
      cursor_(database, "SELECT * FROM runs WHERE id >= ? ORDER BY id") {}

void RunTable::add(std::int32_t run, std::size_t place, const Row& row) {
  PackedLists lists;
  insert_.bind(1, std::int64_t{run});
  bindMembers(insert_, kRunListKind, kMetadataMember, row, lists);
  if (!row[kOrderIndexMember]) {
    insert_.bind(parameterOf(kOrderIndexMember), static_cast<std::int64_t>(place));
  }
  insert_.execute();
  addMetadata(run, row);
}

void RunTable::addMetadata(std::int32_t run, const Row& row) {
  if (!row[kMetadataMember]) return;
  for (const auto& [key, value] : row[kMetadataMember]->get_object()) {
    std::string_view text;
    // What is no text has a key that nobody knows, and such a key may also stand there twice.
    if (!isMetadataKey(key) || value.get(text) != simdjson::SUCCESS) continue;
    insertMetadata_.bind(1, std::int64_t{run}).bind(2, key).bind(3, text).execute();
  }
}

sql::RowCursor::Lease RunTable::row(std::int32_t run) {
  auto found = cursor_.find(run);
  if (!found) raise("simulation_data_repository:sdr:NoSuchRun");
  return found;
}

std::u16string RunTable::metadata(std::int32_t run, std::string_view key) {
  const sql::Statement::ResetAtEnd reset(findMetadata_);
  findMetadata_.bind(1, std::int64_t{run}).bind(2, key);
  if (!findMetadata_.step()) raise("simulation_data_repository:sdr:NoSuchRun");
  return findMetadata_.text(0);
}

}  // namespace orra
