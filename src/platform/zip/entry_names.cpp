#include "platform/zip/entry_names.h"

#include <algorithm>

#include "platform/errors/package_errors.h"
#include "platform/zip/place_table.h"

namespace zip {
using opc::refuse;

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
  const auto nameAt = [&](std::size_t place) { return entries[place].name; };
  PlaceTable table;
  table.reserve(entries.size());
  for (std::size_t place = 0; place < entries.size(); ++place) {
    if (!table.add(place, nameAt)) refuse("opc:zip:DuplicateName", path, entries[place].name);
    if (table.isCrowded()) return checkSortedNamesDiffer(entries, path);
  }
}

}  // namespace zip
