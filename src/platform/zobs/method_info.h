#pragma once

#include <span>
#include <string>

#include "platform/zobs/allocation.h"
#include "platform/zobs/interned.h"
#include "platform/zobs/method_signature.h"
#include "platform/zobs/value.h"

namespace zobs {

class COSClass;

/// Who calls: hosts give their name, so that a method may know on whose behalf it runs.
class COSClient {
 public:
  explicit COSClient(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

/// One method or function. Modules derive a class for each and give it its invoke operation.
class COSMethodInfo : public HostAllocated {
 public:
  virtual ~COSMethodInfo();
  /// Null while no name was set.
  virtual const Interned* getName() const = 0;
  virtual std::u16string getDescription() const;
  /// The queries tell hosts about the method; the object system acts on getMemberAccess alone. All are false,
  /// and the access codes public, unless overridden, except isFirstArgDispatch.
  virtual bool isLookupScope() const;
  virtual std::u16string getDetailedDescription() const;
  virtual int getMemberAccess() const;
  virtual int getExtendedAccess() const;
  virtual bool isFirstArgDispatch() const;
  virtual bool isStatic() const;
  virtual bool isAbstract() const;
  virtual bool isSealed() const;
  virtual bool isDestructible() const;
  virtual bool isLocked() const;
  virtual bool isExplicit() const;
  virtual bool doesMethodOverrideAllSignatures() const;

  /// Run once when the method is added to its class: signatures that name the class itself are built here.
  virtual void attach(COSClass& holder);
  virtual const COSMethodSignature& getSignature() const = 0;

  /// Does the method's work. Inputs were checked against the signature and converted: "unicodeString" arrives
  /// as text, a class name as an object, "any" as a host value. For a constructor the first output already
  /// holds the new object. `producedOutputs` is zero before the call; outputs beyond it are ignored.
  virtual void invoke(COSClient& client, int* producedOutputs, Value* outputs, int requestedOutputs,
                      std::span<const Value> inputs) = 0;
};

}  // namespace zobs
