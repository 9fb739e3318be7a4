#include "platform/opc/zip/entry_names.h"

#include <algorithm>
#include <bit>
#include <functional>

#include "platform/opc/zip/exception.h"

namespace opc::zip {
namespace {

bool hasClimbingSegment(std::string_view name) {
  for (std::size_t at = name.find(".."); at != std::string_view::npos; at = name.find("..", at + 1)) {
    const auto divides = [&](std::size_t place) { return name[place] == '/' || name[place] == '\\'; };
    const bool starts = at == 0 || divides(at - 1);
    const bool ends = at + 2 == name.size() || divides(at + 2);
    if (starts && ends) return true;
  }
  return false;
}

/// An open-addressed table of entries by name.
class NameTable {
 public:
  enum class Added { Yes, Duplicate, TooManyProbes };

  explicit NameTable(const std::vector<Entry>& entries)
      : entries_(entries), slots_(std::bit_ceil(2 * entries.size() + 1)) {}

  Added add(std::uint32_t index) {
    const std::size_t hash = std::hash<std::string_view>()(entries_[index].name);
    const auto tag = static_cast<std::uint32_t>(hash >> 32);
    for (std::size_t probe = 0; probe < kMaximalProbes; ++probe) {
      Slot& slot = slots_[(hash + probe) & (slots_.size() - 1)];
      if (slot.entry == 0) {
        slot = {index + 1, tag};
        return Added::Yes;
      }
      if (slot.tag == tag && entries_[slot.entry - 1].name == entries_[index].name) return Added::Duplicate;
    }
    return Added::TooManyProbes;
  }

 private:
  // Far more than chance needs in a table that is at most half full.
  static constexpr std::size_t kMaximalProbes = 128;

  struct Slot {
    std::uint32_t entry = 0;  ///< index + 1; 0 is free
    std::uint32_t tag = 0;    ///< the other half of the hash, so that few names are compared in vain
  };

  const std::vector<Entry>& entries_;
  std::vector<Slot> slots_;
};

void checkSortedNamesDiffer(const std::vector<Entry>& entries, const std::string& path) {
  std::vector<std::string_view> names;
  names.reserve(entries.size());
  for (const Entry& entry : entries) names.push_back(entry.name);
  std::sort(names.begin(), names.end());
  const auto duplicate = std::adjacent_find(names.begin(), names.end());
  if (duplicate != names.end()) refuse("opc:zip:DuplicateName", path, *duplicate);
}

}  // namespace

void checkName(std::string_view name, const std::string& path) {
  if (name.empty()) refuse("opc:zip:EmptyName", path);
  if (name.find('\0') != std::string_view::npos)
    refuse("opc:zip:NameWithNul", path, name.substr(0, name.find('\0')));
  if (hasClimbingSegment(name)) refuse("opc:zip:NameClimbs", path, name);
}

void checkNamesDiffer(const std::vector<Entry>& entries, const std::string& path) {
  NameTable table(entries);
  for (std::uint32_t index = 0; index < entries.size(); ++index) {
    const NameTable::Added added = table.add(index);
    if (added == NameTable::Added::Duplicate) refuse("opc:zip:DuplicateName", path, entries[index].name);
    if (added == NameTable::Added::TooManyProbes) return checkSortedNamesDiffer(entries, path);
  }
}

}  // namespace opc::zip
