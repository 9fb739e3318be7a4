#pragma once

#include <span>
#include <vector>

#include "platform/arrays/host_array.h"
#include "platform/session_index/rows.h"
#include "platform/session_index/shown_fields.h"

namespace tavlox::session_index {

/// Records that were found in an index, on their way to a host.
class FoundRecords {
 public:
  explicit FoundRecords(Subject subject) : subject_(subject) {}

  /// A record's values, as SessionIndex::search gives them.
  void add(std::span<const Cell> cells) { rows_.emplace_back(cells.begin(), cells.end()); }
  std::size_t size() const { return rows_.size(); }

  /// A structure array of those that were added since the last call, with the fields of the subject: texts,
  /// int32 where hosts show such, rows of numbers where these are lists, else doubles. What is not there is
  /// NaN.
  corvan::HostArray take();

 private:
  Subject subject_;
  std::vector<std::vector<Cell>> rows_;
};

/// Fields that are lists of numbers, also where these have one.
inline constexpr std::u16string_view kLists[] = {u"Dimensions", u"Channel"};

}  // namespace tavlox::session_index
