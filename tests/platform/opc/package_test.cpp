#include "platform/opc/package.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

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
using support::ruleOf;
using tests::contentTypes;
using tests::Items;
using tests::relationships;

constexpr auto kLink = R"(<Relationship Id="rId1" Type="t" Target="a.txt"/>)";
const ContentType kText(u"text/plain");

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

// Besides a list of content types.
const struct {
  const char* why;
  const char* refusal;
  Items items;
} kHostile[] = {
    {"two lists", "ContentTypesTwice", {{"[CONTENT_types].xml", contentTypes()}}},
    {"names that differ in case", "EquivalentNames", {{"a.txt", "1"}, {"A.TXT", "2"}}},
    {"names that differ in encoding", "EquivalentNames", {{"aa.txt", "1"}, {"a%61.txt", "2"}}},
    {"equivalent names without a type", "EquivalentNames", {{"a.bin", "1"}, {"A.bin", "2"}}},
    {"two relationship parts of one part",
     "EquivalentNames",
     {{"a.txt", ""}, {"_rels/a.txt.rels", relationships(kLink)}, {"_RELS/A.txt.rels", relationships("")}}},
    {"two of the package",
     "EquivalentNames",
     {{"_rels/.rels", relationships("")}, {"_RELS/.rels", relationships("")}}},
    {"two of no part", "EquivalentNames", {{"_rels/b.txt.rels", ""}, {"_rels/B.txt.rels", ""}}},
    {"a piece of a part", "InterleavedPart", {{"a.txt/[12].LAST.Piece", "2"}}},
};

TEST(Opening, RefusesWithTheRuleThatIsBroken) {
  const support::TemporaryFolder folder;
  for (const auto& hostile : kHostile) {
    Items items = hostile.items;
    items.emplace(items.begin(), "[Content_Types].xml", contentTypes());
    tests::writeArchive(folder.narrow("hostile.zip"), items);
    EXPECT_EQ(refusalOf(folder.wide("hostile.zip")), std::string("opc:package:") + hostile.refusal)
        << hostile.why;
  }
  tests::writeArchive(folder.narrow("archive.zip"), {{"a.txt", "x"}, {"[Content_Types].xml/", ""}});
  EXPECT_EQ(refusalOf(folder.wide("archive.zip")), "opc:package:ContentTypesMissing");
  tests::writeArchive(
      folder.narrow("broken.zip"),
      {{"[Content_Types].xml", contentTypes()}, {"a.txt", ""}, {"_rels/a.txt.rels", "<Relationships"}});
  EXPECT_EQ(refusalOf(folder.wide("broken.zip")), "opc:xml:Malformed") << "relationships of a part";
  EXPECT_THROW(Package(folder.wide("none.zip")).open(OpenMode::Modify), PackageNotFound);
  PackageFixture damaged;
  damaged.add(u"/a.txt", "text").corruptEntry(0);  // the content types, which a new package starts with
  EXPECT_NE(refusalOf(damaged.path()), "");
}

TEST(Opening, HoldsTheLimitsForAllRelationshipsTogether) {
  const support::TemporaryFolder folder;
  tests::writeArchive(folder.narrow("p.zip"), {{"[Content_Types].xml", contentTypes()},
                                               {"a.txt", ""},
                                               {"_rels/.rels", relationships(kLink)},
                                               {"_rels/a.txt.rels", relationships(kLink)}});
  EXPECT_EQ(refusalOf(folder.wide("p.zip"), {.relationships = 2}), "");
  EXPECT_EQ(refusalOf(folder.wide("p.zip"), {.relationships = 1}), "opc:relationships:TooMany");
  EXPECT_NE(refusalOf(folder.wide("p.zip"), {.relationshipBytes = relationships(kLink).size() + 10}), "");
}

