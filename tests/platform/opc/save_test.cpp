#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_index.h"
#include "tests/platform/opc/raw_archive.h"
#include "tests/support/package_fixture.h"
#include "tests/support/raised.h"
#include "tests/support/unprivileged.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;
using support::outputOf;
using support::PackageFixture;
using support::raisedBy;
using support::readAll;
using support::writePart;
using tests::contentTypes;
using tests::relationships;

constexpr auto kReader = PROJECT_FOLDER "/tests/support/read_package.py";

/// What programs that are not ours find in the package. `unzip -t` answers 1 for mere warnings, which count
/// here.
std::string readByOthers(const std::string& path) {
  std::string complaint = outputOf("unzip -tqq '" + path + "'");
  if (complaint.empty()) complaint = outputOf("7z t '" + path + "' > /dev/null");
  if (!complaint.empty()) return complaint;
  return outputOf(std::string("/usr/bin/python3 ") + kReader + " '" + path + "'");
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
  std::mt19937_64 random(7);
  std::string bytes(count, 0);
  for (std::size_t at = 0; at + 8 <= count; at += 8) {
    const std::uint64_t next = random();
    std::memcpy(bytes.data() + at, &next, 8);
  }
  return bytes;
}

const ContentType kText(u"text/plain");

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

constexpr auto kHead =
    "b.txt [text/plain] bbb\n[Content_Types].xml\na/ [-] \na/note.unknown [-] no part\n_rels/.rels\n";
constexpr auto kMiddle = "_rels/b.txt.rels\na/c.txt [text/plain] ccc\nprops/core.xml\n";
constexpr auto kLinks =
    "_rels/.rels: rId1 UserAssetsPartRelType b.txt\n_rels/.rels: rId3 core-properties props/core.xml\n";

struct SaveCase {
  const char* what;
  std::function<void(Package&)> work;
  std::string after;
};

const SaveCase kSaves[] = {
    {"a part and a link to it",
     [](Package& package) {
       writePart(package.createPart(PartName(u"/user/my run.txt"), ContentType(u"text/csv"), {}), "1;2");
       package.createInternalRelationship(u"UserAssetsPartRelType", URI(u"/user/my run.txt"), {});
     },
     std::string(kHead) + kMiddle + "user/my%20run.txt [text/csv] 1;2\n" + kLinks +
         "_rels/.rels: rId2 UserAssetsPartRelType /user/my%20run.txt\n" +
         "_rels/b.txt.rels: x t a/c.txt\ntitle: kept\n"},
    {"a part that is never written to",
     [](Package& package) { package.createPart(PartName(u"/new"), kText, {}); },
     std::string(kHead) + kMiddle + "new [text/plain] \n" + kLinks +
         "_rels/b.txt.rels: x t a/c.txt\ntitle: kept\n"},
    {"a part deleted with its relationships, its link left to the caller",
     [](Package& package) {
       package.deletePart(PartName(u"/B.TXT"));
       package.deletePart(PartName(u"/never/was"));
     },
     std::string("[Content_Types].xml\na/ [-] \na/note.unknown [-] no part\n_rels/.rels\n") +
         "a/c.txt [text/plain] ccc\nprops/core.xml\n" + kLinks + "title: kept\n"},
    {"a part deleted and made again, without the old one's relationships",
     [](Package& package) {
       package.deletePart(PartName(u"/b.txt"));
       writePart(package.createPart(PartName(u"/b.txt"), ContentType(u"x/y"), {}), "BBB");
     },
     std::string("[Content_Types].xml\na/ [-] \na/note.unknown [-] no part\n_rels/.rels\n") +
         "a/c.txt [text/plain] ccc\nprops/core.xml\nb.txt [x/y] BBB\n" + kLinks + "title: kept\n"},
    {"data replaced in its place",
     [](Package& package) { writePart(package.getPart(PartName(u"/b.txt")), "new"); },
     std::string("b.txt [text/plain] new\n") + (kHead + 23) + kMiddle + kLinks +
         "_rels/b.txt.rels: x t a/c.txt\ntitle: kept\n"},
    {"relationships of parts",
     [](Package& package) {
       Part first = package.getPart(PartName(u"/a/c.txt"));
       EXPECT_EQ(first.createInternalRelationship(u"t", URI(u"/b.txt"), {}).getID(), "rId1");
       Part second = package.getPart(PartName(u"/b.txt"));
       second.deleteRelationship("x");
       second.deleteRelationship("never was");
     },
     std::string(kHead) + "a/c.txt [text/plain] ccc\nprops/core.xml\na/_rels/c.txt.rels\n" + kLinks +
         "title: kept\na/_rels/c.txt.rels: rId1 t /b.txt\n"},
    {"the package's links, in their order",
     [](Package& package) {
       package.deleteRelationship("rId1");
       package.createInternalRelationship(u"t", URI(u"/a/c.txt"), "mine");
     },
     std::string(kHead) + kMiddle +
         "_rels/.rels: rId3 core-properties props/core.xml\n_rels/.rels: mine t /a/c.txt\n" +
         "_rels/b.txt.rels: x t a/c.txt\ntitle: kept\n"},
    {"a description beside what other programs wrote",
     [](Package& package) {
       EXPECT_EQ(package.getCoreProperty(CoreProperty::Description), std::nullopt);
       package.setCoreProperty(CoreProperty::Description, u"a < b & \u00F6");
       EXPECT_EQ(package.getCoreProperty(CoreProperty::Description), u"a < b & \u00F6");
     },
     std::string(kHead) + kMiddle + kLinks +
         "_rels/b.txt.rels: x t a/c.txt\ntitle: kept\ndescription: a < b & \u00F6\n"},
};

