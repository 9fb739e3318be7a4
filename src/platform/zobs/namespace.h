#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zobs/class.h"

/// The registry: the tree of namespaces in which hosts find classes and functions by their dotted names.
namespace zobs {

/// One registered function of a namespace.
struct COSFunction {
  std::unique_ptr<COSMethodInfo> info;
  Access access;  ///< whether hosts may call it, and whether they may replace it
};

/// One registered namespace. Looking into it (a member, an inner namespace, a listing) populates it first,
/// once; adding to it does not. Inner namespaces, classes and functions share one set of names.
///
/// Registered namespaces live as long as the process: objects may outlive whatever created them.
class COSNamespace {
 public:
  /// The namespace of a dotted name, or null. Populates every namespace that holds the one found, not that
  /// one.
  static COSNamespace* getNamespace(Interned dottedName) { return getNamespace(dottedName.text()); }
  static COSNamespace* getNamespace(std::string_view dottedName);
  /// Registers a top-level namespace. Like the further operations that add something, it takes over the info,
  /// also when it raises. For a name that exists already it raises what the info of the namespace that has it
  /// says, else Corvan:ObjectSystem:NameAlreadyDefined.
  static void addNamespace(COSNamespaceInfo* info);

  /// The top-level namespaces, in the order in which modules registered them.
  static const std::vector<std::unique_ptr<COSNamespace>>& namespaces() { return registry(); }

  virtual ~COSNamespace();
  Interned getName() const { return name_; }  ///< dotted
  COSNamespaceInfo& info() const { return *info_; }

  /// The access codes say whether hosts may use the member, and whether they may replace it.
  virtual void addInnerNamespace(COSNamespaceInfo* info);
  virtual void addClass(COSClassInfo* info, int getAccess, int setAccess);
  virtual void addFunction(COSMethodInfo* info, int getAccess, int setAccess);

  /// In registration order.
  const std::vector<std::unique_ptr<COSNamespace>>& innerNamespaces() { return populate(), inner_; }
  const std::vector<std::unique_ptr<COSClass>>& classes() { return populate(), classes_; }
  const std::vector<std::unique_ptr<COSFunction>>& functions() { return populate(), functions_; }
  /// The member of that name (not dotted), or null. A member that is missing is first asked of the info's
  /// attemptToLoad… operation, whose errors pass through.
  COSNamespace* findInnerNamespace(std::string_view name);
  COSClass* findClass(std::string_view name);
  COSFunction* findFunction(std::string_view name);

 private:
  COSNamespace(std::unique_ptr<COSNamespaceInfo> info, const COSNamespace* holder);
  static std::vector<std::unique_ptr<COSNamespace>>& registry();
  void populate();
  void requireNewName(std::string_view name) const;
  template <class Find, class Load>
  auto findOrLoad(Find find, Load load);

  std::unique_ptr<COSNamespaceInfo> info_;
  Interned name_;
  bool isPopulated_ = false;
  bool isLoading_ = false;  // an attemptToLoad… operation of the info runs
  std::vector<std::unique_ptr<COSNamespace>> inner_;
  std::vector<std::unique_ptr<COSClass>> classes_;
  std::vector<std::unique_ptr<COSFunction>> functions_;
};

}  // namespace zobs
