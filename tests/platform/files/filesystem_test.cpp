#include "platform/files/filesystem.h"

#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/posix_time/time_formatters.hpp>

#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace fs = fl::filesystem;
namespace std_fs = std::filesystem;
using support::identifierRaisedBy;
using support::TemporaryFolder;

namespace {

void stamp(const TemporaryFolder& folder, const char* name, std::int64_t seconds, long nanoseconds) {
  const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, folder.narrow(name).c_str(), times, 0), 0);
}

}  // namespace

TEST(Filesystem, StatusIsOfTheFileALinkLeadsTo) {
  const TemporaryFolder folder;
  folder.write("a.txt", "12345");
  chmod(folder.narrow("a.txt").c_str(), 04640);
  std_fs::create_symlink("a.txt", folder.path() / "link");
  stamp(folder, "a.txt", 1'700'000'000, 123'456'789);

  for (const char* name : {"a.txt", "link"}) {
    const fs::FileStatus status = fs::status(folder.wide(name));
    EXPECT_EQ(status.type, fs::FileType::Regular);
    EXPECT_EQ(status.permissions, 04640u);
    EXPECT_TRUE(status.has(fs::Permissions::OwnerWrite));
    EXPECT_FALSE(status.has(fs::Permissions::OwnerAll)) << "only two of the three bits are there";
    EXPECT_EQ(status.size, 5u);
    EXPECT_EQ(to_iso_extended_string(status.lastWriteTime), "2023-11-14T22:13:20.123456");
  }
  EXPECT_EQ(fs::status(folder.wide("")).type, fs::FileType::Directory);
}

TEST(Filesystem, TimesOfEveryRange) {
  const TemporaryFolder folder;
  folder.write("a.txt", "");
  struct Case {
    std::int64_t seconds;
    long nanoseconds;
    const char* shown;
  };
  const Case kCases[] = {
      {0, 999, "1970-01-01T00:00:00"},
      {-1, 999'999'999, "1969-12-31T23:59:59.999999"},  // before the epoch the fraction still counts upwards
      {4'000'000'000, 1000, "2096-10-02T07:06:40.000001"},
  };
  for (const Case& c : kCases) {
    stamp(folder, "a.txt", c.seconds, c.nanoseconds);
    EXPECT_EQ(to_iso_extended_string(fs::status(folder.wide("a.txt")).lastWriteTime), c.shown);
  }
}

TEST(Filesystem, ExistsUnlessTheSystemSaysOtherwise) {
  const TemporaryFolder folder;
  folder.write("a.txt", "");
  folder.write("locked/inside.txt", "");
  std_fs::create_symlink("missing", folder.path() / "dangling");
  std_fs::create_symlink("loop", folder.path() / "loop");
  struct Case {
    std::u16string path;
    bool exists;
  };
  const Case kCases[] = {
      {folder.wide("a.txt"), true},
      {folder.wide("missing"), false},
      {folder.wide("dangling"), false},
      {folder.wide("loop"), false},
      {folder.wide("a.txt/below"), false},
      {folder.wide(std::string(300, 'n')), false},
      {u"", false},
      {folder.wide("a.txt") + u'\xD800', false},
      {folder.wide("a.txt") + u'\0', false},  // not cut short to a file that is there
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(fs::exists(c.path), c.exists);
    EXPECT_EQ(identifierRaisedBy([&] { fs::status(c.path); }).empty(), c.exists);
  }

  chmod(folder.narrow("locked").c_str(), 0);
  const support::Unprivileged user;
  EXPECT_TRUE(fs::exists(folder.wide("locked/inside.txt")));
  EXPECT_EQ(identifierRaisedBy([&] { fs::status(folder.wide("locked/inside.txt")); }),
            "fl:filesystem:StatusFailed");
}

TEST(Filesystem, FailuresNameThePathAndTheReason) {
  const TemporaryFolder folder;
  folder.write("file", "");
  folder.write("full/file", "");
  const std::u16string missing = folder.wide("missing"), below = folder.wide("file/below");
  EXPECT_EQ(identifierRaisedBy([&] { fs::set_permissions(missing, fs::Permissions::OwnerAll); }),
            "fl:filesystem:PermissionsFailed");
  EXPECT_EQ(identifierRaisedBy([&] { fs::create_directories(below); }), "fl:filesystem:CreateFolderFailed");
  EXPECT_EQ(identifierRaisedBy([&] { fs::remove(folder.wide("full")); }), "fl:filesystem:RemoveFailed");
  EXPECT_EQ(identifierRaisedBy([&] { fs::remove(u"\xDC00"); }), "fl:filesystem:ImpossibleName");
  EXPECT_EQ(identifierRaisedBy([&] { fs::DirectoryIterator(u"a\xD800z"); }), "fl:filesystem:ImpossibleName");
  try {
    fs::status(missing);
    FAIL();
  } catch (const fs::Error& error) {
    EXPECT_EQ(error.GetArguments(), (std::vector<std::u16string>{missing, u"No such file or directory"}));
    EXPECT_EQ(error.GetMessageTxt(),
              "The file \"" + folder.narrow("missing") + "\" cannot be examined: No such file or directory.");
  }
}

TEST(Filesystem, FoldersAreMadeChangedAndRemoved) {
  const TemporaryFolder folder;
  EXPECT_TRUE(fs::create_directories(folder.wide("a/b/größe/")));
  EXPECT_FALSE(fs::create_directories(folder.wide("a/b")));
  fs::set_permissions(folder.wide("a/b/größe"), fs::Permissions::OwnerAll);
  EXPECT_EQ(fs::status(folder.wide("a/b/größe")).permissions, 0700u);
  EXPECT_TRUE(fs::remove(folder.wide("a/b/größe")));
  EXPECT_FALSE(fs::remove(folder.wide("a/b/größe")));

  folder.write("target", "kept");
  std_fs::create_symlink("target", folder.path() / "link");
  EXPECT_TRUE(fs::remove(folder.wide("link")));
  EXPECT_EQ(folder.read("target"), "kept");
}

TEST(Filesystem, AbsoluteAndCanonicalPaths) {
  const TemporaryFolder folder;
  folder.write("real/a.txt", "");
  std_fs::create_symlink("real", folder.path() / "link");
  ASSERT_EQ(chdir(folder.narrow("").c_str()), 0);
  const std::u16string here = folder.path().u16string();
  EXPECT_EQ(fs::current_path(), here);
  EXPECT_EQ(fs::absolute(u"link/../x"), here + u"/link/../x");
  EXPECT_EQ(fs::absolute(u""), here);
  EXPECT_EQ(fs::absolute(u"/x"), u"/x");
  EXPECT_EQ(fs::absolute(u"x", u"/base"), u"/base/x");
  EXPECT_EQ(fs::absolute(u"x", u"sub"), here + u"/sub/x");

  EXPECT_EQ(fs::weakly_canonical(u"link/./a.txt"), here + u"/real/a.txt");
  EXPECT_EQ(fs::weakly_canonical(u"missing/../other"), here + u"/other");
  EXPECT_EQ(fs::weakly_canonical(u"link/missing/../other"), here + u"/real/other");
  EXPECT_EQ(fs::weakly_canonical(u"link/.."), here) << "the parent is that of the folder a link leads to";
}

TEST(Filesystem, TheTemporaryFolderIsTheChosenOne) {
  setenv("TMPDIR", "/var/größe", 1);
  EXPECT_EQ(fs::temp_directory_path(), u"/var/größe");
  setenv("TMPDIR", "", 1);
  EXPECT_EQ(fs::temp_directory_path(), u"/tmp");
  setenv("TMPDIR", "/\xFF", 1);
  EXPECT_EQ(identifierRaisedBy([] { fs::temp_directory_path(); }), "fl:filesystem:PathNotUtf8");
}
