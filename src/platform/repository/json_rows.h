#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include <simdjson.h>

#include "platform/errors/exceptions.h"
#include "platform/repository/records.h"

namespace orra {

// From the bytes of a run list or signals part to checked elements. The parser's own type shows in this
// header, so it is included only where elements are taken apart; obj_ref_array_json.h is for everyone else.
/// Whether two names, or the bytes of two fields, are equal. Most are as short as a few words of eight bytes,
/// for which a call of memcmp takes longer than comparing them.
inline bool sameName(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) return false;
  const auto wordsDiffer = [&]<class Word>(Word first, std::size_t at) {
    Word second;
    std::memcpy(&first, one.data() + at, sizeof first);
    std::memcpy(&second, other.data() + at, sizeof second);
    return first != second;
  };
  constexpr std::size_t kWord = sizeof(std::uint64_t), kHalf = sizeof(std::uint32_t);
  if (one.empty()) return true;
  if (one.size() < kHalf) {
    const std::size_t middle = one.size() / 2;
    return one.front() == other.front() && one[middle] == other[middle] && one.back() == other.back();
  }
  // The last word overlaps the one before it, unless it is the first.
  if (one.size() < kWord) {
    return !wordsDiffer(std::uint32_t{}, 0) && !wordsDiffer(std::uint32_t{}, one.size() - kHalf);
  }
  for (std::size_t at = 0; at + kWord < one.size(); at += kWord) {
    if (wordsDiffer(std::uint64_t{}, at)) return false;
  }
  return !wordsDiffer(std::uint64_t{}, one.size() - kWord);
}

/// Finds members by name. Elements of one part mostly keep one order, so the search goes on from the last
/// hit.
class MemberLookup {
 public:
  explicit MemberLookup(std::span<const Member> members) : members_(members) {}

  /// The index of the member; nothing for a name that is not known.
  std::optional<std::size_t> find(std::string_view name) {
    const std::size_t first = next_;
    for (; next_ < members_.size(); ++next_) {
      if (sameName(members_[next_].name, name)) return next_++;
    }
    for (next_ = 0; next_ < first; ++next_) {
      if (sameName(members_[next_].name, name)) return next_++;
    }
    return std::nullopt;
  }

 private:
  std::span<const Member> members_;
  std::size_t next_ = 0;
};

/// One element of a JSON part: its known members in the order of its kind, each of the right kind or absent.
class Row {
 public:
  /// Null where the member is absent.
  using Value = const simdjson::dom::element*;

  explicit Row(const PartKind& kind) : kind_(kind), lookup_(kind.members) {}

  /// Becomes another element, so that what one row needs is set up once for a part. Raises InvalidSessionData
  /// for an element (counted from 1) that is no object, lacks `id`, or has a known member twice, of the wrong
  /// kind or too large.
  void take(std::size_t element, simdjson::dom::element json);

  Value operator[](std::size_t member) const {
    return (present_ >> member & 1) != 0 ? &values_[member] : nullptr;
  }
  /// A member of 32 bits that is there.
  std::int32_t integer(std::size_t member) const;

 private:
  static constexpr std::size_t kMostMembers =
      std::max(kMembers<RunRecord>.size(), kMembers<SignalRecord>.size());

  PartKind kind_;
  MemberLookup lookup_;
  std::uint32_t present_ = 0;  ///< a bit for each member
  static_assert(kMostMembers <= 32);
  std::array<simdjson::dom::element, kMostMembers> values_;
};

/// What refuses a part, simulation_data_repository:sdr:InvalidSessionData. Elements count from 1; 0 stands
/// for the whole part.
foundation::core::except::except_with_causes invalid(const PartKind& kind, std::size_t element,
                                                     std::string_view what);
[[noreturn]] void raiseInvalid(const PartKind& kind, std::size_t element, std::string_view what);

/// Gives the next bytes: up to `count` into `into`; 0 at the end.
using ReadBytes = std::function<std::size_t(char* into, std::size_t count)>;

/// Called with each element and its index, from 0. What it raises ends the reading.
using RowVisitor = std::function<void(std::size_t index, const Row& row)>;

/// Parses a JSON array of objects and visits its elements. The text is read in windows, arrays of some of its
/// elements in their order, of about 256 KiB or one element, so that memory does not grow with it. Raises
/// InvalidSessionData for whatever is wrong, also behind the array; by then elements before it have been
/// visited. A byte-order mark is passed over.
void forEachRow(const ReadBytes& read, const PartKind& kind, const RowVisitor& visitRow);

/// As forEachRow, but hands over to `tell` what that would raise, and what the visitor raises as
/// InvalidSessionData, and goes on behind the element. What is wrong with the array itself, or too large or
/// too deep, ends the reading, since it is not known then where the next element begins.
void auditRows(const ReadBytes& read, const PartKind& kind, const RowVisitor& visitRow,
               const FaultVisitor& tell);

}  // namespace orra
