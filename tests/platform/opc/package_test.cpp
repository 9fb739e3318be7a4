#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_index.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;
using support::PackageFixture;
using support::raisedBy;
using support::readAll;
using tests::contentTypes;
using tests::Items;
using tests::relationships;

constexpr auto kLink = R"(<Relationship Id="rId1" Type="t" Target="a.txt"/>)";

/// What opening raises, which must be PackageOpenFailed; "" if the package opens.
std::string refusalOf(const std::u16string& path, const zip::Limits& limits = {}) {
  Package package(path, limits);
  try {
    package.open(OpenMode::Read);
  } catch (const PackageOpenFailed& refused) {
    EXPECT_FALSE(package.isOpen());
    return refused.GetID();
  }
  return "";
}

std::string namesIn(const Package& package) {
  std::string names;
  for (const PartName& name : package.getPartNames()) names += name.encoded() + " ";
  return names;
}

struct Hostile {
  const char* why;
  const char* refusal;
  Items items;
};

const Hostile kHostile[] = {
    {"an archive, no package", "opc:package:ContentTypesMissing", {{"a.txt", "x"}}},
    {"the list is a folder", "opc:package:ContentTypesMissing", {{"[Content_Types].xml/", ""}}},
    {"two lists",
     "opc:package:ContentTypesTwice",
     {{"[Content_Types].xml", contentTypes()}, {"[CONTENT_types].xml", contentTypes()}}},
    {"the list is cut off", "opc:xml:Malformed", {{"[Content_Types].xml", contentTypes().substr(0, 100)}}},
    {"the list declares entities",
     "opc:xml:DocumentTypeDeclaration",
     {{"[Content_Types].xml", "<!DOCTYPE a [<!ENTITY b \"c\">]>" + contentTypes().substr(21)}}},
    {"names that differ in case",
     "opc:package:EquivalentNames",
     {{"[Content_Types].xml", contentTypes()}, {"a.txt", "1"}, {"A.TXT", "2"}}},
    {"names that differ in encoding",
     "opc:package:EquivalentNames",
     {{"[Content_Types].xml", contentTypes()}, {"aa.txt", "1"}, {"a%61.txt", "2"}}},
    {"equivalent names without a type",
     "opc:package:EquivalentNames",
     {{"[Content_Types].xml", contentTypes()}, {"a.bin", "1"}, {"A.bin", "2"}}},
    {"two relationship parts of one part",
     "opc:package:EquivalentNames",
     {{"[Content_Types].xml", contentTypes()},
      {"a.txt", ""},
      {"_rels/a.txt.rels", relationships(kLink)},
      {"_RELS/A.txt.rels", relationships("")}}},
    {"a part in pieces",
     "opc:package:InterleavedPart",
     {{"[Content_Types].xml", contentTypes()}, {"a.txt/[0].piece", "1"}, {"a.txt/[1].last.piece", "2"}}},
    {"a last piece alone",
     "opc:package:InterleavedPart",
     {{"[Content_Types].xml", contentTypes()}, {"b/[12].LAST.Piece", "1"}}},
    {"the package's relationships are cut off",
     "opc:xml:Malformed",
     {{"[Content_Types].xml", contentTypes()}, {"_rels/.rels", relationships(kLink).substr(0, 100)}}},
    {"a part's relationships are cut off",
     "opc:xml:Malformed",
     {{"[Content_Types].xml", contentTypes()}, {"a.txt", ""}, {"_rels/a.txt.rels", "<Relationships"}}},
    {"one ID twice",
     "opc:relationships:DuplicateId",
     {{"[Content_Types].xml", contentTypes()}, {"_rels/.rels", relationships(std::string(kLink) + kLink)}}},
};

TEST(Opening, RefusesWithTheRuleThatIsBroken) {
  const support::TemporaryFolder folder;
  for (const Hostile& hostile : kHostile) {
    tests::writeArchive(folder.narrow("hostile.zip"), hostile.items);
    EXPECT_EQ(refusalOf(folder.wide("hostile.zip")), hostile.refusal) << hostile.why;
  }
}

