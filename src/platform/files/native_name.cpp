#include "platform/files/native_name.h"

#include "platform/files/error.h"
#include "platform/text/conversion.h"

namespace fl::filesystem {

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

}  // namespace fl::filesystem
