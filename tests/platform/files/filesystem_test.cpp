#include "platform/files/filesystem.h"

#include <map>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/posix_time/time_formatters.hpp>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace fs = fl::filesystem;
namespace std_fs = std::filesystem;
using support::ruleOf;

namespace {

struct Filesystem : testing::Test {
  std::u16string wide(std::string_view name) const { return folder.wide(name); }
  std::string shownTime(std::int64_t seconds, long nanoseconds) const {
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
    EXPECT_EQ(utimensat(AT_FDCWD, folder.narrow("a.txt").c_str(), times, 0), 0);
    return to_iso_extended_string(fs::status(wide("a.txt")).lastWriteTime);
  }

  const support::TemporaryFolder folder;
};

TEST_F(Filesystem, StatusIsOfTheFileALinkLeadsTo) {
  folder.write("a.txt", "12345");
  chmod(folder.narrow("a.txt").c_str(), 04640);
  std_fs::create_symlink("a.txt", folder.path() / "link");
  const fs::FileStatus status = fs::status(wide("link"));
  EXPECT_EQ(status.type, fs::FileType::Regular);
  EXPECT_EQ(status.permissions, 04640u);
  EXPECT_TRUE(status.has(fs::Permissions::OwnerWrite));
  EXPECT_FALSE(status.has(fs::Permissions::OwnerAll)) << "only two of the three bits are there";
  EXPECT_EQ(status.size, 5u);
  EXPECT_EQ(fs::status(wide("")).type, fs::FileType::Directory);

  EXPECT_EQ(shownTime(1'700'000'000, 123'456'789), "2023-11-14T22:13:20.123456");
  EXPECT_EQ(shownTime(-1, 999'999'999), "1969-12-31T23:59:59.999999") << "the fraction counts upwards";
  EXPECT_EQ(shownTime(4'000'000'000, 1000), "2096-10-02T07:06:40.000001");
}

TEST_F(Filesystem, ExistsUnlessTheSystemSaysOtherwise) {
  folder.write("a.txt", "");
  folder.write("locked/inside.txt", "");
  std_fs::create_symlink("missing", folder.path() / "dangling");
  std_fs::create_symlink("loop", folder.path() / "loop");
  EXPECT_TRUE(fs::exists(wide("a.txt")));
  const std::u16string kMissing[] = {
      wide("missing"),
      wide("dangling"),
      wide("loop"),
      wide("a.txt/below"),
      wide(std::string(300, 'n')),
      u"",
      wide("a.txt") + u'\xD800',
      wide("a.txt") + u'\0',  // not cut short to a file that is there
  };
  for (const std::u16string& path : kMissing) {
    EXPECT_FALSE(fs::exists(path));
    EXPECT_NE(ruleOf([&] { fs::status(path); }), "");
  }
  chmod(folder.narrow("locked").c_str(), 0);
  const support::Unprivileged user;
  EXPECT_TRUE(fs::exists(wide("locked/inside.txt")));
  EXPECT_EQ(ruleOf([&] { fs::status(wide("locked/inside.txt")); }), "fl:filesystem:StatusFailed");
}

TEST_F(Filesystem, FoldersAreMadeChangedAndRemoved) {
  EXPECT_TRUE(fs::create_directories(wide("a/b/größe/")));
  EXPECT_FALSE(fs::create_directories(wide("a/b")));
  fs::set_permissions(wide("a/b/größe"), fs::Permissions::OwnerAll);
  EXPECT_EQ(fs::status(wide("a/b/größe")).permissions, 0700u);
  EXPECT_TRUE(fs::remove(wide("a/b/größe")));
  EXPECT_FALSE(fs::remove(wide("a/b/größe")));
  folder.write("target", "kept");
  std_fs::create_symlink("target", folder.path() / "link");
  EXPECT_TRUE(fs::remove(wide("link")));
  EXPECT_EQ(folder.read("target"), "kept");

  const auto raised = [](const auto& action) { return ruleOf(action); };
  EXPECT_EQ(raised([&] { fs::set_permissions(wide("missing"), fs::Permissions::OwnerAll); }),
            "fl:filesystem:PermissionsFailed");
  EXPECT_EQ(support::raisedBy([&] { fs::status(wide("missing")); }),
            "fl:filesystem:StatusFailed(" + folder.narrow("missing") + ", No such file or directory)");
}

TEST_F(Filesystem, AbsoluteAndCanonicalPaths) {
  folder.write("real/a.txt", "");
  std_fs::create_symlink("real", folder.path() / "link");
  ASSERT_EQ(chdir(folder.narrow("").c_str()), 0);
  const std::u16string here = folder.path().u16string();
  EXPECT_EQ(fs::absolute(u"link/../x"), here + u"/link/../x");
  EXPECT_EQ(fs::absolute(u"x", u"sub"), here + u"/sub/x");

  EXPECT_EQ(fs::weakly_canonical(u"link/./a.txt"), here + u"/real/a.txt");
  EXPECT_EQ(fs::weakly_canonical(u"missing/../other"), here + u"/other");
  EXPECT_EQ(fs::weakly_canonical(u"link/missing/../other"), here + u"/real/other");
  EXPECT_EQ(fs::weakly_canonical(u"link/.."), here) << "the parent is that of the folder a link leads to";
}

TEST_F(Filesystem, TheIteratorGivesWhatLiesDirectlyInTheFolder) {
  folder.write("größe.txt", "");
  folder.write("..double", "");
  folder.write("bad\xFFname", "");
  folder.write("sub/c.txt", "");
  std_fs::create_symlink("missing", folder.path() / "dangling");
  mkfifo(folder.narrow("pipe").c_str(), 0600);
  std::map<std::u16string, fs::FileType> found;
  std::string raised;
  fs::DirectoryIterator iterator(wide(""));  // its separator at the end is not doubled
  for (int i = 0; i < 6; ++i) {
    raised += support::raisedBy([&] {
      const auto entry = iterator.next().value();
      found.emplace(entry.path, entry.type);
    });
  }
  EXPECT_FALSE(iterator.next().has_value());
  const std::map<std::u16string, fs::FileType> expected = {
      {wide("größe.txt"), fs::FileType::Regular}, {wide("..double"), fs::FileType::Regular},
      {wide("sub"), fs::FileType::Directory},     {wide("dangling"), fs::FileType::SymbolicLink},
      {wide("pipe"), fs::FileType::Other},
  };
  EXPECT_EQ(found, expected);
  EXPECT_EQ(raised, "fl:filesystem:EntryNotUtf8(" + folder.narrow("") + ", bad\xEF\xBF\xBDname)");

  chmod(folder.narrow("sub").c_str(), 0);
  const support::Unprivileged user;
  for (const char* name : {"..double", "missing", "sub"}) {
    fs::DirectoryIterator closed(wide(name));
    EXPECT_FALSE(closed.isOpen()) << name;
    EXPECT_FALSE(closed.next().has_value()) << name;
  }
}

TEST_F(Filesystem, InputFilesAreFiles) {
  folder.write("locked.zip", "");
  chmod(folder.narrow("locked.zip").c_str(), 0);
  chmod(folder.path().c_str(), 0755);
  ASSERT_EQ(mkfifo(folder.narrow("pipe").c_str(), 0600), 0);
  std_fs::create_symlink("loop", folder.path() / "loop");
  const auto opening = [&](const std::string& name) {
    return ruleOf([&] { fs::InputFile file(folder.narrow(name)); });
  };
  for (const auto& name :
       {std::string("missing.zip"), std::string("locked.zip/x"), std::string("pipe\0", 5)}) {
    EXPECT_THROW(fs::InputFile{folder.narrow(name)}, opc::model::PackageNotFound);
  }
  EXPECT_EQ(opening("."), "opc:zip:NotAFile");
  EXPECT_EQ(opening("pipe"), "opc:zip:NotAFile") << "and does not wait for a writer";
  EXPECT_EQ(opening("loop"), "opc:zip:CannotOpen");
  const support::Unprivileged user;
  EXPECT_EQ(opening("locked.zip"), "opc:zip:CannotOpen");
}

TEST(TemporaryFolder, IsTheChosenOne) {
  setenv("TMPDIR", "/var/größe", 1);
  EXPECT_EQ(fs::temp_directory_path(), u"/var/größe");
  setenv("TMPDIR", "/\xFF", 1);
  EXPECT_EQ(ruleOf([] { fs::temp_directory_path(); }), "fl:filesystem:PathNotUtf8");
  setenv("TMPDIR", "", 1);
  EXPECT_EQ(fs::temp_directory_path(), u"/tmp");
}

}  // namespace
