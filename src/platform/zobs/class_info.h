#pragma once

#include <string>

#include "platform/zobs/allocation.h"

namespace zobs {

class COSClass;

/// What a module says of one class.
class COSClassInfo : public HostAllocated {
 public:
  virtual ~COSClassInfo();
  virtual std::string getName() const = 0;
  virtual std::u16string getDescription() const;
  virtual std::u16string getDetailedDescription() const;
  virtual int getAccess() const;
  /// Adds the constructor, methods and properties; run once, when the class is first needed. If it raises,
  /// what it added is removed again, and the next look runs it anew.
  virtual void defineMembers(COSClass& definedClass) = 0;
  /// One per object, owned by it. Not called when the class has no instance data.
  virtual void* createInstanceData() = 0;
  /// Run once per created instance data, also when the object's constructor raised. Errors it raises are
  /// dropped: the last reference to an object may go anywhere.
  virtual void destroyInstanceData(void* data) = 0;
  /// Whether a host may offer to end an object before its last reference goes; true unless said otherwise.
  virtual bool isOkToDestroy() const;
  /// Whether objects of the class keep instance data of their own; false unless said otherwise.
  virtual bool hasInstanceData() const;
  /// Whether classes may be defined inside this one; false unless said otherwise.
  virtual bool canThisClassContainOtherClass() const;
  /// Whether no other class may be derived from this one; false unless said otherwise.
  virtual bool isSealed() const;
};

}  // namespace zobs
