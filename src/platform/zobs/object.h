#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "platform/arrays/host_array.h"

/// What passes between hosts and modules: names, objects and values.
namespace zobs {

class COSClass;
class Interned;

namespace internal {
/// Gives the one interned name of this text: a member's name, or the dotted name of a namespace or class.
Interned makeInterned(std::string_view narrow);
}  // namespace internal

/// A name that the object system keeps once, for the life of the process. Equal names are the same pointer.
class Interned {
 public:
  Interned() = default;
  /// Empty as long as nothing was interned.
  const std::string& text() const;
  explicit operator bool() const { return text_ != nullptr; }
  bool operator==(const Interned&) const = default;

 private:
  friend Interned internal::makeInterned(std::string_view narrow);
  explicit Interned(const std::string* text) : text_(text) {}
  const std::string* text_ = nullptr;
};

/// One host object: its class, and the instance data that the class's module created for it. The instance
/// data is destroyed, through the class info, with the last reference to the object.
class COSObject {
 public:
  /// Creates the instance data. The class's constructor is run by `construct`, not here.
  explicit COSObject(COSClass& objectClass);
  ~COSObject();
  COSObject(const COSObject&) = delete;
  COSObject& operator=(const COSObject&) = delete;

  COSClass& getClass() const { return class_; }
  /// The instance data registered under a class's identifier; null if the object is of another class.
  void* getInstanceData(Interned classIdentifier) const;

 private:
  COSClass& class_;
  void* instanceData_ = nullptr;
};

/// A counted reference to a host object.
using COSInterfacePointer = std::shared_ptr<COSObject>;

/// What goes in and out of methods: nothing, an object, a UTF-16 text ("unicodeString"), or any host value.
using Value = std::variant<std::monostate, COSInterfacePointer, std::u16string, corvan::HostArray>;

}  // namespace zobs
