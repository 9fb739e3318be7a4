#include "platform/repository/obj_ref_array_json.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/errors/exceptions.h"
#include "platform/repository/json_rows.h"
#include "platform/text/text_hash.h"

namespace orra {

using foundation::core::except::raise;

namespace {

constexpr std::size_t kId = fieldIndex<RunRecord>(strings::IDLower);
static_assert(kId == fieldIndex<SignalRecord>(strings::IDLower));
constexpr std::size_t kRunClass = fieldIndex<RunRecord>(strings::RunClassName);

}  // namespace

// What stays of the array after loading: enough for counting, listing identifiers and repeated ones.
struct ObjRefArrayJSON::References {
  std::vector<std::int32_t> ids;
  bool idsAscend = true;
  // Of a run list. There are few different names, so each is kept once.
  std::unordered_set<std::string, fl::i18n::TextHash, std::equal_to<>> classNames;
  std::vector<const std::string*> classOf;

  void addId(std::int32_t id) {
    idsAscend = idsAscend && (ids.empty() || ids.back() < id);
    ids.push_back(id);
  }

  void addClass(std::string_view name) {
    auto known = classNames.find(name);
    if (known == classNames.end()) known = classNames.emplace(name).first;
    classOf.push_back(&*known);
  }

  /// The index of the first element whose `id` an earlier one has.
  std::optional<std::size_t> firstRepeated() const {
    // Writers mostly count upwards, and ascending identifiers cannot repeat: nothing is sorted then.
    if (idsAscend) return std::nullopt;
    std::vector<std::pair<std::int32_t, std::size_t>> sorted;
    sorted.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) sorted.emplace_back(ids[i], i);
    // By identifier and then position, so that behind the first of equals stand the repetitions.
    std::sort(sorted.begin(), sorted.end());
    std::optional<std::size_t> first;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i - 1].first != sorted[i].first) continue;
      first = std::min(first.value_or(sorted[i].second), sorted[i].second);
    }
    return first;
  }
};

ObjRefArrayJSON::ObjRefArrayJSON(const PartKind& kind, Reading reading)
    : kind_(kind), reading_(reading), references_(std::make_unique<References>()) {}
ObjRefArrayJSON::~ObjRefArrayJSON() = default;
ObjRefArrayJSON::ObjRefArrayJSON(ObjRefArrayJSON&&) noexcept = default;
ObjRefArrayJSON& ObjRefArrayJSON::operator=(ObjRefArrayJSON&&) noexcept = default;

void ObjRefArrayJSON::load(std::istream& stream) {
  // Straight from the buffer: the stream itself would swallow the errors of what it reads from.
  source_ = stream.rdbuf();
  references_ = std::make_unique<References>();
  if (reading_ == Reading::AtOnce) forEachRow([](std::size_t, const Row&) {});
}

void ObjRefArrayJSON::forEachRow(const RowVisitor& visit) {
  std::streambuf* const source = std::exchange(source_, nullptr);
  if (source == nullptr) raise("simulation_data_repository:sdr:InternalError");
  const auto read = [source](char* into, std::size_t count) {
    return static_cast<std::size_t>(source->sgetn(into, static_cast<std::streamsize>(count)));
  };
  // Signals have no class; their parts are the long ones, and are spared eight bytes an element.
  const bool hasClasses = kind_.name == kRunListKind.name;
  orra::forEachRow(read, kind_, [&](std::size_t index, const Row& row) {
    references_->addId(row.integer(kId));
    if (hasClasses) {
      references_->addClass(row[kRunClass] ? row[kRunClass]->get_string().value() : kDefaultRunClass);
    }
    visit(index, row);
  });
  // Known at the end only. Whoever stored the rows in a transaction has it rolled back by the error.
  if (const auto repeated = references_->firstRepeated()) {
    raiseInvalid(kind_, *repeated + 1, "an earlier element has its \"id\"");
  }
}

std::size_t ObjRefArrayJSON::size() const { return references_->ids.size(); }

std::int32_t ObjRefArrayJSON::getPropertyInt32(std::size_t index, std::string_view name) const {
  if (name != strings::IDLower || index >= size()) raise("simulation_data_repository:sdr:InternalError");
  return references_->ids[index];
}

std::string ObjRefArrayJSON::getPropertyString(std::size_t index, std::string_view name) const {
  if (name != strings::RunClassName || index >= references_->classOf.size()) {
    raise("simulation_data_repository:sdr:InternalError");
  }
  return *references_->classOf[index];
}

}  // namespace orra
