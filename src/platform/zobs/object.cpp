#include "platform/zobs/object.h"

#include <set>

#include "platform/zobs/class.h"

namespace zobs {

const std::string& Interned::text() const {
  static const std::string none;
  return text_ != nullptr ? *text_ : none;
}

Interned internal::makeInterned(std::string_view narrow) {
  // Never freed: objects in static variables of a host use their names to the end. Elements of a set do not
  // move.
  static auto& names = *new std::set<std::string, std::less<>>;
  return Interned(&*names.emplace(narrow).first);
}

COSObject::COSObject(COSClass& objectClass) : class_(objectClass) {
  // If this raises there is no object, and the destructor, which would destroy the data, does not run.
  if (class_.info().hasInstanceData()) instanceData_ = class_.info().createInstanceData();
}

COSObject::~COSObject() {
  if (instanceData_ == nullptr) return;
  try {
    class_.info().destroyInstanceData(instanceData_);
  } catch (...) {
    // The last reference may go while another error is in flight, and nobody is left to act on this one.
  }
}

void* COSObject::getInstanceData(Interned classIdentifier) const {
  return classIdentifier == class_.getIdentifier() ? instanceData_ : nullptr;
}

}  // namespace zobs
