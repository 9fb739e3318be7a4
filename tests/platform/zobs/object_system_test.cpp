#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

#include <gtest/gtest.h>
#include <malloc.h>

#include "platform/errors/exceptions.h"
#include "platform/zobs/dispatch.h"
#include "tests/support/raised.h"

using corvan::HostArray;
using support::raisedBy;
using zobs::COSClass;
using zobs::COSInterfacePointer;
using zobs::COSNamespace;
using zobs::Value;

// The allocation that cannot succeed must come back as a failure under the sanitizers too.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

/// A module's infos, with what they do given by each test.
namespace infos {

/// How many infos are alive: what the object system has taken over and not freed again.
int alive = 0;

struct Counted {
  Counted() { ++alive; }
  ~Counted() { --alive; }
};

constexpr auto kNothing = [](auto&) {};

struct Namespace : zobs::COSNamespaceInfo, Counted {
  using Populate = std::function<void(zobs::COSNamespace&)>;
  explicit Namespace(std::string name, Populate populate = kNothing) : name_(name), populate_(populate) {}
  std::string getName() const override { return name_; }
  void populate(zobs::COSNamespace& holder) override { populate_(holder); }
  std::string name_;
  Populate populate_;
};

struct Class : zobs::COSClassInfo, Counted {
  using Define = std::function<void(zobs::COSClass&)>;
  explicit Class(std::string name, Define define = kNothing) : name_(name), define_(define) {}
  std::string getName() const override { return name_; }
  void defineMembers(zobs::COSClass& definedClass) override { define_(definedClass); }
  void* createInstanceData() override { return create(); }
  void destroyInstanceData(void* data) override { destroy(data); }
  bool hasInstanceData() const override { return create != nullptr; }
  std::function<void*()> create;
  std::function<void(void*)> destroy;
  std::string name_;
  Define define_;
};

struct Method : zobs::COSMethodInfo, Counted {
  using Types = std::vector<std::string>;
  /// Fills the slots of the outputs and gives how many it filled.
  using Body = std::function<int(std::span<const zobs::Value> inputs, zobs::Value* outputs)>;
  explicit Method(std::string_view name, const Types& inputs = {}, const Types& outputs = {}, Body body = {})
      : name_(zobs::internal::makeInterned(name)), body_(body) {
    for (const auto& type : inputs) signature.addInputType(zobs::internal::makeInterned(type));
    for (const auto& type : outputs) signature.addOutputType(zobs::internal::makeInterned(type));
  }
  const zobs::Interned* getName() const override { return &name_; }
  const zobs::COSMethodSignature& getSignature() const override { return signature; }
  int getMemberAccess() const override { return access; }
  void invoke(zobs::COSClient&, int* produced, zobs::Value* outputs, int,
              std::span<const zobs::Value> inputs) override {
    *produced = body_(inputs, outputs);
  }
  int access = zobs::kPublicAccess;
  zobs::COSMethodSignature signature;
  zobs::Interned name_;
  Body body_;
};

}  // namespace infos

/// The instance data of the class "depot.io.Store".
struct Store {
  const std::u16string* getName() { return &name; }
  int count() { return -3; }
  std::u16string name;
};

/// Registers a top-level namespace.
COSNamespace& registered(infos::Namespace* info) {
  COSNamespace::addNamespace(info);
  return *COSNamespace::getNamespace(info->name_);
}

TEST(Infos, AreZeroFilledOrRaiseOutOfMemory) {
  mallopt(M_PERTURB, 0xA5);  // memory that nobody cleared shows
  auto* const memory = static_cast<char*>(infos::Class::operator new(512));
  EXPECT_TRUE(std::all_of(memory, memory + 512, [](char byte) { return byte == 0; }));
  infos::Class::operator delete(memory);
  volatile std::size_t tooMuch = PTRDIFF_MAX;
  EXPECT_THROW(infos::Class::operator new(tooMuch), foundation::core::except::bad_alloc);
}

