#include "platform/zobs/namespace.h"

#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"
#include "registered_infos.h"
#include "tests/support/raised.h"

using support::raisedBy;
using zobs::COSClass;
using zobs::COSNamespace;
using zobs::internal::makeInterned;

// The allocation that cannot succeed must come back as a failure under the sanitizers too.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "allocator_may_return_null=1"; }

TEST(Interned, EqualTextsAreOneName) {
  const zobs::Interned first = makeInterned("tavlox.io");
  for (int i = 0; i < 10'000; ++i) makeInterned("other" + std::to_string(i));
  EXPECT_EQ(makeInterned("tavlox.io"), first);
  EXPECT_EQ(first.text(), "tavlox.io");
  EXPECT_NE(makeInterned("tavlox.IO"), first);
  EXPECT_EQ(zobs::Interned().text(), "");
}

TEST(Allocation, IsZeroFilledAndFailsAsOutOfMemory) {
  auto* const memory = static_cast<const char*>(zobs::HostAllocated::operator new(4096));
  EXPECT_TRUE(std::all_of(memory, memory + 4096, [](char byte) { return byte == 0; }));
  zobs::HostAllocated::operator delete(const_cast<char*>(memory));
  volatile std::size_t tooMuch = PTRDIFF_MAX;
  EXPECT_THROW(zobs::HostAllocated::operator new(tooMuch), foundation::core::except::bad_alloc);
}

TEST(Namespace, IsPopulatedOnceWhenLookedInto) {
  std::vector<std::string> populated;
  infos::registered("lazy", [&](COSNamespace& lazy) {
    populated.emplace_back("lazy");
    lazy.addInnerNamespace(new infos::Namespace("io", [&](COSNamespace& io) {
      populated.emplace_back("io");
      io.addClass(new infos::Class("File"), 0, 2);
      io.addFunction(new infos::Method("getCompression", {}, {}), 0, 2);
      EXPECT_NE(io.findClass("File"), nullptr) << "a population may look at what it has made";
    }));
  });
  EXPECT_EQ(populated, std::vector<std::string>{});

  COSNamespace* const io = COSNamespace::getNamespace(makeInterned("lazy.io"));
  EXPECT_EQ(populated, std::vector<std::string>{"lazy"}) << "what is found is not looked into";
  ASSERT_NE(io, nullptr);
  EXPECT_EQ(io->getName(), makeInterned("lazy.io"));

  EXPECT_EQ(COSNamespace::getNamespace(makeInterned("lazy.io.nothing")), nullptr);
  EXPECT_EQ(populated, (std::vector<std::string>{"lazy", "io"}));
  EXPECT_EQ(io->findClass("file"), nullptr);
  EXPECT_EQ(io->classes().at(0)->getIdentifier().text(), "lazy.io.File");
  EXPECT_EQ(io->functions().size(), 1u);
  EXPECT_EQ(populated.size(), 2u);
}

TEST(Namespace, AddingFromOutsideDoesNotPopulate) {
  int populations = 0;
  COSNamespace& shared = infos::registered("shared", [&](COSNamespace& holder) {
    ++populations;
    holder.addClass(new infos::Class("Second"), 0, 2);
  });
  shared.addClass(new infos::Class("First"), 0, 2);
  EXPECT_EQ(populations, 0);
  ASSERT_EQ(shared.classes().size(), 2u);
  EXPECT_EQ(shared.classes()[0]->info().getName(), "First");
}

TEST(Namespace, NoNamespaceForOtherTexts) {
  infos::registered("alone", [](COSNamespace&) {});
  for (const char* name : {"", ".", "alone.", ".alone", "alone..alone", "alon", "alonee", "Alone"}) {
    EXPECT_EQ(COSNamespace::getNamespace(makeInterned(name)), nullptr) << name;
  }
  EXPECT_EQ(COSNamespace::getNamespace(zobs::Interned()), nullptr);
}

TEST(Namespace, AFailedPopulationIsUndoneAndRunAgain) {
  int attempts = 0;
  COSNamespace& flaky = infos::registered("flaky", [&](COSNamespace& holder) {
    holder.addInnerNamespace(new infos::Namespace("inner"));
    holder.addClass(new infos::Class("File"), 0, 2);
    holder.addFunction(new infos::Method("make", {}, {}), 0, 2);
    if (++attempts < 3) throw std::runtime_error("no memory for the rest");
  });
  flaky.addFunction(new infos::Method("before", {}, {}), 0, 0);
  const int aliveBefore = infos::alive;
  for (int attempt = 1; attempt < 3; ++attempt) {
    EXPECT_EQ(raisedBy([&] { flaky.classes(); }), "no memory for the rest")
        << "every look says so until one works";
    EXPECT_EQ(infos::alive, aliveBefore);
  }
  EXPECT_NE(flaky.findClass("File"), nullptr);
  ASSERT_EQ(flaky.functions().size(), 2u);
  EXPECT_EQ(flaky.accessOf(*flaky.findFunction("before")).set, 0);
  EXPECT_EQ(flaky.accessOf(*flaky.findFunction("make")).set, 2);
  EXPECT_EQ(attempts, 3);
}

TEST(Namespace, ASecondDefinitionIsRefusedAndItsInfoFreed) {
  struct Strict : infos::Namespace {
    using Namespace::Namespace;
    void throwErrorForDefinitionOfExistingName(std::string_view name) const override {
      if (name == "Class") throw foundation::core::except::except_with_causes("strict:own:Error", {u"Class"});
    }
  };
  COSNamespace::addNamespace(new Strict("strict"));
  COSNamespace& strict = *COSNamespace::getNamespace(makeInterned("strict"));
  strict.addClass(new infos::Class("Class"), 0, 2);
  strict.addInnerNamespace(new infos::Namespace("inner"));
  strict.addFunction(new infos::Method("make", {}, {}), 0, 2);
  const int aliveBefore = infos::alive;
  struct Case {
    std::function<void()> define;
    std::string raised;
  };
  const Case cases[] = {
      {[] { COSNamespace::addNamespace(new infos::Namespace("strict")); },
       "Corvan:ObjectSystem:NameAlreadyDefined(strict)"},
      {[&] { strict.addClass(new infos::Class("Class"), 0, 2); }, "strict:own:Error(Class)"},
      // An error operation that returns does not make the definition right.
      {[&] { strict.addInnerNamespace(new infos::Namespace("inner")); },
       "Corvan:ObjectSystem:NameAlreadyDefined(inner)"},
      {[&] { strict.addFunction(new infos::Method("inner", {}, {}), 0, 2); },
       "Corvan:ObjectSystem:NameAlreadyDefined(inner)"},
      {[&] { strict.addClass(new infos::Class("make"), 0, 2); },
       "Corvan:ObjectSystem:NameAlreadyDefined(make)"},
      {[&] { strict.addClass(new infos::Class("a.b"), 0, 2); }, "Corvan:ObjectSystem:InvalidName(a.b)"},
      {[&] { strict.addFunction(new infos::Method("", {}, {}), 0, 2); }, "Corvan:ObjectSystem:InvalidName()"},
      {[] { COSNamespace::addNamespace(new infos::Namespace("")); }, "Corvan:ObjectSystem:InvalidName()"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(raisedBy(one.define), one.raised);
    EXPECT_EQ(infos::alive, aliveBefore);
  }
  EXPECT_EQ(strict.classes().size() + strict.functions().size() + strict.innerNamespaces().size(), 3u);
}

TEST(Namespace, AMissAsksTheInfoToLoad) {
  struct OnDemand : infos::Namespace {
    using Namespace::Namespace;
    bool attemptToLoadInnerNamespace(COSNamespace& holder, std::string_view name) override {
      asked.push_back("namespace " + std::string(name));
      if (name == "late") holder.addInnerNamespace(new infos::Namespace("late"));
      return name == "late";
    }
    bool attemptToLoadClass(COSNamespace& holder, std::string_view name) override {
      asked.push_back("class " + std::string(name));
      if (name == "Late" && holder.findClass(name) == nullptr)
        holder.addClass(new infos::Class("Late"), 0, 2);
      return name == "Late";
    }
    bool attemptToLoadType(COSNamespace&, std::string_view name) override {
      asked.push_back("type " + std::string(name));
      return name == "Liar";
    }
    bool attemptToLoadFunction(COSNamespace&, std::string_view) override {
      throw std::runtime_error("not today");
    }
    std::vector<std::string> asked;
  };
  auto* const info = new OnDemand("demand");
  COSNamespace::addNamespace(info);
  COSNamespace& demand = *COSNamespace::getNamespace(makeInterned("demand"));
  EXPECT_NE(demand.findClass("Late"), nullptr);
  EXPECT_NE(demand.findClass("Late"), nullptr);
  EXPECT_EQ(demand.findClass("Liar"), nullptr);
  EXPECT_EQ(raisedBy([&] { demand.findFunction("f"); }), "not today");
  EXPECT_NE(COSNamespace::getNamespace(makeInterned("demand.late")), nullptr) << "asked again after an error";
  EXPECT_EQ(info->asked,
            (std::vector<std::string>{"class Late", "class Liar", "type Liar", "namespace late"}));
}

TEST(Class, MembersAreDefinedOnceAndAFailureIsUndone) {
  int definitions = 0;
  COSNamespace& holder = infos::registered("defined", [&](COSNamespace& defined) {
    defined.addClass(
        new infos::Class("File",
                         [&](COSClass& file) {
                           file.addMethod(new infos::Method("File", {"unicodeString"}, {"defined.File"}));
                           file.addMethod(new infos::Method("list", {"defined.File"}, {"any"}));
                           if (++definitions == 1) throw std::runtime_error("half");
                           file.addMethod(new infos::Method("add", {"defined.File"}, {}));
                         }),
        0, 2);
  });
  COSClass& file = *holder.findClass("File");
  EXPECT_EQ(definitions, 0);
  const int aliveBefore = infos::alive;
  EXPECT_EQ(raisedBy([&] { file.methods(); }), "half");
  EXPECT_EQ(infos::alive, aliveBefore);
  ASSERT_EQ(file.methods().size(), 2u) << "the constructor is not among them";
  EXPECT_EQ(file.methods()[1]->getName()->text(), "add");
  ASSERT_NE(file.constructor(), nullptr);
  EXPECT_EQ(file.constructor()->getSignature().inputTypes().size(), 1u);
  EXPECT_EQ(file.findMethod("File"), nullptr);
  EXPECT_EQ(definitions, 2);
}

TEST(Class, MembersShareOneSetOfNames) {
  struct Data {
    int count() { return 1; }
  };
  COSNamespace& holder = infos::registered("unique", [](COSNamespace&) {});
  holder.addClass(new infos::Class("File"), 0, 2);
  COSClass& file = *holder.findClass("File");
  file.addMethod(new infos::Method("File", {}, {}));
  file.addMethod(new infos::Method("list", {}, {}));
  file.addProperty("Count", "int32 scalar", &Data::count, 0, 2, 0x40, u"");
  const int aliveBefore = infos::alive;
  for (const char* name : {"File", "list", "Count"}) {
    const std::string expected =
        "Corvan:ObjectSystem:NameAlreadyDefined(unique.File." + std::string(name) + ")";
    EXPECT_EQ(raisedBy([&] { file.addMethod(new infos::Method(name, {}, {})); }), expected);
    EXPECT_EQ(raisedBy([&] { file.addProperty(name, "int32 scalar", &Data::count, 0, 2, 0, u""); }),
              expected);
  }
  EXPECT_EQ(infos::alive, aliveBefore);
}
