#include "fileclass/methods.h"

#include "package/scoped_ref.h"
#include "platform/zobs/class.h"
#include "platform/zobs/namespace.h"

namespace orra::tavloxio {

using file::OpenMode;
using file::ScopedRef;

void TavloxIOFileConstructor::attach(zobs::COSClass& holder) {
  const std::string ownType = holder.getNamespace().getName().text() + ".File";
  signature().addOutputType(zobs::internal::makeInterned(ownType));
}

void TavloxIOFileConstructor::invoke(zobs::COSClient&, int*, zobs::Value* outputs, int,
                                     std::span<const zobs::Value> inputs) {
  metadataCacheOf(outputs[0]).setFilename(textOf(inputs[0]));
}

void TavloxIOFileSetFileDescription::invoke(zobs::COSClient&, int*, zobs::Value*, int,
                                            std::span<const zobs::Value> inputs) {
  const ScopedRef ref(OpenMode::Modify, *metadataCacheOf(inputs[0]).getFilename());
  ref.file().setDescription(textOf(inputs[1]));
}

}  // namespace orra::tavloxio
