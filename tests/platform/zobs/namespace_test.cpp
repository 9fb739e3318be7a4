#include "platform/zobs/namespace.h"

#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>
#include <malloc.h>

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

TEST(Infos, AreZeroFilledOrRaiseOutOfMemory) {
  mallopt(M_PERTURB, 0xA5);  // memory that nobody cleared shows
  auto* const memory = static_cast<char*>(infos::Class::operator new(512));
  EXPECT_TRUE(std::all_of(memory, memory + 512, [](char byte) { return byte == 0; }));
  infos::Class::operator delete(memory);
  volatile std::size_t tooMuch = PTRDIFF_MAX;
  EXPECT_THROW(infos::Class::operator new(tooMuch), foundation::core::except::bad_alloc);
}

TEST(Interned, EqualTextsAreOneNameThatStaysWhereItIs) {
  const zobs::Interned first = makeInterned("tavlox.io");
  const char* const text = first.text().data();
  for (int i = 0; i < 1000; ++i) makeInterned("other" + std::to_string(i));
  EXPECT_EQ(makeInterned("tavlox.io"), first);
  EXPECT_EQ(first.text().data(), text);
}

TEST(Namespace, IsPopulatedOnceWhenLookedIntoAndAgainOnlyAfterAFailure) {
  int outer = 0, inner = 0;
  COSNamespace& lazy = infos::registered("lazy", [&](COSNamespace& holder) {
    ++outer;
    holder.addInnerNamespace(new infos::Namespace("io", [&](COSNamespace& io) {
      io.addClass(new infos::Class("Second"), 0, 2);
      io.addFunction(new infos::Method("make"), 0, 2);
      EXPECT_NE(io.findClass("Second"), nullptr) << "a population may look at what it has made";
      if (++inner < 3) throw std::runtime_error("no memory for the rest");
    }));
  });
  lazy.addClass(new infos::Class("AddedFromOutside"), 0, 2);
  EXPECT_EQ(outer, 0);
  COSNamespace* const io = COSNamespace::getNamespace(makeInterned("lazy.io"));
  ASSERT_NE(io, nullptr);
  io->addClass(new infos::Class("First"), 0, 2);
  EXPECT_EQ(inner, 0) << "what is found is not looked into";

  const int aliveBefore = infos::alive;
  for (int attempt = 1; attempt < 3; ++attempt) {
    EXPECT_EQ(raisedBy([&] { io->classes(); }), "no memory for the rest");
    EXPECT_EQ(infos::alive, aliveBefore);
  }
  EXPECT_EQ(io->findClass("second"), nullptr);
  EXPECT_EQ(io->classes().at(0)->getIdentifier().text(), "lazy.io.First");
  EXPECT_EQ(io->classes().at(1)->getIdentifier().text(), "lazy.io.Second");
  EXPECT_EQ(io->findFunction("make")->access.set, 2);
  EXPECT_EQ(outer, 1);
  EXPECT_EQ(inner, 3);
  for (const char* none : {"", ".", "lazy.", ".lazy", "lazy..io", "laz", "Lazy", "lazy.io.io"}) {
    EXPECT_EQ(COSNamespace::getNamespace(makeInterned(none)), nullptr) << none;
  }
}