TEST(Saving, LeavesWhatOthersFindAsTheyShould) {
  const support::TemporaryFolder folder;
  for (const SaveCase& save : kSaves) {
    writeForeignPackage(folder.narrow("p.zip"));
    EXPECT_EQ(change(folder.wide("p.zip"), save.work), "") << save.what;
    EXPECT_EQ(readByOthers(folder.narrow("p.zip")), save.after) << save.what;
    EXPECT_NE(folder.read("p.zip").find("a comment"), std::string::npos) << save.what;
    std::filesystem::remove(folder.path() / "p.zip");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "no temporary is left: " << save.what;
  }
}

TEST(Saving, StartsANewPackageWithItsContentTypes) {
  PackageFixture fixture;
  fixture.addLinked(u"/user/100%.txt", "x").describe(u"first").add(u"/z", "");
  EXPECT_EQ(
      readByOthers(fixture.narrowPath()),
      "[Content_Types].xml\n_rels/.rels\nuser/100%25.txt [text/plain] x\ndocProps/core.xml\nz [text/plain] \n"
      "_rels/.rels: rId1 UserAssetsPartRelType /user/100%25.txt\n"
      "_rels/.rels: rId2 core-properties /docProps/core.xml\ndescription: first\n");
  PackageFixture empty;
  EXPECT_EQ(readByOthers(empty.narrowPath()), "[Content_Types].xml\n");
}

TEST(Saving, OfANewPackageNeverReplacesAFile) {
  const support::TemporaryFolder folder;
  Package package(folder.wide("p.zip"));
  package.open(OpenMode::Create);
  package.createPart(PartName(u"/a"), kText, {});
  folder.write("p.zip", "somebody else's");
  EXPECT_THROW(package.close(), Exception);
  EXPECT_FALSE(package.isOpen());
  EXPECT_EQ(folder.read("p.zip"), "somebody else's");
}

// A file that may be replaced is saved as one that was opened: with its mode and attributes, and only while
// it is still the file that was there.
TEST(Saving, OfANewPackageReplacesTheFileItMay) {
  const support::TemporaryFolder folder;
  const std::string path = folder.narrow("p.zip");
  folder.write("p.zip", "no package");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  const bool hasAttributes = setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
  const auto replace = [&](const std::function<void()>& meanwhile) {
    Package package(folder.wide("p.zip"));
    package.create(Package::Existing::Replace);
    writePart(package.createPart(PartName(u"/a"), kText, {}), "x");
    meanwhile();
    return raisedBy([&] { package.close(); });
  };
  EXPECT_EQ(replace([] {}), "");
  EXPECT_EQ(readByOthers(path), "[Content_Types].xml\na [text/plain] x\n");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
  char note[8];
  EXPECT_EQ(getxattr(path.c_str(), "user.note", note, sizeof note) == 4, hasAttributes);

  EXPECT_NE(replace([&] { folder.write("p.zip", "somebody else's"); }), "");
  EXPECT_EQ(folder.read("p.zip"), "somebody else's");
  std::filesystem::remove(path);
  EXPECT_NE(replace([&] { folder.write("p.zip", "new and somebody else's"); }), "");
  EXPECT_EQ(folder.read("p.zip"), "new and somebody else's");
  EXPECT_EQ(folder.entryCount(), 1u);
}

