#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zobs/infos.h"

/// Registered classes: their constructor, methods and properties as a module described them.
namespace zobs {

/// One registered property. Hosts can read it only: there is no setter. What the attribute words (0x800 and
/// 0x40 are in use) mean is agreed between module and host; the object system keeps them as given.
struct COSProperty {
  Interned name;
  Interned type;  ///< as in a method's signature: "unicodeString", "int32 scalar", "logical scalar"
  /// Given the instance data of one object of the class. Its errors pass through to the host.
  std::function<Value(void* instanceData)> getter;
  Access access;  ///< whether hosts may read it; nothing asks for `set`, since nobody may write it
  std::uint32_t attributes = 0;
  std::u16string description;
};

/// What a getter of the instance data may give. Any other type would be converted to one of these silently.
template <class T>
concept PropertyResult =
    std::same_as<T, const std::u16string*> || std::same_as<T, int> || std::same_as<T, bool>;

/// A null pointer to a text is the empty text.
inline Value toValue(const std::u16string* text) { return text != nullptr ? *text : std::u16string(); }
inline Value toValue(int number) { return corvan::HostArray::int32Scalar(number); }
inline Value toValue(bool logical) { return corvan::HostArray::logicalScalar(logical); }

/// One registered class. Its members are defined when they are first looked at; adding to it from outside
/// does not define them. Lives as long as the process, like the namespace that holds it.
class COSClass {
 public:
  /// For COSNamespace::addClass, which has checked the name.
  COSClass(std::unique_ptr<COSClassInfo> info, COSNamespace& holder, Access access);

  /// The dotted name, which also identifies the class's instance data in an object.
  Interned getIdentifier() const { return identifier_; }
  COSNamespace& getNamespace() const { return holder_; }
  COSClassInfo& info() const { return *info_; }
  /// Whether hosts may use the class, and whether they may replace it.
  Access getAccess() const { return access_; }

  /// Takes over the info, also when it raises. The method named like the class is its constructor. Raises
  /// Corvan:ObjectSystem:NameAlreadyDefined, as addProperty does, for a name that the class has already.
  void addMethod(COSMethodInfo* info);

  /// Registers a property that is read by calling `getter` on the instance data. `InstanceData` must be the
  /// very type whose pointer createInstanceData gave away as void*: the cast back is not checked.
  template <class InstanceData, PropertyResult Result>
  void addProperty(std::string_view name, std::string_view type, Result (InstanceData::*getter)(),
                   int getAccess, int setAccess, std::uint32_t attributes, std::u16string_view description) {
    const auto read = [getter](void* data) { return toValue((static_cast<InstanceData*>(data)->*getter)()); };
    addProperty({internal::makeInterned(name), internal::makeInterned(type), read,
                 Access{getAccess, setAccess}, attributes, std::u16string(description)});
  }

  /// In registration order. The constructor is not among the methods.
  const std::vector<std::unique_ptr<COSMethodInfo>>& methods() { return define(), methods_; }
  const std::vector<COSProperty>& properties() { return define(), properties_; }
  /// These give null if there is none. A method stays where it is; the pointer to a property holds until
  /// another property is added.
  COSMethodInfo* findMethod(std::string_view name);
  const COSProperty* findProperty(std::string_view name);
  COSMethodInfo* constructor() { return define(), constructor_.get(); }

 private:
  void addProperty(COSProperty property);
  // Runs the info's defineMembers, once; again at the next look if it raised.
  void define();
  void requireNewName(std::string_view name) const;

  std::unique_ptr<COSClassInfo> info_;
  COSNamespace& holder_;
  Interned identifier_;
  Access access_;
  bool isDefined_ = false;
  std::unique_ptr<COSMethodInfo> constructor_;
  std::vector<std::unique_ptr<COSMethodInfo>> methods_;
  std::vector<COSProperty> properties_;
};

}  // namespace zobs
