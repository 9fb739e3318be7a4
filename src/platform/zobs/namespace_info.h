#pragma once

#include <string>
#include <string_view>

#include "platform/zobs/allocation.h"

namespace zobs {

class COSNamespace;

/// What a module says of one namespace.
class COSNamespaceInfo : public HostAllocated {
 public:
  virtual ~COSNamespaceInfo();
  virtual std::string getName() const = 0;
  virtual std::u16string getDescription() const;
  virtual std::u16string getDetailedDescription() const;
  /// The four below may register a missing member on demand and answer whether they did; they do not unless overridden.
  virtual bool attemptToLoadInnerNamespace(COSNamespace& holder, std::string_view name);
  virtual void throwErrorForDefinitionOfExistingName(std::string_view name) const;
  virtual bool attemptToLoadClass(COSNamespace& holder, std::string_view name);
  virtual bool attemptToLoadFunction(COSNamespace& holder, std::string_view name);
  virtual bool attemptToLoadType(COSNamespace& holder, std::string_view name);
  /// The name of the method that answers for members of this namespace; none unless overridden.
  virtual std::string getMethodSelector() const;
  /// Registers the namespace's members; run once, when the namespace is first looked into.
  virtual void populate(COSNamespace& holder) = 0;
  virtual bool isDestructible() const;
  virtual bool isLocked() const;
  virtual bool canLoadDynamicContent() const;
};

}  // namespace zobs
