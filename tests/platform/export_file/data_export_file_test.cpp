#include "platform/export_file/data_export_file.h"

#include <gtest/gtest.h>

#include "platform/opc/zip/exception.h"
#include "tests/support/temporary_folder.h"

using namespace tavlox;
using opc::interfaces::OpenMode;
using opc::model::CoreProperty;
using support::TemporaryFolder;

namespace {

constexpr char kCoreProperties[] =
    R"(<?xml version="1.0" encoding="UTF-8"?><cp:coreProperties)"
    R"( xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties")"
    R"( xmlns:dc="http://purl.org/dc/elements/1.1/"><dc:creator>Jo</dc:creator>)"
    R"(<dc:description>old</dc:description><cp:version>2.5</cp:version></cp:coreProperties>)";

/// A package of three parts, as another program might have written it.
void writePackage(const TemporaryFolder& folder) {
  folder.write(
      "p/[Content_Types].xml",
      R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
      R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
      R"(<Default Extension="txt" ContentType="text/plain"/>)"
      R"(<Override PartName="/core.xml")"
      R"( ContentType="application/vnd.openxmlformats-package.core-properties+xml"/></Types>)");
  folder.write("p/core.xml", kCoreProperties);
  folder.write("p/a.txt", "a");
  folder.write("p/b.txt", "b");
  folder.write(
      "p/_rels/.rels",
      R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
      R"(<Relationship Id="z" Type="Pair" Target="/b.txt"/><Relationship Id="a" Type="Pair" Target="a.txt"/>)"
      R"(<Relationship Id="m" Type="Broken" Target="/a.txt"/><Relationship Id="n" Type="Broken" Target="/gone.txt"/>)"
      R"(<Relationship Id="e" Type="Outside" Target="http://localhost/" TargetMode="External"/>)"
      R"(<Relationship Id="u" Type="Climbs" Target="../../x"/><Relationship Id="c")"
      R"( Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties")"
      R"( Target="core.xml"/></Relationships>)");
  const std::string zip =
      "cd '" + folder.narrow("p") + "' && zip -qr ../p.tavlox '[Content_Types].xml' _rels . ";
  ASSERT_EQ(std::system(zip.c_str()), 0);
}

}  // namespace

TEST(DataExportFile, PartsComeInTheOrderOfTheRelationships) {
  const TemporaryFolder folder;
  writePackage(folder);
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
  writePackage(folder);
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
  EXPECT_EQ(version, u"2.5");
  EXPECT_EQ(reader.getPackageImpl().getCoreProperty(CoreProperty::Creator), u"Jo");
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
