#include "platform/repository/signal_table.h"

#include <limits>

#include "platform/errors/exceptions.h"
#include "platform/repository/members.h"
#include "platform/repository/obj_ref_array_json.h"

namespace orra {
namespace {

constexpr char kSchema[] = R"(
  CREATE TABLE signals (
    id INTEGER PRIMARY KEY, name TEXT, domainType TEXT, description TEXT, units TEXT, displayUnits TEXT,
    dataTypeLabel TEXT, complexity INTEGER, complexCoordSystem INTEGER, sampleTime TEXT, model TEXT,
    displayBlockPath TEXT, blockName TEXT, portIndex INTEGER, dimensions BLOB, channel BLOB, rootSource TEXT,
    timeSource TEXT, dataSource TEXT);
)";

constexpr char kNameIndex[] = "CREATE INDEX IF NOT EXISTS signal_names ON signals (name)";

constexpr std::size_t kMemberCount = 20;
static_assert(columnOf(kMemberCount) == SignalTable::DataSource + 1);

constexpr std::int64_t kLastPlace = std::numeric_limits<std::uint32_t>::max();

sql::Database& withTable(sql::Database& database) {
  database.execute(kSchema);
  return database;
}

void visitRows(sql::Statement& identifiers, const SignalTable::IdentifierVisitor& visit) {
  const sql::Statement::ResetAtEnd reset(identifiers);
  while (identifiers.step()) visit(identifiers.integer(0));
}

}  // namespace

SignalTable::SignalTable(sql::Database& database)
    : database_(withTable(database)),
      insert_(database,
              "INSERT INTO signals VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
      findLast_(database, "SELECT max(id) FROM signals WHERE id BETWEEN ? AND ?"),
      findOfRun_(database, "SELECT id FROM signals WHERE id BETWEEN ? AND ? ORDER BY id"),
      findNamed_(database, "SELECT id FROM signals WHERE id BETWEEN ? AND ? AND name = ? ORDER BY id"),
      cursor_(database, "SELECT * FROM signals WHERE id >= ? ORDER BY id") {}

void SignalTable::add(std::int64_t identifier, const Row& row) {
  insert_.bind(1, identifier);
  bindMembers(insert_, kSignalsPartKind, kMemberCount, row, lists_);
  insert_.execute();
}

std::int64_t SignalTable::countOf(std::int32_t run) {
  const sql::Statement::ResetAtEnd reset(findLast_);
  findLast_.bind(1, signalIdentifier(run, 1)).bind(2, signalIdentifier(run, kLastPlace));
  findLast_.step();
  const std::int64_t last = findLast_.integer(0);  // NULL, read as 0, without signals
  return last == 0 ? 0 : last - signalIdentifier(run, 0);
}

void SignalTable::forEachOf(std::int32_t run, const IdentifierVisitor& visit) {
  findOfRun_.bind(1, signalIdentifier(run, 1)).bind(2, signalIdentifier(run, kLastPlace));
  visitRows(findOfRun_, visit);
}

void SignalTable::forEachNamed(std::string_view name, std::int32_t run, const IdentifierVisitor& visit) {
  database_.execute(kNameIndex);
  findNamed_.bind(1, signalIdentifier(run, 1)).bind(2, signalIdentifier(run, kLastPlace)).bind(3, name);
  visitRows(findNamed_, visit);
}

sql::RowCursor::Lease SignalTable::row(std::int64_t identifier) {
  auto found = cursor_.find(identifier);
  if (!found) foundation::core::except::raise("simulation_data_repository:sdr:InternalError");
  return found;
}

}  // namespace orra
