#include "platform/repository/table.h"

#include <array>
#include <concepts>
#include <cstring>

#include "platform/repository/json_rows.h"

// Rows and records. A row is the key, the name, by which signals are searched, and all other fields packed
// into one blob: the database is a copy that only this program reads, and a column for each field would take
// three times as long to write and to read. The field table of records.h says what is packed in which order,
// so that a field is added in one place. Texts go into the database and come out of it as UTF-8.
namespace orra {
namespace {

namespace dom = simdjson::dom;

enum Column { kKeyColumn, kNameColumn, kPackedColumn };
// Enough rows that finding the first of them, and locking the database for it, costs little beside reading
// them; few enough bytes that they cost no memory.
constexpr std::size_t kRowsAhead = 256, kBytesAhead = std::size_t{64} << 10;
constexpr int parameterOf(Column column) { return column + 1; }

template <class Record>
constexpr std::size_t kName = fieldIndex<Record>("name");

sql::Database& withTable(sql::Database& database, const std::string& name) {
  database.execute("CREATE TABLE " + name + " (key INTEGER PRIMARY KEY, name TEXT, fields BLOB)");
  return database;
}

/// A number in as few bytes as its value needs: seven bits a byte, lowest first; the top bit says that
/// another byte follows.
void pack(std::uint64_t number, std::string& packed) {
  // The low byte is taken with its top bit set; the conversion drops the bits above it.
  for (; number >= 0x80; number >>= 7) packed.push_back(static_cast<char>(number | 0x80));
  packed.push_back(static_cast<char>(number));
}

void packText(std::string_view text, std::string& packed) {
  pack(text.size(), packed);
  packed += text;
}

/// Of 32 bits, so that there is room for the 1 by which a number that is there differs from a missing one.
/// Small numbers of either sign become small ones.
void packInteger(std::int64_t number, std::string& packed) {
  pack((static_cast<std::uint64_t>(number) << 1 ^ static_cast<std::uint64_t>(number >> 63)) + 1, packed);
}

/// The entries of metadata that are known, each as its index in kMetadataMembers and its text. One that is
/// not known may be anything, and may stand there twice.
void packMetadata(const dom::object& entries, std::string& packed) {
  MemberLookup lookup(kMetadataMembers);
  for (const auto& [name, value] : entries) {
    const auto known = lookup.find(name);
    if (!known) continue;
    pack(*known + 1, packed);
    packText(value.get_string().value(), packed);
  }
}

/// A field of a checked element. A missing one is a zero byte, which is how the empty text begins as well:
/// texts that are missing are not told from empty ones.
void packField(FieldKind kind, const Row::Value& value, std::string& packed) {
  if (!value) return packed.push_back(0);
  switch (kind) {
    case FieldKind::Int32:
    case FieldKind::UInt32:
      return packInteger(value->get_int64().value(), packed);
    case FieldKind::Number: {
      const double number = value->get_double().value();
      packed.push_back(1);
      packed.append(reinterpret_cast<const char*>(&number), sizeof number);
      return;
    }
    case FieldKind::Text:
      return packText(value->get_string().value(), packed);
    case FieldKind::UInt64List: {
      const dom::array list = value->get_array();
      pack(list.size() + 1, packed);
      for (const dom::element number : list) pack(number.get_uint64().value(), packed);
      return;
    }
    case FieldKind::Metadata:
      packMetadata(value->get_object().value(), packed);
      packed.push_back(0);  // no further entry
  }
}

/// Takes apart what the functions above packed, in their order. Everything is checked although this program
/// wrote it: the file may have been damaged, and lengths are trusted elsewhere.
class Unpacker {
 public:
  Unpacker(const sql::Database& database, std::string_view packed) : database_(database), rest_(packed) {}

  template <std::integral Integer>
  void read(Integer& value) {
    const std::uint64_t packed = number();
    if (packed == 0) fail();
    value = static_cast<Integer>((packed - 1) >> 1 ^ -((packed - 1) & 1));
  }
  void read(double& value) {
    if (number() != 1) fail();
    std::memcpy(&value, bytes(sizeof value).data(), sizeof value);
  }
  void read(std::string& value) { value = bytes(number()); }
  void read(std::u16string& value) { convert(bytes(number()), value); }
  void read(std::vector<std::uint64_t>& value) {
    const std::uint64_t packed = number();
    // Every number has a byte at least.
    if (packed == 0 || packed - 1 > rest_.size()) fail();
    value.resize(packed - 1);
    for (std::uint64_t& one : value) one = number();
  }
  void read(decltype(RunRecord::metadata)& entries) {
    std::array<bool, std::size(kMetadataMembers)> seen{};
    while (const std::uint64_t packed = number()) {
      if (packed > seen.size()) fail();
      const std::string_view name = kMetadataMembers[packed - 1].name;
      seen[packed - 1] = true;
      auto entry = entries.find(name);
      if (entry == entries.end()) entry = entries.emplace(name, std::u16string()).first;
      read(entry->second);
    }
    // The others are those of the run before, whose memory is used again.
    for (std::size_t i = 0; i < seen.size(); ++i) {
      if (seen[i]) continue;
      if (const auto stale = entries.find(kMetadataMembers[i].name); stale != entries.end())
        entries.erase(stale);
    }
  }
  template <class Value>
  void read(std::optional<Value>& value) {
    // A missing text is kept as an empty one.
    if (kKindOf<Value> == FieldKind::Text || rest_.empty() || rest_.front() != 0) {
      return read(value ? *value : value.emplace());
    }
    rest_.remove_prefix(1);
    value.reset();
  }

