#include "fileclass/method_info.h"

#include "platform/zobs/class.h"

namespace orra::tavloxio {

ORRATavloxIOZOBSMethodInfo::ORRATavloxIOZOBSMethodInfo()
    : signature_(zobs::COSMethodSignature::createMethodSignature()) {}

void ORRATavloxIOZOBSMethodInfo::setName(std::string_view name) {
  name_ = zobs::internal::makeInterned(name);
}

MetadataCache& metadataCacheOf(const zobs::Value& object) {
  const auto pointer = std::get<zobs::COSInterfacePointer>(object);
  const zobs::Interned identifier = pointer->getClass().getIdentifier();
  return *static_cast<MetadataCache*>(pointer->getInstanceData(identifier));
}

const std::u16string& textOf(const zobs::Value& input) { return std::get<std::u16string>(input); }

}  // namespace orra::tavloxio
