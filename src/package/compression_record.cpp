#include "package/compression_record.h"

#include "platform/errors/exceptions.h"
#include "platform/errors/installation.h"

namespace orra::tavloxio {

std::string compressionTypeOf(const std::string& record) {
  static CompressionTypeReader* read = nullptr;
  if (read == nullptr) {
    const auto found = fl::i18n::findInInstallation("tavlox_io_json", kCompressionTypeReader);
    if (found.address == nullptr) {
      foundation::core::except::raise("Corvan:ObjectSystem:CannotLoadModule", found.path, found.reason);
    }
    read = reinterpret_cast<CompressionTypeReader*>(found.address);
  }
  std::string type;
  read(record, type);
  return type;
}

}  // namespace orra::tavloxio
