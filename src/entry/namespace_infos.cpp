#include "entry/namespace_infos.h"

#include "fileclass/file_class_info.h"
#include "fileclass/get_compression.h"
#include "platform/zobs/access.h"

namespace orra::tavloxio {

void TAVLOXZOBSNamespaceInfo::populate(zobs::COSNamespace& holder) {
  holder.addInnerNamespace(new IOZOBSNamespaceInfo);
}

void IOZOBSNamespaceInfo::populate(zobs::COSNamespace& holder) { addClassAndFunction(holder); }

void addClassAndFunction(zobs::COSNamespace& io) {
  io.addClass(new TavloxIOFileClassInfo, zobs::kPublicAccess, zobs::kNoAccess);
  io.addFunction(makeGetCompression(), zobs::kPublicAccess, zobs::kNoAccess);
}

}  // namespace orra::tavloxio
