#include "platform/zobs/dispatch.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "registered_infos.h"
#include "tests/support/raised.h"

using corvan::HostArray;
using support::raisedBy;
using zobs::COSClass;
using zobs::COSInterfacePointer;
using zobs::COSNamespace;
using zobs::Value;

namespace {

/// The instance data of the class "depot.io.Store".
struct Store {
  const std::u16string* getName() { return &name; }
  const std::u16string* noText() { return nullptr; }
  int count() { return -3; }
  bool isOpen() { return true; }
  std::u16string name;
};

/// The namespace "depot.io" with its classes and functions, and what they saw. CTest gives each case a
/// process of its own, so that each registers them anew.
class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    infos::registered("depot", [&](COSNamespace& depot) {
      depot.addInnerNamespace(new infos::Namespace("io", [&](COSNamespace& io) { populate(io); }));
    });
  }

  COSInterfacePointer make(std::u16string name = u"s") {
    return zobs::construct(client, zobs::findClass("depot.io.Store"), {std::move(name)});
  }
  std::vector<Value> call(std::string_view method, std::vector<Value> further, int outputs = 1) {
    return zobs::callMethod(client, make(), method, std::move(further), outputs);
  }

  zobs::COSClient client{"dispatch_test"};
  int created = 0, destroyed = 0;
  std::vector<Value> received;

 private:
  void populate(COSNamespace& io) {
    auto* const store = new infos::Class("Store", [&](COSClass& defined) { define(defined); });
    store->create = [&] { return ++created, new Store; };
    store->destroy = [&](void* data) { ++destroyed, delete static_cast<Store*>(data); };
    io.addClass(store, 0, 2);
    io.addClass(new infos::Class("Plain"), 0, 2);
    io.addClass(new infos::Class("Hidden"), 2, 2);
    const auto twice = [](auto inputs, Value* outputs) { return outputs[0] = outputs[1] = inputs[0], 2; };
    io.addFunction(new infos::Method("twice", {"any"}, {"any", "any"}, twice), 0, 2);
    io.addFunction(new infos::Method("secret"), 2, 2);
  }

  void define(COSClass& store) {
    const std::string self = store.getIdentifier().text();
    const auto add = [&](const char* name, infos::Method::Types inputs) {
      inputs.insert(inputs.begin(), self);
      auto* const method = new infos::Method(name, inputs, {}, [this](auto given, Value*) {
        received.assign(given.begin(), given.end());
        return 0;
      });
      store.addMethod(method);
      return method;
    };
    add("nothing", {});
    add("text", {"unicodeString"});
    add("value", {"any"});
    add("number", {"int32 scalar"});
    add("flag", {"logical scalar"});
    add("other", {self});
    add("options", {"unicodeString", "any", "any"})->signature.setOptionalInputCount(2);
    add("hidden", {})->access = 2;
    const auto construct = [](auto inputs, Value* outputs) {
      const auto& object = std::get<COSInterfacePointer>(outputs[0]);
      void* const data = object->getInstanceData(object->getClass().getIdentifier());
      static_cast<Store*>(data)->name = std::get<std::u16string>(inputs[0]);
      if (static_cast<Store*>(data)->name == u"bad") throw std::runtime_error("bad name");
      return 0;
    };
    store.addMethod(new infos::Method("Store", {"unicodeString"}, {self}, construct));
    store.addProperty("Name", "unicodeString", &Store::getName, 0, 2, 0x800, u"");
    store.addProperty("NoText", "unicodeString", &Store::noText, 0, 2, 0x800, u"");
    store.addProperty("Count", "int32 scalar", &Store::count, 0, 2, 0x40, u"");
    store.addProperty("IsOpen", "logical scalar", &Store::isOpen, 0, 2, 0x40, u"");
    store.addProperty("Secret", "logical scalar", &Store::isOpen, 2, 2, 0x40, u"");
  }
};

/// A value as text: "text", char text, int32 7, logical 1, object.
std::string shown(const Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) return fl::i18n::to_string(*text);
  if (const auto* array = std::get_if<HostArray>(&value)) {
    const std::string name(array->className());
    if (array->kind() == corvan::ArrayKind::Char) return name + " " + fl::i18n::to_string(array->text());
    return name + " " + std::to_string(static_cast<int>(array->scalarAsDouble()));
  }
  return "object";
}

