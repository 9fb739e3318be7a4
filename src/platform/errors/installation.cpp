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

}  // namespace fl::i18n
