#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include <simdjson.h>

namespace orra {

/// What a member of an element must be.
enum class MemberKind {
  Int32,   ///< an integer written without fraction and exponent
  UInt32,  ///< likewise
  Number,
  Text,
  UInt64List,
  Metadata,  ///< an object in which the run metadata keys, where present, are texts
};

struct Member {
  std::string_view name;
  MemberKind kind;
};

/// The members that elements of this kind of part ("run list", "signals part") are known to have; the columns
/// of a Row. `id` comes first. Of any other kind only `id` is known.
std::span<const Member> membersOf(std::string_view kind);

/// Whether a run's metadata is known to have such an entry.
bool isMetadataKey(std::string_view key);

inline constexpr std::size_t kMostMembers = 20;

/// One element, its known members in the order of membersOf, each of the right kind or absent.
class Row {
 public:
  using Value = std::optional<simdjson::dom::element>;

  /// Raises InvalidSessionData, naming `kind` and `element`, for an element that is no object, lacks `id`, or
  /// has a known member twice or of the wrong kind.
  Row(std::string_view kind, std::size_t element, simdjson::dom::element json);

  const Value& operator[](std::size_t member) const { return values_[member]; }

 private:
  std::array<Value, kMostMembers> values_;
};

}  // namespace orra
