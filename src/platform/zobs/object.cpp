#include "platform/zobs/object.h"

#include <utility>

#include "platform/zobs/class.h"

namespace zobs {

COSObject::COSObject(COSClass& objectClass) : class_(objectClass) {
  if (class_.info().hasInstanceData()) instanceData_ = class_.info().createInstanceData();
}

COSObject::~COSObject() {
  if (instanceData_ == nullptr) return;
  try {
    class_.info().destroyInstanceData(instanceData_);
  } catch (...) {
    // The last reference may go while another error is in flight, and there is nobody left to act on this
    // one.
  }
}

void* COSObject::getInstanceData(Interned classIdentifier) const {
  return classIdentifier == class_.getIdentifier() ? instanceData_ : nullptr;
}

COSInterfacePointer COSInterfacePointer::create(COSClass& objectClass) {
  COSInterfacePointer created;
  created.object_ = new COSObject(objectClass);
  created.object_->references_ = 1;
  return created;
}

COSInterfacePointer::COSInterfacePointer(const COSInterfacePointer& other) : object_(other.object_) {
  if (object_ != nullptr) ++object_->references_;
}

COSInterfacePointer::COSInterfacePointer(COSInterfacePointer&& other) noexcept
    : object_(std::exchange(other.object_, nullptr)) {}

COSInterfacePointer& COSInterfacePointer::operator=(COSInterfacePointer other) noexcept {
  std::swap(object_, other.object_);
  return *this;
}

COSInterfacePointer::~COSInterfacePointer() {
  if (object_ != nullptr && --object_->references_ == 0) delete object_;
}

}  // namespace zobs
