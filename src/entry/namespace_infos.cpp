#include "entry/namespace_infos.h"

#include "fileclass/file_class_info.h"
#include "fileclass/get_compression.h"

namespace orra::tavloxio {

void TAVLOXZOBSNamespaceInfo::populate(zobs::COSNamespace& holder) {
  holder.addInnerNamespace(new IOZOBSNamespaceInfo);
}

void IOZOBSNamespaceInfo::populate(zobs::COSNamespace& holder) { addClassAndFunction(holder); }

void addClassAndFunction(zobs::COSNamespace& io) {
  io.addClass(new TavloxIOFileClassInfo, 0, 2);
  io.addFunction(makeGetCompression(), 0, 2);
}

}  // namespace orra::tavloxio
