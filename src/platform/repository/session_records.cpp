#include "platform/repository/session_records.h"

#include <algorithm>
#include <array>

#include "platform/repository/json_rows.h"
#include "platform/repository/obj_ref_array_json.h"
#include "platform/text/conversion.h"

namespace orra {
namespace {

namespace dom = simdjson::dom;
using fl::i18n::to_ustring;

// One for each kind of field. The kinds were checked when the row was made, and the parser refuses what is
// not UTF-8, so nothing can fail here.
void take(dom::element json, std::int32_t& value) {
  value = static_cast<std::int32_t>(json.get_int64().value());
}
void take(dom::element json, std::uint32_t& value) {
  value = static_cast<std::uint32_t>(json.get_int64().value());
}
void take(dom::element json, double& value) { value = json.get_double().value(); }
void take(dom::element json, std::string& value) { value = json.get_string().value(); }
void take(dom::element json, std::u16string& value) { value = to_ustring(json.get_string().value()); }
void take(dom::element json, std::vector<std::uint64_t>& value) {
  for (const dom::element number : json.get_array()) value.push_back(number.get_uint64().value());
}
void take(dom::element json, decltype(RunRecord::metadata)& value) {
  for (const auto& [key, text] : json.get_object()) {
    const auto isKnown = [key = key](const Member& member) { return member.name == key; };
    // Entries that are not known may be anything.
    if (std::ranges::any_of(kMetadataMembers, isKnown))
      value.emplace(key, to_ustring(text.get_string().value()));
  }
}
template <class Value>
void take(dom::element json, std::optional<Value>& value) {
  take(json, value.emplace());
}

/// Makes records of rows, with the fields that are asked for.
template <class Record>
class RecordMaker {
 public:
  explicit RecordMaker(FieldNames only) {
    // By member, since names would be compared for each element.
    std::ranges::transform(kMembers<Record>, isWanted_.begin(), [only](const Member& member) {
      return only.size() == 0 || std::ranges::find(only, member.name) != only.end();
    });
  }

  Record make(const Row& row) const {
    Record record;
    std::size_t member = 0;
    forEachField(record, [&](std::string_view, auto& value) {
      if (const Row::Value found = row[member]; found && isWanted_[member]) take(*found, value);
      ++member;
    });
    return record;
  }

 private:
  std::array<bool, kMembers<Record>.size()> isWanted_;
};

template <class Record>
void forEachRecord(std::istream& part, const PartKind& kind, const std::function<void(const Record&)>& visit,
                   FieldNames only) {
  const RecordMaker<Record> maker(only);
  ObjRefArrayJSON array(kind, ObjRefArrayJSON::Reading::WithRows);
  array.load(part);
  array.forEachRow([&](std::size_t, const Row& row) { visit(maker.make(row)); });
}

}  // namespace

void forEachRun(std::istream& runList, const std::function<void(const RunRecord&)>& visit, FieldNames only) {
  forEachRecord(runList, kRunListKind, visit, only);
}

void forEachSignal(std::istream& signalsPart, const std::function<void(const SignalRecord&)>& visit,
                   FieldNames only) {
  forEachRecord(signalsPart, kSignalsPartKind, visit, only);
}

void auditRuns(std::istream& runList, const std::function<void(std::size_t, const RunRecord&)>& visit,
               const FaultVisitor& tell, FieldNames only) {
  const RecordMaker<RunRecord> maker(only);
  const auto visitRow = [&](std::size_t index, const Row& row) { visit(index + 1, maker.make(row)); };
  ObjRefArrayJSON(kRunListKind).audit(runList, visitRow, tell);
}

void auditSignals(std::istream& signalsPart,
                  const std::function<void(std::size_t, const SignalRecord&)>& visit,
                  const FaultVisitor& tell, FieldNames only) {
  constexpr std::size_t kRun = fieldIndex<SignalRecord>("runID");
  const RecordMaker<SignalRecord> maker(only);
  const auto visitRow = [&](std::size_t index, const Row& row) {
    // Nothing that a record could show: there it would be 0.
    if (!row[kRun]) raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is missing");
    visit(index + 1, maker.make(row));
  };
  ObjRefArrayJSON(kSignalsPartKind).audit(signalsPart, visitRow, tell);
}

}  // namespace orra
