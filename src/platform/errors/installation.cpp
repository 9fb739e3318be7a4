#include "platform/errors/installation.h"

#include <dlfcn.h>

namespace fl::i18n {

std::filesystem::path libraryFolder() {
  Dl_info self{};
  if (dladdr(reinterpret_cast<const void*>(&libraryFolder), &self) == 0 || self.dli_fname == nullptr)
    return {};
  std::error_code ignored;
  return std::filesystem::weakly_canonical(self.dli_fname, ignored).parent_path();
}

Found findInInstallation(std::string_view library, const char* function) {
  Found found{nullptr, (libraryFolder() / "tavlox" / std::string(library).append(".so")).string(), {}};
  void* const loaded = dlopen(found.path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (loaded != nullptr) found.address = dlsym(loaded, function);
  if (found.address != nullptr) return found;
  // Once only: asking for the text also clears it.
  const char* const reason = dlerror();
  found.reason = reason != nullptr ? reason : "the loader gives no reason";
  return found;
}

}  // namespace fl::i18n
