#include "platform/files/durable_file.h"

#include <chrono>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/files/descriptor.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace fl::filesystem {
namespace {

using std::filesystem::path;
using support::raisedBy;

constexpr auto kEmpty = DurableFile::Start::Empty;

FileIdentity identityAt(const std::string& file) { return InputFile(file).identity(); }

void put(const DurableFile& file, std::string_view text) {
  ASSERT_EQ(writeAt(file.descriptor(), 0, text.data(), text.size()), 0);
}

void save(const std::string& file, std::string_view text) {
  DurableFile durable(file, identityAt(file), kEmpty);
  put(durable, text);
  durable.commit();
}

struct stat statusOf(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
  return status;
}

struct DurableFileTest : testing::Test {
  DurableFileTest() { folder.write("s.tavlox", "old"); }

  std::size_t filesInFolder() const {
    return std::distance(std::filesystem::directory_iterator(folder.path()), {});
  }
  std::string raised(const char* rule) const { return std::string("opc:save:") + rule + "(" + file + ")"; }

  support::TemporaryFolder folder;
  std::string file = folder.narrow("s.tavlox");
};

TEST_F(DurableFileTest, NothingChangesBeforeCommit) {
  const FileIdentity before = identityAt(file);
  {
    DurableFile durable(file, before, kEmpty);
    put(durable, "new");
    EXPECT_EQ(folder.read("s.tavlox"), "old");
  }
  EXPECT_TRUE(identityAt(file) == before);
  EXPECT_EQ(filesInFolder(), 1U);

  save(file, "new");
  EXPECT_EQ(folder.read("s.tavlox"), "new");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(DurableFileTest, LinksStayLinks) {
  std::filesystem::create_directory(folder.path() / "elsewhere");
  std::filesystem::create_symlink("../s.tavlox", folder.path() / "elsewhere/first");
  std::filesystem::create_symlink("elsewhere/first", folder.path() / "second");
  save(folder.narrow("second"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path() / "second"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path() / "elsewhere/first"));
  EXPECT_FALSE(std::filesystem::is_symlink(file));
  EXPECT_EQ(folder.read("s.tavlox"), "new");
}

TEST_F(DurableFileTest, ModesAreKept) {
  const mode_t mask = ::umask(077);
  for (const mode_t mode : {0600U, 0664U, 0755U, 02770U, 04711U, 06777U}) {
    ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    save(file, "new");
    EXPECT_EQ(statusOf(file).st_mode & 07777, mode) << std::oct << mode;
  }
  ::umask(mask);
}

TEST_F(DurableFileTest, OwnerAndGroupAreKeptWhereTheyCanBe) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  ASSERT_EQ(::chown(file.c_str(), 1234, 5678), 0);
  ASSERT_EQ(::chmod(file.c_str(), 02640), 0);
  save(file, "new");
  EXPECT_EQ(statusOf(file).st_uid, 1234U);
  EXPECT_EQ(statusOf(file).st_gid, 5678U);
  EXPECT_EQ(statusOf(file).st_mode & 07777, 02640U);

  // Somebody else who may write: the file becomes theirs, and their group learns nothing that it could not
  // read.
  ASSERT_EQ(::chmod(file.c_str(), 06676), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  {
    const support::Unprivileged nobody;
    DurableFile durable(file, identityAt(file), kEmpty);
    durable.commit();
  }
  EXPECT_EQ(statusOf(file).st_uid, 65534U);
  EXPECT_EQ(statusOf(file).st_mode & 07777, 0666U);
}

TEST_F(DurableFileTest, ExtendedAttributesAndAccessListsAreKept) {
  if (::setxattr(file.c_str(), "user.origin", "lab 3", 5, 0) != 0)
    GTEST_SKIP() << "no extended attributes here";
  // Owner rw-, user 1234 r--, group ---, mask r--, others ---: as the system keeps it.
  const unsigned char list[] =
      "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\322\4\0\0\4\0\0\0\377\377\377\377"
      "\20\0\4\0\377\377\377\377\40\0\0\0\377\377\377\377";
  const std::size_t size = sizeof list - 1;
  const bool hasLists = ::setxattr(file.c_str(), "system.posix_acl_access", list, size, 0) == 0;
  save(file, "new");
  std::string value(64, '\0');
  ASSERT_EQ(::getxattr(file.c_str(), "user.origin", value.data(), value.size()), 5);
  EXPECT_EQ(value.substr(0, 5), "lab 3");
  if (!hasLists) GTEST_SKIP() << "no access lists here";
  EXPECT_EQ(::getxattr(file.c_str(), "system.posix_acl_access", value.data(), value.size()),
            static_cast<ssize_t>(size));
  EXPECT_EQ(value.substr(0, size), std::string(reinterpret_cast<const char*>(list), size));

  // The folder's default list is for files that are new there, not for this one.
  ASSERT_EQ(::removexattr(file.c_str(), "system.posix_acl_access"), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  ASSERT_EQ(::setxattr(folder.path().c_str(), "system.posix_acl_default", list, size, 0), 0);
  save(file, "newer");
  EXPECT_LT(::getxattr(file.c_str(), "system.posix_acl_access", value.data(), value.size()), 0);
  EXPECT_EQ(statusOf(file).st_mode & 07777, 0640U);
}

TEST_F(DurableFileTest, TheTimeStampIsLater) {
  using std::chrono::hours;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& stamp : {now + hours(48), now, now - hours(48)}) {  // a clock that was set back, too
    std::filesystem::last_write_time(file, stamp);
    for (int repeat = 0; repeat < 20; ++repeat) {
      const std::int64_t before = identityAt(file).modified;
      save(file, "new");
      ASSERT_GT(identityAt(file).modified / 1000, before / 1000);
    }
  }
}

struct Interference {
  const char* what;
  std::function<void(const support::TemporaryFolder&)> act;
  const char* raised;
  const char* left;
};

const Interference kInterferences[] = {
    {"appended", [](const auto& folder) { folder.write("s.tavlox", "theirs"); }, "FileChanged", "theirs"},
    {"rewritten to the same size", [](const auto& folder) { folder.write("s.tavlox", "OLD"); }, "FileChanged",
     "OLD"},
    {"rewritten, with its old time stamp",
     [](const auto& folder) {
       const path file = folder.path() / "s.tavlox";
       const auto stamp = std::filesystem::last_write_time(file);
       folder.write("s.tavlox", "OLD");
       std::filesystem::last_write_time(file, stamp);
     },
     "FileChanged", "OLD"},
    {"replaced",
     [](const auto& folder) {
       std::filesystem::rename(folder.write("other", "theirs"), folder.path() / "s.tavlox");
     },
     "FileChanged", "theirs"},
    {"deleted", [](const auto& folder) { std::filesystem::remove(folder.path() / "s.tavlox"); }, "FileGone",
     ""},
};

TEST_F(DurableFileTest, WhatOthersDidMeanwhileIsNeverLost) {
  for (const Interference& other : kInterferences) {
    SCOPED_TRACE(other.what);
    for (const bool isEarly : {true, false}) {
      folder.write("s.tavlox", "old");
      const FileIdentity expected = identityAt(file);
      usleep(20'000);  // file systems tell times apart by ticks of the clock
      if (isEarly) other.act(folder);
      EXPECT_EQ(raisedBy([&] {
                  DurableFile durable(file, expected, kEmpty);
                  put(durable, "ours");
                  other.act(folder);
                  durable.commit();
                }),
                raised(other.raised));
      EXPECT_EQ(folder.read("s.tavlox"), other.left);
      EXPECT_EQ(filesInFolder(), *other.left == '\0' ? 0U : 1U);
    }
  }
}

TEST_F(DurableFileTest, OnlyOneSavesAtATime) {
  const FileIdentity expected = identityAt(file);
  DurableFile first(file, expected, kEmpty);
  put(first, "first");
  EXPECT_EQ(raisedBy([&] { DurableFile second(file, expected, kEmpty); }), raised("InUse"));
  first.commit();
  EXPECT_EQ(raisedBy([&] { DurableFile second(file, expected, kEmpty); }), raised("FileChanged"));
  EXPECT_EQ(folder.read("s.tavlox"), "first");
  EXPECT_EQ(filesInFolder(), 1U);
}

/// Each process counts up what it finds. A save that succeeded and is not counted was lost.
TEST_F(DurableFileTest, SaversInSeveralProcessesLoseNothing) {
  folder.write("s.tavlox", "0");
  constexpr int kProcesses = 4, kSaves = 25;
  const auto countUp = [&] {
    const InputFile opened(file);
    std::string number(opened.size(), '\0');
    opened.read(0, number.data(), number.size());
    DurableFile durable(file, opened.identity(), kEmpty);
    put(durable, std::to_string(std::stoi(number) + 1));
    durable.commit();
  };
  // Each process goes on until it has saved its share, however slow the disk is: who is refused waits a
  // little, or it would take the core from the one that saves. A refusal of any other kind ends it.
  const auto saveShare = [&] {
    for (int saved = 0; saved < kSaves;) {
      const std::string error = raisedBy(countUp);
      if (error.empty()) ++saved;
      if (error == raised("InUse")) usleep(1'000);
      if (!error.empty() && error != raised("InUse") && error != raised("FileChanged")) return error;
    }
    return std::string();
  };
  for (int process = 0; process < kProcesses; ++process) {
    if (::fork() != 0) continue;
    const std::string error = saveShare();
    EXPECT_EQ(error, "");
    ::_exit(error.empty() ? 0 : 1);
  }
  int status = 0;
  while (::wait(&status) > 0) EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.read("s.tavlox"), std::to_string(kProcesses * kSaves));
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(DurableFileTest, AKilledProcessLeavesTheOriginalAndIsSweptUp) {
  const std::string longName(255, 'n');
  for (const std::string& name : {std::string("s.tavlox"), longName, "ü" + std::string(253, 'n')}) {
    SCOPED_TRACE(name.size());
    support::TemporaryFolder own;
    own.write(name, "old");
    own.write("." + name.substr(0, 200) + "x.saving-abcdef", "another file's");
    own.write("." + name.substr(0, 200) + ".saving-ABCDEF", "not ours");
    const std::string target = own.narrow(name);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      DurableFile durable(target, identityAt(target), kEmpty);
      put(durable, "half");
      (void)!::write(ready[1], "x", 1);
      for (;;) ::pause();
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    ::close(ready[0]);
    ::close(ready[1]);
    const auto count = [&] { return std::distance(std::filesystem::directory_iterator(own.path()), {}); };
    EXPECT_EQ(own.read(name), "old");
    EXPECT_EQ(count(), 4);
    save(target, "new");
    EXPECT_EQ(own.read(name), "new");
    EXPECT_EQ(count(), 3);
  }
}

TEST_F(DurableFileTest, ATemporaryThatIsBeingWrittenIsNotSwept) {
  const path busy = folder.write(".s.tavlox.saving-abcdef", "somebody's");
  const Descriptor held(::open(busy.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  save(file, "new");
  EXPECT_TRUE(std::filesystem::exists(busy));
}

TEST_F(DurableFileTest, ReadOnlyFilesAreRefused) {
  ASSERT_EQ(::chmod(file.c_str(), 0466), 0);
  EXPECT_EQ(raisedBy([&] { save(file, "new"); }), raised("ReadOnly"));
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  if (::geteuid() == 0) {  // somebody else's file
    const support::Unprivileged nobody;
    EXPECT_EQ(raisedBy([&] { save(file, "new"); }), raised("ReadOnly"));
  }
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(DurableFileTest, AFolderThatCannotBeWrittenIsNamed) {
  ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0555), 0);
  {
    const support::Unprivileged nobody;
    const std::string reason = "opc:save:FolderNotWritable(" + file + ", Permission denied)";
    EXPECT_EQ(raisedBy([&] { save(file, "new"); }), reason);
    const std::string fresh = folder.narrow("new.tavlox");
    EXPECT_EQ(raisedBy([&] { DurableFile durable(fresh); }),
              "opc:save:FolderNotWritable(" + fresh + ", Permission denied)");
  }
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  EXPECT_EQ(folder.read("s.tavlox"), "old");
}

TEST_F(DurableFileTest, PlacesWhereNothingCanBeSaved) {
  const FileIdentity any;
  const std::string missing = folder.narrow("missing/s.tavlox"), itself = folder.path().string();
  EXPECT_EQ(raisedBy([&] { DurableFile durable(missing, any, kEmpty); }),
            "opc:save:FileGone(" + missing + ")");
  EXPECT_EQ(raisedBy([&] { DurableFile durable{missing}; }),
            "opc:save:CannotReachFolder(" + missing + ", No such file or directory)");
  EXPECT_EQ(raisedBy([&] { DurableFile durable(itself, any, kEmpty); }), "opc:save:NotAFile(" + itself + ")");
  EXPECT_EQ(raisedBy([&] { DurableFile durable{itself + "/"}; }), "opc:save:BadName(" + itself + "/)");
}

TEST_F(DurableFileTest, AFullDiskLeavesTheOriginal) {
  {
    const support::FileSizeLimit limit(2);
    DurableFile durable(file, identityAt(file), kEmpty);
    EXPECT_EQ(writeAt(durable.descriptor(), 0, "new", 3), EFBIG);
  }
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(DurableFileTest, NewFilesNeverReplaceOthers) {
  const mode_t mask = ::umask(026);
  const std::string fresh = folder.narrow("new.tavlox");
  {
    DurableFile durable(fresh);
    put(durable, "new");
    EXPECT_FALSE(std::filesystem::exists(fresh));
    durable.commit();
  }
  EXPECT_EQ(folder.read("new.tavlox"), "new");
  EXPECT_EQ(statusOf(fresh).st_mode & 07777, 0640U);
  ::umask(mask);

  std::filesystem::create_symlink("nowhere", folder.path() / "dangling");
  for (const char* name : {"s.tavlox", "dangling"}) {
    EXPECT_EQ(raisedBy([&] {
                DurableFile durable(folder.narrow(name));
                durable.commit();
              }),
              "opc:save:FileAppeared(" + folder.narrow(name) + ")");
  }
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  EXPECT_EQ(filesInFolder(), 3U);
}

TEST_F(DurableFileTest, ACloneStartsWithTheOriginalElseNothingDoes) {
  DurableFile durable(file, identityAt(file), DurableFile::Start::CloneOrEmpty);
  EXPECT_EQ(identityOf(durable.descriptor()).size, durable.isClone() ? 3U : 0U);
  put(durable, "NEW!");
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  durable.commit();
  EXPECT_EQ(folder.read("s.tavlox"), "NEW!");
}

TEST_F(DurableFileTest, DescriptorsAreReleasedOnEveryPath) {
  const auto openDescriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const FileIdentity stale = identityAt(file);
  save(file, "new");
  const auto before = openDescriptors();
  for (const char* name : {"s.tavlox", "missing", "."}) {
    EXPECT_NE(raisedBy([&] { DurableFile durable(folder.narrow(name), stale, kEmpty); }), "");
  }
  save(file, "newer");
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace fl::filesystem
