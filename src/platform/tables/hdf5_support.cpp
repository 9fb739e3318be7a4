#include "platform/tables/hdf5_support.h"

#include <dlfcn.h>

#include "platform/errors/exceptions.h"
#include "platform/errors/installation.h"

namespace tavlox::tables {

using foundation::core::except::raise;

Hdf5Writer::~Hdf5Writer() = default;

bool beginsAsHdf5(std::string_view bytes) {
  constexpr std::string_view kSignature = "\x89HDF\r\n\x1A\n";
  // The format allows it at the beginning and at each doubling from 512 on. Further ones are not looked for.
  for (const std::size_t offset : {0, 512, 1024, 2048})
    if (bytes.size() > offset && bytes.substr(offset).starts_with(kSignature)) return true;
  return false;
}

const Hdf5Support& hdf5Support(const std::u16string& file) {
  static const Hdf5Support* support = nullptr;
  if (support != nullptr) return *support;
  const std::string path = (fl::i18n::libraryFolder() / "tavlox" / "tavlox_hdf5.so").string();
  // Stays loaded: tables and errors that it made may live to the end of the process.
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const entry = library == nullptr ? nullptr : dlsym(library, kHdf5EntryPoint);
  if (entry == nullptr) {
    const char* const reason = dlerror();
    raise("tavlox:record:Hdf5NotSupported", file, reason != nullptr ? reason : "");
  }
  support = reinterpret_cast<const Hdf5Support* (*)()>(entry)();
  return *support;
}

}  // namespace tavlox::tables
