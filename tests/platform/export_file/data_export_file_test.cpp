#include "platform/export_file/data_export_file.h"

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/export_file/session_writer.h"
#include "tests/support/archive_builder.h"
#include "tests/support/temporary_folder.h"

using namespace tavlox;
using opc::interfaces::OpenMode;
using support::TemporaryFolder;

TEST(DataExportFile, PartsComeInTheOrderOfTheRelationships) {
  const TemporaryFolder folder;
  folder.write(
      "p.tavlox",
      support::foreignPackage(
          R"(<Relationship Id="z" Type="Pair" Target="/b.txt"/><Relationship Id="a" Type="Pair" Target="a.txt"/>)"
          R"(<Relationship Id="m" Type="Broken" Target="/a.txt"/>)"
          R"(<Relationship Id="n" Type="Broken" Target="/gone.txt"/>)"
          R"(<Relationship Id="e" Type="Outside" Target="http://localhost/" TargetMode="External"/>)"
          R"(<Relationship Id="u" Type="Climbs" Target="../../x"/>)",
          {"a.txt", "b.txt"}));
  DataExportFile file(false);
  file.initReadPackage(folder.wide("p.tavlox"));
  file.modifyReadPackage(folder.wide("p.tavlox"));
  const auto parts = file.getPartsByRelationshipType(u"Pair");
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0].getName().text(), u"/b.txt");
  EXPECT_EQ(parts[1].getName().text(), u"/a.txt");
  EXPECT_TRUE(file.getPartsByRelationshipType(u"pair").empty());
  for (const char16_t* type : {u"Broken", u"Outside", u"Climbs"}) {
    EXPECT_THROW(file.getPartsByRelationshipType(type), opc::Exception);
  }
}

TEST(DataExportFile, ADescriptionKeepsTheOtherProperties) {
  const TemporaryFolder folder;
  SessionWriter(folder.wide("p.tavlox")).close();
  DataExportFile file(false);
  file.modify(folder.wide("p.tavlox"));
  file.getPackageImpl().open(OpenMode::Modify);
  file.setDescription(u"new & größer");
  file.closePackage();

  DataExportFile reader(false);
  reader.modifyReadPackage(folder.wide("p.tavlox"));
  std::u16string description, version;
  reader.getDescription(description);
  reader.getVersion(version);
  EXPECT_EQ(description, u"new & größer");
  EXPECT_EQ(version, u"1.0");
}

TEST(DataExportFile, ANewFileHasNeitherDescriptionNorVersion) {
  const TemporaryFolder folder;
  DataExportFile file(true);
  file.modify(folder.wide("new.tavlox"));
  std::u16string description = u"x", version = u"x";
  file.getDescription(description);
  file.getVersion(version);
  EXPECT_EQ(description, u"");
  EXPECT_EQ(version, u"");
  file.setDescription(u"first");
  file.closePackage();
  file.closePackage();

  DataExportFile reader(false);
  reader.modifyReadPackage(folder.wide("new.tavlox"));
  reader.getDescription(description);
  EXPECT_EQ(description, u"first");
}

TEST(DataExportFile, AMissingFileAndAnUnboundOneAreErrors) {
  const TemporaryFolder folder;
  DataExportFile file(false);
  EXPECT_THROW(file.getPackageImpl(), opc::Exception);
  EXPECT_NO_THROW(file.closePackage());
  EXPECT_THROW(file.initReadPackage(folder.wide("missing")), opc::model::PackageNotFound);
}
