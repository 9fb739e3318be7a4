#include "platform/export_file/data_export_file.h"

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "tests/support/archive_builder.h"
#include "tests/support/temporary_folder.h"

using namespace tavlox;
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
  EXPECT_THROW(file.getPackageImpl(), opc::Exception) << "not bound";
  EXPECT_THROW(file.initReadPackage(folder.wide("missing")), opc::model::PackageNotFound);
  file.modifyReadPackage(folder.wide("p.tavlox"));
  const auto parts = file.getPartsByRelationshipType(u"Pair");
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0].getName().text(), u"/b.txt");
  EXPECT_EQ(parts[1].getName().text(), u"/a.txt");
  EXPECT_TRUE(file.getPartsByRelationshipType(u"pair").empty());
  EXPECT_EQ(file.getPartsByRelationshipType(u"Broken").size(), 1u) << "the other is gone";
  for (const char16_t* type : {u"Outside", u"Climbs"})
    EXPECT_TRUE(file.getPartsByRelationshipType(type).empty());
}