TEST(Namespace, IsPopulatedOnceWhenLookedIntoAndAgainOnlyAfterAFailure) {
  int populations = 0;
  registered(new infos::Namespace("lazy", [&](COSNamespace& holder) {
    holder.addInnerNamespace(new infos::Namespace("io", [&](COSNamespace& io) {
      io.addClass(new infos::Class("Second"), 0, 2);
      io.addFunction(new infos::Method("make"), 0, 2);
      EXPECT_NE(io.findClass("Second"), nullptr) << "a population may look at what it has made";
      if (++populations < 3) throw std::runtime_error("no memory for the rest");
    }));
  }));
  COSNamespace* const io = COSNamespace::getNamespace("lazy.io");
  ASSERT_NE(io, nullptr);
  io->addClass(new infos::Class("First"), 0, 2);
  EXPECT_EQ(populations, 0) << "neither finding it nor adding to it looks into it";

  const int aliveBefore = infos::alive;
  for (int attempt = 1; attempt < 3; ++attempt) {
    EXPECT_EQ(raisedBy([&] { io->classes(); }), "no memory for the rest");
    EXPECT_EQ(infos::alive, aliveBefore);
  }
  EXPECT_EQ(io->classes().at(0)->getIdentifier().text(), "lazy.io.First");
  EXPECT_EQ(io->classes().at(1)->getIdentifier().text(), "lazy.io.Second");
  EXPECT_EQ(populations, 3);
  for (const char* none : {"", ".", "lazy.", ".lazy", "lazy..io", "laz", "Lazy"}) {
    EXPECT_EQ(COSNamespace::getNamespace(none), nullptr) << none;
  }
}

TEST(Namespace, ASecondDefinitionIsRefusedAndItsInfoFreed) {
  struct Strict : infos::Namespace {
    using Namespace::Namespace;
    void throwErrorForDefinitionOfExistingName(std::string_view taken) const override {
      if (taken == "Class") throw std::runtime_error("its own error");
    }
  };
  COSNamespace& strict = registered(new Strict("strict"));
  strict.addClass(new infos::Class("Class"), 0, 2);
  const int aliveBefore = infos::alive;
  const std::string id = "Corvan:ObjectSystem:";
  const std::pair<std::function<void()>, std::string> kCases[] = {
      {[] { COSNamespace::addNamespace(new infos::Namespace("strict")); }, id + "NameAlreadyDefined(strict)"},
      {[&] { strict.addInnerNamespace(new infos::Namespace("Class")); }, "its own error"},
      {[&] { strict.addClass(new infos::Class("a.b"), 0, 2); }, id + "InvalidName(a.b)"},
      {[] { COSNamespace::addNamespace(new infos::Namespace("")); }, id + "InvalidName()"},
  };
  for (const auto& [define, raised] : kCases) {
    EXPECT_EQ(raisedBy(define), raised);
    EXPECT_EQ(infos::alive, aliveBefore) << raised;
  }
}

TEST(Namespace, AMissAsksTheInfoToLoad) {
  struct OnDemand : infos::Namespace {
    using Namespace::Namespace;
    bool attemptToLoadClass(COSNamespace& holder, std::string_view wanted) override {
      // To look here does not ask again.
      if (wanted == "Late" && !holder.findClass("Late")) holder.addClass(new infos::Class("Late"), 0, 2);
      return wanted == "Late";
    }
  };
  COSNamespace& demand = registered(new OnDemand("demand"));
  EXPECT_EQ(demand.findClass("Later"), nullptr);
  EXPECT_NE(demand.findClass("Late"), nullptr);
}

TEST(Class, IsDefinedOnceAndItsMembersShareOneSetOfNames) {
  int definitions = 0;
  COSNamespace& holder = registered(new infos::Namespace("defined"));
  const auto define = [&](COSClass& file) {
    file.addMethod(new infos::Method("File", {"unicodeString"}));
    file.addMethod(new infos::Method("list"));
    file.addProperty("Count", "int32 scalar", &Store::count, 0, 2, 0x40, u"");
    if (++definitions == 1) throw std::runtime_error("half");
  };
  holder.addClass(new infos::Class("File", define), 0, 2);
  COSClass& file = *holder.findClass("File");
  EXPECT_EQ(definitions, 0);
  const int aliveBefore = infos::alive;
  EXPECT_EQ(raisedBy([&] { file.methods(); }), "half");
  EXPECT_EQ(infos::alive, aliveBefore);
  EXPECT_EQ(file.methods().size(), 1u) << "the constructor is not among them";
  EXPECT_EQ(nameOf(*file.constructor()), "File");
  for (const std::string name : {"File", "list", "Count"}) {
    const std::string taken = "Corvan:ObjectSystem:NameAlreadyDefined(defined.File." + name + ")";
    EXPECT_EQ(raisedBy([&] { file.addMethod(new infos::Method(name)); }), taken);
    EXPECT_EQ(raisedBy([&] { file.addProperty(name, "", &Store::count, 0, 2, 0, u""); }), taken);
  }
  EXPECT_EQ(infos::alive, aliveBefore + 2);
}

