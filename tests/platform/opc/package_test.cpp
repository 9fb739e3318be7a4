#include "platform/opc/package.h"

#include <cstdlib>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_index.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/raised.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;
using support::PackageFixture;
using support::readAll;
using support::ruleOf;
using tests::contentTypes;
using tests::relationships;

constexpr auto kLink = R"(<Relationship Id="rId1" Type="t" Target="a.txt"/>)";
const ContentType kText(u"text/plain");

/// The names of the parts of an archive, or what refuses to open it. All but empty ones have content types.
std::string partsOf(tests::Items items, const zip::Limits& limits = {}) {
  const support::TemporaryFolder folder;
  if (!items.empty()) items.emplace(items.begin(), "[content_types].XML", contentTypes());
  tests::writeArchive(folder.narrow("p.zip"), items);
  Package package(folder.wide("p.zip"), limits);
  std::string names;
  try {
    package.open(OpenMode::Read);
    for (const auto& part : package.index()->parts()) names += package.index()->nameOf(part).encoded() + " ";
  } catch (const PackageOpenFailed& refused) {
    EXPECT_FALSE(package.isOpen());
    names = refused.GetID();
  }
  return names;
}

TEST(Opening, TakesWhatRealFilesContainAndRefusesWithTheRuleThatIsBroken) {
  const std::string none = relationships(""), twins = "opc:package:EquivalentNames";
  const std::pair<tests::Items, std::string> kCases[] = {
      {{{"[CONTENT_types].xml", contentTypes()}}, "opc:package:ContentTypesTwice"},
      {{{"a.txt", "1"}, {"A.TXT", "2"}}, twins},
      {{{"aa.txt", "1"}, {"a%61.txt", "2"}}, twins},
      {{{"A.TXT", "1"}, {"a.txt", "2"}}, twins},
      {{{"A.txt", "1"}, {"a.TXT", "2"}}, twins},
      {{{"a.bin", "no type"}, {"A.bin", "2"}}, twins},
      {{{"a.txt", ""}, {"_rels/a.txt.rels", none}, {"_RELS/A.txt.rels", none}}, twins},
      {{{"_rels/.rels", none}, {"_RELS/.rels", none}}, twins},
      {{{"_rels/b.txt.rels", "of no part"}, {"_rels/B.txt.rels", ""}}, twins},
      {{{"A.TXT@", "a link"}, {"a.txt", "2"}}, twins},
      {{{"a.txt/[12].LAST.Piece", "2"}}, "opc:package:InterleavedPart"},
      {{{"a.txt/[0].piece", "1"}}, "opc:package:InterleavedPart"},
      {{{"[].piece", ""}, {"[1x].piece", ""}, {"[1.last.piece", ""}, {"[2].pieces", ""}, {"c.txt", ""}},
       "/c.txt "},
      {{{"a.txt@", "a link"}, {"%zz@", "another"}, {"b.txt", ""}}, "/b.txt "},
      {{{"a.txt", ""}, {"_rels/a.txt.rels", "<Relationships"}}, "opc:xml:Malformed"},
      {{{"a/", ""}, {"a/b.txt", ""}, {"[trash]/0000.dat", "x"}}, "/a/b.txt "},
      {{{"a.bin", ""}, {"a//b.txt", ""}, {"c.", ""}, {"%zz.txt", ""}, {"/d.txt", ""}, {"b.txt", ""}},
       "/b.txt "},
      {{{"a.txt", ""}, {"a.txt/b.txt", "derived"}}, "/a.txt /a.txt/b.txt "},
      {{{"_rels/a.txt.rels", "<of no part"}, {"_rels/_rels/.rels.rels", "<"}, {"b.txt", ""}}, "/b.txt "},
      {{{"Ab.TXT", ""}, {"\xC3\xB6.txt", "not encoded"}}, "/Ab.TXT /%C3%B6.txt "},
      {{}, "opc:package:ContentTypesMissing"}};
  for (const auto& [items, outcome] : kCases) EXPECT_EQ(partsOf(items), outcome);

  EXPECT_THROW(Package(u"/none.zip").open(OpenMode::Modify), PackageNotFound);
}

TEST(Opening, HoldsTheLimitsForAllRelationshipsTogether) {
  const std::string links = relationships(kLink);
  const tests::Items items = {{"a.txt", ""}, {"_rels/.rels", links}, {"_rels/a.txt.rels", links}};
  EXPECT_EQ(partsOf(items, {.relationships = 2}), "/a.txt ");
  EXPECT_EQ(partsOf(items, {.relationships = 1}), "opc:relationships:TooMany");
  EXPECT_EQ(partsOf(items, {.relationshipBytes = links.size() + 10}), "opc:zip:EntryTooLarge");
}