TEST_F(Dispatch, InputsReachTheMethodAsItsSignatureSaysOrNotAtAll) {
  const Value plain = zobs::construct(client, zobs::findClass("depot.io.Plain"), {}), nothing;
  const Value text = u"t", row = HostArray::charRow(u"r"), half = HostArray::doubleScalar(0.5);
  const auto number = [](double value) -> Value { return HostArray::doubleScalar(value); };
  const Value two = HostArray::numeric(corvan::NumericClass::Double, 1, 2);
  struct Case {
    std::string_view method;
    std::vector<Value> further;
    std::string received;  // or the error
  };
  const std::string options = "WrongInputCount(options(depot.io.Store, unicodeString[, any[, any]]), ";
  const std::string other = "WrongInputType(other(depot.io.Store, depot.io.Store), 2, depot.io.Store, ";
  const std::string integer = "WrongInputType(number(depot.io.Store, int32 scalar), 2, int32 scalar, ";
  const std::string flag = "WrongInputType(flag(depot.io.Store, logical scalar), 2, logical scalar, ";
  const std::string any = "WrongInputType(value(depot.io.Store, any), 2, any, ";
  const Case kCases[] = {
      {"nothing", {text}, "WrongInputCount(nothing(depot.io.Store), 2)"},
      {"options", {}, options + "1)"},
      {"options", {text, text, text, text}, options + "5)"},
      {"options", {text, text}, "t, char t"},
      {"text", {row}, "r"},
      {"text", {two}, "WrongInputType(text(depot.io.Store, unicodeString), 2, unicodeString, 1-by-2 double)"},
      {"value", {text}, "char t"},
      {"value", {plain}, any + "depot.io.Plain)"},
      {"value", {nothing}, any + "nothing)"},
      {"other", {make()}, "object"},
      {"other", {plain}, other + "depot.io.Plain)"},
      {"other", {COSInterfacePointer()}, other + "nothing)"},
      {"other", {text}, other + "unicodeString)"},
      {"number", {number(-2147483648.0)}, "int32 -2147483648"},
      {"number", {number(2147483648.0)}, integer + "1-by-1 double)"},
      {"number", {half}, integer + "1-by-1 double)"},
      {"number", {number(std::nan(""))}, integer + "1-by-1 double)"},
      {"number", {row}, integer + "1-by-1 char)"},
      {"number", {two}, integer + "1-by-2 double)"},
      {"flag", {half}, "logical 1"},
      {"flag", {number(-0.0)}, "logical 0"},
      {"flag", {HostArray::logicalScalar(true)}, "logical 1"},
      {"flag", {number(std::nan(""))}, flag + "1-by-1 double)"},
      {"hidden", {}, "MemberIsNotPublic(depot.io.Store.hidden)"},
      {"Store", {text}, "NoSuchMethod(depot.io.Store, Store)"},
      {"Text", {text}, "NoSuchMethod(depot.io.Store, Text)"},
  };
  for (const Case& one : kCases) {
    received.clear();
    const std::string error = raisedBy([&] { call(one.method, one.further); });
    std::string seen;
    for (std::size_t i = 1; i < received.size(); ++i) seen += (i > 1 ? ", " : "") + shown(received[i]);
    EXPECT_EQ(error.empty() ? seen : error, (error.empty() ? "" : "Corvan:ObjectSystem:") + one.received);
    EXPECT_EQ(received.empty(), !error.empty()) << one.received;
  }
}

TEST_F(Dispatch, OutputsAreTheProducedOnesUpToTheRequest) {
  const auto twice = [&](int outputs) {
    return zobs::callFunction(client, "depot.io.twice", {HostArray::doubleScalar(4)}, outputs).size();
  };
  EXPECT_EQ(twice(0), 1u);
  EXPECT_EQ(twice(2), 2u);
  EXPECT_EQ(raisedBy([&] { twice(3); }), "Corvan:ObjectSystem:TooManyOutputs(twice(any), 2, 3)");
  EXPECT_TRUE(call("nothing", {}, -1).empty());
  EXPECT_EQ(raisedBy([&] { call("nothing", {}, 2); }),
            "Corvan:ObjectSystem:TooManyOutputs(nothing(depot.io.Store), 0, 2)");
}

