#include <functional>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"
#include "tests/support/system_calls.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;
using support::outputOf;
using support::PackageFixture;
using support::raisedBy;
using support::ruleOf;
using support::writePart;
using tests::contentTypes;
using tests::relationships;

const ContentType kText(u"text/plain");

/// What programs that are not ours find in the package. `unzip -t` answers 1 for mere warnings, which count
/// here.
std::string readByOthers(const std::string& path) {
  std::string complaint = outputOf("unzip -tqq '" + path + "'");
  if (complaint.empty()) complaint = outputOf("7z t '" + path + "' > /dev/null");
  if (!complaint.empty()) return complaint;
  return outputOf("/usr/bin/python3 " PROJECT_FOLDER "/tests/support/read_package.py '" + path + "'");
}

/// Opens for modification, changes and closes; what that raises, or "".
std::string change(const std::u16string& path, const std::function<void(Package&)>& work) {
  Package package(path);
  return raisedBy([&] {
    package.open(OpenMode::Modify);
    work(package);
    package.close();
  });
}

std::string bytesThatCannotShrink(std::size_t count) {
  std::independent_bits_engine<std::mt19937_64, 8, unsigned> random(7);
  std::string bytes(count, 0);
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

constexpr auto kLink = R"(<Relationship Id="rId1" Type="t" Target="a.txt"/>)";
constexpr auto kCore =
    R"(<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" )"
    R"(xmlns:dc="http://purl.org/dc/elements/1.1/"><dc:title>kept</dc:title></cp:coreProperties>)";

