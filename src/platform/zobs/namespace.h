#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/zobs/class.h"
#include "platform/zobs/interned.h"
#include "platform/zobs/namespace_info.h"

namespace zobs {

/// One registered namespace. Looking into it (a member, an inner namespace, a listing) populates it first,
/// once; adding to it does not. Inner namespaces, classes and functions share one set of names.
///
/// Registered namespaces live as long as the process: objects may outlive whatever created them.
class COSNamespace {
 public:
  /// The namespace of a dotted name, or null. Looks into every namespace on the way, not into the one found.
  static COSNamespace* getNamespace(Interned dottedName);
  static COSNamespace* getNamespace(std::string_view dottedName);
  /// Registers a top-level namespace and takes over its info, also when it raises. A name that exists raises
  /// what the info of the namespace that has it says: Corvan:ObjectSystem:NameAlreadyDefined.
  static void addNamespace(COSNamespaceInfo* info);
  static const std::vector<std::unique_ptr<COSNamespace>>& topLevelNamespaces();

  virtual ~COSNamespace();
  Interned getName() const { return name_; }  ///< dotted
  COSNamespaceInfo& info() const { return *info_; }

  /// These take over the info, also when they raise. A name that exists raises what this namespace's info
  /// says. The access codes say whether hosts may use the member, and whether they may replace it.
  virtual void addInnerNamespace(COSNamespaceInfo* info);
  virtual void addClass(COSClassInfo* info, int getAccess, int setAccess);
  virtual void addFunction(COSMethodInfo* info, int getAccess, int setAccess);

  const std::vector<std::unique_ptr<COSNamespace>>& innerNamespaces();
  const std::vector<std::unique_ptr<COSClass>>& classes();
  const std::vector<Registered<COSMethodInfo>>& functions();
  /// The member of that name, or null. What is not there is first asked of the info's attemptToLoad…
  /// operation.
  COSNamespace* findInnerNamespace(std::string_view name);
  COSClass* findClass(std::string_view name);
  COSMethodInfo* findFunction(std::string_view name);
  /// The access codes that one of the functions was added with.
  Access accessOf(const COSMethodInfo& function) const;

 private:
  COSNamespace(Registered<COSNamespaceInfo> info, const COSNamespace* holder);
  static std::vector<std::unique_ptr<COSNamespace>>& registry();
  std::string dottedNameOf(std::string_view member) const;
  void populate();
  void removeMembersFrom(std::size_t innerCount, std::size_t classCount, std::size_t functionCount);
  void requireNewName(std::string_view name) const;
  template <class Find, class Load>
  auto findOrLoad(Find find, Load load);

  Registered<COSNamespaceInfo> info_;
  Interned name_;
  FirstUse firstUse_;
  bool isLoading_ = false;
  std::vector<std::unique_ptr<COSNamespace>> inner_;
  std::vector<std::unique_ptr<COSClass>> classes_;
  std::vector<Registered<COSMethodInfo>> functions_;
  std::vector<Access> functionAccess_;
};

}  // namespace zobs
