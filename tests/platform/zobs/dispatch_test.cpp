#include "platform/zobs/dispatch.h"

#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"
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
  const std::u16string* name() { return &name_; }
  const std::u16string* noText() { return nullptr; }
  int count() { return -3; }
  bool isOpen() { return true; }
  std::u16string name_;
};

/// The namespace "depot.io" with its classes and functions, and what its methods saw. Registered once in a
/// process, it reports to the depot of the test that runs.
class Depot {
 public:
  Depot() {
    current = this;
    if (COSNamespace::getNamespace("depot") != nullptr) return;
    infos::registered(
        "depot", [](COSNamespace& depot) { depot.addInnerNamespace(new infos::Namespace("io", populate)); });
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
  static inline Depot* current = nullptr;

  static void populate(COSNamespace& io) {
    auto* const store = new infos::Class("Store", define);
    store->create = [] { return ++current->created, new Store; };
    store->destroy = [](void* data) { ++current->destroyed, delete static_cast<Store*>(data); };
    io.addClass(store, 0, 2);
    io.addClass(new infos::Class("Plain"), 0, 2);
    io.addClass(new infos::Class("Hidden"), 2, 2);
    io.addFunction(new infos::Method("twice", {"any"}, {"any", "any"}, twoOutputs), 0, 2);
    io.addFunction(new infos::Method("secret", {}, {}), 2, 2);
  }

  static void define(COSClass& store) {
    const auto note = [](infos::Call call) {
      current->received.assign(call.inputs.begin(), call.inputs.end());
    };
    const std::string self = store.getIdentifier().text();
    store.addMethod(new infos::Method("Store", {"unicodeString"}, {self}, constructStore));
    store.addMethod(new infos::Method("nothing", {self}, {}, note));
    store.addMethod(new infos::Method("text", {self, "unicodeString"}, {"any"}, note));
    store.addMethod(new infos::Method("value", {self, "any"}, {"any"}, note));
    store.addMethod(new infos::Method("number", {self, "int32 scalar"}, {"any"}, note));
    store.addMethod(new infos::Method("flag", {self, "logical scalar"}, {"any"}, note));
    store.addMethod(new infos::Method("other", {self, self}, {"any"}, note));
    store.addMethod(new infos::Method("options", {self, "unicodeString", "any", "any"}, {"any"}, note, 2));
    store.addMethod(new infos::Method("all", {self}, {}, note, 9));
    store.addMethod(new infos::Method("fail", {self}, {},
                                      [](infos::Call) { throw std::runtime_error("its own error"); }));
    auto* const hidden = new infos::Method("hidden", {self}, {}, note);
    hidden->access = 2;
    store.addMethod(hidden);
    store.addProperty("Name", "unicodeString", &Store::name, 0, 2, 0x800, u"");
    store.addProperty("NoText", "unicodeString", &Store::noText, 0, 2, 0x800, u"");
    store.addProperty("Count", "int32 scalar", &Store::count, 0, 2, 0x40, u"");
    store.addProperty("IsOpen", "logical scalar", &Store::isOpen, 0, 2, 0x40, u"");
    store.addProperty("Secret", "logical scalar", &Store::isOpen, 2, 2, 0x40, u"");
  }

  static void constructStore(infos::Call call) {
    const auto& object = std::get<COSInterfacePointer>(call.outputs[0]);
    const auto& name = std::get<std::u16string>(call.inputs[0]);
    static_cast<Store*>(object->getInstanceData(object->getClass().getIdentifier()))->name_ = name;
    if (name == u"bad") throw std::runtime_error("bad name");
  }
  static void twoOutputs(infos::Call call) {
    call.outputs[0] = call.outputs[1] = call.inputs[0];
    call.produced = 2;
  }
};

HostArray int8Scalar(std::int8_t value) {
  HostArray scalar = HostArray::numeric(corvan::NumericClass::Int8, 1, 1);
  scalar.mutableValues<std::int8_t>()[0] = value;
  return scalar;
}

}  // namespace

