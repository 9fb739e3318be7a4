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
  /// The attemptTo… operations may register a missing member on demand and answer whether they did; they do
  /// not unless overridden. They are asked when a member is looked for and not found, and not while one of
  /// them runs.
  virtual bool attemptToLoadInnerNamespace(COSNamespace& holder, std::string_view name);
  /// Raises the error for a second definition of a name: Corvan:ObjectSystem:NameAlreadyDefined unless
  /// overridden. An override that returns leaves the raising to the host.
  virtual void throwErrorForDefinitionOfExistingName(std::string_view name) const;
  virtual bool attemptToLoadClass(COSNamespace& holder, std::string_view name);
  virtual bool attemptToLoadFunction(COSNamespace& holder, std::string_view name);
  /// Asked for a class that attemptToLoadClass does not know.
  virtual bool attemptToLoadType(COSNamespace& holder, std::string_view name);
  /// The name of the method that answers for members of this namespace; none unless overridden.
  virtual std::string getMethodSelector() const;
  /// Registers the namespace's members; run once, when the namespace is first looked into. If it raises, what
  /// it registered is removed again, and the next look runs it anew.
  virtual void populate(COSNamespace& holder) = 0;
  /// The last three tell hosts whether the namespace may be removed, may not be added to by others, and may
  /// have members that a listing does not show. All false unless overridden; the object system itself acts on
  /// none.
  virtual bool isDestructible() const;
  virtual bool isLocked() const;
  virtual bool canLoadDynamicContent() const;
};

}  // namespace zobs