TEST(Opening, TellsAMissingFileFromARefusedOne) {
  const support::TemporaryFolder folder;
  Package missing(folder.wide("none.zip"));
  EXPECT_THROW(missing.open(OpenMode::Read), PackageNotFound);
  EXPECT_THROW(missing.open(OpenMode::Modify), PackageNotFound);
  folder.write("empty.zip", "");
  EXPECT_NE(refusalOf(folder.wide("empty.zip")), "");
  EXPECT_NE(refusalOf(folder.path().u16string()), "") << "a folder";
  PackageFixture truncated;
  truncated.add(u"/a.txt", std::string(1000, 'a')).truncate(truncated.bytes().size() - 10);
  EXPECT_NE(refusalOf(truncated.path()), "");
}

TEST(Opening, RefusesDocumentsWhoseDataIsDamaged) {
  PackageFixture damaged;
  damaged.add(u"/a.txt", "text");
  damaged.corruptEntry(0);  // the content types, which a new package starts with
  EXPECT_NE(refusalOf(damaged.path()), "");
}

TEST(Opening, HoldsTheLimitsForAllRelationshipsTogether) {
  const support::TemporaryFolder folder;
  tests::writeArchive(folder.narrow("p.zip"), {{"[Content_Types].xml", contentTypes()},
                                               {"a.txt", ""},
                                               {"_rels/.rels", relationships(kLink)},
                                               {"_rels/a.txt.rels", relationships(kLink)}});
  zip::Limits two, one, bytes;
  two.relationships = 2;
  one.relationships = 1;
  bytes.relationshipBytes = relationships(kLink).size() + 10;
  EXPECT_EQ(refusalOf(folder.wide("p.zip"), two), "");
  EXPECT_EQ(refusalOf(folder.wide("p.zip"), one), "opc:relationships:TooMany");
  EXPECT_NE(refusalOf(folder.wide("p.zip"), bytes), "");
}

struct Oddity {
  const char* why;
  const char* parts;
  Items items;  // besides the content types
};

const Oddity kOddities[] = {
    {"folders and a trash folder's items",
     "/a/b.txt ",
     {{"a/", ""}, {"a/b.txt", ""}, {"[trash]/0000.dat", "x"}}},
    {"no type, no name of a part",
     "/b.txt ",
     {{"a.bin", ""}, {"a//b.txt", ""}, {"c.", ""}, {"%zz.txt", ""}, {"/d.txt", ""}, {"b.txt", ""}}},
    {"a name below another part's", "/a.txt /a.txt/b.txt ", {{"a.txt", ""}, {"a.txt/b.txt", ""}}},
    {"broken relationships of no part", "/b.txt ", {{"_rels/a.txt.rels", "<broken"}, {"b.txt", ""}}},
    {"relationships of relationships", "/b.txt ", {{"_rels/_rels/.rels.rels", "<broken"}, {"b.txt", ""}}},
    {"names in another case and not encoded", "/Ab.TXT /%C3%B6.txt ", {{"Ab.TXT", ""}, {"\xC3\xB6.txt", ""}}},
    {"nothing but the list", "", {}},
};

TEST(Opening, TakesWhatRealFilesContain) {
  const support::TemporaryFolder folder;
  for (const Oddity& odd : kOddities) {
    Items items = odd.items;
    items.emplace(items.begin(), "[content_types].XML", contentTypes());
    tests::writeArchive(folder.narrow("odd.zip"), items);
    Package package(folder.wide("odd.zip"));
    EXPECT_EQ(raisedBy([&] { package.open(OpenMode::Read); }), "") << odd.why;
    EXPECT_EQ(package.isOpen() ? namesIn(package) : "", odd.parts) << odd.why;
  }
}

