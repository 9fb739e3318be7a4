#include <stdexcept>

#include <gtest/gtest.h>

#include "package/scoped_ref.h"
#include "package/session_parts.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace orra::tavloxio::file {
namespace {

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
  const std::u16string path_ = sessions_.write("a.tavlox", support::fillTwoRuns);
  const std::string narrowPath_ = sessions_.folder().narrow("a.tavlox");
};

TEST_F(OpenFileCache, RemembersTheFileReadLastAndOnlyThat) {
  const std::shared_ptr<tavlox::DataExportFile> first = openDataExportFile(OpenMode::Read, path_);
  first->closePackage();
  EXPECT_EQ(fileReadFrom(path_), first.get());
  EXPECT_FALSE(first->getPackageImpl().isOpen());
  EXPECT_NE(&ScopedRef(OpenMode::Modify, path_).file(), first.get());
  EXPECT_EQ(fileReadFrom(path_), first.get()) << "modifying leaves the cache alone";

  sessions_.folder().write("broken.tavlox", "PK but no package");
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, sessions_.folder().wide("broken.tavlox")); }),
            "tavlox:general:UnableToReadFile(" + sessions_.folder().narrow("broken.tavlox") + ")");
  EXPECT_EQ(fileReadFrom(path_), first.get()) << "and so does a file that cannot be read";

  std::filesystem::current_path(sessions_.folder().path());
  EXPECT_NE(fileReadFrom(u"a.tavlox"), first.get()) << "a path is taken as it is written";
  EXPECT_EQ(first.use_count(), 1) << "the cache still holds the earlier file";
}

TEST_F(OpenFileCache, ForgetsAFileThatVanishedAndReadsOneThatWasReplaced) {
  const auto first = openDataExportFile(OpenMode::Read, path_);
  first->closePackage();
  sessions_.write("a.tavlox", [](tavlox::SessionWriter& session) { session.setDescription(u"another"); });
  std::u16string description;
  ScopedRef(OpenMode::Read, path_).file().getDescription(description);
  EXPECT_EQ(description, u"another");

  std::filesystem::remove(narrowPath_);
  for (const OpenMode mode : {OpenMode::Read, OpenMode::Modify}) {
    EXPECT_EQ(raisedBy([&] { ScopedRef(mode, path_); }), "tavlox:general:FileNotFound(" + narrowPath_ + ")");
    EXPECT_EQ(first.use_count(), 1);
  }
}

// Another writer changes the file before the change is saved.
TEST_F(OpenFileCache, AChangeThatCannotBeSavedIsReportedUnlessAnErrorIsInFlight) {
  const auto changeAndLeaveBy = [&](const std::function<void()>& leave) {
    const ScopedRef change(OpenMode::Modify, path_);
    change.file().setDescription(u"mine");
    sessions_.touch("a.tavlox");
    leave();
  };
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] {}); }),
            "tavlox_io:general:UnableToClosePackage(" + narrowPath_ + ")");
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] { throw std::runtime_error("the first error"); }); }),
            "the first error");
}

// The member is passed on as it is, or the JSON library's own error is raised. Only blanks make the last one
// too large: without the limit it is read.
TEST(CompressionRecord, IsOneMemberOfIt) {
  const std::string blanks(1 << 20, ' ');
  const std::pair<std::string, const char*> kRecords[] = {
      {R"({"CompressionType": "größer ½", "other": [1, {}]})", "größer ½"},
      {R"({"CompressionType": 3})", "3"},
      {R"({"compressionType": "deflate"})", "Invalid access"},
      {R"({"CompressionType": )", "JSON Exception"},
      {R"({"CompressionType": "deflate"})" + blanks,
       "simulation_data_repository:sdr:RecordTooLarge(compression record, 1 MiB)"},
  };
  const support::SessionFixture sessions;
  for (const auto& [json, expected] : kRecords) {
    const auto path = sessions.writeWithPart("s.tavlox", tavlox::relationship_types::kCompression, json);
    std::u16string read;
    const std::string raised = raisedBy([&] { read = readCompressionType(ScopedRef(OpenMode::Read, path)); });
    EXPECT_EQ(raised + fl::i18n::to_string(read), expected);
  }
}

}  // namespace
}  // namespace orra::tavloxio::file
