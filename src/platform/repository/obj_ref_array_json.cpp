#include "platform/repository/obj_ref_array_json.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/repository/json_rows.h"
#include "platform/text/conversion.h"
#include "platform/text/text_hash.h"
#include "platform/zip/spool.h"

namespace orra {

using foundation::core::except::raise;

namespace {

constexpr std::size_t kId = fieldIndex<RunRecord>(strings::IDLower);
static_assert(kId == fieldIndex<SignalRecord>(strings::IDLower));
constexpr std::size_t kRunClass = fieldIndex<RunRecord>(strings::RunClassName);

}  // namespace

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
    if (idsAscend) return std::nullopt;
    std::vector<std::pair<std::int32_t, std::size_t>> sorted;
    sorted.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) sorted.emplace_back(ids[i], i);
    std::sort(sorted.begin(), sorted.end());
    std::optional<std::size_t> first;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i - 1].first != sorted[i].first) continue;
      first = std::min(first.value_or(sorted[i].second), sorted[i].second);
    }
    return first;
  }
};

struct ObjRefArrayJSON::Text {
  zip::Spool spool{fl::i18n::to_string(fl::filesystem::temp_directory_path())};
  bool empty = true;

  /// Windows become one array again.
  void add(std::string_view window) {
    if (!empty) spool.write(",", 1);
    spool.write(window.data() + (empty ? 0 : 1), window.size() - (empty ? 1 : 2));
    empty = false;
  }
  void finish() {
    spool.write("]", 1);
    spool.finish();
  }
};

ObjRefArrayJSON::ObjRefArrayJSON(const PartKind& kind, Keep keep)
    : kind_(kind), keep_(keep), references_(std::make_unique<References>()) {}
ObjRefArrayJSON::~ObjRefArrayJSON() = default;
ObjRefArrayJSON::ObjRefArrayJSON(ObjRefArrayJSON&&) noexcept = default;
ObjRefArrayJSON& ObjRefArrayJSON::operator=(ObjRefArrayJSON&&) noexcept = default;

void ObjRefArrayJSON::load(std::istream& stream) {
  load(stream, [](std::size_t, const Row&) {});
}

void ObjRefArrayJSON::load(std::istream& stream, const RowVisitor& visit) {
  // Straight from the buffer: the stream itself would swallow the errors of what it reads from.
  std::streambuf* const source = stream.rdbuf();
  const auto read = [source](char* into, std::size_t count) {
    return static_cast<std::size_t>(source->sgetn(into, static_cast<std::streamsize>(count)));
  };
  auto references = std::make_unique<References>();
  auto text = keep_ == Keep::Rows ? std::make_unique<Text>() : nullptr;
  const bool hasClasses = kind_.name == kRunListKind.name;
  const auto keepText = [&](std::string_view window) {
    if (text) text->add(window);
  };
  orra::forEachRow(read, kind_, keepText, [&](std::size_t index, const Row& row) {
    references->addId(row.integer(kId));
    if (hasClasses) {
      references->addClass(row[kRunClass] ? row[kRunClass]->get_string().value() : kDefaultRunClass);
    }
    visit(index, row);
  });
  if (const auto repeated = references->firstRepeated()) {
    raiseInvalid(kind_, *repeated + 1, "an earlier element has its \"id\"");
  }
  if (text) text->finish();
  references_ = std::move(references);
  text_ = std::move(text);
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

void ObjRefArrayJSON::forEachRow(const RowVisitor& visit) const {
  if (text_ == nullptr) raise("simulation_data_repository:sdr:InternalError");
  zip::Spool::Reader reader(text_->spool);
  orra::forEachRow([&](char* into, std::size_t count) { return reader.read(into, count); }, kind_,
                   [](std::string_view) {}, visit);
}

}  // namespace orra
