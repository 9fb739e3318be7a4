#include "platform/repository/table.h"

#include <algorithm>
#include <concepts>

#include "platform/repository/json_rows.h"

// Rows and records. The field table of records.h gives the columns, the parameters of the insertion and the
// values read back, in one order, so that a field is added in one place. Texts go into the database and come
// out of it as UTF-8 without being copied on the way; lists and metadata are packed into one blob each,
// because a table of their own would cost a query for every record.
namespace orra {
namespace {

namespace dom = simdjson::dom;

// The key comes before the columns, and parameters count from 1.
constexpr int columnOf(std::size_t field) { return static_cast<int>(field) + 1; }
constexpr int parameterOf(std::size_t field) { return columnOf(field) + 1; }
constexpr int kKeyColumn = 0, kKeyParameter = 1;

const char* columnType(FieldKind kind) {
  switch (kind) {
    case FieldKind::Int32:
    case FieldKind::UInt32:
      return "INTEGER";
    case FieldKind::Number:
      return "REAL";
    case FieldKind::UInt64List:
    case FieldKind::Metadata:
      return "BLOB";
    default:
      return "TEXT";
  }
}

template <class Record>
sql::Database& withTable(sql::Database& database, const std::string& name) {
  std::string columns = "key INTEGER PRIMARY KEY";
  for (const Member& member : kMembers<Record>) {
    columns += ", " + std::string(member.name) + " " + columnType(member.kind);
  }
  database.execute("CREATE TABLE " + name + " (" + columns + ")");
  return database;
}

template <class Record>
std::string insertStatement(const std::string& name) {
  std::string values = "?";
  for (std::size_t field = 0; field < kMembers<Record>.size(); ++field) values += ", ?";
  return "INSERT INTO " + name + " VALUES (" + values + ")";
}

/// A number in as few bytes as its value needs: seven bits a byte, lowest first; the top bit says that
/// another byte follows.
void pack(std::uint64_t number, std::string& packed) {
  // The low byte is taken with its top bit set; the conversion drops the bits above it.
  for (; number >= 0x80; number >>= 7) packed.push_back(static_cast<char>(number | 0x80));
  packed.push_back(static_cast<char>(number));
}

/// Takes a number off what was packed; whatever the bytes are, one comes out.
std::uint64_t unpack(std::string_view& packed) {
  std::uint64_t number = 0;
  for (unsigned shift = 0; !packed.empty(); shift += 7) {
    const char byte = packed.front();
    packed.remove_prefix(1);
    // A longer number was not written by pack; shifting further would be undefined.
    if (shift < 64) number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) break;
  }
  return number;
}

/// The entries of metadata that are known, each as its index in kMetadataMembers, the length of its text and
/// the text. One that is not known may be anything, and may stand there twice.
void packMetadata(const dom::object& entries, std::string& packed) {
  for (const auto& [name, value] : entries) {
    const auto known = std::find_if(std::begin(kMetadataMembers), std::end(kMetadataMembers),
                                    [name = name](const Member& member) { return member.name == name; });
    if (known == std::end(kMetadataMembers)) continue;
    const std::string_view text = value.get_string().value();
    pack(static_cast<std::uint64_t>(known - std::begin(kMetadataMembers)), packed);
    pack(text.size(), packed);
    packed += text;
  }
}

void bindField(sql::Statement& insert, int parameter, FieldKind kind, const Row::Value& value,
               std::string& packed) {
  // Missing texts are stored as empty ones, so that a search finds them.
  if (!value && kind == FieldKind::Text) {
    insert.bind(parameter, std::string_view());
    return;
  }
  if (!value) {
    insert.bindNull(parameter);
    return;
  }
  switch (kind) {
    case FieldKind::Int32:
    case FieldKind::UInt32:
      insert.bind(parameter, value->get_int64().value());
      return;
    case FieldKind::Number:
      insert.bind(parameter, value->get_double().value());
      return;
    case FieldKind::Text:
      insert.bind(parameter, value->get_string().value());
      return;
    case FieldKind::UInt64List:
      packed.clear();
      for (const dom::element number : value->get_array()) pack(number.get_uint64().value(), packed);
      insert.bindBlob(parameter, packed);
      return;
    case FieldKind::Metadata:
      packed.clear();
      packMetadata(value->get_object().value(), packed);
      insert.bindBlob(parameter, packed);
  }
}

template <std::integral Integer>
void read(const sql::Statement& row, int column, Integer& value) {
  value = static_cast<Integer>(row.integer(column));
}
void read(const sql::Statement& row, int column, double& value) { value = row.number(column); }
void read(const sql::Statement& row, int column, std::string& value) { value = row.bytes(column); }
void read(const sql::Statement& row, int column, std::u16string& value) { value = row.text(column); }
void read(const sql::Statement& row, int column, std::vector<std::uint64_t>& value) {
  value.clear();
  for (std::string_view packed = row.bytes(column); !packed.empty();) value.push_back(unpack(packed));
}
void read(const sql::Statement& row, int column, decltype(RunRecord::metadata)& entries) {
  entries.clear();
  for (std::string_view packed = row.bytes(column); !packed.empty();) {
    const std::uint64_t index = unpack(packed), length = unpack(packed);
    // Checked although this program wrote it: the file may have been damaged, and lengths are trusted below.
    if (index >= std::size(kMetadataMembers) || length > packed.size()) {
      row.failAsCorrupt("a run's metadata is not what was written");
    }
    entries.emplace(kMetadataMembers[index].name, row.toText(packed.substr(0, length)));
    packed.remove_prefix(length);
  }
}
template <class Value>
void read(const sql::Statement& row, int column, std::optional<Value>& value) {
  // A missing text is stored as an empty one.
  if (kKindOf<Value> != FieldKind::Text && row.isNull(column)) {
    value.reset();
    return;
  }
  read(row, column, value ? *value : value.emplace());
}

void visitKeys(sql::Statement& keys, const std::function<void(std::int64_t)>& visit) {
  const sql::Statement::ResetAtEnd reset(keys);
  while (keys.step()) visit(keys.integer(0));
}

}  // namespace

