#include <algorithm>
#include <cstring>
#include <random>

#include <sys/stat.h>

#include "assets/user_files.h"
#include "platform/files/filesystem.h"
#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/file_size_limit.h"

namespace support {
namespace {

constexpr auto kReader = "/usr/bin/python3 '" PROJECT_FOLDER "/tests/support/read_package.py' ";

class Adding : public UserFiles {
 protected:
  /// What Python reads of the package.
  std::string contents() { return support::outputOf(kReader + package_.narrowPath()); }
  bool contain(const std::string& text) { return contents().find(text) != std::string::npos; }
  void linkOnDisk(const std::string& target, const std::string& link) {
    const auto path = package_.folder().path() / link;
    std::filesystem::create_symlink(target, path);
  }
};

TEST_F(Adding, TheExtensionFollowsThePlusOfTheContentType) {
  // What a media type cannot carry is percent-encoded in the file, and decoded when asked for.
  const char* const kNames[][3] = {
      {"a.tar.gz", "gz", "gz"}, {".hidden", "", ""}, {"x.Größe 1", "Größe 1", "Gr%C3%B6%C3%9Fe%201"}};
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

TEST_F(Adding, NamesAreFormedFromTheFolderAsItIsGivenAndRefusedByThePackageLibrary) {
  const std::string refused = "tavlox_io:general:CannotAddEntry(a.txt, " + package_.narrowPath() + ")";
  // The folder and the word for Replace; the entry that the file becomes, or the error.
  const std::tuple<const char16_t*, const char16_t*, std::string> kAdditions[] = {
      {u"/user/plots/", u"", "/user/plots/a.txt"},
      {u"user", u"", refused},
      {u"/taken.txt", u"", refused},  // a part's name is no folder
      {u"/linked", u"yes", refused},
      {u"/LINKED", u"enable", refused},    // only equivalent to the entry's name
      {u"/unlinked", u"enable", refused},  // no relationship leads to the part
      // While the old entry is looked for, the package library's own error is the one that counts.
      {u"/user//plots", u"enable", "opc:name:EmptySegment(/user//plots/a.txt)"},
  };
  package_.addLinked(u"/taken.txt", "1").addLinked(u"/linked/a.txt", "2").add(u"/unlinked/a.txt", "3");
  const std::string before = package_.bytes();
  writeOnDisk("a.txt", "new");
  for (const auto& [folder, replace, outcome] : kAdditions) {
    package_.replaceBytes(before);
    const std::string error = errorOf("addFile", {onDisk("a.txt"), u"Path", folder, u"Replace", replace});
    const std::string seen = error.empty() ? listed({u"a.txt"}) : error;
    EXPECT_EQ(seen, (error.empty() ? "/linked/a.txt " : "") + outcome);
    EXPECT_EQ(package_.bytes() == before, !error.empty()) << outcome;
  }
}

TEST_F(Adding, ReplacingKeepsTheTypeOfTheOldRelationship) {
  writeOnDisk("a.txt", "new");
  package_.add(u"/user/a.txt", "old").link(u"/user/a.txt", u"OldType").addLinked(u"/user/b.txt", "b");
  call("addFile", {onDisk("a.txt"), u"Replace", u"eNaBlE"});
  EXPECT_TRUE(contain("user/a.txt [application/vnd.tavlox.package+txt] new"));
  EXPECT_TRUE(contain("OldType /user/a.txt"));
}

TEST_F(Adding, AFileThatCannotBeReadWholeLeavesTheOldEntry) {
  package_.addLinked(u"/user/mem", "old");
  const std::string before = contents();
  // The system gives this file a type and a size, and an error instead of bytes.
  linkOnDisk("/proc/self/mem", "mem");
  const std::string error = "opc:stream:CannotRead(" + package_.narrowPath() + ", " +
                            package_.folder().narrow("mem") + ", 0, Input/output error)";
  for (const Inputs& options : {Inputs{u"Replace", u"enable"}, Inputs{u"Path", u"/new"}}) {
    EXPECT_EQ(errorOf("addFile", {onDisk("mem"), options[0], options[1]}), error);
    EXPECT_EQ(contents(), before);
  }
}

TEST_F(Adding, AFullDiskLeavesTheOldEntry) {
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  std::string noise(10 * kMiB, '\0');  // more than is kept in memory
  std::ranges::generate(noise, std::mt19937(7));
  package_.addLinked(u"/user/a.bin", "old").add(u"/b.bin", noise);
  const std::string before = package_.bytes();
  writeOnDisk("a.bin", noise);
  // While the data is taken in, and when it is saved beside what is there.
  const std::pair<rlim_t, const char*> kDisks[] = {{9 * kMiB, "opc:spool:CannotWrite"},
                                                   {19 * kMiB, "tavlox_io:general:UnableToClosePackage"}};
  for (const auto& [room, failure] : kDisks) {
    const support::FileSizeLimit full(room);
    EXPECT_EQ(errorOf("addFile", {onDisk("a.bin"), u"Replace", u"enable"}).substr(0, std::strlen(failure)),
              failure);
    EXPECT_EQ(package_.bytes(), before);
  }
}

TEST_F(Adding, AnErrorInTheMiddleOfAFolderKeepsTheFilesBeforeIt) {
  for (const char* name : {"in/a", "in/b", "in/c", "in/e", "in/f", "in/g"}) writeOnDisk(name, name);
  linkOnDisk("/proc/self/mem", "in/d");
  std::string before;  // in the order of the folder
  fl::filesystem::DirectoryIterator files(onDisk("in"));
  while (const auto file = files.next()) {
    if (file->path == onDisk("in/d")) break;
    append(before, "/user/" + fl::i18n::to_string(fl::filesystem::extract_filename(file->path)));
  }
  const std::string error = "opc:stream:CannotRead(" + package_.narrowPath() + ", " +
                            package_.folder().narrow("in/d") + ", 0, Input/output error)";
  EXPECT_EQ(errorOf("addFile", {onDisk("in")}), error);
  EXPECT_EQ(listed(), before);
  // And with Replace, where the entry that could not be replaced stays as it was too.
  package_.addLinked(u"/user/d", "old");
  EXPECT_EQ(errorOf("addFile", {onDisk("in"), u"Replace", u"enable"}), error);
  EXPECT_TRUE(contain("user/d [text/plain] old"));
}

TEST_F(Adding, OptionsAreReadInPairsBeforeTheFileIsTouched) {
  const auto file = zobs::construct(client_, zobs::findClass("tavlox.io.File"), {package_.path()});
  std::filesystem::remove(package_.narrowPath());
  for (const std::u16string name : {u"replace", u"Path", u"Replace", u"OutputPath"}) {
    EXPECT_EQ(ruleOf([&] {
                zobs::callMethod(client_, file, "addFile", {u"a.txt", name, u"x"});
              }),
              name == u"replace" ? "Corvan:InputParser:UnmatchedParameter" : "tavlox:general:FileNotFound");
  }
  using namespace orra::tavloxio::part;
  const auto parsed = [](std::vector<zobs::Value> pairs) {
    pairs.insert(pairs.begin(), {u"object", u"main"});
    return parseNameValueOptions(pairs);
  };
  EXPECT_TRUE(parsed({u"an unknown name without a value"}).empty());
  EXPECT_EQ(optionOf<std::u16string>(parsed({u"Path", u"/x", u"Path", u"/Y", u"Replace"}), "Path"), u"/Y");
  for (const char16_t* word : {u"yes", u"enable ", u"ENABLE\u0130", u"eNaBlE"}) {
    EXPECT_EQ(optionOf<bool>(parsed({u"Replace", word}), "Replace"), word == std::u16string(u"eNaBlE"));
  }
}

}  // namespace
}  // namespace support