const struct {
  const char* why;
  const char* parts;
  Items items;  // besides the content types
} kOddities[] = {
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
  for (const auto& odd : kOddities) {
    Items items = odd.items;
    items.emplace(items.begin(), "[content_types].XML", contentTypes());
    tests::writeArchive(folder.narrow("odd.zip"), items);
    Package package(folder.wide("odd.zip"));
    ASSERT_EQ(raisedBy([&] { package.open(OpenMode::Read); }), "") << odd.why;
    std::string names;
    for (const auto& part : package.index()->parts()) names += package.index()->nameOf(part).encoded() + " ";
    EXPECT_EQ(names, odd.parts) << odd.why;
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

/// So many identifiers that meet in one corner of a hash table of 2^16 slots, under the hash that everybody
/// knows.
std::vector<std::string> collidingIds(std::size_t count) {
  std::vector<std::string> ids;
  for (std::uint64_t number = 0; ids.size() < count; ++number) {
    std::string id = "i" + std::to_string(number);
    const std::uint64_t hash = std::hash<std::string>()(id);
    if (((hash ^ hash >> 32) & 0xFFFF) < 64) ids.push_back(std::move(id));
  }
  return ids;
}

TEST(Opening, TakesNoLongerForIdentifiersThatWereChosenToCollide) {
  constexpr std::size_t kCount = 20'000;
  const auto secondsToRead = [&](const std::vector<std::string>& ids) {
    std::string links;
    for (const std::string& id : ids) links += "<Relationship Id='" + id + "' Type='t' Target='x'/>";
    const std::string document = relationships(links);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RelationshipsDocument::parse(document, "", "p").size(), kCount);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  std::vector<std::string> usual;
  for (std::size_t number = 0; number < kCount; ++number) usual.push_back("rId" + std::to_string(number));
  const auto colliding = collidingIds(kCount);
  EXPECT_LT(secondsToRead(colliding), 5 * secondsToRead(usual) + 0.02);
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
  EXPECT_EQ(part.getContentType().encoded(), "text/csv");
  InputStreamSource source(part.getInputStream());
  char start[10];
  EXPECT_EQ(source.read(start, 0), 0) << "not the end";
  ASSERT_EQ(source.read(start, 10), 10);
  EXPECT_EQ(part.getInputStream(), Part(part).getInputStream())
      << "one stream of the handle, where it stands";
  EXPECT_TRUE(readAll(*part.getInputStream()) == data.substr(10));
  EXPECT_EQ(source.read(start, 10), -1);
  part.getInputStream()->restart();
  std::ostringstream copy;
  EXPECT_EQ(copyStream(*part.getInputStream(), copy), data.size());
  EXPECT_TRUE(copy.str() == data);
}

TEST(Parts, SayThatTheirPackageIsClosed) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text").link(u"/a.txt");
  auto package = std::make_unique<Package>(fixture.path());
  package->open(OpenMode::Modify);
  Part part = package->getPart(PartName(u"/a.txt"));
  const auto input = part.getInputStream();
  const auto output = package->createPart(PartName(u"/b.txt"), kText, {}).getOutputStream();
  char byte;
  const auto expectAllClosed = [&] {
    const std::string closed = "opc:package:Closed(" + fixture.narrowPath() + ")";
    EXPECT_EQ(raisedBy([&] { input->read(&byte, 1); }), closed);
    EXPECT_EQ(raisedBy([&] { input->restart(); }), closed);
    EXPECT_EQ(raisedBy([&] { output->write("x", 1); }), closed);
    EXPECT_EQ(raisedBy([&] { part.getSize(); }), closed);
    EXPECT_EQ(raisedBy([&] { part.getInputStream(); }), closed);
    EXPECT_EQ(raisedBy([&] { part.getOutputStream(); }), closed);
    EXPECT_EQ(raisedBy([&] { part.getRelationships(ExcludeMode::None); }), closed);
    EXPECT_EQ(raisedBy([&] { part.deleteRelationship("rId1"); }), closed);
  };
  package->close();
  EXPECT_EQ(ruleOf([&] { package->getRelationships(ExcludeMode::None); }), "opc:package:Closed");
  package->open(OpenMode::Read);  // of which the old handles are no part
  expectAllClosed();
  part = package->getPart(PartName(u"/a.txt"));
  package.reset();
  expectAllClosed();
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

const struct {
  const char16_t* name;
  const char* refusal;
} kNewNames[] = {
    {u"/USER/A.txt", "opc:part:Exists"},     {u"/User/A.TXT/b/c", "opc:part:DerivedName"},
    {u"/user", "opc:part:DerivedName"},      {u"/user/a", ""},  // shares letters only
    {u"/user/a.bin", "opc:part:NameOfItem"}, {u"/link.txt", "opc:part:NameOfItem"},
};

TEST(NewParts, NeedANameOfTheirOwn) {
  const support::TemporaryFolder folder;
  tests::writeArchive(
      folder.narrow("p.zip"),
      {{"[Content_Types].xml", contentTypes()}, {"user/a.txt", ""}, {"user/a.bin", "no type"}});
  tests::addSymbolicLink(folder.narrow("p.zip"), "link.txt");
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Modify);
  const auto create = [&](const char16_t* name) {
    return raisedBy([&] { package.createPart(PartName(name), kText, {}); });
  };
  for (const auto& row : kNewNames) {
    const std::string refusal = create(row.name);
    EXPECT_EQ(refusal.substr(0, refusal.find('(')), row.refusal) << PartName(row.name).encoded();
    if (refusal.empty()) package.deletePart(PartName(row.name));
  }
  package.deletePart(PartName(u"/user/a.txt"));
  EXPECT_EQ(create(u"/user/a.txt/b"), "");
  EXPECT_EQ(create(u"/USER/a.txt"),
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
  EXPECT_EQ(ruleOf([&] { part.getInputStream()->restart(); }), "opc:part:NotFound");
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

TEST(Streams, RaiseWhenTheOtherEndFails) {
  PackageFixture fixture;
  fixture.add(u"/a.txt", "text");
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  Part part = package.getPart(PartName(u"/a.txt"));
  std::ofstream full("/dev/full", std::ios::binary);
  EXPECT_EQ(raisedBy([&] { copyStream(*part.getInputStream(), full); }), "opc:stream:CannotWrite(4)");
  for (const std::filesystem::path& unreadable :
       {fixture.folder().path() / "none", fixture.folder().path()}) {
    std::ifstream from(unreadable, std::ios::binary);
    EXPECT_EQ(raisedBy([&] { copyStream(from, *part.getOutputStream()); }), "opc:stream:CannotRead(0)");
  }
  EXPECT_EQ(ruleOf([&] { part.getInputStream(); }), "opc:part:LostData");
  EXPECT_EQ(ruleOf([&] { package.close(); }), "opc:part:LostData");
}

}  // namespace

}  // namespace opc::model
