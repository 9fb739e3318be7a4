#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "platform/zobs/interned.h"
#include "platform/zobs/value.h"

namespace zobs {

/// Reads one property from instance data.
class PropertyAdaptor {
 public:
  virtual ~PropertyAdaptor();
  virtual Value get(void* instanceData) const = 0;
};

inline Value toValue(const std::u16string* text) { return *text; }
inline Value toValue(int number) { return corvan::HostArray::int32Scalar(number); }
inline Value toValue(bool logical) { return corvan::HostArray::logicalScalar(logical); }

/// Wraps a getter of the instance-data type. Results are a UTF-16 string pointer, int or bool.
template <class InstanceData, class Result>
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

/// One registered property. It has a getter only: assigning is an error.
struct COSProperty {
  Interned name;
  Interned type;
  std::unique_ptr<PropertyAdaptor> getter;
  int getAccess = 0;
  int setAccess = 0;
  std::uint32_t attributes = 0;
  std::u16string description;
};

}  // namespace zobs
