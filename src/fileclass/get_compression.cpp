#include "fileclass/get_compression.h"

#include "package/compression.h"
#include "package/scoped_ref.h"

namespace orra::tavloxio {

void TavloxIOGetCompression::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                                    std::span<const zobs::Value> inputs) {
  std::u16string compression;
  {
    const file::ScopedRef ref(file::OpenMode::Read, textOf(inputs[0]));
    compression = readCompressionType(ref);
  }
  *producedOutputs = 1;
  outputs[0] = std::move(compression);
}

TavloxIOGetCompression* makeGetCompression() {
  return makeMethodInfo<TavloxIOGetCompression>("getCompression", {kTextType}, {kTextType});
}

}  // namespace orra::tavloxio
