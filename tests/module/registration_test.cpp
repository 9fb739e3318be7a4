#include <gtest/gtest.h>

#include "entry/entry_points.h"
#include "platform/zobs/dispatch.h"
#include "tests/support/raised.h"

// Each case runs in a process of its own, so that each meets the registry as a new host does.
namespace orra::tavloxio {
namespace {

using zobs::COSNamespace;

/// A namespace that another module registered before.
struct OtherNamespace final : zobs::COSNamespaceInfo {
  explicit OtherNamespace(const char* ownName) : name(ownName) {}
  std::string getName() const override { return name; }
  void populate(COSNamespace&) override {}
  const char* name;
};

/// The parameter is how much of "tavlox.io" another module has registered: nothing, "tavlox", or all.
class Registration : public ::testing::TestWithParam<int> {};

TEST_P(Registration, HappensOnceAndStaysWhateverIsThereBefore) {
  if (GetParam() > 0) COSNamespace::addNamespace(new OtherNamespace("tavlox"));
  if (GetParam() > 1) COSNamespace::getNamespace("tavlox")->addInnerNamespace(new OtherNamespace("io"));
  for (int call = 0; call < 2; ++call) {
    CvInitialize_orra_tavlox_io();
    COSNamespace* const io = COSNamespace::getNamespace("tavlox.io");
    ASSERT_NE(io, nullptr);
    ASSERT_EQ(io->classes().size(), 1u);
    EXPECT_EQ(io->classes()[0]->getIdentifier().text(), "tavlox.io.File");
    ASSERT_EQ(io->functions().size(), 1u);
    EXPECT_EQ(zobs::signatureText(*io->functions()[0]->info), "getCompression(unicodeString)");
    CvTerminate_orra_orra_tavlox_io();
  }
}
INSTANTIATE_TEST_SUITE_P(Hosts, Registration, ::testing::Range(0, 3));

TEST(Initialising, AgainAfterAFailureChangesNothing) {
  struct OtherFunction final : zobs::COSMethodInfo {
    const zobs::Interned* getName() const override { return &name; }
    const zobs::COSMethodSignature& getSignature() const override { return signature; }
    void invoke(zobs::COSClient&, int*, zobs::Value*, int, std::span<const zobs::Value>) override {}
    zobs::Interned name = zobs::internal::makeInterned("getCompression");
    zobs::COSMethodSignature signature;
  };
  COSNamespace::addNamespace(new OtherNamespace("tavlox"));
  COSNamespace::getNamespace("tavlox")->addInnerNamespace(new OtherNamespace("io"));
  COSNamespace* const io = COSNamespace::getNamespace("tavlox.io");
  io->addFunction(new OtherFunction, zobs::kPublicAccess, zobs::kNoAccess);
  EXPECT_EQ(support::ruleOf(CvInitialize_orra_tavlox_io), "Corvan:ObjectSystem:NameAlreadyDefined");
  EXPECT_EQ(support::ruleOf(CvInitialize_orra_tavlox_io), "");
  EXPECT_EQ(io->classes().size(), 1u);
  EXPECT_EQ(zobs::signatureText(*io->functions().at(0)->info), "getCompression()") << "the other's";
}

TEST(FileClass, HasTheTypesAndPropertyWordsThatScriptsRelyOn) {
  CvInitialize_orra_tavlox_io();
  zobs::COSClass& file = zobs::findClass("tavlox.io.File");
  EXPECT_EQ(file.constructor()->getSignature().outputTypes().at(0).text(), "tavlox.io.File");
  std::string words;  // of the nine properties, in their order
  for (const auto& property : file.properties()) words += property.attributes == 0x800 ? "f" : "4";
  EXPECT_EQ(words, "ffffff444");
  EXPECT_EQ(file.findProperty("ContainsView")->description, u"Ture if TAVLOX file contains ORRA View");
}

}  // namespace
}  // namespace orra::tavloxio
