#include "platform/repository/member_binding.h"

#include "platform/repository/unsigned_list.h"

namespace orra {
namespace {

namespace dom = simdjson::dom;

std::string packed(const dom::element& json) {
  std::string list;
  for (const dom::element number : json.get_array()) appendUnsigned(list, number.get_uint64().value());
  return list;
}

void bindMember(sql::Statement& insert, int parameter, MemberKind kind, const Row::Value& value,
                PackedLists& lists) {
  if (kind == MemberKind::Text) {
    insert.bind(parameter, value ? value->get_string().value() : std::string_view());
    return;
  }
  if (!value) {
    insert.bindNull(parameter);
    return;
  }
  switch (kind) {
    case MemberKind::Int32:
    case MemberKind::UInt32:
      insert.bind(parameter, value->get_int64().value());
      return;
    case MemberKind::Number:
      insert.bind(parameter, value->get_double().value());
      return;
    case MemberKind::UInt64List:
      insert.bindBlob(parameter, lists.emplace_back(packed(*value)));
      return;
    case MemberKind::Text:
    case MemberKind::Metadata:
      return;
  }
}

}  // namespace

void bindMembers(sql::Statement& insert, std::string_view kind, std::size_t end, const Row& row,
                 PackedLists& lists) {
  const std::span<const Member> members = membersOf(kind);
  lists.clear();
  lists.reserve(end);  // growing later would move texts that are bound
  for (std::size_t member = kFirstStoredMember; member < end; ++member) {
    bindMember(insert, parameterOf(member), members[member].kind, row[member], lists);
  }
}

}  // namespace orra
