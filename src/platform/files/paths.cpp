#include "platform/files/paths.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

#include <pwd.h>
#include <unistd.h>

#include "platform/text/conversion.h"

namespace fl::filesystem {
namespace {

constexpr char16_t kSeparator = u'/';

std::optional<std::u16string> homeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return fromNativeName(home);
  // Services and cron jobs often run without HOME; the user database knows the folder then.
  // Room for the texts of one user; with longer ones there is no home folder.
  std::array<char, 4096> texts;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
    return std::nullopt;
  return fromNativeName(found->pw_dir);
}

}  // namespace

Error::~Error() = default;

bool isPossibleName(const std::u16string& path) noexcept {
  return path.find(u'\0') == std::u16string::npos && i18n::is_well_formed(path);
}

std::string toNativeName(const std::u16string& path) {
  if (!isPossibleName(path)) raise("fl:filesystem:ImpossibleName", i18n::to_string_lossy(path));
  return i18n::to_string(path);
}

std::u16string fromNativeName(std::string_view native) {
  if (!i18n::is_well_formed(native)) raise("fl:filesystem:PathNotUtf8", native);
  return i18n::to_ustring(native);
}

std::u16string make_native_form(const std::u16string& path) { return path; }
std::u16string make_generic_form(const std::u16string& path) { return path; }

std::u16string expand(const std::u16string& path) {
  const bool namesHome = path == u"~" || path.starts_with(u"~/");
  if (!namesHome) return path;
  const auto home = homeFolder();
  if (!home) return path;
  return path.size() == 1 ? *home : concatenate(*home, path.substr(2));
}

bool is_absolute_path_when_expanded(const std::u16string& path) {
  return expand(path).starts_with(kSeparator);
}

std::u16string extract_filename(const std::u16string& path) {
  return path.substr(path.rfind(kSeparator) + 1);  // npos + 1 is 0: the whole text
}

std::u16string extract_extension(const std::u16string& path) {
  const std::u16string name = extract_filename(path);
  const std::size_t dot = name.rfind(u'.');
  // A dot in front hides a file; it does not begin an extension.
  if (dot == std::u16string::npos || dot == 0 || name == u"..") return {};
  return name.substr(dot + 1);
}

std::u16string extract_parent_path(const std::u16string& path) {
  const std::size_t separator = path.rfind(kSeparator);
  if (separator == std::u16string::npos) return {};
  // Several separators in a row count as one. Only at the very front are they the root.
  const std::size_t last = path.find_last_not_of(kSeparator, separator);
  if (last == std::u16string::npos) return {kSeparator};
  return path.substr(0, last + 1);
}

std::u16string concatenate(const std::u16string& folder, const std::u16string& name) {
  if (folder.empty()) return name;
  if (name.empty()) return folder;
  const std::size_t folderEnd = folder.find_last_not_of(kSeparator) + 1;  // 0 for a folder of separators only
  const std::size_t nameStart = std::min(name.find_first_not_of(kSeparator), name.size());
  std::u16string joined;
  joined.reserve(folderEnd + 1 + name.size() - nameStart);
  joined.append(folder, 0, folderEnd).append(1, kSeparator).append(name, nameStart);
  return joined;  // what append gives would be copied
}

}  // namespace fl::filesystem
