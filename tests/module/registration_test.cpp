#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST(Registration, OnANewHostHappensOnceAndStays) {
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

/// A property's value as text: numbers with their class.
std::string shown(const zobs::Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) return fl::i18n::to_string(*text);
  const auto& array = std::get<HostArray>(value);
  return std::string(array.className()) + " " + std::to_string(static_cast<int>(array.scalarAsDouble()));
}

TEST_F(FileClass, HasReadOnlyPropertiesWithTheWordsTheHostShows) {
  setenv("TZ", "UTC", 1);
  const auto file = construct(sessions_.write("s.tavlox", [](tavlox::SessionWriter& session) {
    session.setDescription(u"Ω");
    support::fillTwoRuns(session);
    session.addRun({.id = -4, .runClassName = "ComparisonSet"});
    session.setCompressionType(u"normal");
  }));
  const std::string path = sessions_.folder().narrow("s.tavlox");
  const timespec times[2] = {{0, UTIME_OMIT}, {1'700'000'000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  struct Property {
    const char *name, *type;
    std::uint32_t attributes;
    const char16_t* description;
    std::string value;
  };
  const Property kProperties[] = {
      {"Filename", "unicodeString", 0x800, u"TAVLOX file name", path},
      {"Description", "unicodeString", 0x800, u"TAVLOX file description", "Ω"},
      {"LastModified", "unicodeString", 0x800, u"Last-modified timestamp", "14-Nov-2023 22:13:20"},
      {"Version", "unicodeString", 0x800, u"TAVLOX file version number", "1.0"},
      {"Compression", "unicodeString", 0x800, u"TAVLOX file compression type", "normal"},
      {"NumRuns", "int32 scalar", 0x800, u"Number of runs in TAVLOX file", "int32 3"},
      {"NumSignals", "int32 scalar", 0x40, u"Total number of signals in TAVLOX file", "int32 4"},
      {"ContainsView", "logical scalar", 0x40, u"Ture if TAVLOX file contains ORRA View", "logical 0"},
      {"ContainsComparison", "logical scalar", 0x40, u"Ture if TAVLOX file contains ORRA Comparison Run(s)",
       "logical 1"},
  };
  const auto& registered = zobs::findClass("tavlox.io.File").properties();
  ASSERT_EQ(registered.size(), std::size(kProperties));
  for (std::size_t i = 0; i < std::size(kProperties); ++i) {
    SCOPED_TRACE(kProperties[i].name);
    EXPECT_EQ(registered[i].name.text(), kProperties[i].name);
    EXPECT_EQ(registered[i].type.text(), kProperties[i].type);
    EXPECT_EQ(registered[i].attributes, kProperties[i].attributes);
    EXPECT_EQ(registered[i].description, kProperties[i].description);
    EXPECT_EQ(registered[i].getAccess, 0);
    EXPECT_EQ(registered[i].setAccess, 2);
    EXPECT_EQ(shown(getProperty(file, kProperties[i].name)), kProperties[i].value);
  }
}

}  // namespace
}  // namespace orra::tavloxio