/// A package as other programs write them, with the description's part where we would not put it.
void writeForeignPackage(const std::string& path) {
  tests::writeArchive(
      path,
      {{"b.txt", "bbb"},
       {"[Content_Types].xml",
        contentTypes(R"(<Override PartName="/props/core.xml" ContentType=")"
                     R"(application/vnd.openxmlformats-package.core-properties+xml"/>)")},
       {"a/", ""},
       {"a/note.unknown", "no part"},
       {"_rels/.rels",
        relationships(R"(<Relationship Id="rId1" Type="UserAssetsPartRelType" Target="b.txt"/>)"
                      R"(<Relationship Id="rId3" Type="http://schemas.openxmlformats.org/package/2006/)"
                      R"(relationships/metadata/core-properties" Target="props/core.xml"/>)")},
       {"_rels/b.txt.rels", relationships(R"(<Relationship Id="x" Type="t" Target="a/c.txt"/>)")},
       {"a/c.txt", "ccc"},
       {"props/core.xml", kCore}},
      "a comment");
}

// What others print of it: its items, in pieces, then its relationships.
const std::string kFirst = "b.txt [text/plain] bbb\n";
const std::string kRest = "[Content_Types].xml\na/ [-] \na/note.unknown [-] no part\n_rels/.rels\n";
const std::string kLast = "a/c.txt [text/plain] ccc\nprops/core.xml\n";
const std::string kAll = kFirst + kRest + "_rels/b.txt.rels\n" + kLast;
const std::string kLinks =
    "_rels/.rels: rId1 UserAssetsPartRelType b.txt\n_rels/.rels: rId3 core-properties props/core.xml\n";
const std::string kTitle = "title: kept\n", kEnd = "_rels/b.txt.rels: x t a/c.txt\n" + kTitle;

// The rest of _rels/.rels where it is replaced, and a standard relationship that leads to no part yet.
std::string coreLink(std::string_view target) {
  return std::string(R"(<Relationship Id="c" Type="http://schemas.openxmlformats.org/package/2006/)"
                     R"(relationships/metadata/core-properties" )") +
         std::string(target) + "/>";
}

void describe(Package& package) { package.setCoreProperty(CoreProperty::Description, u"a < b & \u00F6"); }

const struct {
  const char* what;
  std::function<void(Package&)> work;
  std::string after;
} kSaves[] = {
    {"a part and a link to it instead of another",
     [](Package& package) {
       writePart(package.createPart(PartName(u"/user/my run.txt"), ContentType(u"text/csv"), {}), "1;2");
       package.deleteRelationship("rId1");
       package.createInternalRelationship(u"UserAssetsPartRelType", URI(u"/user/my run.txt"), {});
     },
     kAll + "user/my%20run.txt [text/csv] 1;2\n_rels/.rels: rId3 core-properties props/core.xml\n" +
         "_rels/.rels: rId1 UserAssetsPartRelType /user/my%20run.txt\n" + kEnd},
    {"a part deleted with its relationships, its link left to the caller",
     [](Package& package) {
       package.deletePart(PartName(u"/B.TXT"));
       package.deletePart(PartName(u"/never/was"));
     },
     kRest + kLast + kLinks + kTitle},
    {"a part made again, without the old one's relationships, and one that is empty",
     [](Package& package) {
       const PartData data = package.startData(), unused = package.startData();
       data->write("BBB", 3);
       unused->abandon();
       package.replacePart(PartName(u"/b.txt"), ContentType(u"x/y"), data);
       package.createPart(PartName(u"/new"), kText, {});
     },
     kRest + kLast + "b.txt [x/y] BBB\nnew [text/plain] \n" + kLinks + kTitle},
    {"data replaced where it was",
     [](Package& package) { writePart(package.getPart(PartName(u"/b.txt")), "new"); },
     "b.txt [text/plain] new\n" + kRest + "_rels/b.txt.rels\n" + kLast + kLinks + kEnd},
    {"relationships of parts",
     [](Package& package) {
       Part first = package.getPart(PartName(u"/a/c.txt")), second = package.getPart(PartName(u"/b.txt"));
       EXPECT_EQ(first.createInternalRelationship(u"t", URI(u"/b.txt"), {}).getID(), "rId1");
       second.deleteRelationship("x");
       second.deleteRelationship("never was");
     },
     kFirst + kRest + kLast + "a/_rels/c.txt.rels\n" + kLinks + kTitle +
         "a/_rels/c.txt.rels: rId1 t /b.txt\n"},
    {"a description beside what other programs wrote", describe,
     kAll + kLinks + kEnd + "description: a < b & \u00F6\n"},
};

TEST(Saving, LeavesWhatOthersFindAsTheyShould) {
  const support::TemporaryFolder folder;
  for (const auto& save : kSaves) {
    writeForeignPackage(folder.narrow("p.zip"));
    EXPECT_EQ(change(folder.wide("p.zip"), save.work), "") << save.what;
    EXPECT_EQ(readByOthers(folder.narrow("p.zip")), save.after) << save.what;
    EXPECT_NE(folder.read("p.zip").find("a comment"), std::string::npos) << save.what;
    EXPECT_EQ(folder.entryCount(), 1u) << "no temporary is left: " << save.what;
  }
}

// There is one such relationship afterwards: the dangling one, or another where that one leads to no part.
TEST(Saving, OfADescriptionGoesWhereTheRelationshipLeads) {
  const support::TemporaryFolder folder;
  const std::pair<const char*, const char*> kTargets[] = {
      {"Target='gone/core.xml'", "c core-properties gone/core.xml"},
      {"Target='../up.xml'", "rId1 core-properties /docProps/core.xml"},
      {"Target='taken'", "rId1 core-properties /docProps/core.xml"},
      {"Target='http://h/' TargetMode='External'", "rId1 core-properties /docProps/core.xml"}};
  for (const auto& [target, link] : kTargets) {
    tests::writeArchive(folder.narrow("p.zip"), {{"[Content_Types].xml", contentTypes()},
                                                 {"taken", "no type"},
                                                 {"_rels/.rels", relationships(coreLink(target))}});
    EXPECT_EQ(change(folder.wide("p.zip"), describe), "");
    const std::string found = readByOthers(folder.narrow("p.zip"));
    EXPECT_TRUE(found.ends_with("_rels/.rels: " + std::string(link) + "\ndescription: a < b & \u00F6\n"))
        << found;
  }
}

// Unpacked by a program that takes "\\" for "/", one of the two would be lost.
TEST(Saving, AddsNoTwinOfANameWithBackslashes) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()}, {"_RELS\\.rels", relationships(kLink)}, {"a.txt", "x"}});
  const auto link = [](Package& package) { package.createInternalRelationship(u"t", URI(u"/a.txt"), {}); };
  EXPECT_EQ(change(folder.wide("p.zip"), link),
            "opc:save:HiddenTwin(" + folder.narrow("p.zip") + ", _rels/.rels, _RELS\\.rels)");
  EXPECT_EQ(
      change(folder.wide("p.zip"), [](Package& package) { package.createPart(PartName(u"/b"), kText, {}); }),
      "");
}

