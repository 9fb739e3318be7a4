#include "platform/files/durable_file.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <ranges>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include "tests/support/raised.h"
#include "tests/support/system_calls.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unprivileged.h"

namespace fl::filesystem {
namespace {

using std::filesystem::path;
using support::raisedBy;
using support::SystemCalls;
using support::TemporaryFolder;

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

void create(const std::string& file, std::string_view text) {
  DurableFile durable(file);
  put(durable, text);
  durable.commit();
}

struct DurableFileTest : testing::Test {
  DurableFileTest() { folder.write("s.tavlox", "old"); }

  struct stat status() const {
    struct stat found {};
    EXPECT_EQ(::stat(file.c_str(), &found), 0);
    found.st_mode &= 07777;
    return found;
  }
  std::string raised(const char* rule) const { return std::string("opc:save:") + rule + "(" + file + ")"; }

  TemporaryFolder folder;
  std::string file = folder.narrow("s.tavlox");
};

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
  for (const mode_t kept : {0600U, 0664U, 0755U, 02770U, 04711U, 06777U}) {
    ASSERT_EQ(::chmod(file.c_str(), kept), 0);
    save(file, "new");
    EXPECT_EQ(status().st_mode, kept) << std::oct << kept;
  }
  ::umask(mask);
}

TEST_F(DurableFileTest, OwnerAndGroupAreKeptWhereTheyCanBe) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  ASSERT_EQ(::chown(file.c_str(), 1234, 5678), 0);
  ASSERT_EQ(::chmod(file.c_str(), 02640), 0);
  save(file, "new");
  EXPECT_EQ(status().st_uid, 1234U);
  EXPECT_EQ(status().st_gid, 5678U);
  EXPECT_EQ(status().st_mode, 02640U);

