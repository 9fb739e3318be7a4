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
constexpr char kRepeated[] = "an earlier element has its \"id\"";

struct NumberedId {
  std::int32_t id;
  std::size_t element;  ///< from 1
  auto operator<=>(const NumberedId&) const = default;
};

/// The elements whose `id` an earlier one has, in their order.
std::vector<std::size_t> repeatedIn(std::vector<NumberedId> ids) {
  // By identifier and then position, so that behind the first of equals stand the repetitions.
  std::ranges::sort(ids);
  std::vector<std::size_t> repeated;
  for (std::size_t i = 1; i < ids.size(); ++i) {
    if (ids[i - 1].id == ids[i].id) repeated.push_back(ids[i].element);
  }
  std::ranges::sort(repeated);
  return repeated;
}

ReadBytes reading(std::streambuf& source) {
  return [&source](char* into, std::size_t count) {
    return static_cast<std::size_t>(source.sgetn(into, static_cast<std::streamsize>(count)));
  };
}

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
    // Mostly neighbours are of the same class.
    if (!classOf.empty() && *classOf.back() == name) return classOf.push_back(classOf.back());
    auto known = classNames.find(name);
    if (known == classNames.end()) known = classNames.emplace(name).first;
    classOf.push_back(&*known);
  }

  void requireDifferentIds(const PartKind& kind) const {
    // Writers mostly count upwards, and ascending identifiers cannot repeat: nothing is sorted then.
    if (idsAscend) return;
    std::vector<NumberedId> numbered;
    numbered.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) numbered.push_back({ids[i], i + 1});
    const auto repeated = repeatedIn(std::move(numbered));
    if (!repeated.empty()) raiseInvalid(kind, repeated.front(), kRepeated);
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
  // Signals have no class; their parts are the long ones, and are spared eight bytes an element.
  const bool hasClasses = kind_.name == kRunListKind.name;
  orra::forEachRow(reading(*source), kind_, [&](std::size_t index, const Row& row) {
    references_->addId(row.integer(kId));
    if (hasClasses) {
      references_->addClass(row[kRunClass] ? row[kRunClass]->get_string().value() : kDefaultRunClass);
    }
    visit(index, row);
  });
  // Known at the end only. Whoever stored the rows in a transaction has it rolled back by the error.
  references_->requireDifferentIds(kind_);
}

void ObjRefArrayJSON::audit(std::istream& stream, const RowVisitor& visit, const FaultVisitor& tell) const {
  std::vector<NumberedId> ids;
  const auto visitNumbered = [&](std::size_t index, const Row& row) {
    ids.push_back({row.integer(kId), index + 1});
    visit(index, row);
  };
  auditRows(reading(*stream.rdbuf()), kind_, visitNumbered, tell);
  for (const std::size_t element : repeatedIn(std::move(ids))) tell(invalid(kind_, element, kRepeated));
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