TEST(Saving, PutsCorePropertiesBesideAPartThatHasTheirName) {
  PackageFixture fixture;
  fixture.add(u"/docProps/core.xml", "<other/>").describe(u"text");
  EXPECT_NE(readByOthers(fixture.narrowPath()).find("core-properties /docProps/core1.xml"),
            std::string::npos);
}

TEST(Saving, LeavesNothingOfADeletedPartBehind) {
  const std::string secret = bytesThatCannotShrink(100'000);
  PackageFixture fixture;
  fixture.add(u"/secret", secret).add(u"/open", "x");
  ASSERT_NE(fixture.bytes().find(secret), std::string::npos);
  const std::string before = fixture.bytes();
  for (const bool replaces : {false, true}) {
    fixture.replaceBytes(before);
    EXPECT_EQ(change(fixture.path(),
                     [&](Package& package) {
                       writePart(package.createPart(PartName(u"/added"), kText, {}), "y");
                       if (replaces) writePart(package.getPart(PartName(u"/secret")), "z");
                       if (!replaces) package.deletePart(PartName(u"/secret"));
                     }),
              "");
    EXPECT_EQ(fixture.bytes().find(secret.substr(50'000, 64)), std::string::npos);
    EXPECT_LT(fixture.bytes().size(), 5'000u);
  }
}

TEST(Saving, KeepsThePackageWhenItsLastPartGoes) {
  PackageFixture fixture;
  fixture.addLinked(u"/a", "x");
  EXPECT_EQ(change(fixture.path(),
                   [](Package& package) {
                     package.deletePart(PartName(u"/a"));
                     package.deleteRelationship("rId1");
                   }),
            "");
  EXPECT_EQ(readByOthers(fixture.narrowPath()), "[Content_Types].xml\n_rels/.rels\n");
  EXPECT_EQ(change(fixture.path(), [](Package& package) { EXPECT_TRUE(package.getPartNames().empty()); }),
            "");
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
TEST(Saving, WritesDocumentsWhereTheirPlacesAreOddlyTaken) {
  const support::TemporaryFolder folder;
  const std::string path = folder.narrow("p.zip");
  ASSERT_EQ(
      outputOf("/usr/bin/python3 -c \"import zipfile; archive = zipfile.ZipFile('" + path +
               "', 'w'); link = zipfile.ZipInfo('_rels/.rels'); link.create_system = 3; "
               "link.external_attr = 0o120777 << 16; archive.writestr(link, 'elsewhere'); "
               "archive.writestr('_rels/a.rels', 'left behind'); "
               "archive.writestr('[Content_Types].xml', '<Types xmlns=\\'http://schemas.openxmlformats.org/"
               "package/2006/content-types\\'/>')\""),
      "");
  EXPECT_EQ(change(folder.wide("p.zip"),
                   [](Package& package) {
                     EXPECT_TRUE(package.getRelationships(ExcludeMode::None).empty());
                     const Part part = package.createPart(PartName(u"/a"), kText, {});
                     EXPECT_TRUE(part.getRelationships(ExcludeMode::None).empty());
                     package.createInternalRelationship(u"t", URI(u"/a"), {});
                   }),
            "");
  EXPECT_EQ(readByOthers(path),
            "_rels/.rels\n[Content_Types].xml\na [text/plain] \n_rels/.rels: rId1 t /a\n");
}

// A package that its own reader would refuse is never written: adding fails, or at the latest saving.
TEST(Saving, StaysWithinWhatCanBeOpened) {
  PackageFixture fixture;
  fixture.addLinked(u"/a", "x").addLinked(u"/b", "x").path();
  zip::Limits limits;
  limits.relationships = 3;
  limits.entries = 6;  // of which four are there, and two are kept for documents
  Package package(fixture.path(), limits);
  package.open(OpenMode::Modify);
  EXPECT_EQ(raisedBy([&] { package.createPart(PartName(u"/c"), kText, {}); }),
            "opc:package:TooManyEntries(" + fixture.narrowPath() + ", 6)");
  Part part = package.getPart(PartName(u"/a"));
  package.createInternalRelationship(u"t", URI(u"/a"), {});
  const std::string tooMany = "opc:package:TooManyRelationships(" + fixture.narrowPath() + ", 3)";
  EXPECT_EQ(raisedBy([&] { package.createInternalRelationship(u"t", URI(u"/a"), {}); }), tooMany);
  EXPECT_EQ(raisedBy([&] { part.createInternalRelationship(u"t", URI(u"/a"), {}); }), tooMany);
  package.deletePart(PartName(u"/b"));
  package.deleteRelationship("rId2");
  EXPECT_EQ(raisedBy([&] { package.createPart(PartName(u"/c"), kText, {}); }), "");
  EXPECT_EQ(raisedBy([&] { package.createInternalRelationship(u"t", URI(u"/a"), {}); }), "");
  package.close();
  EXPECT_EQ(raisedBy([&] { package.open(OpenMode::Modify); }), "");
  package.close();

  zip::Limits small;
  small.relationshipBytes = 700;
  Package crowded(fixture.path(), small);
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
  ASSERT_EQ(
      outputOf(
          "/usr/bin/python3 -c \"import zipfile; archive = zipfile.ZipFile('" + path +
          "', 'a'); link = zipfile.ZipInfo('a/link.txt', (1987, 6, 5, 4, 3, 2)); link.create_system = 3; "
          "link.external_attr = 0o120777 << 16; link.comment = b'a remark'; "
          "link.extra = bytes.fromhex('feca0200beef'); "
          "archive.writestr(link, 'b.txt'); "
          "archive.open(zipfile.ZipInfo('streamed.txt'), 'w', force_zip64=True).close()\""),
      "");
  const auto before = itemsOf(path);
  EXPECT_EQ(change(folder.wide("p.zip"), [](Package& package) { package.deletePart(PartName(u"/a/c.txt")); }),
            "");
  auto after = itemsOf(path);
  after["a/c.txt"] = before.at("a/c.txt");
  after["[Content_Types].xml"] = before.at("[Content_Types].xml");
  EXPECT_EQ(after, before);
}

TEST(Saving, IsSeenByTheNextOpeningOfTheSamePackage) {
  PackageFixture fixture;
  fixture.add(u"/a", "x");
  Package package(fixture.path());
  for (const char16_t* name : {u"/b", u"/c", u"/d"}) {
    package.open(OpenMode::Modify);
    writePart(package.createPart(PartName(name), kText, {}), "data");
    package.close();
    package.open(OpenMode::Read);
    EXPECT_EQ(readAll(*package.getPart(PartName(name)).getInputStream()), "data");
    package.close();
  }
}

// Failures. In every case the file must be what it was, and nothing may lie beside it.

struct Untouched {
  explicit Untouched(PackageFixture& package) : fixture(package), bytes(package.bytes()) {}
  ~Untouched() {
    EXPECT_EQ(fixture.bytes(), bytes);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fixture.folder().path()), {}), 1);
  }
  PackageFixture& fixture;
  std::string bytes;
};

TEST(FailedSave, WhenSomebodyElseChangedTheFile) {
  PackageFixture fixture;
  fixture.add(u"/a", "x").path();
  Package package(fixture.path());
  package.open(OpenMode::Modify);
  package.createPart(PartName(u"/lost"), kText, {});
  fixture.add(u"/theirs", "y").path();
  const Untouched untouched(fixture);
  EXPECT_NE(raisedBy([&] { package.close(); }), "");
  EXPECT_FALSE(package.isOpen());
  EXPECT_EQ(change(fixture.path(), [](Package& again) { EXPECT_TRUE(again.hasPart(PartName(u"/theirs"))); }),
            "");
}

TEST(FailedSave, WhenTheFileOrItsFolderMayNotBeWritten) {
  PackageFixture fixture;
  fixture.add(u"/a", "x").path();
  const std::filesystem::path folder = fixture.folder().path();
  const auto add = [](Package& package) {
    writePart(package.createPart(PartName(u"/b"), kText, {}), bytesThatCannotShrink(10'000'000));
  };
  const Untouched untouched(fixture);
  const std::u16string path = fixture.path();
  ASSERT_EQ(chmod(fixture.narrowPath().c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  {
    const support::Unprivileged nobody;
    EXPECT_NE(change(path, add), "");
  }
  ASSERT_EQ(chmod(fixture.narrowPath().c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
  {
    const support::Unprivileged nobody;
    EXPECT_NE(change(path, add), "");
  }
}

/// Runs `work` in a process whose files may not grow past `limit`, as on a full disk; whether it was refused.
bool isRefusedWithFilesUpTo(rlim_t limit, const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit files{limit, limit};
    setrlimit(RLIMIT_FSIZE, &files);
    try {
      work();
    } catch (const Exception&) {
      _exit(42);
    }
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

TEST(FailedSave, WhenTheDiskIsFull) {
  PackageFixture fixture;
  fixture.add(u"/a", bytesThatCannotShrink(200'000)).path();
  const std::u16string path = fixture.path();
  const Untouched untouched(fixture);
  const auto addAndClose = [&](std::size_t bytes) {
    Package package(path);
    package.open(OpenMode::Modify);
    writePart(package.createPart(PartName(u"/b"), kText, {}), bytesThatCannotShrink(bytes));
    package.close();
  };
  EXPECT_TRUE(isRefusedWithFilesUpTo(100'000, [&] { addAndClose(10); })) << "while copying";
  EXPECT_TRUE(isRefusedWithFilesUpTo(250'000, [&] { addAndClose(100'000); })) << "while adding";
  EXPECT_TRUE(isRefusedWithFilesUpTo(1'000'000, [&] { addAndClose(10'000'000); })) << "while spooling";
}

// Whoever ignores that data was lost must not get a package that lacks it.
TEST(FailedSave, WhenThePartsDataWasLost) {
  PackageFixture fixture;
  fixture.add(u"/a", "x").path();
  const std::u16string path = fixture.path();
  const Untouched untouched(fixture);
  EXPECT_TRUE(isRefusedWithFilesUpTo(1'000'000, [&] {
    Package package(path);
    package.open(OpenMode::Modify);
    Part part = package.createPart(PartName(u"/b"), kText, {});
    try {
      writePart(part, bytesThatCannotShrink(20'000'000));
    } catch (const Exception&) {
    }
    package.close();
  }));
}

TEST(Saving, AddsAndDeletesManyPartsOneByOne) {
  constexpr int kParts = 5'000;
  PackageFixture fixture;
  Package package(fixture.folder().wide("many.zip"));
  const auto nameOf = [](int part) {
    const std::string digits = std::to_string(part);
    return PartName(u"/user/part " + std::u16string(digits.begin(), digits.end()) + u".txt");
  };
  package.open(OpenMode::Create);
  for (int part = 0; part < kParts; ++part) {
    writePart(package.createPart(nameOf(part), kText, {}), "x");
    package.createInternalRelationship(u"UserAssetsPartRelType", URI(nameOf(part).text()), {});
  }
  package.close();
  package.open(OpenMode::Modify);
  const auto links = package.getRelationshipsByType(u"UserAssetsPartRelType");
  ASSERT_EQ(links.size(), static_cast<std::size_t>(kParts));
  EXPECT_EQ(links.back().getID(), "rId5000");
  for (const Relationship& link : links) {
    if (link.getTarget() == URI(u"/user/part 77.txt")) continue;
    package.deleteRelationship(link.getID());
    package.deletePart(PartName(link.getTarget().text()));
  }
  package.close();
  EXPECT_EQ(readByOthers(fixture.folder().narrow("many.zip")),
            "[Content_Types].xml\n_rels/.rels\nuser/part%2077.txt [text/plain] x\n"
            "_rels/.rels: rId78 UserAssetsPartRelType /user/part%2077.txt\n");
}

// Each save that only adds may leave replaced documents in the file, but never more than a share of it.
TEST(Saving, ManyTimesDoesNotFillTheFileWithWaste) {
  PackageFixture fixture;
  fixture.add(u"/big", bytesThatCannotShrink(100'000)).path();
  for (int round = 0; round < 40; ++round) {
    const std::string digits = std::to_string(round);
    fixture.addLinked(u"/user/" + std::u16string(digits.begin(), digits.end()), "x").path();
  }
  EXPECT_LT(fixture.bytes().size(), 150'000u);
  EXPECT_NE(readByOthers(fixture.narrowPath()).find("user/39 [text/plain] x"), std::string::npos);
}

}  // namespace

}  // namespace opc::model