TEST(Saving, StartsANewPackageWithItsContentTypes) {
  PackageFixture fixture, taken;
  fixture.addLinked(u"/user/100%.txt", "x").describe(u"first").add(u"/z", "");
  EXPECT_EQ(
      readByOthers(fixture.narrowPath()),
      "[Content_Types].xml\n_rels/.rels\nuser/100%25.txt [text/plain] x\ndocProps/core.xml\nz [text/plain] \n"
      "_rels/.rels: rId1 UserAssetsPartRelType /user/100%25.txt\n"
      "_rels/.rels: rId2 core-properties /docProps/core.xml\ndescription: first\n");
  EXPECT_EQ(readByOthers(taken.narrowPath()), "[Content_Types].xml\n");
  taken.add(u"/docProps/core.xml", "<other/>").describe(u"text");
  EXPECT_NE(readByOthers(taken.narrowPath()).find("core-properties /docProps/core1.xml"), std::string::npos);
}

// A file that may be replaced is saved as one that was opened, and only while it is still the one that was
// there.
TEST(Saving, OfANewPackageReplacesTheFileItMay) {
  const support::TemporaryFolder folder;
  folder.write("p.zip", "no package");
  const auto replace = [&](std::string_view meanwhile) {
    Package package(folder.wide("p.zip"));
    package.create(Package::Existing::Replace);
    writePart(package.createPart(PartName(u"/a"), kText, {}), "x");
    if (!meanwhile.empty()) folder.write("p.zip", meanwhile);
    const std::string raised = ruleOf([&] { package.close(); });
    EXPECT_FALSE(package.isOpen());
    return raised;
  };
  EXPECT_EQ(replace(""), "");
  EXPECT_EQ(readByOthers(folder.narrow("p.zip")), "[Content_Types].xml\na [text/plain] x\n");
  EXPECT_EQ(replace("somebody else's"), "opc:save:FileChanged");
  std::filesystem::remove(folder.path() / "p.zip");
  EXPECT_EQ(replace("new"), "opc:save:FileAppeared");
  EXPECT_EQ(folder.read("p.zip"), "new");
}

