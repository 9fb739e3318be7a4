#include "package/open_file_cache.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include "package/scoped_ref.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace orra::tavloxio::file {
namespace {

using support::fillTwoRuns;
using support::raisedBy;

class OpenFileCache : public ::testing::Test {
 protected:
  /// The file object that a read of the path gets; the package is closed again, as between two host calls.
  static const tavlox::DataExportFile* fileReadFrom(const std::u16string& path) {
    const ScopedRef ref(OpenMode::Read, path);
    EXPECT_TRUE(ref.package().isOpen());
    return &ref.file();
  }

  support::SessionFixture sessions_;
  const std::u16string a_ = sessions_.write("a.tavlox", fillTwoRuns);
  const std::u16string b_ = sessions_.write("b.tavlox", fillTwoRuns);
};

TEST_F(OpenFileCache, RemembersTheFileReadLastAndOnlyThat) {
  const std::shared_ptr<tavlox::DataExportFile> first = openDataExportFile(OpenMode::Read, a_);
  first->closePackage();
  EXPECT_EQ(fileReadFrom(a_), first.get());
  EXPECT_FALSE(first->getPackageImpl().isOpen());

  fileReadFrom(b_);
  EXPECT_EQ(first.use_count(), 1) << "the cache still holds the earlier file";
  EXPECT_NE(fileReadFrom(a_), first.get());
}

TEST_F(OpenFileCache, TakesThePathAsItIsWritten) {
  std::filesystem::current_path(sessions_.folder().path());
  const auto absolute = openDataExportFile(OpenMode::Read, a_);
  const auto relative = openDataExportFile(OpenMode::Read, u"a.tavlox");
  EXPECT_NE(absolute, relative);
  EXPECT_EQ(openDataExportFile(OpenMode::Read, u"a.tavlox"), relative);
}

TEST_F(OpenFileCache, ModifyingNeverTouchesIt) {
  const auto read = openDataExportFile(OpenMode::Read, a_);
  read->closePackage();
  {
    const ScopedRef change(OpenMode::Modify, a_);
    EXPECT_NE(&change.file(), read.get());
  }
  EXPECT_EQ(fileReadFrom(a_), read.get());
}

TEST_F(OpenFileCache, AFileThatCannotBeReadLeavesTheEarlierOneCached) {
  const auto* cached = fileReadFrom(a_);
  sessions_.folder().write("broken.tavlox", "PK but no package");
  const std::u16string broken = sessions_.folder().wide("broken.tavlox");
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, broken); }),
            "tavlox:general:UnableToReadFile(" + sessions_.folder().narrow("broken.tavlox") + ")");
  EXPECT_EQ(fileReadFrom(a_), cached);
}

TEST_F(OpenFileCache, ForgetsAFileThatVanished) {
  const auto first = openDataExportFile(OpenMode::Read, a_);
  first->closePackage();
  std::filesystem::remove(sessions_.folder().path() / "a.tavlox");
  const std::string notFound = "tavlox:general:FileNotFound(" + sessions_.folder().narrow("a.tavlox") + ")";
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, a_); }), notFound);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, a_); }), notFound);
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Modify, a_); }), notFound);
}

TEST_F(OpenFileCache, ReadsAFileAnewThatWasReplaced) {
  fileReadFrom(a_);
  sessions_.write("a.tavlox",
                  [](tavlox::SessionWriter& session) { session.setDescription(u"another file"); });
  const ScopedRef ref(OpenMode::Read, a_);
  std::u16string description;
  ref.file().getDescription(description);
  EXPECT_EQ(description, u"another file");
}

/// A change that can no longer be saved, because another writer changed the file meanwhile.
class UnsavableChange : public OpenFileCache {
 protected:
  void changeAndLeaveBy(const std::function<void()>& leave) {
    const ScopedRef change(OpenMode::Modify, a_);
    change.file().setDescription(u"mine");
    sessions_.touch("a.tavlox");
    original_ = sessions_.folder().read("a.tavlox");
    leave();
  }

  std::string original_;
};

TEST_F(UnsavableChange, IsReportedAndLeavesTheFileAsItWas) {
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] {}); }),
            "tavlox_io:general:UnableToClosePackage(" + sessions_.folder().narrow("a.tavlox") + ")");
  EXPECT_EQ(sessions_.folder().read("a.tavlox"), original_);
  EXPECT_EQ(sessions_.folder().entryCount(), 2u) << "a temporary was left";
}

TEST_F(UnsavableChange, YieldsToAnErrorInFlight) {
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] { throw std::runtime_error("the first error"); }); }),
            "the first error");
  EXPECT_EQ(sessions_.folder().read("a.tavlox"), original_);
}

}  // namespace
}  // namespace orra::tavloxio::file
