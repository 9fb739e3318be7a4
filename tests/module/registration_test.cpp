#include <gtest/gtest.h>

#include "entry/entry_points.h"
#include "entry/namespace_infos.h"
#include "fileclass/method_info.h"
#include "platform/zobs/dispatch.h"
#include "platform/zobs/namespace.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

// Each case runs in a process of its own, so that each meets the registry as a new host does.
namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using support::raisedBy;
using zobs::COSNamespace;
using zobs::internal::makeInterned;

/// A namespace that another module registered before.
class OtherModulesNamespace final : public zobs::COSNamespaceInfo {
 public:
  explicit OtherModulesNamespace(const char* name) : name_(name) {}
  std::string getName() const override { return name_; }
  void populate(COSNamespace&) override {}

 private:
  const char* name_;
};

void expectEverythingIsRegistered() {
  COSNamespace* io = COSNamespace::getNamespace(makeInterned("tavlox.io"));
  ASSERT_NE(io, nullptr);
  ASSERT_EQ(io->classes().size(), 1u);
  EXPECT_EQ(io->classes()[0]->getIdentifier().text(), "tavlox.io.File");
  ASSERT_EQ(io->functions().size(), 1u);
  EXPECT_EQ(io->functions()[0]->getName()->text(), "getCompression");
}

TEST(Registration, OnANewHost) {
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
}

TEST(Registration, BesideAnExistingOuterNamespace) {
  COSNamespace::addNamespace(new OtherModulesNamespace("tavlox"));
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
}

TEST(Registration, IntoBothNamespacesWhenTheyExist) {
  COSNamespace::addNamespace(new OtherModulesNamespace("tavlox"));
  COSNamespace::getNamespace(makeInterned("tavlox"))->addInnerNamespace(new OtherModulesNamespace("io"));
  CvInitialize_orra_tavlox_io();
  expectEverythingIsRegistered();
}

TEST(Registration, HappensOnceAndStays) {
  CvInitialize_orra_tavlox_io();
  CvInitialize_orra_tavlox_io();
  CvTerminate_orra_orra_tavlox_io();
  EXPECT_EQ(COSNamespace::topLevelNamespaces().size(), 1u);
  expectEverythingIsRegistered();
}

TEST(Registration, IsNotRepeatedAfterItFailed) {
  COSNamespace::addNamespace(new OtherModulesNamespace("tavlox"));
  COSNamespace* tavlox = COSNamespace::getNamespace(makeInterned("tavlox"));
  tavlox->addInnerNamespace(new OtherModulesNamespace("io"));
  addClassAndFunction(*COSNamespace::getNamespace(makeInterned("tavlox.io")));  // "File" is taken
  EXPECT_NE(raisedBy([] { CvInitialize_orra_tavlox_io(); }), "");
  EXPECT_EQ(raisedBy([] { CvInitialize_orra_tavlox_io(); }), "");
}

class FileClass : public ::testing::Test {
 protected:
  void SetUp() override { CvInitialize_orra_tavlox_io(); }

  zobs::COSInterfacePointer construct(const std::u16string& path) {
    return zobs::construct(client_, zobs::findClass("tavlox.io.File"), {path});
  }

  zobs::COSClient client_{"test"};
  support::SessionFixture sessions_;
};

std::string signatureOf(const zobs::COSMethodInfo& method) {
  std::string text = method.getName()->text() + "(";
  for (const auto& type : method.getSignature().inputTypes()) text += type.text() + " ";
  text += "-" + std::to_string(method.getSignature().optionalInputCount()) + ") ->";
  for (const auto& type : method.getSignature().outputTypes()) text += " " + type.text();
  return text;
}

TEST_F(FileClass, HasTheMethodsThatScriptsRelyOn) {
  const char* kSignatures[] = {
      "getAllRunIDs(tavlox.io.File -0) -> any",
      "getRunInfo(tavlox.io.File any -0) -> any",
      "getAllSignalsInfo(tavlox.io.File -0) -> any",
      "getSignalInfoByName(tavlox.io.File unicodeString -0) -> any",
      "addFile(tavlox.io.File unicodeString unicodeString unicodeString unicodeString unicodeString -4) ->",
      "setFileDescription(tavlox.io.File unicodeString -0) ->",
      "getFile(tavlox.io.File unicodeString unicodeString unicodeString -2) -> any",
      "list(tavlox.io.File unicodeString -1) -> any",
      "deleteFile(tavlox.io.File unicodeString -0) ->",
  };
  zobs::COSClass& file = zobs::findClass("tavlox.io.File");
  ASSERT_EQ(file.methods().size(), std::size(kSignatures));
  for (std::size_t i = 0; i < std::size(kSignatures); ++i) {
    EXPECT_EQ(signatureOf(*file.methods()[i]), kSignatures[i]);
  }
  EXPECT_EQ(signatureOf(*file.constructor()), "File(unicodeString -0) -> tavlox.io.File");
}

