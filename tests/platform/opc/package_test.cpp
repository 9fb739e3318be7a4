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
using support::raisedBy;
using support::readAll;
using support::ruleOf;
using support::writePart;
using tests::contentTypes;
using tests::relationships;

constexpr auto kLink = R"(<Relationship Id="rId1" Type="t" Target="a.txt"/>)";
const ContentType kText(u"text/plain");

/// The names of the parts of an archive that also has a list of content types, or what refuses to open it.
std::string partsOf(tests::Items items, const zip::Limits& limits = {}) {
  const support::TemporaryFolder folder;
  items.emplace(items.begin(), "[content_types].XML", contentTypes());
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
      {{{"a.bin", "no type"}, {"A.bin", "2"}}, twins},
      {{{"a.txt", ""}, {"_rels/a.txt.rels", none}, {"_RELS/A.txt.rels", none}}, twins},
      {{{"_rels/.rels", none}, {"_RELS/.rels", none}}, twins},
      {{{"_rels/b.txt.rels", "of no part"}, {"_rels/B.txt.rels", ""}}, twins},
      {{{"a.txt/[12].LAST.Piece", "2"}}, "opc:package:InterleavedPart"},
      {{{"a.txt", ""}, {"_rels/a.txt.rels", "<Relationships"}}, "opc:xml:Malformed"},
      {{{"a/", ""}, {"a/b.txt", ""}, {"[trash]/0000.dat", "x"}}, "/a/b.txt "},
      {{{"a.bin", ""}, {"a//b.txt", ""}, {"c.", ""}, {"%zz.txt", ""}, {"/d.txt", ""}, {"b.txt", ""}},
       "/b.txt "},
      {{{"a.txt", ""}, {"a.txt/b.txt", "derived"}}, "/a.txt /a.txt/b.txt "},
      {{{"_rels/a.txt.rels", "<of no part"}, {"_rels/_rels/.rels.rels", "<"}, {"b.txt", ""}}, "/b.txt "},
      {{{"Ab.TXT", ""}, {"\xC3\xB6.txt", "not encoded"}}, "/Ab.TXT /%C3%B6.txt "},
      {{}, ""},
  };
  for (const auto& [items, outcome] : kCases) EXPECT_EQ(partsOf(items), outcome);

  const support::TemporaryFolder folder;
  tests::writeArchive(folder.narrow("archive.zip"), {{"a.txt", "x"}, {"[Content_Types].xml/", ""}});
  EXPECT_EQ(ruleOf([&] { Package(folder.wide("archive.zip")).open(OpenMode::Read); }),
            "opc:package:ContentTypesMissing");
  EXPECT_THROW(Package(folder.wide("none.zip")).open(OpenMode::Modify), PackageNotFound);
}

TEST(Opening, HoldsTheLimitsForAllRelationshipsTogether) {
  const std::string links = relationships(kLink);
  const tests::Items items = {{"a.txt", ""}, {"_rels/.rels", links}, {"_rels/a.txt.rels", links}};
  EXPECT_EQ(partsOf(items, {.relationships = 2}), "/a.txt ");
  EXPECT_EQ(partsOf(items, {.relationships = 1}), "opc:relationships:TooMany");
  EXPECT_EQ(partsOf(items, {.relationshipBytes = links.size() + 10}), "opc:zip:EntryTooLarge");
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
                      R"(<Relationship Id="z" Type="u" Target="../../up.txt"/>)"
                      R"(<Relationship Id="w" Type="u" Target="/a/b.txt" TargetMode="External"/>)"
                      R"(<Relationship Id="v" Type="u" Target="A/B.txt"/>)")},
       {"a/_rels/b.txt.rels", relationships(R"(<Relationship Id="r" Type="t" Target="../c%20d.txt"/>)")}});
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Read);
  EXPECT_EQ(package.getRelationships(ExcludeMode::External).size(), 3u);
  for (const Relationship& link : package.getRelationships(ExcludeMode::None)) {
    EXPECT_EQ(package.findPart(link).has_value(), link.getID() == "v") << link.getID();
  }
  EXPECT_EQ(package.getRelationshipsByType(u"t").size(), 2u);
  const Part part = package.getPart(PartName(u"/A/B.txt"));
  EXPECT_EQ(part.getName().text(), u"/a/b.txt") << "as the file has it";
  EXPECT_EQ(part.getRelationships(ExcludeMode::None).at(0).getTarget().text(), u"/c d.txt");
  EXPECT_EQ(raisedBy([&] { package.getPart(PartName(u"/gone.txt")); }),
            "opc:part:NotFound(" + folder.narrow("p.zip") + ", /gone.txt)");
}

// Otherwise identifiers could be prepared that collide, and 100,000 of them would keep the reader busy.
TEST(Opening, HashesTextsDifferentlyInEveryProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // runs this test anew in the other process
  const std::string hash = std::to_string(fl::i18n::TextHash()("rId1"));
  setenv("HASH_OF_THE_FIRST_PROCESS", hash.c_str(), /*overwrite=*/0);
  EXPECT_EXIT(std::exit(hash == std::getenv("HASH_OF_THE_FIRST_PROCESS") ? 1 : 0), testing::ExitedWithCode(0),
              "");
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
  package.close();

  const auto time = std::filesystem::last_write_time(fixture.narrowPath());
  fixture.corruptEntry(0);  // in place, with the same size and time stamp
  std::filesystem::last_write_time(fixture.narrowPath(), time);
  EXPECT_THROW(package.open(OpenMode::Read), PackageOpenFailed);
}

