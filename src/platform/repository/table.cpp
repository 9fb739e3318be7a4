#include "platform/repository/table.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstring>
#include <utility>

#include "platform/repository/json_rows.h"
#include "platform/text/text_hash.h"

// Batches and records. A row of the database is a batch: its first and its last key, and the records of all
// keys between them. The database is a copy that only this program reads; a row for each record would take
// twice as long to write and to read, and a column for each field six times. A record is its length, a bit
// for each field that is the same as in the record before, and the other fields, packed. Of a signal only its
// name and its places differ from its neighbour's as a rule; what is the same is neither stored nor read nor
// converted. The field table of records.h says what is packed in which order, so that a field is added in one
// place. Texts are packed as UTF-8.
namespace orra {
namespace {

namespace dom = simdjson::dom;

enum Column { kFirstColumn, kLastColumn, kRecordsColumn };
// Enough records that storing and finding them costs little beside packing them; few enough that who asks for
// one does not wait for the others.
constexpr std::size_t kBatchBytes = std::size_t{16} << 10;

// Batches that are filled at once; each may have as many bytes.
constexpr std::size_t kMostOpen = 128;

// One in so many records of a batch is stored whole: reading one begins there, not at the first.
constexpr std::int64_t kWholeEvery = 64;

// Each has a bit.
static_assert(kMembers<RunRecord>.size() <= 32 && kMembers<SignalRecord>.size() <= 32);

sql::Database& withTable(sql::Database& database, const std::string& name) {
  database.execute("CREATE TABLE " + name + " (first INTEGER PRIMARY KEY, last INTEGER, records BLOB)");
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

std::size_t hashOf(std::u16string_view text) {
  return fl::i18n::TextHash()({reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
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
    std::size_t count = 0;
    for (; const std::uint64_t packed = number(); ++count) {
      if (packed > seen.size()) fail();
      const std::string_view name = kMetadataMembers[packed - 1].name;
      seen[packed - 1] = true;
      auto entry = entries.find(name);
      if (entry == entries.end()) entry = entries.emplace(name, std::u16string()).first;
      read(entry->second);
    }
    // The others are those of the run before, whose memory is used again.
    for (std::size_t i = 0; i < seen.size() && entries.size() > count; ++i) {
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

 private:
  /// Into the text that `value` has; a text that is not well-formed is damage.
  void convert(std::string_view text, std::u16string& value) const {
    try {
      fl::i18n::to_ustring(text, value);
    } catch (const fl::i18n::ConversionError& error) {
      database_.failAsCorrupt(error.what());
    }
  }

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

}  // namespace

template <class Record>
Table<Record>::Table(sql::Database& database, const std::string& name)
    : database_(database),
      insert_(withTable(database, name), "INSERT INTO " + name + " VALUES (?, ?, ?)"),
      batchOf_(database, "SELECT * FROM " + name + " WHERE first <= ? ORDER BY first DESC LIMIT 1"),
      lastKey_(database,
               "SELECT last FROM " + name + " WHERE first BETWEEN ? AND ? ORDER BY first DESC LIMIT 1"),
      batches_(database, "SELECT * FROM " + name + " ORDER BY first") {}

template <class Record>
void Table<Record>::Loading::add(std::int64_t key, const Row& row, std::optional<Default> missing) {
  Batch& batch = batchFor(key);
  if (batch.records.size() >= kBatchBytes) store(batch);
  batch.keys.last = key;
  std::string& packed = batch.records;
  const std::size_t begin = packed.size();
  packed.append(sizeof(Head), '\0');
  if ((key - batch.keys.first) % kWholeEvery == 0) batch.fields = {};
  Head head;
  for (std::size_t field = 0; field < batch.fields.size(); ++field) {
    const std::size_t start = packed.size();
    if (missing && field == missing->field && !row[field]) {
      packInteger(missing->number, packed);
    } else {
      packField(kMembers<Record>[field].kind, row[field], packed);
    }
    auto& [lastStart, lastSize] = batch.fields[field];
    const auto bytes = std::string_view(packed).substr(start);
    if (sameName(bytes, std::string_view(packed).substr(lastStart, lastSize))) {
      packed.resize(start);
      head.repeated |= 1U << field;
    } else {
      lastStart = start;
      lastSize = bytes.size();
    }
  }
  // An element is far smaller than what the length can say.
  head.length = static_cast<std::uint32_t>(packed.size() - begin - sizeof head);
  std::memcpy(packed.data() + begin, &head, sizeof head);
}

template <class Record>
auto Table<Record>::Loading::batchFor(std::int64_t key) -> Batch& {
  const auto goesOn = [key](const Batch& batch) { return batch.keys.last + 1 == key; };
  if (current_ < open_.size() && goesOn(open_[current_])) return open_[current_];
  current_ = static_cast<std::size_t>(std::ranges::find_if(open_, goesOn) - open_.begin());
  if (current_ < open_.size()) return open_[current_];
  if (open_.size() == kMostOpen) finish();
  current_ = open_.size();
  return open_.emplace_back(Batch{{key, key - 1}, {}, {}});
}

template <class Record>
void Table<Record>::Loading::store(Batch& batch) {
  if (batch.records.empty()) return;
  // What was read before may be in want of these.
  table_.last_ = 0;
  table_.names_.clear();
  table_.insert_.bind(1, batch.keys.first).bind(2, batch.keys.last).bindBlob(3, batch.records).execute();
  batch.records.clear();
  batch.keys.first = batch.keys.last + 1;
}

template <class Record>
void Table<Record>::Loading::finish() {
  for (Batch& batch : open_) store(batch);
  open_.clear();
}

template <class Record>
const Record* Table<Record>::read(std::int64_t key) {
  // Half of a record must not be found again.
  recordStretch_ = 0;
  if (!isAhead(key)) {
    // Let go of at the end: a row that is held locks the database.
    const sql::Statement::ResetAtEnd reset(batchOf_);
    if (batchOf_.bind(1, key).step()) takeBatch(batchOf_);
  }
  if (!isAhead(key)) return nullptr;
  skipTo(key);
  while (next_ <= key) takeNext();
  // Records may have megabytes, which are not to be held twice. Clearing would keep the memory.
  if (next_ > last_) std::string().swap(batch_);
  recordKey_ = key;
  recordStretch_ = database_.stretch();
  return &record_;
}

template <class Record>
void Table<Record>::takeBatch(sql::Statement& batches) {
  // Of no use as long as it is not complete.
  last_ = 0;
  batch_ = batches.bytes(kRecordsColumn);
  offset_ = 0;
  next_ = batches.integer(kFirstColumn);
  last_ = batches.integer(kLastColumn);
  batchRollbacks_ = database_.rollbacks();
}

template <class Record>
bool Table<Record>::isAhead(std::int64_t key) const {
  return next_ <= key && key <= last_ && batchRollbacks_ == database_.rollbacks();
}

template <class Record>
auto Table<Record>::headAt(std::size_t offset) const -> Head {
  Head head;
  if (batch_.size() - offset >= sizeof head) std::memcpy(&head, batch_.data() + offset, sizeof head);
  if (batch_.size() - offset < sizeof head || batch_.size() - offset - sizeof head < head.length) {
    database_.failAsCorrupt("a batch of records ends too early");
  }
  return head;
}

template <class Record>
void Table<Record>::skipTo(std::int64_t key) {
  std::size_t offset = offset_;
  for (std::int64_t at = next_; at <= key; ++at) {
    const Head head = headAt(offset);
    if (head.repeated == 0) {
      next_ = at;
      offset_ = offset;
    }
    offset += sizeof head + head.length;
  }
}

template <class Record>
void Table<Record>::takeNext() {
  // What fails here leaves half of a record, which the next one would go on with.
  const std::int64_t last = std::exchange(last_, 0);
  const Head head = headAt(offset_);
  if (offset_ == 0 && head.repeated != 0) {
    database_.failAsCorrupt("the first record of a batch repeats another");
  }
  Unpacker unpacker(database_, std::string_view(batch_).substr(offset_ + sizeof head, head.length));
  repeated_ = head.repeated;
  std::uint32_t field = 1;
  forEachField(record_, [&](std::string_view, auto& value) {
    if ((repeated_ & field) == 0) unpacker.read(value);
    field <<= 1;
  });
  offset_ += sizeof head + head.length;
  ++next_;
  last_ = last;
}

template <class Record>
std::int64_t Table<Record>::lastKey(KeyRange range) {
  const sql::Statement::ResetAtEnd reset(lastKey_);
  const bool hasKeys = lastKey_.bind(1, range.first).bind(2, range.last).step();
  return hasKeys ? lastKey_.integer(0) : range.first - 1;
}

template <class Record>
void Table<Record>::forEachKeyNamed(std::u16string_view name, KeyRange range,
                                    const std::function<void(std::int64_t)>& visit) {
  const std::size_t hash = hashOf(name);
  const auto& all = names();
  for (auto at = std::ranges::lower_bound(all, Name{hash, range.first}); at != all.end(); ++at) {
    if (at->hash != hash || at->key > range.last) return;
    // Another name may have the same hash.
    const Record* const found = find(at->key);
    if (found != nullptr && textOf(found->name) == name) visit(at->key);
  }
}

template <class Record>
auto Table<Record>::names() -> const std::vector<Name>& {
  if (!names_.empty() && namesRollbacks_ == database_.rollbacks()) return names_;
  std::vector<Name> names;
  recordStretch_ = 0;
  const sql::Statement::ResetAtEnd reset(batches_);
  while (batches_.step()) {
    takeBatch(batches_);
    while (next_ <= last_) {
      const std::int64_t key = next_;
      takeNext();
      names.push_back({hashOf(textOf(record_.name)), key});
    }
  }
  std::ranges::sort(names);
  names_ = std::move(names);
  namesRollbacks_ = database_.rollbacks();
  return names_;
}

template class Table<RunRecord>;
template class Table<SignalRecord>;

}  // namespace orra
