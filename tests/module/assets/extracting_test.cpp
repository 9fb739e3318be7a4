#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/archive_builder.h"

namespace support {
namespace {

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
  EXPECT_EQ(permissions("old/parent/new/plots"), 0700);

  // Where the owner may not write, one empty text is the answer.
  std::filesystem::permissions(old, std::filesystem::perms{0577});
  for (const char16_t* entry : {u"a.png", u"no such entry", u"un/supported"}) {
    const corvan::HostArray paths = outputOf("getFile", {entry, u"OutputPath", onDisk("old")});
    ASSERT_EQ(paths.columns(), 1u);
    EXPECT_EQ(paths.cellAt(0).text(), u"");
  }
  EXPECT_EQ(filesBelow(old), "parent/new/plots/a.png");
}

TEST_F(Extracting, OutputPathsThatCannotBeAreNamed) {
  package_.addLinked(u"/user/a.png", "1").addLinked(u"/user/b/c.png", "2").addLinked(u"/fixture.tavlox", "3");
  writeOnDisk("out/user/b", "where a folder should be");
  EXPECT_EQ(errorOfGetting(u"/user", "out"), invalid("out/user/b/c.png"));
  EXPECT_EQ(package_.folder().read("out/user/a.png"), "1") << "what was written before the error stays";
  EXPECT_EQ(errorOf("getFile", {u"a.png", u"OutputPath", u"a\xD800"}),
            "tavlox_io:general:InvalidOutputPath(a\uFFFD)");
  // A package is not written over by its own entry.
  const std::string before = package_.bytes();
  std::filesystem::create_directory_symlink(".", package_.folder().path() / "link");
  EXPECT_EQ(errorOfGetting(u"/fixture.tavlox", "link"), invalid("link/fixture.tavlox"));
  EXPECT_EQ(package_.bytes(), before);
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
      {R"(Target="/user/../../evil.txt" TargetMode="External")", ""},
      {R"(Target="/user/evil.txt" TargetMode="External")", "user/evil.txt"},
      {R"(Target="//host/evil.txt")", ""},
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
  // Nor is the part that it looks like replaced or deleted.
  writeOnDisk("new.txt", "new");
  EXPECT_EQ(ruleOf([&] {
              call("addFile", {onDisk("new.txt"), u"Replace", u"enable"});
            }),
            "tavlox_io:general:CannotAddEntry");
  call("deleteFile", {u"/user/new.txt"});
  EXPECT_EQ(support::outputOf("unzip -p " + package_.narrowPath() + " user/new.txt"), "user/new.txt");
}

}  // namespace
}  // namespace support