  // Somebody else who may write: the file becomes theirs, and their group learns nothing that it could not
  // read.
  ASSERT_EQ(::chmod(file.c_str(), 06676), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  {
    const support::Unprivileged nobody;
    save(file, "newer");
  }
  EXPECT_EQ(status().st_uid, 65534U);
  EXPECT_EQ(status().st_mode, 0666U);
}

TEST_F(DurableFileTest, ExtendedAttributesAndAccessListsAreKept) {
  constexpr char kList[] = "system.posix_acl_access";
  if (::setxattr(file.c_str(), "user.origin", "lab 3", 5, 0) != 0)
    GTEST_SKIP() << "no extended attributes here";
  // Owner rw-, user 1234 r--, group ---, mask r--, others ---: as the system keeps it.
  const std::string list(
      "\2\0\0\0\1\0\6\0\377\377\377\377\2\0\4\0\322\4\0\0\4\0\0\0\377\377\377\377"
      "\20\0\4\0\377\377\377\377\40\0\0\0\377\377\377\377",
      44);
  const bool hasLists = ::setxattr(file.c_str(), kList, list.data(), list.size(), 0) == 0;
  const auto attribute = [&](const char* name) {
    std::string value(64, '\0');
    const ssize_t size = ::getxattr(file.c_str(), name, value.data(), value.size());
    return size < 0 ? "none" : value.substr(0, static_cast<std::size_t>(size));
  };
  save(file, "new");
  EXPECT_EQ(attribute("user.origin"), "lab 3");
  {
    SystemCalls calls;
    calls.failing["fsetxattr"] = ENOSPC;
    EXPECT_EQ(support::ruleOf([&] { save(file, "newer"); }), "opc:save:CannotKeepAttribute");
    EXPECT_EQ(folder.read("s.tavlox"), "new");
  }
  if (!hasLists) GTEST_SKIP() << "no access lists here";
  EXPECT_TRUE(attribute(kList) == list);
  // The folder's default list is for files that are new there, not for this one.
  ASSERT_EQ(::removexattr(file.c_str(), kList), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  ASSERT_EQ(::setxattr(folder.path().c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
  save(file, "newer");
  EXPECT_EQ(attribute(kList), "none");
  EXPECT_EQ(status().st_mode, 0640U);
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

void replaceByTheirs(const TemporaryFolder& folder) {
  std::filesystem::rename(folder.write("other", "theirs"), folder.path() / "s.tavlox");
}

void rewriteWithOldStamp(const TemporaryFolder& folder) {
  const path file = folder.path() / "s.tavlox";
  const auto stamp = std::filesystem::last_write_time(file);
  folder.write("s.tavlox", "OLD");
  std::filesystem::last_write_time(file, stamp);
}

TEST_F(DurableFileTest, WhatOthersDidMeanwhileIsNeverLost) {
  const struct {
    std::function<void(const TemporaryFolder&)> act;
    const char *raised, *left;
  } kInterferences[] = {
      {[](const auto& in) { in.write("s.tavlox", "OLD"); }, "FileChanged", "OLD"},  // of the same size
      {rewriteWithOldStamp, "FileChanged", "OLD"},
      {replaceByTheirs, "FileChanged", "theirs"},
      {[](const auto& in) { std::filesystem::remove(in.path() / "s.tavlox"); }, "FileGone", ""},
  };
  for (const auto& other : kInterferences) {
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
      EXPECT_EQ(folder.entryCount(), *other.left == '\0' ? 0U : 1U);
    }
  }
  folder.write("s.tavlox", "old");
  SystemCalls calls;
  calls.beforeLock = [&](int) { replaceByTheirs(folder); };
  EXPECT_EQ(raisedBy([&] { save(file, "ours"); }), raised("FileChanged"));
  EXPECT_EQ(folder.read("s.tavlox"), "theirs");
}

TEST_F(DurableFileTest, OnlyOneSavesAtATime) {
  const FileIdentity expected = identityAt(file);
  DurableFile first(file, expected, kEmpty);
  put(first, "first");
  EXPECT_EQ(raisedBy([&] { DurableFile second(file, expected, kEmpty); }), raised("InUse"));
  first.commit();
  EXPECT_EQ(raisedBy([&] { DurableFile second(file, expected, kEmpty); }), raised("FileChanged"));
  save(file, "second");  // the lock has gone, although the first still lives
}

/// Begins a save in a process of its own and kills that before it can commit.
void killWhileSaving(const std::function<std::unique_ptr<DurableFile>()>& begin) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto durable = begin();
    (void)!::write(ready[1], "x", 1);
    for (;;) ::pause();
  }
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(DurableFileTest, WhatAKilledProcessLeftIsSweptByTheNextSave) {
  const std::string longName(255, 'n');
  for (const std::string& name : {std::string("s.tavlox"), longName, "ü" + std::string(253, 'n')}) {
    SCOPED_TRACE(name.size());
    TemporaryFolder own;
    own.write("." + name.substr(0, 200) + "x.saving-abcdef", "another file's");
    own.write("." + name.substr(0, 200) + ".saving-ABCDEF", "not ours");
    const std::string target = own.narrow(name);
    killWhileSaving([&] { return std::make_unique<DurableFile>(target); });
    EXPECT_EQ(own.entryCount(), 3U);
    create(target, "old");
    EXPECT_EQ(own.entryCount(), 3U);
    killWhileSaving([&] { return std::make_unique<DurableFile>(target, identityAt(target), kEmpty); });
    EXPECT_EQ(own.read(name), "old");
    EXPECT_EQ(own.entryCount(), 4U);
    save(target, "new");
    EXPECT_EQ(own.entryCount(), 3U);
  }
}

TEST_F(DurableFileTest, ATemporaryThatIsBeingWrittenIsNotSwept) {
  const path busy = folder.write(".s.tavlox.saving-abcdef", "somebody's");
  const Descriptor held(::open(busy.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  save(file, "new");
  EXPECT_TRUE(std::filesystem::exists(busy));

  // Two processes that create one file sweep, and the other has not locked its temporary yet.
  SystemCalls calls;
  calls.beforeLock = [](int unlocked) {
    std::filesystem::remove(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(unlocked)));
  };
  create(folder.narrow("new.tavlox"), "new");
  EXPECT_EQ(folder.read("new.tavlox"), "new");
}

TEST_F(DurableFileTest, WhereNothingMayBeSaved) {
  const FileIdentity any;
  const std::string itself = folder.path().string(), missing = itself + "/missing/s.tavlox";
  const auto replacing = [&](const std::string& name) {
    return raisedBy([&] { DurableFile durable(name, any, kEmpty); });
  };
  const auto creating = [](const std::string& name) { return raisedBy([&] { DurableFile durable{name}; }); };
  EXPECT_EQ(replacing(missing), "opc:save:FileGone(" + missing + ")");
  EXPECT_EQ(creating(missing), "opc:save:CannotReachFolder(" + missing + ", No such file or directory)");
  EXPECT_EQ(replacing(itself), "opc:save:NotAFile(" + itself + ")");
  EXPECT_EQ(creating(itself + "/"), "opc:save:BadName(" + itself + "/)");
  ASSERT_EQ(::chmod(file.c_str(), 0466), 0);
  const std::string readOnly = "opc:save:ReadOnly(" + file + ", Permission denied)";
  EXPECT_EQ(replacing(file), readOnly) << "also to root, to whom every file seems writable";
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  ASSERT_EQ(::chmod(itself.c_str(), 0555), 0);
  {
    const support::Unprivileged nobody;
    if (::getuid() == 0) {
      EXPECT_EQ(replacing(file), readOnly) << "somebody else's";
    }
    const std::string fresh = itself + "/new.tavlox";
    EXPECT_EQ(creating(fresh), "opc:save:FolderNotWritable(" + fresh + ", Permission denied)");
  }
  ASSERT_EQ(::chmod(itself.c_str(), 0755), 0);
  EXPECT_EQ(folder.entryCount(), 1U);
}

TEST_F(DurableFileTest, NewFilesNeverReplaceOthers) {
  const mode_t mask = ::umask(026);
  file = folder.narrow("new.tavlox");
  create(file, "new");
  EXPECT_EQ(folder.read("new.tavlox"), "new");
  EXPECT_EQ(status().st_mode, 0640U);
  ::umask(mask);

  std::filesystem::create_symlink("nowhere", folder.path() / "dangling");
  for (const char* name : {"s.tavlox", "dangling"}) {
    EXPECT_EQ(raisedBy([&] { create(folder.narrow(name), "new"); }),
              "opc:save:FileAppeared(" + folder.narrow(name) + ")");
  }
  EXPECT_EQ(folder.read("s.tavlox"), "old");
  EXPECT_EQ(folder.entryCount(), 3U);
}

TEST_F(DurableFileTest, ACloneStartsWithTheOriginalElseNothingDoes) {
  for (const bool canClone : {true, false}) {
    SystemCalls calls;
    calls.canClone = canClone;
    folder.write("s.tavlox", "old");
    DurableFile durable(file, identityAt(file), DurableFile::Start::CloneOrEmpty);
    EXPECT_EQ(durable.isClone(), canClone);
    ASSERT_EQ(writeAt(durable.descriptor(), 3, "+new", 4), 0);
    durable.commit();
    EXPECT_EQ(folder.read("s.tavlox"), (canClone ? "old" : std::string(3, '\0')) + "+new");
  }
}

TEST_F(DurableFileTest, TheDiskIsAskedInOrderAndMayRefuse) {
  const struct {
    const char* call;
    int error;
    std::string raised;
    const char* left;
  } kRefusals[] = {
      {"fchown 600", EIO, "opc:save:CannotKeepOwner(" + file + ", Input/output error)", "old"},
      {"fsync folder", EIO, "opc:save:NotConfirmed(" + file + ", Input/output error)", "new"},
      {"fsync folder", EINVAL, "", "new"},  // a file system that knows no such thing
  };
  for (const auto& refusal : kRefusals) {
    folder.write("s.tavlox", "old");
    SystemCalls calls;
    calls.failing[refusal.call] = refusal.error;
    EXPECT_EQ(raisedBy([&] { save(file, "new"); }), refusal.raised);
    EXPECT_EQ(folder.read("s.tavlox"), refusal.left);
    EXPECT_EQ(folder.entryCount(), 1U);
    // The bytes before a name leads to them, and the owner before anybody else may read them.
    const std::vector<std::string> all{"fchown 600", "fsync file", "rename", "fsync folder"};
    EXPECT_TRUE(std::ranges::equal(calls.made, all | std::views::take(calls.made.size())));
  }
}

}  // namespace
}  // namespace fl::filesystem
