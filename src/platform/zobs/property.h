#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/zobs/access.h"
#include "platform/zobs/interned.h"
#include "platform/zobs/value.h"

namespace zobs {

/// Reads one property from instance data.
class PropertyAdaptor {
 public:
  virtual ~PropertyAdaptor();
  virtual Value get(void* instanceData) const = 0;
};

/// No text is the empty text.
inline Value toValue(const std::u16string* text) { return text != nullptr ? *text : std::u16string(); }
inline Value toValue(int number) { return corvan::HostArray::int32Scalar(number); }
inline Value toValue(bool logical) { return corvan::HostArray::logicalScalar(logical); }

/// What a getter may give; anything else would be converted silently.
template <class T>
concept PropertyResult =
    std::same_as<T, const std::u16string*> || std::same_as<T, int> || std::same_as<T, bool>;

/// Wraps a getter of the instance-data type. Results are a UTF-16 string pointer, int or bool.
template <class InstanceData, PropertyResult Result>
class GetterAdaptor final : public PropertyAdaptor {
 public:
  using Getter = Result (InstanceData::*)();
  explicit GetterAdaptor(Getter getter) : getter_(getter) {}
  Value get(void* instanceData) const override {
    return toValue((static_cast<InstanceData*>(instanceData)->*getter_)());
  }

 private:
  Getter getter_;
};

/// One registered property. It has a getter only: assigning is an error. Attributes are words between the
/// module and its hosts, kept as given: 0x800 and 0x40 are in use, and the object system reads no meaning
/// into either.
struct COSProperty {
  Interned name;
  Interned type;
  std::unique_ptr<PropertyAdaptor> getter;
  int getAccess = kPublicAccess;
  int setAccess = kNoAccess;
  std::uint32_t attributes = 0;
  std::u16string description;
};

}  // namespace zobs
