// A second module: what it gives has every form that a host value can take, and its class is one that the
// Python package has never heard of.

#include <functional>
#include <map>
#include <string>

#include "platform/zobs/namespace.h"

namespace {

using corvan::HostArray;
using corvan::NumericClass;
using zobs::Value;

Value matrix() {
  HostArray array = HostArray::numeric(NumericClass::UInt16, 2, 3);
  for (std::uint16_t i = 0; i < 6; ++i) array.mutableValues<std::uint16_t>()[i] = i;
  return array;
}

Value cells() {
  HostArray array = HostArray::cell(2, 2);
  array.setCell(1, HostArray::charRow(u"below"));
  array.setCell(2, HostArray::doubleScalar(0.5));
  return array;
}

Value structures(std::size_t count) {
  static constexpr std::u16string_view kFields[] = {u"Number", u"Text", u"Row"};
  HostArray array = HostArray::structure(1, count, kFields);
  for (std::size_t i = 0; i < count; ++i) {
    array.setField(i, 0, HostArray::doubleScalar(static_cast<double>(i) / 2));
    array.setField(i, 1, HostArray::charRow(i % 2 == 0 ? u"even" : u"odd"));
    array.setField(i, 2, HostArray::int32Row(std::vector<std::int32_t>(i, 7)));
  }
  return array;
}

const std::map<std::string, std::function<Value()>> kValues = {
    {"nothing", [] { return Value(); }},
    {"text", [] { return Value(std::u16string(u"\uFEFFa\0\xD800z\U0001F600", 7)); }},
    {"int", [] { return Value(HostArray::int32Scalar(-3)); }},
    {"float", [] { return Value(HostArray::doubleScalar(0.25)); }},
    {"bool", [] { return Value(HostArray::logicalScalar(true)); }},
    {"row",
     [] {
       return Value(HostArray::int32Row(std::vector<std::int32_t>{1, 2}));
     }},
    {"matrix", matrix},
    {"wide", [] { return Value(HostArray::numeric(NumericClass::Single, 0, 5)); }},
    {"cells", cells},
    {"record", [] { return structures(1); }},
    {"records", [] { return structures(4); }},
    {"no_records", [] { return structures(0); }},
};

/// One function of the namespace or method of the class: name, inputs, and what it does.
class Member : public zobs::COSMethodInfo {
 public:
  using Work = std::function<Value(std::span<const Value>)>;
  Member(std::string_view name, std::initializer_list<const char*> inputs, Work work)
      : name_(zobs::internal::makeInterned(name)), work_(std::move(work)) {
    for (const char* input : inputs) signature_.addInputType(zobs::internal::makeInterned(input));
    signature_.addOutputType(zobs::internal::makeInterned("any"));
  }
  const zobs::Interned* getName() const override { return &name_; }
  const zobs::COSMethodSignature& getSignature() const override { return signature_; }
  void invoke(zobs::COSClient&, int* produced, Value* outputs, int, std::span<const Value> inputs) override {
    Value value = work_(inputs);
    if (name_.text() == "Counter") return;  // the constructor's output is the object already
    outputs[0] = std::move(value);
    *produced = 1;
  }

 private:
  zobs::Interned name_;
  zobs::COSMethodSignature signature_;
  Work work_;
};

struct CounterClass : zobs::COSClassInfo {
  std::string getName() const override { return "Counter"; }
  std::u16string getDescription() const override { return u"Counts nothing."; }
  void defineMembers(zobs::COSClass& definedClass) override {
    definedClass.addMethod(new Member("Counter", {}, [](auto) { return Value(); }));
    definedClass.addMethod(new Member("itself", {"values.Counter"}, [](auto inputs) { return inputs[0]; }));
  }
  void* createInstanceData() override { return nullptr; }
  void destroyInstanceData(void*) override {}
};

struct ValuesNamespace : zobs::COSNamespaceInfo {
  std::string getName() const override { return "values"; }
  void populate(zobs::COSNamespace& holder) override {
    holder.addClass(new CounterClass, zobs::kPublicAccess, zobs::kNoAccess);
    for (const auto& [name, make] : kValues) {
      holder.addFunction(new Member(name, {}, [make = make](auto) { return make(); }), 0, 2);
    }
    holder.addFunction(new Member("echo", {"any"}, [](auto inputs) { return inputs[0]; }), 0, 2);
    holder.addFunction(new Member("fail", {}, [](auto) -> Value { throw 3; }), 0, 2);
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void CvInitialize_values() {
  if (zobs::COSNamespace::getNamespace("values") == nullptr) {
    zobs::COSNamespace::addNamespace(new ValuesNamespace);
  }
}