TEST(Opening, KeepsDanglingAndExternalRelationships) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()},
       {"a/b.txt", ""},
       {"_RELS/.rels",
        relationships(R"(<Relationship Id="x" Type="t" Target="gone.txt"/>)"
                      R"(<Relationship Id="y" Type="t" Target="http://h/" TargetMode="External"/>)"
                      R"(<Relationship Id="z" Type="u" Target="../../up.txt"/>)")},
       {"a/_rels/b.txt.rels", relationships(R"(<Relationship Id="r" Type="t" Target="../c%20d.txt"/>)")}});
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Read);
  EXPECT_EQ(package.getRelationships(ExcludeMode::None).size(), 3u);
  EXPECT_EQ(package.getRelationships(ExcludeMode::External).size(), 2u);
  EXPECT_EQ(package.getRelationshipsByType(u"t").size(), 2u);
  const Part part = package.getPart(PartName(u"/A/B.txt"));
  EXPECT_EQ(part.getName().text(), u"/a/b.txt") << "as the file has it";
  EXPECT_EQ(part.getRelationships(ExcludeMode::None).at(0).getTarget().text(), u"/c d.txt");
  EXPECT_EQ(raisedBy([&] { package.getPart(PartName(u"/gone.txt")); }),
            "opc:part:NotFound(" + folder.narrow("p.zip") + ", /gone.txt)");
}

TEST(Opening, NeedsASecondObjectToBeOpenTwice) {
  PackageFixture fixture;
  Package package(fixture.path());
  package.open(OpenMode::Read);
  EXPECT_THROW(package.open(OpenMode::Read), Exception);
  EXPECT_TRUE(package.isOpen());
}

// The index is shared exactly as long as the file is the same. A file that has only just changed is read once
// more, because a second change within the same clock tick could not be told apart.
TEST(Reopening, SharesTheIndexOfAnUnchangedFile) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "one");
  Package package(fixture.path());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  package.open(OpenMode::Read);
  const auto first = package.index();
  package.close();
  package.open(OpenMode::Modify);
  EXPECT_EQ(package.index(), first);
  Package another(fixture.path());
  another.open(OpenMode::Modify);
  EXPECT_EQ(another.index(), first);
  EXPECT_THROW(Package(fixture.path(), {.entries = 1}).open(OpenMode::Read), PackageOpenFailed);
  package.close();

  fixture.add(u"/b.txt", "two").path();
  package.open(OpenMode::Read);
  EXPECT_NE(package.index(), first);
  EXPECT_TRUE(package.hasPart(PartName(u"/b.txt")));
}

TEST(Reopening, SeesAChangeInPlaceThatKeepsSizeAndTimeStamp) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "one");
  Package package(fixture.path());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  package.open(OpenMode::Read);
  package.close();
  const auto time = std::filesystem::last_write_time(fixture.narrowPath());
  fixture.corruptEntry(0);
  std::filesystem::last_write_time(fixture.narrowPath(), time);
  EXPECT_THROW(package.open(OpenMode::Read), PackageOpenFailed);
}

TEST(Parts, ReadFrontToBackAndAgainAfterRestart) {
  PackageFixture fixture;
  const std::string data(300'000, 'd');
  fixture.add(u"/a b.txt", data, u"text/csv");
  Package package(fixture.path());
  package.open(OpenMode::Read);
  const Part part = package.getPart(PartName(u"/a b.txt"));
  EXPECT_EQ(part.getSize(), data.size());
  EXPECT_EQ(part.getContentType().text(), u"text/csv");
  char start[10];
  ASSERT_GT(part.getInputStream()->read(start, sizeof start), 0u);
  EXPECT_EQ(part.getInputStream(), Part(part).getInputStream())
      << "one stream of the handle, where it stands";
  EXPECT_LT(readAll(*part.getInputStream()).size(), data.size());
  part.getInputStream()->restart();
  std::ostringstream copy;
  EXPECT_EQ(copyStream(*part.getInputStream(), copy), data.size());
  EXPECT_EQ(copy.str(), data);
}

TEST(Parts, SayThatTheirPackageIsClosed) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text").link(u"/a.txt");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a.txt"));
  const auto input = part.getInputStream();
  const auto output = package.createPart(PartName(u"/b.txt"), ContentType(u"a/b"), {}).getOutputStream();
  package.close();
  package.open(OpenMode::Read);  // of which the old handles are no part

  const std::string closed = "opc:package:Closed(" + fixture.narrowPath() + ")";
  char byte;
  EXPECT_EQ(raisedBy([&] { input->read(&byte, 1); }), closed);
  EXPECT_EQ(raisedBy([&] { input->restart(); }), closed);
  EXPECT_EQ(raisedBy([&] { output->write("x", 1); }), closed);
  EXPECT_EQ(raisedBy([&] { part.getSize(); }), closed);
  EXPECT_EQ(raisedBy([&] { part.getInputStream(); }), closed);
  EXPECT_EQ(raisedBy([&] { part.getOutputStream(); }), closed);
  EXPECT_EQ(raisedBy([&] { part.getRelationships(ExcludeMode::None); }), closed);
  EXPECT_EQ(raisedBy([&] { part.deleteRelationship("rId1"); }), closed);
  package.close();
  EXPECT_EQ(raisedBy([&] { package.getRelationships(ExcludeMode::None); }), closed);
}

