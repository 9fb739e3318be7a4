#include <algorithm>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/raised.h"
#include "tests/support/system_calls.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;
using support::PackageFixture;
using support::ruleOf;
using support::writePart;
using tests::contentTypes;
using tests::relationships;
using Work = std::function<void(Package&)>;

const ContentType kText(u"text/plain");

/// Saves an archive that others wrote, and has programs that are not ours look at it.
class Saving : public ::testing::Test {
 protected:
  /// Opens for modification, changes and closes; what that raises, or "".
  std::string changed(const Work& work) const {
    Package package(folder_.wide("p.zip"));
    return support::raisedBy([&] {
      package.open(OpenMode::Modify);
      work(package);
      package.close();
    });
  }
  /// `unzip -t` answers 1 for mere warnings, which count here.
  std::string readByOthers() const {
    std::string complaint = support::outputOf("unzip -tqq '" + path_ + "'");
    if (complaint.empty()) complaint = support::outputOf("7z t '" + path_ + "' > /dev/null");
    if (!complaint.empty()) return complaint;
    return support::outputOf("/usr/bin/python3 '" PROJECT_FOLDER "/tests/support/read_package.py' '" + path_ +
                             "'");
  }

  const support::TemporaryFolder folder_;
  const std::string path_ = folder_.narrow("p.zip");
};

std::string bytesThatCannotShrink(std::size_t count) {
  std::string bytes(count, 0);
  std::ranges::generate(bytes, std::mt19937(7));
  return bytes;
}

/// The standard relationship to the core properties, whose target is the rest.
const std::string kCoreLink =
    "<Relationship Id='c' Type='http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
    "core-properties' Target=";

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
       {"a/link.txt@", "b.txt"},
       {"_rels/.rels", relationships("<Relationship Id='rId1' Type='UserAssetsPartRelType' Target='b.txt'/>" +
                                     kCoreLink + "'props/core.xml'/>")},
       {"_rels/b.txt.rels", relationships(R"(<Relationship Id="x" Type="t" Target="a/c.txt"/>)")},
       {"a/c.txt", "ccc"},
       {"props/core.xml",
        "<cp:coreProperties xmlns:cp='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
        "xmlns:dc='http://purl.org/dc/elements/1.1/'><dc:title>kept</dc:title></cp:coreProperties>"}},
      "a comment");
}

// What others print of it: its items, in pieces, then its relationships.
const std::string kFirst = "b.txt [text/plain] bbb\n";
const std::string kRest =
    "[Content_Types].xml\na/ [-] \na/note.unknown [-] no part\na/link.txt [text/plain] b.txt\n_rels/.rels\n";
const std::string kLast = "a/c.txt [text/plain] ccc\nprops/core.xml\n";
const std::string kAll = kFirst + kRest + "_rels/b.txt.rels\n" + kLast;
const std::string kCore = "_rels/.rels: c core-properties props/core.xml\n";
const std::string kLinks = "_rels/.rels: rId1 UserAssetsPartRelType b.txt\n" + kCore;
const std::string kTitle = "title: kept\n", kEnd = "_rels/b.txt.rels: x t a/c.txt\n" + kTitle;
const std::string kDescribed = "description: a < b & \u00F6\n";

void describe(Package& package) { package.setCoreProperty(CoreProperty::Description, u"a < b & \u00F6"); }

TEST_F(Saving, NothingIsLeftHalfDoneWhenTheFileCannotBeReadAnyMore) {
  writeForeignPackage(path_);
  const std::string before = folder_.read("p.zip");
  int failures = 0;
  for (std::string raised = "at first"; !raised.empty(); failures += raised.empty() ? 0 : 1) {
    Package package(folder_.wide("p.zip"));
    package.open(OpenMode::Modify);
    support::SystemCalls calls;
    calls.readsLeft = failures;
    raised = ruleOf([&] {
      package.deletePart(PartName(u"/b.txt"));
      package.deleteRelationship("rId1");
    });
    calls.readsLeft = -1;
    package.close();
    EXPECT_TRUE(raised.empty() || folder_.read("p.zip") == before) << raised << " of read " << failures;
  }
  EXPECT_GE(failures, 2) << "the content types, and the relationships";
  EXPECT_NE(folder_.read("p.zip"), before);
}

