#pragma once

#include "platform/zobs/interned.h"

namespace zobs {

class COSClass;

/// One host object: its class and the instance data that the class's module created for it. Reference
/// counted, on the host thread; the instance data is destroyed, through the class info, with the last
/// reference.
class COSObject {
 public:
  COSClass& getClass() const { return class_; }
  /// The instance data registered under a class's identifier; null for an object of another class.
  void* getInstanceData(Interned classIdentifier) const;

 private:
  friend class COSInterfacePointer;
  explicit COSObject(COSClass& objectClass);
  ~COSObject();
  COSClass& class_;
  void* instanceData_ = nullptr;
  long references_ = 0;
};

/// A counted reference to a host object.
class COSInterfacePointer {
 public:
  COSInterfacePointer() = default;
  /// A new object of the class, with instance data of its own. Its constructor has not run.
  static COSInterfacePointer create(COSClass& objectClass);

  COSInterfacePointer(const COSInterfacePointer& other);
  COSInterfacePointer(COSInterfacePointer&& other) noexcept;
  COSInterfacePointer& operator=(COSInterfacePointer other) noexcept;
  ~COSInterfacePointer();

  COSObject* operator->() const { return object_; }
  COSObject& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  COSObject* object_ = nullptr;
};

}  // namespace zobs
