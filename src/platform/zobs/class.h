#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/zobs/access.h"
#include "platform/zobs/class_info.h"
#include "platform/zobs/first_use.h"
#include "platform/zobs/method_info.h"
#include "platform/zobs/property.h"

namespace zobs {

class COSNamespace;

struct HostFree {
  template <class Info>
  void operator()(Info* info) const {
    delete info;
  }
};
template <class Info>
using Registered = std::unique_ptr<Info, HostFree>;

/// One registered class. Its members are defined when they are first asked for.
class COSClass {
 public:
  COSClass(Registered<COSClassInfo> info, COSNamespace& holder, int getAccess, int setAccess);
  ~COSClass();

  /// The dotted name, which also identifies the class's instance data in an object.
  Interned getIdentifier() const { return identifier_; }
  COSNamespace& getNamespace() const { return holder_; }
  COSClassInfo& info() const { return *info_; }
  /// Whether hosts may use the class, and whether they may replace it.
  Access getAccess() const { return access_; }

  /// Takes over the info, also when it raises. The method named like the class is its constructor.
  void addMethod(COSMethodInfo* info);

  /// Raises Corvan:ObjectSystem:NameAlreadyDefined, as addMethod does, for a name the class has already.
  template <class InstanceData, PropertyResult Result>
  void addProperty(std::string_view name, std::string_view type, Result (InstanceData::*getter)(),
                   int getAccess, int setAccess, std::uint32_t attributes, std::u16string_view description) {
    addProperty(COSProperty{internal::makeInterned(name), internal::makeInterned(type),
                            std::make_unique<GetterAdaptor<InstanceData, Result>>(getter), getAccess,
                            setAccess, attributes, std::u16string(description)});
  }

  /// In registration order. The constructor is not among the methods.
  const std::vector<Registered<COSMethodInfo>>& methods();
  const std::vector<COSProperty>& properties();
  /// Null if there is none of that name.
  COSMethodInfo* findMethod(std::string_view name);
  const COSProperty* findProperty(std::string_view name);
  /// Null if the class has none.
  COSMethodInfo* constructor();

 private:
  void addProperty(COSProperty property);
  void define();
  void removeMembersFrom(std::size_t methodCount, std::size_t propertyCount, bool hadConstructor);
  void requireNewName(std::string_view name) const;

  Registered<COSClassInfo> info_;
  COSNamespace& holder_;
  Interned identifier_;
  Access access_;
  FirstUse firstUse_;
  Registered<COSMethodInfo> constructor_;
  std::vector<Registered<COSMethodInfo>> methods_;
  std::vector<COSProperty> properties_;
};

}  // namespace zobs
