#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/zobs/class.h"
#include "platform/zobs/interned.h"
#include "platform/zobs/namespace_info.h"

namespace zobs {

/// One registered namespace. Looking into it (a member, an inner namespace, a listing) populates it first, once.
class COSNamespace {
 public:
  /// The namespace of a dotted name, or null. Looks into every namespace on the way, not into the one found.
  static COSNamespace* getNamespace(Interned dottedName);
  /// Registers a top-level namespace and takes over its info. Raises Corvan:ObjectSystem:NameAlreadyDefined.
  static void addNamespace(COSNamespaceInfo* info);
  static const std::vector<std::unique_ptr<COSNamespace>>& topLevelNamespaces();

  virtual ~COSNamespace();
  Interned getName() const { return name_; }  ///< dotted
  COSNamespaceInfo& info() const { return *info_; }

  virtual void addInnerNamespace(COSNamespaceInfo* info);
  virtual void addClass(COSClassInfo* info, int getAccess, int setAccess);
  virtual void addFunction(COSMethodInfo* info, int getAccess, int setAccess);

  const std::vector<std::unique_ptr<COSNamespace>>& innerNamespaces();
  const std::vector<std::unique_ptr<COSClass>>& classes();
  const std::vector<Registered<COSMethodInfo>>& functions();
  COSClass* findClass(std::string_view name);
  COSMethodInfo* findFunction(std::string_view name);

 private:
  // The implementer's own.
  Registered<COSNamespaceInfo> info_;
  Interned name_;
};

}  // namespace zobs