/// The namespace "depot.io" with its classes and functions, and what they saw. CTest gives each case a
/// process of its own, so that each registers them anew.
class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    COSNamespace& depot = registered(new infos::Namespace("depot"));
    depot.addInnerNamespace(new infos::Namespace("io", [&](COSNamespace& io) { populate(io); }));
  }

  COSInterfacePointer make(std::u16string name = u"s") {
    return zobs::construct(client, zobs::findClass("depot.io.Store"), {std::move(name)});
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
    const auto twice = [](auto inputs, Value* outputs) { return outputs[0] = outputs[1] = inputs[0], 2; };
    io.addFunction(new infos::Method("twice", {"any"}, {"any", "any"}, twice), 0, 2);
    io.addFunction(new infos::Method("hidden"), 2, 2);
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
    store.addProperty("Count", "int32 scalar", &Store::count, 0, 2, 0x40, u"");
    store.addProperty("Secret", "int32 scalar", &Store::count, 2, 2, 0x40, u"");
  }
};

/// A value as text: "text", char text, int32 7, logical 1, object.
std::string shown(const Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) return fl::i18n::to_string(*text);
  const auto* const array = std::get_if<HostArray>(&value);
  if (array == nullptr) return "object";
  const bool isText = array->kind() == corvan::ArrayKind::Char;
  return std::string(array->className()) + " " +
         (isText ? fl::i18n::to_string(array->text()) : std::to_string(int(array->scalarAsDouble())));
}

TEST_F(Dispatch, InputsReachTheMethodAsItsSignatureSaysOrNotAtAll) {
  const Value plain = zobs::construct(client, zobs::findClass("depot.io.Plain"), {});
  const Value text = u"t", row = HostArray::charRow(u"r"), half = HostArray::doubleScalar(0.5);
  const auto number = [](double value) -> Value { return HostArray::doubleScalar(value); };
  const Value two = HostArray::numeric(corvan::NumericClass::Double, 1, 2);
  const std::string options = "WrongInputCount(options(depot.io.Store, unicodeString[, any[, any]]), ";
  const std::string integer = "WrongInputType(number(depot.io.Store, int32 scalar), 2, int32 scalar, ";
  const std::string other = "WrongInputType(other(depot.io.Store, depot.io.Store), 2, depot.io.Store, ";
  // The method, its inputs behind the object, and what it received or the error.
  const std::tuple<std::string_view, std::vector<Value>, std::string> kCases[] = {
      {"options", {}, options + "1)"},
      {"options", {text, text, text, text}, options + "5)"},
      {"options", {text, text}, "t, char t"},
      {"text", {row}, "r"},
      {"text", {two}, "WrongInputType(text(depot.io.Store, unicodeString), 2, unicodeString, 1-by-2 double)"},
      {"other", {make()}, "object"},
      {"other", {plain}, other + "depot.io.Plain)"},
      {"other", {COSInterfacePointer()}, other + "nothing)"},
      {"number", {number(-2147483648.0)}, "int32 -2147483648"},
      {"number", {number(2147483648.0)}, integer + "1-by-1 double)"},
      {"number", {half}, integer + "1-by-1 double)"},
      {"number", {number(std::nan(""))}, integer + "1-by-1 double)"},
      {"flag", {half}, "logical 1"},
      {"flag", {number(-0.0)}, "logical 0"},
      {"hidden", {}, "MemberIsNotPublic(depot.io.Store.hidden)"},
      {"Store", {text}, "NoSuchMethod(depot.io.Store, Store)"},
  };
  for (const auto& [method, further, expected] : kCases) {
    received.clear();
    const std::string error = raisedBy([&] { zobs::callMethod(client, make(), method, further); });
    std::string seen;
    for (std::size_t i = 1; i < received.size(); ++i) seen += (i > 1 ? ", " : "") + shown(received[i]);
    EXPECT_EQ(error + seen, (error.empty() ? "" : "Corvan:ObjectSystem:") + expected);
    EXPECT_EQ(received.empty(), !error.empty()) << expected;
  }
}