TEST(Opening, KeepsRelationshipsThatReachNoPart) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()},
       {"a/b.txt", ""},
       {"_RELS/.rels", relationships("<Relationship Id='x' Type='t' Target='gone.txt'/>"
                                     "<Relationship Id='z' Type='u' Target='../../up.txt'/>"
                                     "<Relationship Id='w' Type='t' Target='/a/b.txt' TargetMode='External'/>"
                                     "<Relationship Id='v' Type='u' Target='A/B.txt'/>")},
       {"a/_rels/b.txt.rels", relationships("<Relationship Id='r' Type='t' Target='../c%20d.txt'/>")}});
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Read);
  EXPECT_EQ(package.getRelationships(ExcludeMode::External).size(), 3u);
  for (const Relationship& link : package.getRelationships(ExcludeMode::None)) {
    EXPECT_EQ(package.findPart(link).has_value(), link.getID() == "v") << link.getID();
  }
  const Part part = package.getPart(PartName(u"/A/B.txt"));
  EXPECT_EQ(part.getName().text(), u"/a/b.txt") << "as the file has it";
  EXPECT_EQ(part.getRelationships(ExcludeMode::None).at(0).getTarget().text(), u"/c d.txt");
  EXPECT_EQ(ruleOf([&] { package.getPart(PartName(u"/gone.txt")); }), "opc:part:NotFound");
}

// Longer than one reading of the archive gives.
TEST(Opening, ReadsDocumentsInUtf16) {
  const auto utf16 = [](const std::string& document) {
    const std::u16string wide = u"\uFEFF" + fl::i18n::to_ustring(document);
    return std::string(reinterpret_cast<const char*>(wide.data()), 2 * wide.size());
  };
  const std::string links = relationships(std::string(300'000, ' ') + kLink);
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"a.txt", ""}, {"_rels/.rels", utf16(links)}, {"[Content_Types].xml", utf16(contentTypes())}});
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Read);
  EXPECT_TRUE(package.findPart(package.getRelationships(ExcludeMode::None).at(0)).has_value());
}

// Otherwise identifiers could be prepared that collide, and 100,000 of them would keep the reader busy.
TEST(Opening, HashesTextsDifferentlyInEveryProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // runs this test anew in the other process
  const std::string hash = std::to_string(fl::i18n::TextHash()("rId1"));
  setenv("FIRST_HASH", hash.c_str(), /*overwrite=*/0);
  EXPECT_EXIT(std::exit(hash == std::getenv("FIRST_HASH") ? 1 : 0), testing::ExitedWithCode(0), "");
}

// The index is shared exactly as long as the file is the same. A file that has only just changed is read once
// more, because a second change within the same clock tick could not be told apart.
TEST(Reopening, SharesTheIndexOfAnUnchangedFile) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "one");
  Package package(fixture.path()), another(fixture.path());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  package.open(OpenMode::Read);
  EXPECT_EQ(ruleOf([&] { package.open(OpenMode::Read); }), "opc:package:AlreadyOpen");
  const auto first = package.index();
  package.close();
  package.open(OpenMode::Modify);
  EXPECT_EQ(package.index(), first);
  another.open(OpenMode::Modify);
  EXPECT_EQ(another.index(), first);
  EXPECT_THROW(Package(fixture.path(), {.entries = 1}).open(OpenMode::Read), PackageOpenFailed);
  another.deletePart(PartName(u"/a.txt"));
  another.close();
  another.open(OpenMode::Read);
  EXPECT_FALSE(another.hasPart(PartName(u"/a.txt"))) << "what it saved itself is read again";
  another.closeWithoutSaving();
  package.close();
  fixture.add(u"/a.txt", "two");

  const auto time = std::filesystem::last_write_time(fixture.narrowPath());
  fixture.corruptEntry(0);  // in place, with the same size and time stamp
  std::filesystem::last_write_time(fixture.narrowPath(), time);
  EXPECT_THROW(package.open(OpenMode::Read), PackageOpenFailed);
}

/// A package with one part that is linked.
class Parts : public ::testing::Test {
 protected:
  Part opened(OpenMode mode) {
    package_.open(mode);
    return package_.getPart(PartName(u"/a.txt"));
  }
  PackageFixture fixture_;
  Package package_{fixture_.addLinked(u"/a.txt", "text").path(), {.inflatedBytesPerOpen = 11}};
};

TEST_F(Parts, SayThatTheirPackageIsClosed) {
  Part part = opened(OpenMode::Modify);
  const auto input = part.getInputStream();
  const auto output = package_.createPart(PartName(u"/b.txt"), kText, {}).getOutputStream();
  char byte;
  const std::function<void()> kUses[] = {[&] { input->read(&byte, 1); },  [&] { input->restart(); },
                                         [&] { output->write("x", 1); },  [&] { part.getSize(); },
                                         [&] { part.getOutputStream(); }, [&] { part.getRelationships({}); }};
  package_.close();
  EXPECT_EQ(ruleOf([&] { package_.getRelationships({}); }), "opc:package:Closed");
  package_.open(OpenMode::Read);  // of which the old handles are no part
  for (const auto& use : kUses) EXPECT_EQ(ruleOf(use), "opc:package:Closed");
}

