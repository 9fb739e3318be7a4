#include <sys/stat.h>

#include "assets/extract.h"
#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/archive_builder.h"
#include "tests/support/file_size_limit.h"

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
  mode_t permissions(std::string_view name) {
    struct stat found {};
    EXPECT_EQ(stat(package_.folder().narrow(name).c_str(), &found), 0);
    return found.st_mode & 07777;
  }
};

TEST_F(Extracting, NewFoldersAreTheirOwnersAndOldOnesAreLeftAlone) {
  package_.addLinked(u"/user/plots/a.png", "1");
  std::filesystem::create_directory(package_.folder().path() / "old");
  ASSERT_EQ(chmod(package_.folder().narrow("old").c_str(), 0755), 0);
  got(u"a.png", "old/parent/new");
  EXPECT_EQ(permissions("old"), 0755u);
  EXPECT_EQ(permissions("old/parent/new"), 0700u);
  EXPECT_EQ(permissions("old/parent/new/plots"), 0700u);

  // Where the owner may not write, one empty text is the answer.
  ASSERT_EQ(chmod(package_.folder().narrow("old").c_str(), 0577), 0);
  for (const char16_t* entry : {u"a.png", u"no such entry", u"un/supported"}) {
    const corvan::HostArray paths = outputOf("getFile", {entry, u"OutputPath", onDisk("old")});
    ASSERT_EQ(paths.columns(), 1u);
    EXPECT_EQ(paths.cellAt(0).kind(), corvan::ArrayKind::Char);
    EXPECT_EQ(paths.cellAt(0).rows(), 1u);
    EXPECT_EQ(paths.cellAt(0).columns(), 0u);
  }
  EXPECT_EQ(joined(filesBelow(package_.folder().path() / "old")), "parent/new/plots/a.png");
}

TEST_F(Extracting, OutputPathsThatCannotBeAreNamed) {
  package_.addLinked(u"/user/a.png", "1")
      .addLinked(u"/user/b/c.png", "2")
      .addLinked(u"/user/fixture.tavlox", "3");
  writeOnDisk("file", "");
  writeOnDisk("out/user/b", "where a folder should be");
  EXPECT_EQ(errorOfGetting(u"a.png", "file"), invalid("file/a.png"));
  EXPECT_EQ(errorOfGetting(u"a.png", "file/below"), invalid("file/below"));
  EXPECT_EQ(errorOfGetting(u"/user", "out"), invalid("out/user/b/c.png"));
  EXPECT_EQ(textOnDisk("out/user/a.png"), "1") << "what was written before the error stays";
  EXPECT_EQ(errorOf("getFile", {u"a.png", u"OutputPath", u"a\xD800"}),
            "tavlox_io:general:InvalidOutputPath(a\uFFFD)");
  // A package is not written over by its own entry.
  const std::string before = package_.bytes();
  std::filesystem::create_directory_symlink(".", package_.folder().path() / "link");
  EXPECT_EQ(errorOfGetting(u"fixture.tavlox", "link"), invalid("link/fixture.tavlox"));
  EXPECT_EQ(package_.bytes(), before);
}

TEST_F(Extracting, AFailedCopyIsNamedWithItsCause) {
  using foundation::core::except::except_with_causes;
  package_.addLinked(u"/user/a.txt", std::string(3 << 20, 'x'));
  const std::u16string path = package_.path(), folder = onDisk("out");
  const auto causeOf = [&] {
    try {
      const orra::tavloxio::file::ScopedRef ref(orra::tavloxio::file::OpenMode::Read, path);
      orra::tavloxio::part::copyFilesToDisk(ref, u"a.txt", folder);
    } catch (const except_with_causes& error) {
      EXPECT_EQ(describe(error), invalid("out/a.txt"));
      return error.causes().empty() ? std::string("no cause") : error.causes()[0].GetID();
    }
    return std::string("no error");
  };
  {
    const FileSizeLimit fullDisk(1 << 20);
    EXPECT_EQ(causeOf(), "opc:stream:CannotWrite");
  }
  package_.corruptEntry(2);  // behind the two documents
  EXPECT_TRUE(causeOf().starts_with("opc:"));
}

/// One sound user file, and a relationship that leads where it likes.
std::string hostilePackage(const std::string& attributes, const std::string& item) {
  const auto link = [](const std::string& id, const std::string& more) {
    return "<Relationship Id=\"" + id + "\" Type=\"UserAssetsPartRelType\" " + more + "/>";
  };
  std::vector<std::string> items{"user/ok.txt"};
  if (!item.empty()) items.push_back(item);
  return foreignPackage(link("ok", "Target=\"user/ok.txt\"") + link("evil", attributes), items);
}

struct Hostile {
  const char *attributes, *item;
};

const Hostile kHostile[] = {
    {R"(Target="../evil.txt")", ""},
    {R"(Target="/user/%2e%2e/%2e%2e/evil.txt")", ""},
    {R"(Target="/user/%2e%2e%2f%2e%2e%2fevil.txt")", "user/%2e%2e%2f%2e%2e%2fevil.txt"},
    {R"(Target="/user/..%5c..%5cevil.txt")", "user/..%5c..%5cevil.txt"},
    {R"(Target="/user/../../evil.txt" TargetMode="External")", ""},
    {R"(Target="/user/evil.txt" TargetMode="External")", "user/evil.txt"},
    {R"(Target="file:///tmp/evil.txt" TargetMode="External")", ""},
    {R"(Target="//host/evil.txt")", ""},
    {R"(Target="")", ""},
};

TEST_F(Extracting, NothingIsWrittenOutsideTheOutputFolderOrThatIsNoPart) {
  for (const Hostile& hostile : kHostile) {
    SCOPED_TRACE(hostile.attributes);
    const TemporaryFolder above;
    package_.replaceBytes(hostilePackage(hostile.attributes, hostile.item));
    for (const char16_t* entry :
         {u"evil.txt", u"/user", u"/", u"/..", u"/../evil.txt", u"/user/../../evil.txt"}) {
      errorOf("getFile", {entry, u"OutputPath", above.wide("a/b/out")});
    }
    for (const std::string& file : filesBelow(above.path())) {
      EXPECT_TRUE(file == "a/b/out/user/ok.txt" || file == "a/b/out/ok.txt") << file;
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/evil.txt"));
    // The sound entry is not held back by the other one.
    EXPECT_EQ(listed({u"ok.txt"}), "/user/ok.txt");
    EXPECT_EQ(got(u"ok.txt"), "out/ok.txt");
    call("deleteFile", {u"/user/ok.txt"});
    EXPECT_EQ(listed({u"ok.txt"}), "");
  }
}

TEST_F(Extracting, ExternalTargetsAreListedButAreNoParts) {
  package_.replaceBytes(hostilePackage(R"(Target="/user/new.txt" TargetMode="External")", "user/new.txt"));
  EXPECT_EQ(listed(), "/user/ok.txt /user/new.txt");
  EXPECT_EQ(errorOfGetting(u"new.txt", "out"),
            "opc:package:ExternalTarget(" + package_.narrowPath() + ", evil, /user/new.txt)");
  // Nor is the part that it looks like replaced or deleted.
  writeOnDisk("new.txt", "new");
  EXPECT_TRUE(errorOf("addFile", {onDisk("new.txt"), u"Replace", u"enable"})
                  .starts_with("tavlox_io:general:CannotAddEntry(new.txt, "));
  call("deleteFile", {u"/user/new.txt"});
  EXPECT_EQ(support::outputOf("unzip -p " + package_.narrowPath() + " user/new.txt"), "user/new.txt");
}

}  // namespace
}  // namespace support
