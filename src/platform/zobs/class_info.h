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
  /// Adds the constructor, methods and properties; run once, when the class is first needed.
  virtual void defineMembers(COSClass& definedClass) = 0;
  /// One per object, owned by it.
  virtual void* createInstanceData() = 0;
  virtual void destroyInstanceData(void* data) = 0;
  virtual bool isOkToDestroy() const;
  /// Whether objects of the class keep instance data of their own; false unless said otherwise.
  virtual bool hasInstanceData() const;
  virtual bool canThisClassContainOtherClass() const;
  /// Whether no other class may be derived from this one; false unless said otherwise.
  virtual bool isSealed() const;
};

}  // namespace zobs