TEST(Dispatch, WrongInputsNeverReachTheMethod) {
  Depot depot;
  const COSInterfacePointer plain = zobs::construct(depot.client, zobs::findClass("depot.io.Plain"), {});
  const Value text = std::u16string(u"t"), number = HostArray::doubleScalar(1), nothing;
  struct Case {
    std::string_view method;
    std::vector<Value> further;
    std::string raised;
  };
  const Case cases[] = {
      {"nothing", {text}, "WrongInputCount(nothing(depot.io.Store), 2)"},
      {"text", {}, "WrongInputCount(text(depot.io.Store, unicodeString), 1)"},
      {"options", {}, "WrongInputCount(options(depot.io.Store, unicodeString[, any[, any]]), 1)"},
      {"options",
       {text, text, text, text},
       "WrongInputCount(options(depot.io.Store, unicodeString[, any[, any]]), 5)"},
      {"text",
       {number},
       "WrongInputType(text(depot.io.Store, unicodeString), 2, unicodeString, 1-by-1 double)"},
      {"value", {plain}, "WrongInputType(value(depot.io.Store, any), 2, any, depot.io.Plain)"},
      {"value", {nothing}, "WrongInputType(value(depot.io.Store, any), 2, any, nothing)"},
      {"other",
       {plain},
       "WrongInputType(other(depot.io.Store, depot.io.Store), 2, depot.io.Store, depot.io.Plain)"},
      {"other",
       {COSInterfacePointer()},
       "WrongInputType(other(depot.io.Store, depot.io.Store), 2, depot.io.Store, nothing)"},
      {"other",
       {text},
       "WrongInputType(other(depot.io.Store, depot.io.Store), 2, depot.io.Store, unicodeString)"},
      {"hidden", {}, "MemberIsNotPublic(depot.io.Store.hidden)"},
      {"Store", {text}, "NoSuchMethod(depot.io.Store, Store)"},
      {"Text", {text}, "NoSuchMethod(depot.io.Store, Text)"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(raisedBy([&] { depot.call(one.method, one.further); }), "Corvan:ObjectSystem:" + one.raised);
    EXPECT_TRUE(depot.received.empty()) << one.method;
  }
  EXPECT_EQ(raisedBy([&] { depot.call("fail", {}); }), "its own error");
  EXPECT_EQ(depot.created, depot.destroyed);
}

TEST(Dispatch, TextsAndValuesAreConvertedBothWays) {
  Depot depot;
  const std::u16string long16(100, u'x');
  depot.call("text", {HostArray::charRow(long16)});
  EXPECT_EQ(std::get<std::u16string>(depot.received.at(1)), long16);
  depot.call("text", {HostArray::charRow(u"")});
  EXPECT_EQ(std::get<std::u16string>(depot.received.at(1)), u"");
  depot.call("value", {std::u16string(u"a\0b", 3)});
  EXPECT_EQ(std::get<HostArray>(depot.received.at(1)).text(), std::u16string_view(u"a\0b", 3));
  depot.call("options", {std::u16string(u"a"), std::u16string(u"b")});
  EXPECT_EQ(depot.received.size(), 3u);
  depot.call("all", {});
  EXPECT_EQ(depot.received.size(), 1u);
}

TEST(Dispatch, NumbersBecomeScalarsWhereTheyAreExact) {
  Depot depot;
  struct Case {
    HostArray given;
    std::string_view asInt32, asLogical;
  };
  const double infinity = std::numeric_limits<double>::infinity();
  const Case cases[] = {
      {HostArray::int32Scalar(7), "7", "true"},
      {HostArray::doubleScalar(-2147483648.0), "-2147483648", "true"},
      {HostArray::doubleScalar(2147483647.0), "2147483647", "true"},
      {HostArray::doubleScalar(2147483648.0), "", "true"},
      {HostArray::doubleScalar(0.5), "", "true"},
      {HostArray::doubleScalar(-0.0), "0", "false"},
      {HostArray::doubleScalar(std::nan("")), "", ""},
      {HostArray::doubleScalar(infinity), "", "true"},
      {int8Scalar(-1), "-1", "true"},
      {HostArray::logicalScalar(true), "", "true"},
      {HostArray::logicalScalar(false), "", "false"},
      {HostArray::charRow(u"1"), "", ""},
      {HostArray(), "", ""},
      {HostArray::numeric(corvan::NumericClass::Double, 1, 2), "", ""},
      {HostArray::cell(1, 1), "", ""},
  };
  // What the method received; nothing if it was not called.
  const auto received = [&](std::string_view method, const HostArray& given) -> std::string {
    if (!raisedBy([&] { depot.call(method, {given}); }).empty()) return "";
    const auto& array = std::get<HostArray>(depot.received.at(1));
    if (array.className() == "logical") return array.values<bool>()[0] ? "true" : "false";
    return std::to_string(array.values<std::int32_t>()[0]);
  };
  for (const Case& one : cases) {
    EXPECT_EQ(received("number", one.given), one.asInt32) << one.given.className();
    EXPECT_EQ(received("flag", one.given), one.asLogical) << one.given.className();
  }
}

TEST(Dispatch, OutputsAreTheProducedOnesUpToTheRequest) {
  Depot depot;
  const auto twice = [&](int outputs) {
    return zobs::callFunction(depot.client, "depot.io.twice", {HostArray::doubleScalar(4)}, outputs).size();
  };
  EXPECT_EQ(twice(0), 1u);
  EXPECT_EQ(twice(1), 1u);
  EXPECT_EQ(twice(2), 2u);
  EXPECT_EQ(raisedBy([&] { twice(3); }), "Corvan:ObjectSystem:TooManyOutputs(twice(any), 2, 3)");
  EXPECT_TRUE(depot.call("nothing", {}, 1).empty());
  EXPECT_TRUE(depot.call("nothing", {}, -1).empty());
  EXPECT_EQ(raisedBy([&] { depot.call("nothing", {}, 2); }),
            "Corvan:ObjectSystem:TooManyOutputs(nothing(depot.io.Store), 0, 2)");
}

TEST(Dispatch, UnknownAndHiddenNamesAreErrors) {
  Depot depot;
  const std::string id = "Corvan:ObjectSystem:";
  for (const char* name :
       {"", "Store", "depot.Store", "depot.io", "depot.io.", "depot.io.store", "nowhere.Store"}) {
    EXPECT_EQ(raisedBy([&] { zobs::findClass(name); }), id + "NoSuchClass(" + name + ")");
    EXPECT_EQ(raisedBy([&] { zobs::callFunction(depot.client, name, {}); }),
              id + "NoSuchFunction(" + name + ")");
  }
  EXPECT_EQ(raisedBy([&] { zobs::callFunction(depot.client, "depot.io.secret", {}); }),
            id + "MemberIsNotPublic(depot.io.secret)");
  EXPECT_EQ(raisedBy([&] { zobs::construct(depot.client, zobs::findClass("depot.io.Hidden"), {}); }),
            id + "MemberIsNotPublic(depot.io.Hidden)");
  EXPECT_EQ(raisedBy([&] { zobs::callMethod(depot.client, {}, "nothing", {}); }), id + "NoObject(nothing)");
}

TEST(Construction, AFailureDestroysTheHalfMadeObjectOnce) {
  Depot depot;
  EXPECT_EQ(raisedBy([&] { depot.make(u"bad"); }), "bad name");
  EXPECT_EQ(depot.created, 1);
  EXPECT_EQ(depot.destroyed, 1);
  COSClass& store = zobs::findClass("depot.io.Store");
  EXPECT_EQ(raisedBy([&] { zobs::construct(depot.client, store, {}); }),
            "Corvan:ObjectSystem:WrongInputCount(Store(unicodeString), 0)");
  EXPECT_EQ(depot.created, 1) << "inputs are checked before anything is made";
  COSClass& plain = zobs::findClass("depot.io.Plain");
  EXPECT_EQ(raisedBy([&] { zobs::construct(depot.client, plain, {std::u16string(u"x")}); }),
            "Corvan:ObjectSystem:WrongInputCount(depot.io.Plain(), 1)");
}

TEST(Construction, InstanceDataThatCannotBeMadeIsNotDestroyed) {
  int destroyed = 0;
  COSNamespace& holder = infos::registered("failing", [](COSNamespace&) {});
  auto* const info = new infos::Class("Class");
  info->create = []() -> void* { throw std::runtime_error("no data"); };
  info->destroy = [&](void*) { ++destroyed; };
  holder.addClass(info, 0, 2);
  zobs::COSClient client("dispatch_test");
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, *holder.findClass("Class"), {}); }), "no data");
  EXPECT_EQ(destroyed, 0);
  info->create = [] { return new int(1); };
  info->destroy = [&](void* data) {
    ++destroyed;
    delete static_cast<int*>(data);
    throw std::runtime_error("nobody is left to hear this");
  };
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, *holder.findClass("Class"), {}); }), "");
  EXPECT_EQ(destroyed, 1);
}