const std::pair<Work, std::string> kSaves[] = {
    // A part and a link to it instead of another.
    {[](Package& package) {
       writePart(package.createPart(PartName(u"/user/my run.txt"), ContentType(u"text/csv"), {}), "1;2");
       package.deleteRelationship("rId1");
       package.createInternalRelationship(u"UserAssetsPartRelType", URI(u"/user/my run.txt"), {});
     },
     kAll + "user/my%20run.txt [text/csv] 1;2\n" + kCore +
         "_rels/.rels: rId1 UserAssetsPartRelType /user/my%20run.txt\n" + kEnd},
    // A part deleted with its relationships, its link left to the caller.
    {[](Package& package) { package.deletePart(PartName(u"/B.TXT")); }, kRest + kLast + kLinks + kTitle},
    // A part made again, without the old one's relationships, one that is empty, and data that no part has.
    {[](Package& package) {
       const PartData data = package.startData(), unused = package.startData();
       data->write("BBB", 3);
       unused->abandon();
       package.replacePart(PartName(u"/b.txt"), ContentType(u"x/y"), data);
       package.createPart(PartName(u"/new"), kText, {});
     },
     kRest + kLast + "b.txt [x/y] BBB\nnew [text/plain] \n" + kLinks + kTitle},
    {[](Package& package) {
       package.getPart(PartName(u"/a/c.txt")).createInternalRelationship(u"t", URI(u"/b.txt"), {});
       package.getPart(PartName(u"/b.txt")).deleteRelationship("x");
     },
     kFirst + kRest + kLast + "a/_rels/c.txt.rels\n" + kLinks + kTitle +
         "a/_rels/c.txt.rels: rId1 t /b.txt\n"},
    {describe, kAll + kLinks + kEnd + kDescribed}};

TEST_F(Saving, LeavesWhatOthersFindAsTheyShould) {
  for (const auto& [work, after] : kSaves) {
    writeForeignPackage(path_);
    EXPECT_EQ(changed(work), "");
    EXPECT_EQ(readByOthers(), after);
    EXPECT_NE(folder_.read("p.zip").find("a comment"), std::string::npos);
  }
}

void link(Package& package) { package.createInternalRelationship(u"t", URI(u"/b.txt"), {}); }
void create(Package& package) { package.createPart(PartName(u"/a"), kText, {}); }

// A standard relationship that leads nowhere. There is one afterwards: that one, or another where it can lead
// to no part.
TEST_F(Saving, OfADescriptionGoesWhereTheRelationshipLeads) {
  const std::string anew = "_rels/.rels: rId1 core-properties /docProps/core.xml\n";
  const struct {
    std::string target, after, item = "no.type";
  } kTargets[] = {
      {"'gone/core.xml'", "_rels/.rels: c core-properties gone/core.xml\n"},
      {"'../up.xml'", anew},
      {"'../up.xml'", "_rels/.rels: rId1 core-properties /docProps/core1.xml\n", "docProps/CORE.xml"},
      {"'no.type'", anew},
      {"'x:' TargetMode='External'", anew}};
  for (const auto& [target, after, item] : kTargets) {
    tests::writeArchive(path_, {{"[Content_Types].xml", contentTypes()},
                                {item, ""},
                                {"_rels/.rels", relationships(kCoreLink + target + "/>")}});
    EXPECT_EQ(changed(describe), "");
    EXPECT_TRUE(readByOthers().ends_with(after + kDescribed)) << target;
  }
}

// Unpacked by a program that takes "\\" for "/", one of the two would be lost.
TEST_F(Saving, AddsNoTwinOfANameWithBackslashes) {
  tests::writeArchive(path_, {{"[Content_Types].xml", contentTypes()}, {"_RELS\\.rels", ""}});
  EXPECT_EQ(changed(link), "opc:save:HiddenTwin(" + path_ + ", _rels/.rels, _RELS\\.rels)");
  EXPECT_EQ(changed(create), "");
}

// A list that does not type relationship parts, a link where they should be, and relationships of no part
// yet.
TEST_F(Saving, WritesDocumentsWhoseNamesAreOddlyTaken) {
  const auto* types = "<Types xmlns='http://schemas.openxmlformats.org/package/2006/content-types'/>";
  tests::writeArchive(path_,
                      {{"[Content_Types].xml", types}, {"_rels/a.rels", "left"}, {"_rels/.rels@", "x"}});
  EXPECT_EQ(changed(create) + changed(link), "");
  EXPECT_EQ(readByOthers(),
            "[Content_Types].xml\n_rels/.rels\na [text/plain] \n_rels/.rels: rId1 t /b.txt\n");
}