TEST(Parts, OutliveTheirPackage) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text");
  std::shared_ptr<InputStream> input;
  {
    Package package(fixture.path());
    package.open(OpenMode::Read);
    input = package.getPart(PartName(u"/a.txt")).getInputStream();
  }
  char byte;
  EXPECT_THROW(input->read(&byte, 1), Exception);
}

TEST(Parts, ShareOneLimitOnWhatIsInflated) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", std::string(600, 'a')).add(u"/b.txt", std::string(600, 'b'));
  zip::Limits limits;
  limits.inflatedBytesPerOpen = 1000;
  Package package(fixture.path(), limits);
  package.open(OpenMode::Read);
  readAll(*package.getPart(PartName(u"/a.txt")).getInputStream());
  const auto second = package.getPart(PartName(u"/b.txt")).getInputStream();
  EXPECT_EQ(raisedBy([&] { readAll(*second); }),
            "opc:package:TooMuchData(" + fixture.narrowPath() + ", 1000)");
  package.close();
  package.open(OpenMode::Read);
  EXPECT_EQ(readAll(*package.getPart(PartName(u"/b.txt")).getInputStream()).size(), 600u);
}

TEST(Parts, OfAPackageOpenForReadingCannotBeChanged) {
  PackageFixture fixture;
  fixture.addLinked(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Read);
  Part part = package.getPart(PartName(u"/a.txt"));
  const std::string refused = "opc:package:NotModifiable(" + fixture.narrowPath() + ")";
  EXPECT_EQ(raisedBy([&] { part.getOutputStream(); }), refused);
  EXPECT_EQ(raisedBy([&] { part.createInternalRelationship(u"t", URI(u"/a.txt"), {}); }), refused);
  EXPECT_EQ(raisedBy([&] { package.createPart(PartName(u"/b"), ContentType(u"a/b"), {}); }), refused);
  EXPECT_EQ(raisedBy([&] { package.deletePart(part.getName()); }), refused);
  EXPECT_EQ(raisedBy([&] { package.deleteRelationship("rId1"); }), refused);
  EXPECT_EQ(raisedBy([&] { package.setCoreProperty(CoreProperty::Description, u"x"); }), refused);
}

struct NewName {
  const char16_t* name;
  const char* refusal;
};

const NewName kNewNames[] = {
    {u"/user/a.txt", "opc:part:Exists"},
    {u"/USER/A.txt", "opc:part:Exists"},
    {u"/user/a.txt/b", "opc:part:DerivedName"},
    {u"/User/A.TXT/b/c", "opc:part:DerivedName"},
    {u"/user", "opc:part:DerivedName"},
    {u"/user/a", ""},  // shares letters only
    {u"/user/a.txt.b", ""},
    {u"/user/a.bin", "opc:part:NameOfItem"},
    {u"/link.txt", "opc:part:NameOfItem"},
};

