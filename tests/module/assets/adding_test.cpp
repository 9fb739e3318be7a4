#include <sys/stat.h>

#include "assets/options.h"
#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"
#include "tests/module/assets/user_files_fixture.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/unprivileged.h"

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

TEST_F(Adding, TheExtensionBecomesTheType) {
  const std::pair<std::string, const char*> kNames[] = {
      {"a#b?.tar.gz", "gz"}, {"<&>\"'.xml", "xml"}, {"noext", ""},    {"~", ""},
      {".hidden", ""},       {"x.Größe", "Größe"},  {"x.a b", "a b"}, {"x.100%", "100%"},
  };
  for (const auto& [name, type] : kNames) writeOnDisk("in/" + name, name);
  EXPECT_TRUE(call("addFile", {onDisk("in")}).empty());
  EXPECT_TRUE(contain("user/x.100%25 [application/vnd.tavlox.package+100%25] x.100%"));
  for (const auto& [name, type] : kNames) {
    SCOPED_TRACE(name);
    const std::u16string entry = u"/user/" + fl::i18n::to_ustring(name);
    EXPECT_EQ(joined(listed({entry}, u"Name")), name);
    EXPECT_EQ(joined(listed({entry}, u"Type")), type);
    EXPECT_EQ(joined(got(entry)), "out/user/" + name);
    EXPECT_EQ(textOnDisk("out/user/" + name), name);
  }
}

TEST_F(Adding, WhatIsNotThereIsQuietlyNotAdded) {
  ASSERT_EQ(mkfifo(package_.folder().narrow("pipe").c_str(), 0600), 0);
  const std::string before = package_.bytes();
  for (const char* missing : {"missing.txt", "pipe", "fixture.tavlox/below"}) {
    EXPECT_TRUE(call("addFile", {onDisk(missing)}).empty());
  }
  EXPECT_TRUE(call("addFile", {u""}).empty());
  EXPECT_EQ(package_.bytes(), before);
}

struct Folder {
  const char16_t* path;
  const char16_t* replace;
  const char* outcome;  ///< the entry, or the error; "" for the refusal to add
};

TEST_F(Adding, ThePathOptionIsTheFolderAsItIsGiven) {
  writeOnDisk("a.txt", "a");
  const Folder kFolders[] = {
      {u"/user/plots", u"", "/user/plots/a.txt"},
      {u"/user/plots/", u"", "/user/plots/a.txt"},
      {u"/", u"", "/a.txt"},
      {u"/my data/ü", u"", "/my data/ü/a.txt"},
      {u"user", u"", ""},
      {u"/user//plots", u"", ""},
      {u"/user/../x", u"", ""},
      {u"/user/x.", u"", ""},
      {u"/user\\x", u"", ""},
      {u"/taken.txt", u"", ""},  // a part's name is no folder
      {u"/user/\xD800", u"", ""},
      // While the old entry is looked for, the package library's own error is the one that counts.
      {u"/user//plots", u"enable", "opc:name:EmptySegment(/user//plots/a.txt)"},
  };
  package_.addLinked(u"/taken.txt", "1");
  const std::string before = package_.bytes();
  for (const Folder& c : kFolders) {
    SCOPED_TRACE(fl::i18n::to_string_lossy(c.path));
    package_.replaceBytes(before);
    const std::string error = errorOf("addFile", {onDisk("a.txt"), u"Path", c.path, u"Replace", c.replace});
    const std::string outcome = c.outcome;
    if (outcome.starts_with("/")) {
      EXPECT_EQ(error, "");
      EXPECT_EQ(joined(listed({u"a.txt"})), outcome);
    } else {
      EXPECT_EQ(error, outcome.empty() ? refusalOf("a.txt") : outcome);
      EXPECT_EQ(package_.bytes(), before);
    }
  }
}

TEST_F(Adding, ANameThatNoPartCanHaveIsRefused) {
  writeOnDisk("ends in dot.", "");
  writeOnDisk("back\\slash", "");
  EXPECT_EQ(errorOf("addFile", {onDisk("ends in dot.")}), refusalOf("ends in dot."));
  EXPECT_EQ(errorOf("addFile", {onDisk("back\\slash")}), refusalOf("back\\slash"));
}

