#include "platform/repository/members.h"

#include <algorithm>
#include <limits>
#include <string>

#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/session_data_error.h"
#include "platform/repository/strings.h"

namespace orra {
namespace {

namespace dom = simdjson::dom;

constexpr Member kRunMembers[] = {
    {strings::IDLower, MemberKind::Int32},
    {strings::RunClassName, MemberKind::Text},
    {"name", MemberKind::Text},
    {"dateCreated", MemberKind::Text},
    {"runNumber", MemberKind::UInt32},
    {"orderIndex", MemberKind::Int32},
    {"model", MemberKind::Text},
    {"simMode", MemberKind::Text},
    {"startTime", MemberKind::Number},
    {"stopTime", MemberKind::Number},
    {"status", MemberKind::Text},
    {"updateTime", MemberKind::Number},
    {"simTime", MemberKind::Number},
    {"termTime", MemberKind::Number},
    {"totalTime", MemberKind::Number},
    {"metadata", MemberKind::Metadata},
};

constexpr Member kSignalMembers[] = {
    {strings::IDLower, MemberKind::Int32},
    {"runID", MemberKind::Int32},
    {"name", MemberKind::Text},
    {"domainType", MemberKind::Text},
    {"description", MemberKind::Text},
    {"units", MemberKind::Text},
    {"displayUnits", MemberKind::Text},
    {"dataTypeLabel", MemberKind::Text},
    {"complexity", MemberKind::Int32},
    {"complexCoordSystem", MemberKind::Int32},
    {"sampleTime", MemberKind::Text},
    {"model", MemberKind::Text},
    {"displayBlockPath", MemberKind::Text},
    {"blockName", MemberKind::Text},
    {"portIndex", MemberKind::Int32},
    {"dimensions", MemberKind::UInt64List},
    {"channel", MemberKind::UInt64List},
    {"rootSource", MemberKind::Text},
    {"timeSource", MemberKind::Text},
    {"dataSource", MemberKind::Text},
};

static_assert(std::size(kRunMembers) <= kMostMembers && std::size(kSignalMembers) <= kMostMembers);

constexpr Member kMetadataMembers[] = {
    {strings::Description, MemberKind::Text},
    {strings::Tag, MemberKind::Text},
    {strings::BrinVersion, MemberKind::Text},
    {strings::ModelVersion, MemberKind::Text},
    {strings::UserID, MemberKind::Text},
    {strings::MachineName, MemberKind::Text},
    {strings::Platform, MemberKind::Text},
    {strings::TaskName, MemberKind::Text},
    {strings::SolverType, MemberKind::Text},
    {strings::SolverName, MemberKind::Text},
    {strings::SolverMaxStepSize, MemberKind::Text},
    {strings::StopEventSource, MemberKind::Text},
    {strings::StopEventDescription, MemberKind::Text},
    {strings::ExecutionErrors, MemberKind::Text},
    {strings::ExecutionWarnings, MemberKind::Text},
    {strings::UserString, MemberKind::Text},
};

/// Where names are looked up: elements of one part mostly keep one order, so the search goes on from the last
/// hit.
class MemberLookup {
 public:
  explicit MemberLookup(std::span<const Member> members) : members_(members) {}

  std::optional<std::size_t> find(std::string_view name) {
    for (std::size_t tried = 0; tried < members_.size(); ++tried) {
      const std::size_t at = (next_ + tried) % members_.size();
      if (members_[at].name != name) continue;
      next_ = at + 1;
      return at;
    }
    return std::nullopt;
  }

 private:
  std::span<const Member> members_;
  std::size_t next_ = 0;
};

/// What the element at fault is called in errors.
struct Fault {
  std::string_view kind;
  std::size_t element;

  [[noreturn]] void raise(std::string_view member, std::string_view what) const {
    raiseInvalid(kind, element, "\"" + std::string(member) + "\" " + std::string(what));
  }
};

template <class Integer>
bool isInteger(const dom::element& json) {
  std::int64_t number;
  if (json.type() != dom::element_type::INT64 || json.get(number) != simdjson::SUCCESS) return false;
  return number >= std::numeric_limits<Integer>::min() && number <= std::numeric_limits<Integer>::max();
}

bool isUnsignedList(const dom::element& json) {
  dom::array list;
  if (json.get(list) != simdjson::SUCCESS) return false;
  return std::all_of(list.begin(), list.end(), [](const dom::element& number) { return number.is_uint64(); });
}

void requireMetadata(const dom::element& json, const Fault& fault) {
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) fault.raise("metadata", "must be an object");
  MemberLookup lookup(kMetadataMembers);
  std::array<bool, std::size(kMetadataMembers)> seen{};
  for (const auto& [key, value] : object) {
    const auto member = lookup.find(key);
    if (!member) continue;
    const std::string name = "metadata." + std::string(key);
    if (std::exchange(seen[*member], true)) fault.raise(name, "stands there twice");
    if (!value.is_string()) fault.raise(name, "must be a text");
  }
}

void requireKind(const Member& member, const dom::element& json, const Fault& fault) {
  switch (member.kind) {
    case MemberKind::Int32:
      if (!isInteger<std::int32_t>(json)) fault.raise(member.name, "must be an integer of 32 bits");
      return;
    case MemberKind::UInt32:
      if (!isInteger<std::uint32_t>(json)) fault.raise(member.name, "must be an unsigned integer of 32 bits");
      return;
    case MemberKind::Number:
      if (!json.is_number()) fault.raise(member.name, "must be a number");
      return;
    case MemberKind::Text:
      if (!json.is_string()) fault.raise(member.name, "must be a text");
      return;
    case MemberKind::UInt64List:
      if (!isUnsignedList(json)) fault.raise(member.name, "must be a list of unsigned integers");
      return;
    case MemberKind::Metadata:
      requireMetadata(json, fault);
  }
}

}  // namespace

std::span<const Member> membersOf(std::string_view kind) {
  if (kind == kRunListKind) return kRunMembers;
  if (kind == kSignalsPartKind) return kSignalMembers;
  return std::span(kRunMembers).first(1);
}

bool isMetadataKey(std::string_view key) {
  return std::any_of(std::begin(kMetadataMembers), std::end(kMetadataMembers),
                     [&](const Member& member) { return member.name == key; });
}

Row::Row(std::string_view kind, std::size_t element, dom::element json) {
  const Fault fault{kind, element};
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) raiseInvalid(kind, element, "it is not an object");
  const std::span<const Member> members = membersOf(kind);
  MemberLookup lookup(members);
  for (const auto& [key, value] : object) {
    const auto member = lookup.find(key);
    if (!member) continue;
    if (values_[*member]) fault.raise(key, "stands there twice");
    requireKind(members[*member], value, fault);
    values_[*member] = value;
  }
  if (!values_[0]) fault.raise(strings::IDLower, "is missing");
}

}  // namespace orra