TEST(NewParts, NeedANameOfTheirOwn) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()}, {"user/a.txt", ""}, {"user/a.bin", "no type"}});
  ASSERT_EQ(support::outputOf("/usr/bin/python3 -c \"import zipfile; link = zipfile.ZipInfo('link.txt'); "
                              "link.create_system = 3; link.external_attr = 0o120777 << 16; "
                              "zipfile.ZipFile('" +
                              folder.narrow("p.zip") + "', 'a').writestr(link, 'a')\""),
            "");
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Modify);
  EXPECT_EQ(namesIn(package), "/user/a.txt ");
  for (const NewName& row : kNewNames) {
    std::string refusal;
    try {
      package.createPart(PartName(row.name), ContentType(u"a/b"), {});
      package.deletePart(PartName(row.name));
    } catch (const Exception& refused) {
      refusal = refused.GetID();
    }
    EXPECT_EQ(refusal, row.refusal) << PartName(row.name).encoded();
  }
  package.deletePart(PartName(u"/user/a.txt"));
  EXPECT_EQ(raisedBy([&] { package.createPart(PartName(u"/user/a.txt/b"), ContentType(u"a/b"), {}); }), "");
  EXPECT_EQ(raisedBy([&] { package.createPart(PartName(u"/USER/a.txt"), ContentType(u"a/b"), {}); }),
            "opc:part:DerivedName(" + folder.narrow("p.zip") + ", /USER/a.txt, /user/a.txt/b)");
}

TEST(NewParts, AreReadBackBeforeTheyAreSaved) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "old");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a.txt"));
  EXPECT_EQ(readAll(*part.getInputStream()), "old");
  auto output = part.getOutputStream();
  output->write("new", 3);
  EXPECT_EQ(raisedBy([&] { part.getInputStream(); }),
            "opc:part:StillWritten(" + fixture.narrowPath() + ", /a.txt)");
  output.reset();
  EXPECT_EQ(readAll(*part.getInputStream()), "new");
  EXPECT_EQ(part.getSize(), 3u);
  package.deletePart(part.getName());
  EXPECT_EQ(raisedBy([&] { part.getInputStream()->restart(); }),
            "opc:part:NotFound(" + fixture.narrowPath() + ", /a.txt)");
}

TEST(Package, FindsRelationshipsByTargetWhileTheyChange) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  const auto link = [&](const char* id) { package.createInternalRelationship(u"t", URI(u"/x"), id); };
  const auto found = [&] {
    std::string ids;
    for (const auto& each : package.getRelationshipsByTarget(URI(u"/x"))) ids += each.getID() + " ";
    return ids;
  };
  link("b");
  link("a");
  EXPECT_EQ(found(), "b a ");
  package.deleteRelationship("b");
  link("c");
  EXPECT_EQ(found(), "a c ");
  package.createInternalRelationship(u"t", URI(u"/X"), "b");
  EXPECT_EQ(found(), "a c ") << "an identifier that led there before, and a target that is only equivalent";
  link("d");
  package.deleteRelationship("d");
  link("d");
  EXPECT_EQ(found(), "a c d ");
}

TEST(Streams, RaiseWhenTheOtherEndFails) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a.txt"));
  std::ofstream full("/dev/full", std::ios::binary);
  EXPECT_EQ(raisedBy([&] { copyStream(*part.getInputStream(), full); }), "opc:stream:CannotWrite(4)");

  auto output = part.getOutputStream();
  std::ifstream missing(fixture.folder().narrow("none.txt"), std::ios::binary);
  std::ifstream directory(fixture.folder().path(), std::ios::binary);
  std::istringstream nothing;
  EXPECT_EQ(raisedBy([&] { copyStream(missing, *output); }), "opc:stream:CannotRead(0)");
  EXPECT_EQ(raisedBy([&] { copyStream(directory, *output); }), "opc:stream:CannotRead(0)");
  EXPECT_EQ(copyStream(nothing, *output), 0u);
}

TEST(Streams, FeedBoostDevices) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Read);
  InputStreamSource source(package.getPart(PartName(u"/a.txt")).getInputStream());
  char text[8];
  EXPECT_EQ(source.read(text, 0), 0) << "not the end";
  EXPECT_EQ(source.read(text, 8), 4);
  EXPECT_EQ(source.read(text, 8), -1);
}

}  // namespace

}  // namespace opc::model