TEST_F(Adding, ReplacingKeepsTheTypeOfTheOldRelationship) {
  writeOnDisk("a.txt", "new");
  package_.add(u"/user/a.txt", "old").link(u"/user/a.txt", u"OldType").addLinked(u"/user/b.txt", "b");
  call("addFile", {onDisk("a.txt"), u"Replace", u"eNaBlE"});
  EXPECT_TRUE(contain("user/a.txt [application/vnd.tavlox.package+txt] new"));
  EXPECT_TRUE(contain("OldType /user/a.txt"));
  EXPECT_EQ(joined(listed()), "/user/b.txt /user/a.txt");
  call("addFile", {onDisk("a.txt"), u"Path", u"/new", u"Replace", u"enable"});
  EXPECT_TRUE(contain("UserAssetsPartRelType /new/a.txt"));
}

TEST_F(Adding, AnEntryThatCannotGiveWayIsKept) {
  writeOnDisk("a.txt", "new");
  const std::function<void()> kOldEntries[] = {
      [&] { package_.addLinked(u"/user/a.txt", "old"); },  // with Replace off
      [&] { package_.addLinked(u"/USER/A.TXT", "old"); },  // equivalent, but not the name that is linked
      [&] { package_.add(u"/user/a.txt", "old"); },        // no relationship leads to it
  };
  const std::string empty = package_.bytes();
  const char16_t* replace = u"yes";
  for (const auto& addOld : kOldEntries) {
    package_.replaceBytes(empty);
    addOld();
    const std::string before = package_.bytes();
    EXPECT_EQ(errorOf("addFile", {onDisk("a.txt"), u"Replace", replace}), refusalOf("a.txt"));
    EXPECT_EQ(package_.bytes(), before);
    replace = u"enable";
  }
}

