#include "platform/tables/hdf5_support.h"

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
  const auto found = fl::i18n::findInInstallation("tavlox_hdf5", kHdf5EntryPoint);
  if (found.address == nullptr) raise("tavlox:record:Hdf5NotSupported", file, found.reason);
  support = reinterpret_cast<const Hdf5Support* (*)()>(found.address)();
  return *support;
}

}  // namespace tavlox::tables