TEST_F(Dispatch, OutputsAreTheProducedOnesUpToTheRequest) {
  const auto twice = [&](int outputs) {
    return zobs::callFunction(client, "depot.io.twice", {HostArray::doubleScalar(4)}, outputs).size();
  };
  EXPECT_EQ(twice(0), 1u);
  EXPECT_EQ(twice(2), 2u);
  EXPECT_EQ(raisedBy([&] { twice(3); }), "Corvan:ObjectSystem:TooManyOutputs(twice(any), 2, 3)");
}

TEST_F(Dispatch, UnknownAndHiddenNamesAreErrors) {
  const std::string id = "Corvan:ObjectSystem:";
  for (const std::string name : {"", "Store", "depot.io.", "depot.io.store", "nowhere.Store"}) {
    EXPECT_EQ(raisedBy([&] { zobs::findClass(name); }), id + "NoSuchClass(" + name + ")");
    EXPECT_EQ(raisedBy([&] { zobs::callFunction(client, name, {}); }), id + "NoSuchFunction(" + name + ")");
  }
  EXPECT_EQ(raisedBy([&] { zobs::callMethod(client, {}, "text", {}); }), id + "NoObject(text)");
  EXPECT_EQ(raisedBy([&] { zobs::callFunction(client, "depot.io.hidden", {}); }),
            id + "MemberIsNotPublic(depot.io.hidden)");
  EXPECT_EQ(raisedBy([&] { zobs::getProperty(make(), "Secret"); }),
            id + "MemberIsNotPublic(depot.io.Store.Secret)");
}

TEST_F(Dispatch, InstanceDataIsDestroyedOnceWithTheLastReference) {
  COSInterfacePointer last;
  {
    const COSInterfacePointer first = make(u"kept");
    zobs::callMethod(client, first, "other", {first});
    last = std::get<COSInterfacePointer>(received.at(1));
    received.clear();
  }
  EXPECT_EQ(destroyed, 0) << "one reference is left";
  EXPECT_EQ(std::get<std::u16string>(zobs::getProperty(last, "Name")), u"kept");
  EXPECT_EQ(last->getInstanceData(zobs::internal::makeInterned("depot.io.Plain")), nullptr);
  last = {};
  EXPECT_EQ(destroyed, 1);

  EXPECT_EQ(raisedBy([&] { make(u"bad"); }), "bad name");
  EXPECT_EQ(destroyed, 2) << "the half-made object";
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, zobs::findClass("depot.io.Store"), {}); }),
            "Corvan:ObjectSystem:WrongInputCount(Store(unicodeString), 0)");
  EXPECT_EQ(created, 2) << "inputs are checked before anything is made";
}

TEST_F(Dispatch, AnErrorAtTheEndOfInstanceDataIsDropped) {
  auto* const info = new infos::Class("Class");
  COSNamespace& holder = registered(new infos::Namespace("failing"));
  holder.addClass(info, 0, 2);
  info->destroy = [&](void*) { ++destroyed, throw std::runtime_error("nobody is left to hear this"); };
  info->create = [&] { return &created; };
  EXPECT_EQ(raisedBy([&] { zobs::construct(client, *holder.findClass("Class"), {}); }), "");
  EXPECT_EQ(destroyed, 1);
}

TEST_F(Dispatch, PropertiesAreReadThroughTheirGetterAndNeverSet) {
  const COSInterfacePointer store = make();
  EXPECT_EQ(shown(zobs::getProperty(store, "Count")), "int32 -3");
  EXPECT_EQ(raisedBy([&] { zobs::getProperty(store, "name"); }),
            "Corvan:ObjectSystem:NoSuchProperty(depot.io.Store, name)");
  EXPECT_EQ(raisedBy([&] { zobs::setProperty(store, "Name", {}); }),
            "Corvan:ObjectSystem:PropertyIsReadOnly(depot.io.Store, Name)");
}

}  // namespace