// The package must not be touched by these, also not to make way for them.
TEST_F(Adding, AFileThatCannotBeOpenedLeavesThePackageAsItWas) {
  for (const char* entry : {"folder", "nothing", "pipe", "secret"}) {
    package_.addLinked(u"/user/" + fl::i18n::to_ustring(entry), "old");
  }
  const std::string before = package_.bytes();
  ASSERT_EQ(mkfifo(package_.folder().narrow("fifo").c_str(), 0600), 0);
  writeOnDisk("4/secret", "");
  ASSERT_EQ(chmod(package_.folder().narrow("4/secret").c_str(), 0), 0);
  ASSERT_EQ(chmod(package_.folder().path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(package_.narrowPath().c_str(), 0666), 0);
  linkOnDisk("..", "1/folder");
  linkOnDisk("missing", "2/nothing");
  linkOnDisk("../fifo", "3/pipe");
  const std::pair<const char*, const char*> kFiles[] = {{"1/folder", "fl:filesystem:NotAFile("},
                                                        {"2/nothing", "fl:filesystem:StatusFailed("},
                                                        {"3/pipe", "fl:filesystem:NotAFile("},
                                                        {"4/secret", "fl:filesystem:OpenFailed("}};
  for (const auto& [file, identifier] : kFiles) {
    const std::string folder(file, 1);
    const Unprivileged nobody;
    const std::string error = errorOf("addFile", {onDisk(folder), u"Replace", u"enable"});
    EXPECT_TRUE(error.starts_with(identifier + package_.folder().narrow(file))) << error;
  }
  EXPECT_EQ(package_.bytes(), before);
}

TEST_F(Adding, HalfAFileIsNeverSaved) {
  package_.addLinked(u"/user/mem", "old").addLinked(u"/user/noise", "old");
  const std::string before = contents();
  std::string noise(16 << 20, '\0');
  std::uint32_t state = 1;
  for (char& byte : noise) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  writeOnDisk("noise", noise);

  // The system gives the first file a type and a size, and an error instead of bytes.
  EXPECT_EQ(errorOf("addFile", {u"/proc/self/mem", u"Path", u"/new"}), "opc:stream:CannotRead(0)");
  EXPECT_EQ(errorOf("addFile", {u"/proc/self/mem", u"Replace", u"enable"}), "opc:stream:CannotRead(0)");
  const FileSizeLimit fullDisk(4 << 20);
  EXPECT_TRUE(errorOf("addFile", {onDisk("noise"), u"Path", u"/new"}).starts_with("opc:spool:CannotWrite("));
  EXPECT_NE(errorOf("addFile", {onDisk("noise"), u"Replace", u"enable"}), "");
  EXPECT_EQ(contents(), before);
}

TEST_F(Adding, AnErrorInTheMiddleOfAFolderKeepsTheFilesBeforeIt) {
  for (const char* name : {"in/a", "in/b", "in/c", "in/e"}) writeOnDisk(name, name);
  linkOnDisk("/proc/self/mem", "in/d");
  std::vector<std::string> entries;  // in the order of the folder
  fl::filesystem::DirectoryIterator files(onDisk("in"));
  while (const auto file = files.next()) {
    entries.push_back("/user/" + fl::i18n::to_string(fl::filesystem::extract_filename(file->path)));
  }
  const auto broken = std::ranges::find(entries, "/user/d");
  EXPECT_EQ(errorOf("addFile", {onDisk("in")}), "opc:stream:CannotRead(0)");
  EXPECT_EQ(listed(), std::vector<std::string>(entries.begin(), broken));

  std::filesystem::remove(package_.folder().path() / "in/d");
  entries.erase(broken);
  package_.replaceBytes(PackageFixture().add(fl::i18n::to_ustring(entries[2]), "unlinked").bytes());
  EXPECT_EQ(errorOf("addFile", {onDisk("in")}), refusalOf(entries[2].substr(6)));
  EXPECT_EQ(listed(), std::vector<std::string>(entries.begin(), entries.begin() + 2));
}

TEST_F(Adding, TheDataDecidesAndNotTheSizeThatWasSaid) {
  call("addFile", {u"/proc/version"});  // 0 bytes, says the system
  got(u"version");
  EXPECT_EQ(textOnDisk("out/version"), TemporaryFolder().read("/proc/version"));
}

TEST_F(Adding, LongCopiesReportHowFarTheyHaveCome) {
  constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
  writeOnDisk("long", std::string(3 * kMebibyte, 'x'));
  std::vector<std::uint64_t> reported;
  const corvan::ProgressSubscription subscription([&](const corvan::Progress& progress) {
    if (progress.total == 3 * kMebibyte) reported.push_back(progress.done / kMebibyte);
  });
  const std::vector<std::uint64_t> once = {1, 2, 3};
  call("addFile", {onDisk("long")});
  EXPECT_EQ(reported, once);
  reported.clear();
  got(u"long");
  EXPECT_EQ(reported, once);
}

TEST_F(Adding, UnknownOptionsAreRefusedBeforeTheFileIsTouched) {
  writeOnDisk("a.txt", "a");
  const auto file = zobs::construct(client_, zobs::findClass("tavlox.io.File"), {package_.path()});
  std::filesystem::remove(package_.folder().path() / "fixture.tavlox");
  const auto errorOfOption = [&](const char* method, const char16_t* name) {
    return raisedBy([&] { zobs::callMethod(client_, file, method, {u"a.txt", name, u"enable"}); });
  };
  for (const char* method : {"addFile", "getFile"}) {
    EXPECT_EQ(errorOfOption(method, u"replace"), "Corvan:InputParser:UnmatchedParameter(replace, )");
    for (const char16_t* known : {u"Path", u"Replace", u"OutputPath"}) {
      EXPECT_TRUE(errorOfOption(method, known).starts_with("tavlox:general:FileNotFound"));
    }
  }
}

TEST(Options, AreReadInPairs) {
  using namespace orra::tavloxio::part;
  const auto parsed = [](const std::vector<std::u16string>& pairs) {
    std::vector<zobs::Value> inputs{u"object", u"main"};
    inputs.insert(inputs.end(), pairs.begin(), pairs.end());
    return parseNameValueOptions(inputs);
  };
  EXPECT_TRUE(parsed({}).empty());
  EXPECT_TRUE(parsed({u"no such option"}).empty());  // without a value it is nobody's
  EXPECT_EQ(parsed({u"Path", u"/x", u"Replace"}).size(), 1u);
  EXPECT_EQ(textOption(parsed({u"Path", u"/x", u"Path", u"/Y"}), "Path"), u"/Y");
  EXPECT_EQ(textOption(parsed({u"Path", u"/x"}), "OutputPath"), u"");
  for (const char16_t* word : {u"enable", u"ENABLE", u"eNable"}) {
    EXPECT_TRUE(logicalOption(parsed({u"Replace", word}), "Replace"));
  }
  for (const char16_t* word : {u"", u"yes", u"true", u"1", u"on", u"enable ", u"ENABLE\u0130"}) {
    EXPECT_FALSE(logicalOption(parsed({u"Replace", word}), "Replace"));
  }
  EXPECT_FALSE(logicalOption(parsed({u"Replace", u"enable", u"Replace", u"no"}), "Replace"));
}

}  // namespace
}  // namespace support