TEST_F(Dispatch, UnknownAndHiddenNamesAreErrors) {
  const std::string id = "Corvan:ObjectSystem:";
  for (const std::string name : {"", "Store", "depot.io", "depot.io.", "depot.io.store", "nowhere.Store"}) {
    EXPECT_EQ(raisedBy([&] { zobs::findClass(name); }), id + "NoSuchClass(" + name + ")");
    EXPECT_EQ(raisedBy([&] { zobs::callFunction(client, name, {}); }), id + "NoSuchFunction(" + name + ")");
  }
  EXPECT_EQ(raisedBy([&] { zobs::callFunction(client, "depot.io.secret", {}); }),
            id + "MemberIsNotPublic(depot.io.secret)");
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, zobs::findClass("depot.io.Hidden"), {}); }),
            id + "MemberIsNotPublic(depot.io.Hidden)");
  EXPECT_EQ(raisedBy([&] { zobs::callMethod(client, {}, "nothing", {}); }), id + "NoObject(nothing)");
}

TEST_F(Dispatch, InstanceDataIsDestroyedOnceWithTheLastReference) {
  COSInterfacePointer last;
  {
    const COSInterfacePointer first = make(u"kept");
    zobs::callMethod(client, first, "other", {first});
    last = std::get<COSInterfacePointer>(received.at(1));
    received.clear();
    make(u"other");
    EXPECT_EQ(destroyed, 1) << "only the other one";
  }
  EXPECT_EQ(destroyed, 1) << "one reference is left";
  EXPECT_EQ(std::get<std::u16string>(zobs::getProperty(last, "Name")), u"kept");
  EXPECT_EQ(last->getInstanceData(zobs::internal::makeInterned("depot.io.Plain")), nullptr);
  last = {};
  EXPECT_EQ(destroyed, 2);

  EXPECT_EQ(raisedBy([&] { make(u"bad"); }), "bad name");
  EXPECT_EQ(destroyed, 3) << "the half-made object";
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, zobs::findClass("depot.io.Store"), {}); }),
            "Corvan:ObjectSystem:WrongInputCount(Store(unicodeString), 0)");
  EXPECT_EQ(created, 3) << "inputs are checked before anything is made";
}

TEST_F(Dispatch, ErrorsOfInstanceDataAreRaisedAtItsCreationOnly) {
  auto* const info = new infos::Class("Class");
  COSNamespace& holder = infos::registered("failing");
  holder.addClass(info, 0, 2);
  const auto construct = [&] { zobs::construct(client, *holder.findClass("Class"), {}); };
  info->create = []() -> void* { throw std::runtime_error("no data"); };
  info->destroy = [&](void*) { ++destroyed, throw std::runtime_error("nobody is left to hear this"); };
  EXPECT_EQ(raisedBy(construct), "no data");
  EXPECT_EQ(destroyed, 0);
  info->create = [&] { return &created; };
  EXPECT_EQ(raisedBy(construct), "");
  EXPECT_EQ(destroyed, 1);
}

TEST_F(Dispatch, PropertiesAreReadThroughTheirGetterAndNeverSet) {
  const COSInterfacePointer store = make(u"Größe");
  const std::string id = "Corvan:ObjectSystem:";
  const std::pair<const char*, std::string> kProperties[] = {
      {"Name", "Größe"},
      {"NoText", ""},
      {"Count", "int32 -3"},
      {"IsOpen", "logical 1"},
      {"name", id + "NoSuchProperty(depot.io.Store, name)"},
      {"Secret", id + "MemberIsNotPublic(depot.io.Store.Secret)"},
  };
  for (const auto& [name, expected] : kProperties) {
    std::string value;
    const std::string error = raisedBy([&] { value = shown(zobs::getProperty(store, name)); });
    EXPECT_EQ(error + value, expected);
  }
  EXPECT_EQ(raisedBy([&] { zobs::getProperty({}, "Name"); }), id + "NoObject(Name)");
  EXPECT_EQ(raisedBy([&] { zobs::setProperty(store, "Name", {}); }),
            id + "PropertyIsReadOnly(depot.io.Store, Name)");
}

}  // namespace
