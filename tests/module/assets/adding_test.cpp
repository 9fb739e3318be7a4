#include <sys/stat.h>

#include "assets/user_files.h"
#include "platform/files/filesystem.h"
#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/file_size_limit.h"

namespace support {
namespace {

constexpr auto kReader = "/usr/bin/python3 " PROJECT_FOLDER "/tests/support/read_package.py ";

class Adding : public UserFiles {
 protected:
  std::string refusalOf(const std::string& fileName) {
    return "tavlox_io:general:CannotAddEntry(" + fileName + ", " + package_.narrowPath() + ")";
  }
  /// What Python reads of the package.
  std::string contents() { return support::outputOf(kReader + package_.narrowPath()); }
  bool contain(const std::string& text) { return contents().find(text) != std::string::npos; }
  void linkOnDisk(const std::string& target, const std::string& link) {
    const auto path = package_.folder().path() / link;
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::create_symlink(target, path);
  }
};

TEST_F(Adding, TheExtensionFollowsThePlusOfTheContentType) {
  // What a media type cannot carry is percent-encoded in the file, and decoded when asked for.
  const char* const kNames[][3] = {{"a.tar.gz", "gz", "gz"},
                                   {"noext", "", ""},
                                   {".hidden", "", ""},
                                   {"x.Größe", "Größe", "Gr%C3%B6%C3%9Fe"},
                                   {"x.a b", "a b", "a%20b"}};
  for (const auto& [name, type, stored] : kNames) {
    writeOnDisk(name, name);
    EXPECT_TRUE(call("addFile", {onDisk(name)}).empty());
    EXPECT_EQ(listed({u"/user/" + fl::i18n::to_ustring(name)}, u"Type"), type);
    EXPECT_TRUE(contain(std::string(" [application/vnd.tavlox.package+") + stored + "] " + name)) << name;
  }
}

TEST_F(Adding, WhatIsNotThereIsQuietlyNotAdded) {
  ASSERT_EQ(mkfifo(package_.folder().narrow("pipe").c_str(), 0600), 0);
  const std::string before = package_.bytes();
  for (const std::u16string& nothing : {onDisk("missing.txt"), onDisk("pipe"), std::u16string()}) {
    EXPECT_TRUE(call("addFile", {nothing}).empty());
  }
  EXPECT_EQ(package_.bytes(), before);
}

/// A file on disk that is added to the folder `path`: the entry that it becomes, or the error.
struct Addition {
  const char* file;
  const char16_t *path, *replace;
  std::string outcome;
};

TEST_F(Adding, NamesAreFormedFromTheFolderAsItIsGivenAndRefusedByThePackageLibrary) {
  const Addition kAdditions[] = {
      {"a.txt", u"/user/plots/", u"", "/user/plots/a.txt"},
      {"a.txt", u"/", u"", "/a.txt"},
      {"a.txt", u"/my data/ü", u"", "/my data/ü/a.txt"},
      {"a.txt", u"user", u"", refusalOf("a.txt")},
      {"a.txt", u"/user/../x", u"", refusalOf("a.txt")},
      {"a.txt", u"/taken.txt", u"", refusalOf("a.txt")},  // a part's name is no folder
      {"a.txt", u"/user/\xD800", u"", refusalOf("a.txt")},
      {"ends in dot.", u"", u"", refusalOf("ends in dot.")},
      {"back\\slash", u"", u"", refusalOf("back\\slash")},
      // While the old entry is looked for, the package library's own error is the one that counts.
      {"a.txt", u"/user//plots", u"enable", "opc:name:EmptySegment(/user//plots/a.txt)"},
      // A name that is taken: without Replace, by an equivalent name, by a part without a relationship.
      {"linked.txt", u"", u"yes", refusalOf("linked.txt")},
      {"LINKED.TXT", u"", u"enable", refusalOf("LINKED.TXT")},
      {"unlinked.txt", u"", u"enable", refusalOf("unlinked.txt")},
  };
  package_.addLinked(u"/taken.txt", "1").addLinked(u"/user/linked.txt", "2").add(u"/user/unlinked.txt", "3");
  const std::string before = package_.bytes();
  for (const Addition& one : kAdditions) {
    SCOPED_TRACE(one.outcome);
    package_.replaceBytes(before);
    writeOnDisk(one.file, "new");
    const std::string error =
        errorOf("addFile", {onDisk(one.file), u"Path", one.path, u"Replace", one.replace});
    EXPECT_EQ(error.empty() ? listed({u"a.txt"}) : error, one.outcome);
    EXPECT_EQ(package_.bytes() == before, !error.empty());
  }
}

TEST_F(Adding, ReplacingKeepsTheTypeOfTheOldRelationship) {
  writeOnDisk("a.txt", "new");
  package_.add(u"/user/a.txt", "old").link(u"/user/a.txt", u"OldType").addLinked(u"/user/b.txt", "b");
  call("addFile", {onDisk("a.txt"), u"Replace", u"eNaBlE"});
  EXPECT_TRUE(contain("user/a.txt [application/vnd.tavlox.package+txt] new"));
  EXPECT_TRUE(contain("OldType /user/a.txt"));
  EXPECT_EQ(listed(), "/user/b.txt /user/a.txt");
  call("addFile", {onDisk("a.txt"), u"Path", u"/new", u"Replace", u"enable"});
  EXPECT_TRUE(contain("UserAssetsPartRelType /new/a.txt"));
}

TEST_F(Adding, AFileThatCannotBeReadWholeLeavesTheOldEntry) {
  for (const char16_t* entry : {u"/user/folder", u"/user/nothing", u"/user/mem", u"/user/noise"}) {
    package_.addLinked(entry, "old");
  }
  const std::string before = contents();
  linkOnDisk("..", "1/folder");
  linkOnDisk("missing", "2/nothing");
  // The system gives this file a type and a size, and an error instead of bytes.
  linkOnDisk("/proc/self/mem", "3/mem");
  std::string noise(16 << 20, '\0');
  std::uint32_t state = 1;
  for (char& byte : noise) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  writeOnDisk("4/noise", noise);
  const std::pair<const char*, const char*> kErrors[] = {{"1", "fl:filesystem:NotAFile("},
                                                         {"2", "fl:filesystem:StatusFailed("},
                                                         {"3", "opc:stream:CannotRead("},
                                                         {"4", ""}};
  const FileSizeLimit fullDisk(4 << 20);
  for (const auto& [folder, expected] : kErrors) {
    for (const Inputs& options : {Inputs{u"Replace", u"enable"}, Inputs{u"Path", u"/new"}}) {
      const std::string error = errorOf("addFile", {onDisk(folder), options[0], options[1]});
      EXPECT_FALSE(error.empty());
      EXPECT_TRUE(error.starts_with(expected)) << error;
      EXPECT_EQ(contents(), before) << error;
    }
  }
}

TEST_F(Adding, AnErrorInTheMiddleOfAFolderKeepsTheFilesBeforeIt) {
  for (const char* name : {"in/a", "in/b", "in/c", "in/e", "in/f", "in/g"}) writeOnDisk(name, name);
  linkOnDisk("/proc/self/mem", "in/d");
  std::vector<std::string> before;  // in the order of the folder
  fl::filesystem::DirectoryIterator files(onDisk("in"));
  while (const auto file = files.next()) {
    if (file->path == onDisk("in/d")) break;
    before.push_back("/user/" + fl::i18n::to_string(fl::filesystem::extract_filename(file->path)));
  }
  const std::string error =
      "opc:stream:CannotRead(" + package_.narrowPath() + ", " + package_.folder().narrow("in/d") + ", 0)";
  EXPECT_EQ(errorOf("addFile", {onDisk("in")}), error);
  EXPECT_EQ(listed(), joined(before));
  // And with Replace, where the entry that could not be replaced stays as it was too.
  package_.addLinked(u"/user/d", "old");
  EXPECT_EQ(errorOf("addFile", {onDisk("in"), u"Replace", u"enable"}), error);
  EXPECT_TRUE(contain("user/d [text/plain] old"));
  std::ranges::for_each(before, [](std::string& name) { name.erase(0, 1); });
  for (const std::string& name : before) EXPECT_TRUE(contain(name + " [application/")) << name;
}

TEST_F(Adding, OptionsAreReadInPairsBeforeTheFileIsTouched) {
  const auto file = zobs::construct(client_, zobs::findClass("tavlox.io.File"), {package_.path()});
  std::filesystem::remove(package_.folder().path() / "fixture.tavlox");
  for (const char* method : {"addFile", "getFile"}) {
    const auto errorOfOption = [&](const char16_t* name) {
      return raisedBy([&] { zobs::callMethod(client_, file, method, {u"a.txt", name, u"x"}); });
    };
    EXPECT_EQ(errorOfOption(u"replace"), "Corvan:InputParser:UnmatchedParameter(replace, )");
    for (const char16_t* known : {u"Path", u"Replace", u"OutputPath"}) {
      EXPECT_TRUE(errorOfOption(known).starts_with("tavlox:general:FileNotFound"));
    }
  }
  using namespace orra::tavloxio::part;
  const auto parsed = [](std::vector<zobs::Value> pairs) {
    pairs.insert(pairs.begin(), {u"object", u"main"});
    return parseNameValueOptions(pairs);
  };
  EXPECT_TRUE(parsed({u"an unknown name without a value"}).empty());
  EXPECT_EQ(optionOf<std::u16string>(parsed({u"Path", u"/x", u"Path", u"/Y", u"Replace"}), "Path"), u"/Y");
  EXPECT_TRUE(optionOf<bool>(parsed({u"Replace", u"ENABLE"}), "Replace"));
  for (const char16_t* word : {u"", u"yes", u"true", u"enable ", u"ENABLE\u0130"}) {
    EXPECT_FALSE(optionOf<bool>(parsed({u"Replace", word}), "Replace"));
  }
}

}  // namespace
}  // namespace support