TEST(Namespace, ASecondDefinitionIsRefusedAndItsInfoFreed) {
  struct Strict : infos::Namespace {
    using Namespace::Namespace;
    void throwErrorForDefinitionOfExistingName(std::string_view taken) const override {
      if (taken == "Class") throw std::runtime_error("its own error");
    }
  };
  COSNamespace::addNamespace(new Strict("strict"));
  COSNamespace& strict = *COSNamespace::getNamespace("strict");
  strict.addClass(new infos::Class("Class"), 0, 2);
  strict.addInnerNamespace(new infos::Namespace("inner"));
  strict.addFunction(new infos::Method("make"), 0, 2);
  const int aliveBefore = infos::alive;
  const std::string taken = "Corvan:ObjectSystem:NameAlreadyDefined(";
  const std::string invalid = "Corvan:ObjectSystem:InvalidName(";
  const std::pair<std::function<void()>, std::string> kCases[] = {
      {[] { COSNamespace::addNamespace(new infos::Namespace("strict")); }, taken + "strict)"},
      {[&] { strict.addClass(new infos::Class("Class"), 0, 2); }, "its own error"},
      {[&] { strict.addInnerNamespace(new infos::Namespace("inner")); }, taken + "inner)"},
      {[&] { strict.addFunction(new infos::Method("inner"), 0, 2); }, taken + "inner)"},
      {[&] { strict.addClass(new infos::Class("make"), 0, 2); }, taken + "make)"},
      {[&] { strict.addClass(new infos::Class("a.b"), 0, 2); }, invalid + "a.b)"},
      {[] { COSNamespace::addNamespace(new infos::Namespace("")); }, invalid + ")"},
  };
  for (const auto& [define, raised] : kCases) {
    EXPECT_EQ(raisedBy(define), raised);
    EXPECT_EQ(infos::alive, aliveBefore) << raised;
  }
}

TEST(Namespace, AMissAsksTheInfoToLoad) {
  struct OnDemand : infos::Namespace {
    using Namespace::Namespace;
    bool attemptToLoadInnerNamespace(COSNamespace&, std::string_view) override {
      throw std::runtime_error("not today");
    }
    bool attemptToLoadClass(COSNamespace& holder, std::string_view wanted) override {
      // To look here does not ask again.
      if (wanted == "Late" && holder.findClass("Late") == nullptr) {
        holder.addClass(new infos::Class("Late"), 0, 2);
      }
      return wanted == "Late";
    }
  };
  COSNamespace::addNamespace(new OnDemand("demand"));
  COSNamespace& demand = *COSNamespace::getNamespace("demand");
  EXPECT_EQ(raisedBy([&] { COSNamespace::getNamespace("demand.inner"); }), "not today");
  EXPECT_NE(demand.findClass("Late"), nullptr) << "asked again after an error";
  EXPECT_EQ(demand.findClass("Later"), nullptr);
}

TEST(Class, IsDefinedOnceAndItsMembersShareOneSetOfNames) {
  struct Data {
    int count() { return 1; }
  };
  int definitions = 0;
  COSNamespace& holder = infos::registered("defined");
  const auto define = [&](COSClass& file) {
    file.addMethod(new infos::Method("File", {"unicodeString"}));
    file.addMethod(new infos::Method("list"));
    file.addProperty("Count", "int32 scalar", &Data::count, 0, 2, 0x40, u"");
    if (++definitions == 1) throw std::runtime_error("half");
  };
  holder.addClass(new infos::Class("File", define), 0, 2);
  COSClass& file = *holder.findClass("File");
  EXPECT_EQ(definitions, 0);
  const int aliveBefore = infos::alive;
  EXPECT_EQ(raisedBy([&] { file.methods(); }), "half");
  EXPECT_EQ(infos::alive, aliveBefore);
  EXPECT_EQ(file.methods().size(), 1u) << "the constructor is not among them";
  EXPECT_EQ(file.findMethod("File"), nullptr);
  EXPECT_EQ(nameOf(*file.constructor()), "File");
  EXPECT_EQ(file.properties().size(), 1u);
  for (const std::string name : {"File", "list", "Count"}) {
    const std::string taken = "Corvan:ObjectSystem:NameAlreadyDefined(defined.File." + name + ")";
    EXPECT_EQ(raisedBy([&] { file.addMethod(new infos::Method(name)); }), taken);
    EXPECT_EQ(raisedBy([&] { file.addProperty(name, "", &Data::count, 0, 2, 0, u""); }), taken);
  }
  EXPECT_EQ(infos::alive, aliveBefore + 2);
}
