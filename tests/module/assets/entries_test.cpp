// Listing, extracting and deleting. The same search text may mean different things to the three.

#include <fstream>

#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/archive_builder.h"

namespace support {
namespace {

using Searching = UserFiles;

constexpr char kNone[] = "tavlox_io:general:EntryDoesNotExist";
constexpr char kUnsupported[] = "tavlox_io:general:UnsupportedSearch()";
constexpr char kEverything[] = "/user/a.png /user/plots/a.png /user/plots2/b /user/other/a.png /data/a.png";

/// What list gives, which files getFile writes into "out", and what a listing after deleteFile gives; or the
/// error.
struct Search {
  const char16_t* asked;
  const char *listed, *written, *left;
};

const Search kSearches[] = {
    {u"/", kEverything, "data/a.png user/a.png user/other/a.png user/plots/a.png user/plots2/b", ""},
    {u"", kEverything, kNone, kNone},
    {u"*", kEverything, kNone, kNone},
    {u"a.png", "/user/a.png /user/plots/a.png /user/other/a.png /data/a.png", "a.png plots/a.png",
     "/user/plots2/b /user/other/a.png /data/a.png"},
    {u"A.png", "", kNone, kNone},
    {u"/user/plots", "/user/plots/a.png", "user/plots/a.png",
     "/user/a.png /user/plots2/b /user/other/a.png /data/a.png"},
    {u"/user/plot", "", kNone, kNone},
    {u"plots/a.png", kUnsupported, kUnsupported, kUnsupported},
    {u"~", "", kNone, kNone},
};

TEST_F(Searching, AnswersOfListGetAndDelete) {
  // Two relationships mislead a walk by bare name: one leads into the user folder but is of another type, the
  // other is a user file's but leads elsewhere.
  package_.addLinked(u"/user/a.png", "1")
      .addLinked(u"/user/plots/a.png", "2")
      .addLinked(u"/user/plots2/b", "3");
  package_.add(u"/user/other/a.png", "4").link(u"/user/other/a.png", u"Other").addLinked(u"/data/a.png", "5");
  const std::string before = package_.bytes(), out = package_.folder().narrow("out");
  for (const Search& search : kSearches) {
    const std::string asked = fl::i18n::to_string(search.asked);
    const auto expectOutcome = [&](const auto& action, std::string expected) {
      std::string outcome;
      const std::string error = raisedBy([&] { outcome = action(); });
      if (expected == kNone) expected += "(" + asked + ")";
      EXPECT_EQ(error + outcome, expected) << asked;
    };
    package_.replaceBytes(before);
    std::filesystem::remove_all(out);
    expectOutcome([&] { return listed({search.asked}); }, search.listed);
    expectOutcome([&] { return got(search.asked), filesBelow(out); }, search.written);
    expectOutcome([&] { return call("deleteFile", {search.asked}), listed(); }, search.left);
    EXPECT_EQ(package_.bytes() == before, std::string(search.left).starts_with("tavlox_io")) << asked;
  }
}

TEST_F(Searching, TypesAreWhatFollowsTheLastPlus) {
  package_.add(u"/a", "1", u"image/png").add(u"/b", "2", u"application/a+b+c").add(u"/c", "3", u"text/a+");
  package_.link(u"/a").link(u"/b").link(u"/c");
  EXPECT_EQ(listed({}, u"Name"), "a b c");
  EXPECT_EQ(listed({}, u"Type"), "c ");
}

TEST_F(Searching, ADanglingRelationshipSpoilsNoAnswerAboutTheOthers) {
  for (const char16_t* part : {u"/gone", u"/user/here", u"/lost", u"/gone"}) package_.link(part);
  package_.add(u"/user/here", "text");
  const std::string rule = "opc:part:NotFound(" + package_.narrowPath();
  EXPECT_EQ(listed(), "/gone /user/here /lost /gone");
  try {
    call("getFile", {u"/", u"OutputPath", onDisk("out")});
    ADD_FAILURE() << "nothing is missed";
  } catch (const foundation::core::except::except_with_causes& error) {
    EXPECT_EQ(describe(error), rule + ", /gone)");
    ASSERT_EQ(error.causes().size(), 1u) << "each is named once";
    EXPECT_EQ(describe(error.causes()[0]), rule + ", /lost)");
  }
  EXPECT_EQ(filesBelow(package_.folder().narrow("out")), "user/here");
  call("deleteFile", {u"/gone"});
  EXPECT_EQ(listed(), "/user/here /lost");
}

TEST_F(Searching, APartIsWrittenOnceHoweverManyRelationshipsLeadToIt) {
  package_.add(u"/user/a", std::string(1 << 20, 'x'));
  for (int i = 0; i < 20; ++i) package_.link(u"/user/a");
  const auto bytesWritten = [] {
    std::string name, bytes;  // of this process, as the system counts them
    for (std::ifstream counts("/proc/self/io"); name != "wchar:";) counts >> name >> bytes;
    return std::stoull(bytes);
  };
  const auto before = bytesWritten();
  EXPECT_EQ(outputOf("getFile", {u"/", u"OutputPath", onDisk("out")}).columns(), 20u);
  EXPECT_LT(bytesWritten() - before, 3u << 20);
}

// A home folder is only looked for in a search text; everywhere else "~" is a name like others.
TEST_F(Searching, ATildeIsAName) {
  std::filesystem::current_path(package_.folder().path());
  writeOnDisk("~/a", "text");
  call("addFile", {u"~/a"});
  EXPECT_EQ(listed(), "/user/a");
  call("getFile", {u"a", u"OutputPath", u"~/out"});
  EXPECT_EQ(filesBelow(package_.folder().narrow("~")), "a out/a");
}

class Extracting : public UserFiles {
 protected:
  std::string invalid(std::string_view name) {
    return "tavlox_io:general:InvalidOutputPath(" + package_.folder().narrow(name) + ")";
  }
  std::string errorOfGetting(const std::u16string& entry, const std::string& folder) {
    return errorOf("getFile", {entry, u"OutputPath", onDisk(folder)});
  }
  int permissions(std::string_view name) {
    return static_cast<int>(std::filesystem::status(package_.folder().path() / name).permissions());
  }
};

TEST_F(Extracting, NewFoldersAreTheirOwnersAndOldOnesAreLeftAlone) {
  package_.addLinked(u"/user/plots/a.png", "1");
  const std::string old = package_.folder().narrow("old");
  std::filesystem::create_directory(old);
  std::filesystem::permissions(old, std::filesystem::perms{0755});
  EXPECT_EQ(errorOfGetting(u"a.png", "old/parent/new"), "");
  EXPECT_EQ(permissions("old"), 0755);
  EXPECT_EQ(permissions("old/parent/new"), 0700);

  // Where the owner may not write, one empty text is the answer.
  std::filesystem::permissions(old, std::filesystem::perms{0577});
  const corvan::HostArray paths = outputOf("getFile", {u"no such entry", u"OutputPath", onDisk("old")});
  ASSERT_EQ(paths.columns(), 1u);
  EXPECT_EQ(paths.cellAt(0).text(), u"");
  EXPECT_EQ(filesBelow(old), "parent/new/plots/a.png");
}

TEST_F(Extracting, OutputPathsThatCannotBeAreNamed) {
  package_.addLinked(u"/user/a.png", "1").addLinked(u"/user/b/c.png", "2").addLinked(u"/fixture.tavlox", "3");
  writeOnDisk("out/user/b", "where a folder should be");
  EXPECT_EQ(errorOfGetting(u"/user", "out"), invalid("out/user/b/c.png"));
  EXPECT_EQ(package_.folder().read("out/user/a.png"), "1") << "what was written before the error stays";
  // A package is not written over by its own entry.
  const std::string before = package_.bytes();
  std::filesystem::create_directory_symlink(".", package_.folder().path() / "link");
  EXPECT_EQ(errorOfGetting(u"/fixture.tavlox", "link"), invalid("link/fixture.tavlox"));
  EXPECT_EQ(package_.bytes(), before);
  // What is in the way is said, and not taken for a full disk.
  std::filesystem::create_directories(package_.folder().path() / "folder/a.png");
  EXPECT_EQ(causeOf([&] {
              call("getFile", {u"a.png", u"OutputPath", onDisk("folder")});
            }),
            "fl:filesystem:ReplaceFailed(" + package_.folder().narrow("folder/a.png") + ", Is a directory)");
  package_.corruptEntry(2);  // behind the two documents
  EXPECT_EQ(errorOfGetting(u"/user/a.png", "new"), invalid("new/user/a.png"));
}

/// One sound user file, and a relationship that leads where it likes.
std::string hostilePackage(const std::string& attributes, const std::string& item) {
  const std::string type = "Type=\"UserAssetsPartRelType\" ";
  const std::string links = "<Relationship Id=\"evil\" " + type + attributes + "/>" +
                            "<Relationship Id=\"ok\" " + type + "Target=\"user/ok.txt\"/>";
  return foreignPackage(links, item.empty() ? std::vector<std::string>{"user/ok.txt"}
                                            : std::vector<std::string>{"user/ok.txt", item});
}

TEST_F(Extracting, NothingIsWrittenOutsideTheOutputFolderOrThatIsNoPart) {
  const std::pair<const char*, const char*> kHostile[] = {
      {R"(Target="../evil.txt")", ""},
      {R"(Target="/user/%2e%2e%2f%2e%2e%2fevil.txt")", "user/%2e%2e%2f%2e%2e%2fevil.txt"},
      {R"(Target="/user/..%5c..%5cevil.txt")", "user/..%5c..%5cevil.txt"},
      {R"(Target="/user/evil.txt" TargetMode="External")", "user/evil.txt"},
      {R"(Target="")", ""},
  };
  for (const auto& [attributes, item] : kHostile) {
    SCOPED_TRACE(attributes);
    const TemporaryFolder above;
    package_.replaceBytes(hostilePackage(attributes, item));
    for (const char16_t* entry : {u"evil.txt", u"/..", u"/../evil.txt", u"/user/../../evil.txt", u"/"}) {
      errorOf("getFile", {entry, u"OutputPath", above.wide("a/b/out")});
    }
    EXPECT_EQ(filesBelow(above.path()), "a/b/out/user/ok.txt");
    call("deleteFile", {u"/user/ok.txt"});
    EXPECT_EQ(listed({u"ok.txt"}), "");
  }
}

TEST_F(Extracting, ExternalTargetsAreListedButAreNoParts) {
  package_.replaceBytes(hostilePackage(R"(Target="/user/new.txt" TargetMode="External")", "user/new.txt"));
  EXPECT_EQ(listed(), "/user/new.txt /user/ok.txt");
  EXPECT_EQ(errorOfGetting(u"new.txt", "out"),
            "opc:package:ExternalTarget(" + package_.narrowPath() + ", evil, /user/new.txt)");
  // Nor is the part that it looks like deleted.
  call("deleteFile", {u"/user/new.txt"});
  EXPECT_EQ(support::outputOf("unzip -p " + package_.narrowPath() + " user/new.txt"), "user/new.txt");
}

}  // namespace
}  // namespace support