template <class Record>
Table<Record>::Table(sql::Database& database, const std::string& name)
    : database_(database),
      createNameIndex_("CREATE INDEX IF NOT EXISTS " + name + "_names ON " + name + " (name)"),
      insert_(withTable<Record>(database, name), insertStatement<Record>(name)),
      rows_(database, "SELECT * FROM " + name + " WHERE key >= ? ORDER BY key"),
      lastKey_(database, "SELECT max(key) FROM " + name + " WHERE key BETWEEN ? AND ?"),
      keys_(database, "SELECT key FROM " + name + " WHERE key BETWEEN ? AND ? ORDER BY key"),
      keysNamed_(database,
                 "SELECT key FROM " + name + " WHERE key BETWEEN ? AND ? AND name = ? ORDER BY key"),
      packed_(kMembers<Record>.size()) {}

template <class Record>
void Table<Record>::add(std::int64_t key, const Row& row, std::optional<Default> missing) {
  insert_.bind(kKeyParameter, key);
  for (std::size_t field = 0; field < kMembers<Record>.size(); ++field) {
    bindField(insert_, parameterOf(field), kMembers<Record>[field].kind, row[field], packed_[field]);
  }
  if (missing && !row[missing->field]) insert_.bind(parameterOf(missing->field), missing->number);
  insert_.execute();
}

template <class Record>
const Record* Table<Record>::find(std::int64_t key) {
  if (rows_.isOnRow() && key == recordKey_) return &record_;
  // Going on to the next row is what reading in order does; anything else begins a new search.
  if (!rows_.isOnRow() || key != recordKey_ + 1) {
    rows_.reset();
    rows_.bind(1, key);
  }
  if (!rows_.step()) return nullptr;
  recordKey_ = rows_.integer(kKeyColumn);
  const bool found = recordKey_ == key;
  try {
    if (found) readRecord();
  } catch (...) {
    rows_.reset();  // half of a record must not be found again
    throw;
  }
  // The row that was met may be one further on, where the key that was asked for is missing.
  if (!found || !database_.isInTransaction()) rows_.reset();
  return found ? &record_ : nullptr;
}

template <class Record>
void Table<Record>::readRecord() {
  int column = kKeyColumn;
  forEachField(record_, [&](std::string_view, auto& value) { read(rows_, ++column, value); });
}

template <class Record>
std::optional<std::int64_t> Table<Record>::lastKey(KeyRange range) {
  const sql::Statement::ResetAtEnd reset(lastKey_);
  lastKey_.bind(1, range.first).bind(2, range.last).step();
  if (lastKey_.isNull(0)) return std::nullopt;
  return lastKey_.integer(0);
}

template <class Record>
void Table<Record>::forEachKey(KeyRange range, const KeyVisitor& visit) {
  keys_.bind(1, range.first).bind(2, range.last);
  visitKeys(keys_, visit);
}

template <class Record>
void Table<Record>::forEachKeyNamed(std::string_view name, KeyRange range, const KeyVisitor& visit) {
  // Does nothing from the second time on.
  database_.execute(createNameIndex_);
  keysNamed_.bind(1, range.first).bind(2, range.last).bind(3, name);
  visitKeys(keysNamed_, visit);
}

template class Table<RunRecord>;
template class Table<SignalRecord>;

}  // namespace orra
