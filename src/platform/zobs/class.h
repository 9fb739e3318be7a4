#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/zobs/class_info.h"
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

  /// Takes over the info. The method named like the class is its constructor.
  void addMethod(COSMethodInfo* info);

  template <class InstanceData, class Result>
  void addProperty(std::string_view name, std::string_view type, Result (InstanceData::*getter)(), int getAccess,
                   int setAccess, std::uint32_t attributes, std::u16string_view description) {
    addProperty(COSProperty{internal::makeInterned(name), internal::makeInterned(type),
                            std::make_unique<GetterAdaptor<InstanceData, Result>>(getter), getAccess, setAccess,
                            attributes, std::u16string(description)});
  }

  /// In registration order. The constructor is not among the methods.
  const std::vector<Registered<COSMethodInfo>>& methods();
  const std::vector<COSProperty>& properties();
  /// Null if there is none of that name.
  COSMethodInfo* findMethod(std::string_view name);
  const COSProperty* findProperty(std::string_view name);
  COSMethodInfo* constructor();

 private:
  void addProperty(COSProperty property);
  void define();
  // The implementer's own.
  Registered<COSClassInfo> info_;
  COSNamespace& holder_;
  Interned identifier_;
};

}  // namespace zobs