TEST_F(Saving, LeavesNothingOfDeletedAndReplacedPartsBehind) {
  support::SystemCalls calls;
  calls.canClone = true;
  const std::string secret = bytesThatCannotShrink(1000), other(secret.rbegin(), secret.rend());
  tests::writeArchive(path_, {{"[Content_Types].xml", contentTypes()}, {"s.txt", secret}, {"o.txt", other}});
  ASSERT_NE(folder_.read("p.zip").find(secret), std::string::npos);
  EXPECT_EQ(changed([](auto& package) { package.deletePart(PartName(u"/s.txt")); }), "");
  EXPECT_EQ(folder_.read("p.zip").find(secret.substr(500, 64)), std::string::npos);
  EXPECT_EQ(changed([](auto& package) { writePart(package.getPart(PartName(u"/o.txt")), "z"); }), "");
  EXPECT_EQ(folder_.read("p.zip").find(other.substr(500, 64)), std::string::npos);
}

// Each addition to a clone leaves the replaced documents in the file, but never more than a share of it.
TEST_F(Saving, ManyTimesDoesNotFillTheFileWithWaste) {
  support::SystemCalls calls;
  calls.canClone = true;
  PackageFixture fixture;
  fixture.add(u"/big", bytesThatCannotShrink(10'000)).path();
  for (char16_t n = u'A'; n < u'Z'; ++n) fixture.addLinked(u"/user/" + std::u16string(1, n), "x").path();
  EXPECT_LT(fixture.bytes().size(), 17'000u);
}

TEST_F(Saving, WritesNothingWithoutAChange) {
  writeForeignPackage(path_);
  const auto identity = [&] { return fl::filesystem::InputFile(path_).identity(); };
  const auto before = identity();
  EXPECT_EQ(changed([](Package& package) {
              package.deletePart(PartName(u"/never/was"));
              package.deleteRelationship("rId7");
              EXPECT_THROW(package.createPart(PartName(u"/B.txt"), kText, {}), Exception);
              EXPECT_THROW(package.createInternalRelationship(u"t", URI(u"/a"), "rId1"), Exception);
              EXPECT_THROW(package.setCoreProperty(CoreProperty::Description, u"\u0001"), Exception);
            }),
            "");
  EXPECT_EQ(identity(), before);
}

// A package that its own reader would refuse is never written: adding fails, or at the latest saving.
TEST_F(Saving, StaysWithinWhatCanBeOpened) {
  PackageFixture fixture;
  fixture.addLinked(u"/a", "x").addLinked(u"/b", "x").path();
  // Of six entries four are there, and two are kept for documents.
  Package package(fixture.path(), {.entries = 6, .relationshipBytes = 700, .relationships = 3});
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a"));
  const auto createIt = [&] { package.createPart(PartName(u"/c"), kText, {}); };
  const auto linkFrom = [](RelationshipSource& source, std::u16string_view type = u"t") {
    return ruleOf([&] { source.createInternalRelationship(type, URI(u"/a"), {}); });
  };
  EXPECT_EQ(ruleOf(createIt), "opc:package:TooManyEntries");
  EXPECT_EQ(linkFrom(package), "");
  EXPECT_EQ(linkFrom(package), "opc:package:TooManyRelationships");
  EXPECT_EQ(linkFrom(part), "opc:package:TooManyRelationships");
  package.deletePart(PartName(u"/b"));
  package.deleteRelationship("rId2");
  EXPECT_EQ(ruleOf(createIt) + linkFrom(package), "");
  package.close();
  package.open(OpenMode::Modify);
  package.deleteRelationship("rId2");
  EXPECT_EQ(linkFrom(package, std::u16string(700, u'y')), "");
  EXPECT_EQ(ruleOf([&] { package.close(); }), "opc:package:RelationshipsTooLarge");
}

TEST_F(Saving, KeepsWhatItDoesNotKnowByteForByte) {
  writeForeignPackage(path_);
  // All that the archive says of each item and holds of it, but for the first and where they lie.
  const auto items = [&] {
    const fl::filesystem::InputFile file(path_);
    const auto directory = zip::Directory::read(file);
    std::string all;
    for (const zip::Entry& entry : directory.entries()) {
      std::string bytes(entry.endOffset - entry.headerOffset, 0);
      file.read(entry.headerOffset, bytes.data(), bytes.size());
      if (entry.name != "b.txt") all += std::string(entry.centralRecord).erase(42, 4) + bytes;
    }
    return all;
  };
  const std::string before = items();
  EXPECT_EQ(changed([](auto& package) { writePart(package.getPart(PartName(u"/b.txt")), "longer"); }), "");
  EXPECT_EQ(items(), before);
}

}  // namespace

}  // namespace opc::model