// Larger than what is kept in memory and than any buffer on the way.
TEST(Parts, ReadFrontToBackAndAgainAfterRestart) {
  std::string data;
  for (int line = 0; data.size() < (std::size_t{9} << 20); ++line) data += std::to_string(line) + "\n";
  PackageFixture fixture;
  fixture.add(u"/a b.txt", data, u"text/csv");
  EXPECT_LT(fixture.bytes().size(), data.size() / 2) << "deflated";
  Package package(fixture.path());
  package.open(OpenMode::Read);
  const Part part = package.getPart(PartName(u"/a b.txt"));
  EXPECT_EQ(part.getSize(), data.size());
  InputStreamSource source(part.getInputStream());
  char start[10];
  EXPECT_EQ(source.read(start, 0), 0) << "not the end";
  ASSERT_EQ(source.read(start, 10), 10);
  // One stream of the handle, where it stands.
  EXPECT_TRUE(readAll(*Part(part).getInputStream()) == data.substr(10));
  EXPECT_EQ(source.read(start, 10), -1);
  part.getInputStream()->restart();
  EXPECT_TRUE(readAll(*part.getInputStream()) == data);
}

TEST(Parts, SayThatTheirPackageIsClosed) {
  PackageFixture fixture;
  fixture.addLinked(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a.txt"));
  const auto input = part.getInputStream();
  const auto output = package.createPart(PartName(u"/b.txt"), kText, {}).getOutputStream();
  char byte;
  const std::function<void()> kUses[] = {[&] { input->read(&byte, 1); },
                                         [&] { input->restart(); },
                                         [&] { output->write("x", 1); },
                                         [&] { part.getSize(); },
                                         [&] { part.getInputStream(); },
                                         [&] { part.getOutputStream(); },
                                         [&] { part.getRelationships(ExcludeMode::None); },
                                         [&] { part.deleteRelationship("rId1"); }};
  package.close();
  EXPECT_EQ(ruleOf([&] { package.getRelationships(ExcludeMode::None); }), "opc:package:Closed");
  package.open(OpenMode::Read);  // of which the old handles are no part
  for (const auto& use : kUses) EXPECT_EQ(raisedBy(use), "opc:package:Closed(" + fixture.narrowPath() + ")");
}

TEST(Parts, ShareOneLimitOnWhatIsInflated) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", std::string(600, 'a'));
  Package package(fixture.path(), {.inflatedBytesPerOpen = 1000});
  package.open(OpenMode::Read);
  const auto input = package.getPart(PartName(u"/a.txt")).getInputStream();
  readAll(*input);
  input->restart();
  EXPECT_EQ(ruleOf([&] { readAll(*input); }), "opc:package:TooMuchData");
}

TEST(Parts, OfAPackageOpenForReadingCannotBeChanged) {
  PackageFixture fixture;
  fixture.addLinked(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Read);
  Part part = package.getPart(PartName(u"/a.txt"));
  const std::function<void()> kChanges[] = {
      [&] { part.getOutputStream(); },
      [&] { part.createInternalRelationship(u"t", URI(u"/a.txt"), {}); },
      [&] { package.createPart(PartName(u"/b"), kText, {}); },
      [&] { package.deletePart(part.getName()); },
      [&] { package.deleteRelationship("rId1"); },
      [&] { package.setCoreProperty(CoreProperty::Description, u"x"); },
  };
  for (const auto& change : kChanges) EXPECT_EQ(ruleOf(change), "opc:package:NotModifiable");
}

TEST(NewParts, NeedANameOfTheirOwn) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()}, {"user/a.txt", ""}, {"user/a.bin", "no type"}});
  tests::addSymbolicLink(folder.narrow("p.zip"), "link.txt");
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Modify);
  const auto create = [&](const char16_t* name) {
    return ruleOf([&] { package.createPart(PartName(name), kText, {}); });
  };
  const std::pair<const char16_t*, const char*> kNames[] = {
      {u"/USER/A.txt", "opc:part:Exists"},     {u"/User/A.TXT/b/c", "opc:part:DerivedName"},
      {u"/user", "opc:part:DerivedName"},      {u"/user/a", ""},  // shares letters only
      {u"/user/a.bin", "opc:part:NameOfItem"}, {u"/link.txt", "opc:part:NameOfItem"}};
  for (const auto& [name, rule] : kNames) EXPECT_EQ(create(name), rule) << PartName(name).encoded();
  package.deletePart(PartName(u"/user/a"));
  package.deletePart(PartName(u"/user/a.txt"));
  EXPECT_EQ(create(u"/user/a.txt/b"), "");
  EXPECT_EQ(create(u"/USER/a.txt"), "opc:part:DerivedName");
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
  EXPECT_EQ(ruleOf([&] { part.getInputStream(); }), "opc:part:StillWritten");
  output.reset();
  EXPECT_EQ(readAll(*part.getInputStream()), "new");
  EXPECT_EQ(part.getSize(), 3u);
  part.getOutputStream()->abandon();
  EXPECT_EQ(ruleOf([&] { part.getInputStream(); }), "opc:part:LostData");
  EXPECT_EQ(ruleOf([&] { package.close(); }), "opc:part:LostData");
}

TEST(Package, FindsRelationshipsByTargetWhileTheyChange) {
  PackageFixture fixture;
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
  package.createInternalRelationship(u"t", URI(u"/X"), "b");
  EXPECT_EQ(found(), "a c ") << "an identifier that led there before, and a target that is only equivalent";
  link("d");
  package.deleteRelationship("d");
  link("d");
  EXPECT_EQ(found(), "a c d ");
}

}  // namespace

}  // namespace opc::model