TEST_F(Parts, ShareOneLimitOnWhatIsInflated) {
  const auto input = opened(OpenMode::Read).getInputStream();
  for (int round = 0; round < 2; ++round, input->restart()) readAll(*input);
  EXPECT_EQ(ruleOf([&] { readAll(*input); }), "opc:package:TooMuchData");
}

TEST_F(Parts, OfAPackageOpenForReadingCannotBeChanged) {
  Part part = opened(OpenMode::Read);
  const std::function<void()> kChanges[] = {
      [&] { part.getOutputStream(); },
      [&] { part.createInternalRelationship(u"t", URI(u"/a.txt"), {}); },
      [&] { package_.createPart(PartName(u"/b"), kText, {}); },
      [&] { package_.deletePart(part.getName()); },
      [&] { package_.deleteRelationship("rId1"); },
      [&] { package_.setCoreProperty(CoreProperty::Description, u"x"); }};
  for (const auto& change : kChanges) EXPECT_EQ(ruleOf(change), "opc:package:NotModifiable");
}

TEST_F(Parts, AreReadBackBeforeTheyAreSaved) {
  Part part = opened(OpenMode::Modify);
  InputStreamSource source(part.getInputStream());
  char first;
  EXPECT_EQ(source.read(&first, 0), 0) << "not the end";
  EXPECT_EQ(source.read(&first, 1), 1);
  EXPECT_EQ(readAll(*Part(part).getInputStream()), "ext") << "one stream, where it stands";
  part.getInputStream()->restart();
  EXPECT_EQ(readAll(*part.getInputStream()), "text");
  auto output = part.getOutputStream();
  output->write("new", 3);
  EXPECT_EQ(ruleOf([&] { part.getInputStream(); }), "opc:part:StillWritten");
  output.reset();
  EXPECT_EQ(readAll(*part.getInputStream()), "new");
  const PartData broken = package_.startData();
  broken->abandon();
  EXPECT_EQ(ruleOf([&] { package_.replacePart(part.getName(), kText, broken); }), "opc:spool:Ended");
  EXPECT_EQ(part.getSize(), 3u);
  part.getOutputStream()->abandon();
  EXPECT_EQ(ruleOf([&] { package_.close(); }), "opc:part:LostData");
}

TEST_F(Parts, AreCreatedUnderNamesOfTheirOwn) {
  // Two parts of which one's name is a folder of the other's: the file has them, and they may be replaced.
  tests::writeArchive(fixture_.narrowPath(), {{"[Content_Types].xml", contentTypes()},
                                              {"user/a.txt", ""},
                                              {"user/a.txt/old.txt", ""},
                                              {"user/a.bin", "no type"},
                                              {"link.txt@", "b.txt"}});
  package_.open(OpenMode::Modify);
  package_.replacePart(PartName(u"/user/a.txt"), kText, package_.startData());
  const auto create = [&](const char16_t* name) {
    return ruleOf([&] { package_.createPart(PartName(name), kText, {}); });
  };
  const std::pair<const char16_t*, const char*> kNames[] = {
      {u"/USER/A.txt", "opc:part:Exists"},     {u"/User/A.TXT/b/c", "opc:part:DerivedName"},
      {u"/user", "opc:part:DerivedName"},      {u"/user/a", ""},  // shares letters only
      {u"/user/a.bin", "opc:part:NameOfItem"}, {u"/link.txt", "opc:part:NameOfItem"}};
  for (const auto& [name, rule] : kNames) EXPECT_EQ(create(name), rule) << PartName(name).encoded();
  package_.deletePart(PartName(u"/user/a.txt"));
  package_.deletePart(PartName(u"/user/a.txt/old.txt"));
  EXPECT_EQ(create(u"/user/a.txt/b"), "");
  EXPECT_EQ(create(u"/USER/a.txt"), "opc:part:DerivedName");
  package_.deletePart(PartName(u"/user/a.txt/b"));
  EXPECT_EQ(create(u"/USER/a.txt"), "");
}

TEST_F(Parts, AreFoundByTargetWhileRelationshipsChange) {
  package_.open(OpenMode::Modify);
  const auto linkAndFind = [&](const char* removed, const char* added) {
    package_.deleteRelationship(removed);
    package_.createInternalRelationship(u"t", URI(u"/x"), added);
    std::string ids;
    for (const auto& each : package_.getRelationshipsByTarget(URI(u"/x"))) ids += each.getID() + " ";
    return ids;
  };
  EXPECT_EQ(linkAndFind("", "b"), "b ");
  EXPECT_EQ(linkAndFind("", "a"), "b a ");
  EXPECT_EQ(linkAndFind("b", "c"), "a c ");
  // An identifier that led there before, and a target that is only equivalent.
  package_.createInternalRelationship(u"t", URI(u"/X"), "b");
  EXPECT_EQ(linkAndFind("", "d"), "a c d ");
  EXPECT_EQ(linkAndFind("a", "a"), "c d a ");
}

}  // namespace

}  // namespace opc::model
