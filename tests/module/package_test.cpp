#include <stdexcept>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "package/scoped_ref.h"
#include "package/session_parts.h"
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
  {
    const ScopedRef change(OpenMode::Modify, a_);
    EXPECT_NE(&change.file(), first.get());
  }
  EXPECT_EQ(fileReadFrom(a_), first.get()) << "modifying leaves the cache alone";

  sessions_.folder().write("broken.tavlox", "PK but no package");
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, sessions_.folder().wide("broken.tavlox")); }),
            "tavlox:general:UnableToReadFile(" + sessions_.folder().narrow("broken.tavlox") + ")");
  EXPECT_EQ(fileReadFrom(a_), first.get()) << "and so does a file that cannot be read";

  fileReadFrom(b_);
  EXPECT_EQ(first.use_count(), 1) << "the cache still holds the earlier file";
}

TEST_F(OpenFileCache, TakesThePathAsItIsWritten) {
  std::filesystem::current_path(sessions_.folder().path());
  const auto absolute = openDataExportFile(OpenMode::Read, a_);
  const auto relative = openDataExportFile(OpenMode::Read, u"a.tavlox");
  EXPECT_NE(absolute, relative);
  EXPECT_EQ(openDataExportFile(OpenMode::Read, u"a.tavlox"), relative);
}

TEST_F(OpenFileCache, ForgetsAFileThatVanishedAndReadsOneThatWasReplaced) {
  const auto first = openDataExportFile(OpenMode::Read, a_);
  first->closePackage();
  const std::string notFound = "tavlox:general:FileNotFound(" + sessions_.folder().narrow("a.tavlox") + ")";
  sessions_.write("a.tavlox", [](tavlox::SessionWriter& session) { session.setDescription(u"another"); });
  {
    std::u16string description;
    ScopedRef(OpenMode::Read, a_).file().getDescription(description);
    EXPECT_EQ(description, u"another");
  }
  std::filesystem::remove(sessions_.folder().path() / "a.tavlox");
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, a_); }), notFound);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Read, a_); }), notFound);
  EXPECT_EQ(raisedBy([&] { ScopedRef(OpenMode::Modify, a_); }), notFound);
}

// Another writer changes the file before the change is saved.
TEST_F(OpenFileCache, AChangeThatCannotBeSavedIsReportedUnlessAnErrorIsInFlight) {
  const auto changeAndLeaveBy = [&](const std::function<void()>& leave) {
    const ScopedRef change(OpenMode::Modify, a_);
    change.file().setDescription(u"mine");
    sessions_.touch("a.tavlox");
    leave();
  };
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] {}); }),
            "tavlox_io:general:UnableToClosePackage(" + sessions_.folder().narrow("a.tavlox") + ")");
  EXPECT_EQ(raisedBy([&] { changeAndLeaveBy([] { throw std::runtime_error("the first error"); }); }),
            "the first error");
}

struct Record {
  const char *json, *read, *raised;
};

// The member is passed on as it is, or the JSON library's own error is raised.
const Record kRecords[] = {
    {R"({"CompressionType": "größer ½", "other": [1, {}]})", "größer ½", ""},
    {R"({"CompressionType": 3})", "3", ""},
    {R"({"CompressionType": true})", "true", ""},
    {R"({"compressionType": "deflate"})", "", "Invalid access: Can not convert empty value."},
    {R"(["CompressionType"])", "", "Bad cast exception"},
    {R"({"CompressionType": )", "", "JSON Exception"},
};

TEST(CompressionRecord, IsTheMemberOfTheFirstRecord) {
  using tavlox::relationship_types::kCompression;
  const support::SessionFixture sessions;
  for (const Record& record : kRecords) {
    const auto path = sessions.write("s.tavlox", [&](tavlox::SessionWriter& session) {
      session.addPart(u"/first", u"application/json", kCompression, record.json);
      session.addPart(u"/second", u"application/json", kCompression, R"({"CompressionType": "second"})");
    });
    std::string read, raised;
    try {
      read = fl::i18n::to_string(readCompressionType(ScopedRef(OpenMode::Read, path)));
    } catch (const Poco::Exception& error) {
      raised = error.displayText();
    }
    EXPECT_EQ(read, record.read) << record.json;
    EXPECT_EQ(raised.substr(0, std::string(record.raised).size()), record.raised) << record.json;
    EXPECT_EQ(raised.empty(), std::string(record.raised).empty()) << record.json << ": " << raised;
  }
}

}  // namespace
}  // namespace orra::tavloxio::file