TEST(Saving, LeavesNothingOfDeletedAndReplacedPartsBehind) {
  support::SystemCalls calls;
  calls.canClone = true;
  const std::string secret = bytesThatCannotShrink(100'000), other(secret.rbegin(), secret.rend());
  PackageFixture fixture;
  fixture.add(u"/secret", secret).add(u"/other", other);
  ASSERT_NE(fixture.bytes().find(secret), std::string::npos);
  for (const bool deletes : {true, false}) {
    EXPECT_EQ(change(fixture.path(),
                     [&](Package& package) {
                       if (deletes) package.deletePart(PartName(u"/secret"));
                       if (!deletes) writePart(package.getPart(PartName(u"/other")), "z");
                     }),
              "");
    EXPECT_EQ(fixture.bytes().find((deletes ? secret : other).substr(50'000, 64)), std::string::npos);
  }
}

// Each addition to a clone leaves the replaced documents in the file, but never more than a share of it.
TEST(Saving, ManyTimesDoesNotFillTheFileWithWaste) {
  support::SystemCalls calls;
  calls.canClone = true;
  PackageFixture fixture;
  fixture.add(u"/big", bytesThatCannotShrink(10'000)).path();
  for (char16_t name = u'a'; name < u'a' + 40; ++name) {
    fixture.addLinked(u"/user/" + std::u16string(1, name), "x").path();
  }
  EXPECT_LT(fixture.bytes().size(), 20'000u);
}

TEST(Saving, WritesNothingWithoutAChange) {
  PackageFixture fixture;
  fixture.addLinked(u"/a", "x");
  const fl::filesystem::FileIdentity before = fl::filesystem::InputFile(fixture.narrowPath()).identity();
  EXPECT_EQ(change(fixture.path(),
                   [](Package& package) {
                     package.deletePart(PartName(u"/b"));
                     package.deleteRelationship("rId7");
                     const PartName taken(u"/A");
                     EXPECT_THROW(package.createPart(taken, kText, {}), Exception);
                     EXPECT_THROW(package.createInternalRelationship(u"t", URI(u"/a"), "rId1"), Exception);
                     EXPECT_THROW(package.setCoreProperty(CoreProperty::Description, u"\u0001"), Exception);
                   }),
            "");
  EXPECT_EQ(fl::filesystem::InputFile(fixture.narrowPath()).identity(), before);
}

// A list without a default for relationship parts, a link where they should be, and relationships of no part
// yet.
TEST(Saving, WritesDocumentsWhoseNamesAreOddlyTaken) {
  const support::TemporaryFolder folder;
  const std::string path = folder.narrow("p.zip");
  tests::writeArchive(path,
                      {{"_rels/a.rels", "left behind"},
                       {"[Content_Types].xml",
                        "<Types xmlns='http://schemas.openxmlformats.org/package/2006/content-types'/>"}});
  tests::addSymbolicLink(path, "_rels/.rels");
  EXPECT_EQ(change(folder.wide("p.zip"),
                   [](Package& package) {
                     EXPECT_TRUE(package.getRelationships(ExcludeMode::None).empty());
                     const Part part = package.createPart(PartName(u"/a"), kText, {});
                     EXPECT_TRUE(part.getRelationships(ExcludeMode::None).empty());
                     package.createInternalRelationship(u"t", URI(u"/a"), {});
                   }),
            "");
  EXPECT_EQ(readByOthers(path),
            "[Content_Types].xml\n_rels/.rels\na [text/plain] \n_rels/.rels: rId1 t /a\n");
}

// A package that its own reader would refuse is never written: adding fails, or at the latest saving.
TEST(Saving, StaysWithinWhatCanBeOpened) {
  PackageFixture fixture;
  fixture.addLinked(u"/a", "x").addLinked(u"/b", "x").path();
  // Of six entries four are there, and two are kept for documents.
  Package package(fixture.path(), {.entries = 6, .relationships = 3});
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a"));
  const auto create = [&] { return raisedBy([&] { package.createPart(PartName(u"/c"), kText, {}); }); };
  const auto link = [](RelationshipSource& source) {
    return raisedBy([&] { source.createInternalRelationship(u"t", URI(u"/a"), {}); });
  };
  EXPECT_EQ(create(), "opc:package:TooManyEntries(" + fixture.narrowPath() + ", 6)");
  EXPECT_EQ(link(package), "");
  EXPECT_EQ(link(package), "opc:package:TooManyRelationships(" + fixture.narrowPath() + ", 3)");
  EXPECT_EQ(link(part), link(package));
  package.deletePart(PartName(u"/b"));
  package.deleteRelationship("rId2");
  EXPECT_EQ(create() + link(package), "");
  package.close();
  EXPECT_EQ(raisedBy([&] { package.open(OpenMode::Modify); }), "");
  package.close();

  Package crowded(fixture.path(), {.relationshipBytes = 700});
  crowded.open(OpenMode::Modify);
  crowded.createInternalRelationship(u"t" + std::u16string(400, u'y'), URI(u"/a"), {});
  EXPECT_EQ(raisedBy([&] { crowded.close(); }),
            "opc:package:RelationshipsTooLarge(" + fixture.narrowPath() + ", 700)");
  EXPECT_EQ(raisedBy([&] { crowded.open(OpenMode::Read); }), "");
}

/// The items of an archive as they lie in it, and what the directory says of them besides where that is.
std::map<std::string, std::string> itemsOf(const std::string& path) {
  constexpr std::size_t kOffsetField = 42, kOffsetBytes = 4;
  const fl::filesystem::InputFile file(path);
  const auto directory = zip::Directory::read(file);
  std::map<std::string, std::string> items;
  for (const zip::Entry& entry : directory.entries()) {
    std::string record(entry.centralRecord);
    std::string bytes(entry.endOffset - entry.headerOffset, 0);
    file.read(entry.headerOffset, bytes.data(), bytes.size());
    items[std::string(entry.name)] = record.erase(kOffsetField, kOffsetBytes) + bytes;
  }
  return items;
}

TEST(Saving, KeepsWhatItDoesNotKnowByteForByte) {
  const support::TemporaryFolder folder;
  const std::string path = folder.narrow("p.zip");
  writeForeignPackage(path);
  tests::addSymbolicLink(path, "a/link.txt");
  const auto before = itemsOf(path);
  EXPECT_EQ(change(folder.wide("p.zip"), [](Package& package) { package.deletePart(PartName(u"/a/c.txt")); }),
            "");
  auto after = itemsOf(path);
  after["a/c.txt"] = before.at("a/c.txt");
  after["[Content_Types].xml"] = before.at("[Content_Types].xml");
  EXPECT_EQ(after, before);
}

}  // namespace

}  // namespace opc::model
