#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/repository/members.h"
#include "platform/repository/sql/statement.h"

namespace orra {

/// Members of every kind of element that tables store have this index or a higher one; below it stand those
/// that say what an element is and where it belongs.
inline constexpr std::size_t kFirstStoredMember = 2;

/// The column of a table for a member, and the parameter of its INSERT. The identifier comes first, in column
/// 0 and parameter 1, and the members behind it in their order.
constexpr int columnOf(std::size_t member) { return static_cast<int>(member - kFirstStoredMember) + 1; }
constexpr int parameterOf(std::size_t member) { return columnOf(member) + 1; }

/// The lists of one row as they are stored, until its statement is done.
using PackedLists = std::vector<std::string>;

/// Binds the stored members up to `end` to their parameters. Missing texts are stored as empty ones, so that
/// a search finds them, other missing values as NULL.
void bindMembers(sql::Statement& insert, std::string_view kind, std::size_t end, const Row& row,
                 PackedLists& lists);

}  // namespace orra