  /// Into the text that `value` has; a text that is not well-formed is damage.
  void convert(std::string_view text, std::u16string& value) const {
    try {
      fl::i18n::to_ustring(text, value);
    } catch (const fl::i18n::ConversionError& error) {
      database_.failAsCorrupt(error.what());
    }
  }

 private:
  [[noreturn]] void fail() const { database_.failAsCorrupt("a record is not what was written"); }

  std::uint64_t number() {
    std::uint64_t number = 0;
    // A longer number was not written by pack; shifting further would be undefined.
    for (unsigned shift = 0; shift < 64; shift += 7) {
      if (rest_.empty()) fail();
      const char byte = rest_.front();
      rest_.remove_prefix(1);
      number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
      if ((byte & 0x80) == 0) return number;
    }
    fail();
  }

  std::string_view bytes(std::uint64_t count) {
    if (count > rest_.size()) fail();
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  const sql::Database& database_;
  std::string_view rest_;
};

void visitKeys(sql::Statement& keys, const std::function<void(std::int64_t)>& visit) {
  const sql::Statement::ResetAtEnd reset(keys);
  while (keys.step()) visit(keys.integer(0));
}

}  // namespace

template <class Record>
Table<Record>::Table(sql::Database& database, const std::string& name)
    : database_(database),
      createNameIndex_("CREATE INDEX IF NOT EXISTS " + name + "_names ON " + name + " (name)"),
      insert_(withTable(database, name), "INSERT INTO " + name + " VALUES (?, ?, ?)"),
      rows_(database, "SELECT * FROM " + name + " WHERE key >= ? ORDER BY key"),
      lastKey_(database, "SELECT max(key) FROM " + name + " WHERE key BETWEEN ? AND ?"),
      keys_(database, "SELECT key FROM " + name + " WHERE key BETWEEN ? AND ? ORDER BY key"),
      keysNamed_(database,
                 "SELECT key FROM " + name + " WHERE key BETWEEN ? AND ? AND name = ? ORDER BY key") {}

template <class Record>
void Table<Record>::add(std::int64_t key, const Row& row, std::optional<Default> missing) {
  ahead_.clear();  // this row may belong among them
  packed_.clear();
  for (std::size_t field = 0; field < kMembers<Record>.size(); ++field) {
    if (field == kName<Record>) continue;
    if (missing && field == missing->field && !row[field]) {
      packInteger(missing->number, packed_);
    } else {
      packField(kMembers<Record>[field].kind, row[field], packed_);
    }
  }
  const Row::Value& name = row[kName<Record>];
  insert_.bind(parameterOf(kKeyColumn), key);
  // A missing name is stored as an empty one, so that a search finds it.
  insert_.bind(parameterOf(kNameColumn), name ? name->get_string().value() : std::string_view());
  insert_.bindBlob(parameterOf(kPackedColumn), packed_);
  insert_.execute();
}

template <class Record>
const Record* Table<Record>::find(std::int64_t key) {
  const bool isSame = key == recordKey_ && recordStretch_ == database_.stretch();
  if (isSame && database_.isInTransaction()) return &record_;
  const bool goesOn = key == recordKey_ + 1;
  // Half of a record must not be found again.
  recordStretch_ = 0;
  if (const AheadRow* next = nextAhead(); next == nullptr || next->key != key) {
    readAhead(key, goesOn ? kRowsAhead : 1);
  }
  // The row that was met may be one further on, where the key that was asked for is missing.
  if (const AheadRow* next = nextAhead(); next == nullptr || next->key != key) return nullptr;
  unpackNext();
  recordKey_ = key;
  recordStretch_ = database_.stretch();
  return &record_;
}

template <class Record>
void Table<Record>::readAhead(std::int64_t key, std::size_t most) {
  ahead_.clear();
  aheadBytes_.clear();
  unpacked_ = 0;
  aheadRollbacks_ = database_.rollbacks();
  // Let go of at the end: a row that is held locks the database.
  const sql::Statement::ResetAtEnd reset(rows_);
  rows_.bind(1, key);
  try {
    while (ahead_.size() < most && aheadBytes_.size() < kBytesAhead && rows_.step()) {
      aheadBytes_ += rows_.bytes(kNameColumn);
      const std::size_t nameEnd = aheadBytes_.size();
      aheadBytes_ += rows_.bytes(kPackedColumn);
      ahead_.push_back({rows_.integer(kKeyColumn), nameEnd, aheadBytes_.size()});
    }
  } catch (...) {
    if (ahead_.empty()) throw;
    aheadBytes_.resize(ahead_.back().end);
  }
}

template <class Record>
auto Table<Record>::nextAhead() const -> const AheadRow* {
  const bool holds = unpacked_ < ahead_.size() && aheadRollbacks_ == database_.rollbacks();
  return holds ? &ahead_[unpacked_] : nullptr;
}

template <class Record>
void Table<Record>::unpackNext() {
  const std::size_t begin = unpacked_ == 0 ? 0 : ahead_[unpacked_ - 1].end;
  const AheadRow& row = ahead_[unpacked_++];
  const std::string_view bytes(aheadBytes_);
  Unpacker unpacker(database_, bytes.substr(row.nameEnd, row.end - row.nameEnd));
  unpacker.convert(bytes.substr(begin, row.nameEnd - begin),
                   record_.name ? *record_.name : record_.name.emplace());
  forEachField(record_, [&](std::string_view field, auto& value) {
    if (field != "name") unpacker.read(value);
  });
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