TEST_F(FileClass, HasReadOnlyPropertiesWithTheWordsTheHostShows) {
  struct Property {
    const char *name, *type;
    std::uint32_t attributes;
    const char16_t* description;
  };
  const Property kProperties[] = {
      {"Filename", "unicodeString", 0x800, u"TAVLOX file name"},
      {"Description", "unicodeString", 0x800, u"TAVLOX file description"},
      {"LastModified", "unicodeString", 0x800, u"Last-modified timestamp"},
      {"Version", "unicodeString", 0x800, u"TAVLOX file version number"},
      {"Compression", "unicodeString", 0x800, u"TAVLOX file compression type"},
      {"NumRuns", "int32 scalar", 0x800, u"Number of runs in TAVLOX file"},
      {"NumSignals", "int32 scalar", 0x40, u"Total number of signals in TAVLOX file"},
      {"ContainsView", "logical scalar", 0x40, u"Ture if TAVLOX file contains ORRA View"},
      {"ContainsComparison", "logical scalar", 0x40, u"Ture if TAVLOX file contains ORRA Comparison Run(s)"},
  };
  const auto& registered = zobs::findClass("tavlox.io.File").properties();
  ASSERT_EQ(registered.size(), std::size(kProperties));
  for (std::size_t i = 0; i < std::size(kProperties); ++i) {
    EXPECT_EQ(registered[i].name.text(), kProperties[i].name);
    EXPECT_EQ(registered[i].type.text(), kProperties[i].type) << kProperties[i].name;
    EXPECT_EQ(registered[i].attributes, kProperties[i].attributes) << kProperties[i].name;
    EXPECT_EQ(registered[i].description, kProperties[i].description);
    EXPECT_EQ(registered[i].getAccess, 0);
    EXPECT_EQ(registered[i].setAccess, 2);
  }
}

TEST_F(FileClass, AnswersEachPropertyWithItsOwnGetter) {
  const auto file = construct(sessions_.write("s.tavlox", [](tavlox::SessionWriter& session) {
    session.setDescription(u"Ω");
    support::fillTwoRuns(session);
    session.setCompressionType(u"normal");
    session.setView("{}");
  }));
  const auto textOfProperty = [&](const char* name) {
    return std::get<std::u16string>(getProperty(file, name));
  };
  const auto numberOf = [&](const char* name) {
    return std::get<HostArray>(getProperty(file, name)).scalarAsDouble();
  };
  EXPECT_EQ(textOfProperty("Filename"), sessions_.folder().wide("s.tavlox"));
  EXPECT_EQ(textOfProperty("Description"), u"Ω");
  EXPECT_EQ(textOfProperty("Version"), u"1.0");
  EXPECT_EQ(textOfProperty("Compression"), u"normal");
  EXPECT_EQ(textOfProperty("LastModified").size(), std::u16string(u"15-Nov-2026 12:44:29").size());
  EXPECT_EQ(numberOf("NumRuns"), 2);
  EXPECT_EQ(numberOf("NumSignals"), 4);
  EXPECT_EQ(std::get<HostArray>(getProperty(file, "ContainsView")).kind(), corvan::ArrayKind::Logical);
  EXPECT_EQ(numberOf("ContainsView"), 1);
  EXPECT_EQ(numberOf("ContainsComparison"), 0);
  EXPECT_NE(raisedBy([&] { setProperty(file, "Description", std::u16string(u"x")); }), "");
}

TEST_F(FileClass, FailsToConstructOnAMissingFileUnderTheNameGiven) {
  EXPECT_EQ(raisedBy([&] { construct(u"no/such.tavlox"); }), "tavlox:general:FileNotFound(no/such.tavlox)");
}

TEST_F(FileClass, SetsTheDescriptionAndKeepsTheRest) {
  const auto file = construct(sessions_.write("s.tavlox", support::fillTwoRuns));
  const std::u16string description = u"  spaced & <marked>\r\nü  ";
  EXPECT_TRUE(callMethod(client_, file, "setFileDescription", {description}).empty());
  EXPECT_EQ(std::get<std::u16string>(getProperty(file, "Description")), description);
  EXPECT_EQ(std::get<HostArray>(getProperty(file, "NumSignals")).scalarAsDouble(), 4);
}

TEST_F(FileClass, HasTheFunctionGetCompressionBesideIt) {
  sessions_.write("s.tavlox", [](tavlox::SessionWriter& session) { session.setCompressionType(u"normal"); });
  const auto outputs =
      zobs::callFunction(client_, "tavlox.io.getCompression", {sessions_.folder().wide("s.tavlox")});
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(std::get<std::u16string>(outputs[0]), u"normal");
}

TEST_F(FileClass, RefusesWrongInputsBeforeAMethodRuns) {
  const auto file = construct(sessions_.write("s.tavlox", support::fillTwoRuns));
  const std::string before = sessions_.folder().read("s.tavlox");
  const auto call = [&](const char* method, std::vector<zobs::Value> inputs) {
    const std::string raised = raisedBy([&] { callMethod(client_, file, method, std::move(inputs)); });
    return raised.substr(0, raised.find('('));
  };
  EXPECT_EQ(call("setFileDescription", {}), "Corvan:ObjectSystem:WrongInputCount");
  EXPECT_EQ(call("setFileDescription", {u"a", u"b"}), "Corvan:ObjectSystem:WrongInputCount");
  EXPECT_EQ(call("setFileDescription", {HostArray::doubleScalar(1)}), "Corvan:ObjectSystem:WrongInputType");
  EXPECT_EQ(call("noSuchMethod", {}), "Corvan:ObjectSystem:NoSuchMethod");
  EXPECT_EQ(sessions_.folder().read("s.tavlox"), before);
}

}  // namespace
}  // namespace orra::tavloxio
