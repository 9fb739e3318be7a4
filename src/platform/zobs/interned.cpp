#include "platform/zobs/interned.h"

#include <functional>
#include <unordered_set>

namespace zobs {

struct InternedAccess {
  static Interned make(const std::string& kept) { return Interned(&kept); }
};

const std::string& Interned::text() const {
  static const std::string none;
  return text_ != nullptr ? *text_ : none;
}

namespace internal {
namespace {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

}  // namespace

Interned makeInterned(std::string_view narrow) {
  // Never freed: objects that live in statics of a host use their names to the end. The set's elements do not
  // move.
  static auto& names = *new std::unordered_set<std::string, TextHash, std::equal_to<>>;
  const auto known = names.find(narrow);
  return InternedAccess::make(known != names.end() ? *known : *names.emplace(narrow).first);
}

}  // namespace internal
}  // namespace zobs
