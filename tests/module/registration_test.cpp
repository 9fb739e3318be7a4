#include <gtest/gtest.h>

#include "entry/entry_points.h"
#include "platform/zobs/dispatch.h"
#include "tests/support/raised.h"

// Each case runs in a process of its own, so that each meets the registry as a new host does.
namespace orra::tavloxio {
namespace {

using support::raisedBy;
using zobs::COSNamespace;

/// A namespace, or a class, that another module registered before.
struct OtherNamespace final : zobs::COSNamespaceInfo {
  explicit OtherNamespace(const char* ownName) : name(ownName) {}
  std::string getName() const override { return name; }
  void populate(COSNamespace&) override {}
  const char* name;
};
struct OtherClass final : zobs::COSClassInfo {
  std::string getName() const override { return "File"; }
  void defineMembers(zobs::COSClass&) override {}
  void* createInstanceData() override { return nullptr; }
  void destroyInstanceData(void*) override {}
};

void expectEverythingIsRegistered() {
  COSNamespace* const io = COSNamespace::getNamespace("tavlox.io");
  ASSERT_NE(io, nullptr);
  ASSERT_EQ(io->classes().size(), 1u);
  EXPECT_EQ(io->classes()[0]->getIdentifier().text(), "tavlox.io.File");
  ASSERT_EQ(io->functions().size(), 1u);
  EXPECT_EQ(zobs::signatureText(*io->functions()[0]->info), "getCompression(unicodeString)");
}

TEST(Registration, OnANewHostHappensOnceAndStays) {
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
  CvInitialize_orra_tavlox_io();
  CvTerminate_orra_orra_tavlox_io();
  expectEverythingIsRegistered();
}

TEST(Registration, BesideAnExistingOuterNamespace) {
  COSNamespace::addNamespace(new OtherNamespace("tavlox"));
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
}

void registerBothNamespaces() {
  COSNamespace::addNamespace(new OtherNamespace("tavlox"));
  COSNamespace::getNamespace("tavlox")->addInnerNamespace(new OtherNamespace("io"));
}

TEST(Registration, IntoBothNamespacesWhenTheyExist) {
  registerBothNamespaces();
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
}

TEST(Registration, IsNotRepeatedAfterItFailed) {
  registerBothNamespaces();
  COSNamespace::getNamespace("tavlox.io")->addClass(new OtherClass, 0, 2);
  EXPECT_EQ(raisedBy([] { CvInitialize_orra_tavlox_io(); }), "Corvan:ObjectSystem:NameAlreadyDefined(File)");
  EXPECT_EQ(raisedBy([] { CvInitialize_orra_tavlox_io(); }), "");
}

TEST(FileClass, HasTheMethodsAndPropertyWordsThatScriptsRelyOn) {
  CvInitialize_orra_tavlox_io();
  zobs::COSClass& file = zobs::findClass("tavlox.io.File");
  // The least and the greatest number of inputs, and the number of outputs.
  std::string methods;
  for (const auto& method : file.methods()) {
    const zobs::COSMethodSignature& signature = method->getSignature();
    methods += nameOf(*method) + " " + std::to_string(signature.requiredInputCount()) + "-" +
               std::to_string(signature.inputTypes().size()) + ":" +
               std::to_string(signature.outputTypes().size()) + " ";
  }
  EXPECT_EQ(
      methods,
      "getAllRunIDs 1-1:1 getRunInfo 2-2:1 getAllSignalsInfo 1-1:1 getSignalInfoByName 2-2:1 addFile 2-6:0 "
      "setFileDescription 2-2:0 getFile 2-4:1 list 1-2:1 deleteFile 2-2:0 ");
  EXPECT_EQ(zobs::signatureText(*file.constructor()), "File(unicodeString)");
  EXPECT_EQ(file.constructor()->getSignature().outputTypes().at(0).text(), "tavlox.io.File");

  const std::size_t kFirstOfTheOtherWord = 6;
  const auto& properties = file.properties();
  ASSERT_EQ(properties.size(), 9u);
  for (std::size_t i = 0; i < properties.size(); ++i) {
    EXPECT_EQ(properties[i].attributes, i < kFirstOfTheOtherWord ? 0x800u : 0x40u) << i;
  }
  EXPECT_EQ(file.findProperty("ContainsView")->description, u"Ture if TAVLOX file contains ORRA View");
}

}  // namespace
}  // namespace orra::tavloxio