TEST(Object, LivesUntilItsLastReferenceGoes) {
  Depot depot;
  COSInterfacePointer last;
  {
    const COSInterfacePointer first = depot.make(u"kept");
    std::vector<Value> values{first, first};
    last = std::get<COSInterfacePointer>(std::move(values[1]));
    const COSInterfacePointer& same = last;
    last = same;
    depot.make(u"other");
    EXPECT_EQ(depot.destroyed, 1) << "only the other one";
  }
  EXPECT_EQ(depot.destroyed, 1);
  EXPECT_EQ(std::get<std::u16string>(zobs::getProperty(last, "Name")), u"kept");
  EXPECT_EQ(last->getInstanceData(zobs::internal::makeInterned("depot.io.Plain")), nullptr);
  last = {};
  EXPECT_EQ(depot.destroyed, 2);
}

TEST(Property, IsReadThroughItsGetterAndNeverSet) {
  Depot depot;
  const COSInterfacePointer store = depot.make(u"Größe");
  EXPECT_EQ(std::get<std::u16string>(zobs::getProperty(store, "Name")), u"Größe");
  EXPECT_EQ(std::get<std::u16string>(zobs::getProperty(store, "NoText")), u"");
  EXPECT_EQ(std::get<HostArray>(zobs::getProperty(store, "Count")).values<std::int32_t>()[0], -3);
  EXPECT_TRUE(std::get<HostArray>(zobs::getProperty(store, "IsOpen")).values<bool>()[0]);

  const std::string id = "Corvan:ObjectSystem:";
  EXPECT_EQ(raisedBy([&] { zobs::getProperty(store, "name"); }), id + "NoSuchProperty(depot.io.Store, name)");
  EXPECT_EQ(raisedBy([&] { zobs::getProperty(store, "Secret"); }),
            id + "MemberIsNotPublic(depot.io.Store.Secret)");
  EXPECT_EQ(raisedBy([&] { zobs::getProperty({}, "Name"); }), id + "NoObject(Name)");
  EXPECT_EQ(raisedBy([&] { zobs::setProperty(store, "Name", {}); }),
            id + "PropertyIsReadOnly(depot.io.Store, Name)");
  EXPECT_EQ(raisedBy([&] { zobs::setProperty(store, "None", {}); }),
            id + "NoSuchProperty(depot.io.Store, None)");
}
