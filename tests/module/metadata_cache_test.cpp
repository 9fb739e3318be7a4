#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "metadata/metadata_cache_impl.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace orra::tavloxio {
namespace {

using support::raisedBy;
using tavlox::SessionWriter;

class Metadata : public ::testing::Test {
 protected:
  void bind(const support::SessionFixture::Fill& fill) {
    cache_.setFilename(sessions_.write("s.tavlox", fill));
  }
  std::string path() const { return sessions_.folder().narrow("s.tavlox"); }

  support::SessionFixture sessions_;
  MetadataCacheImpl cache_;
};

TEST_F(Metadata, OfAPackageWithoutASessionIsEmpty) {
  bind([](SessionWriter& session) { session.setThumbnail("image"); });
  EXPECT_EQ(*cache_.getDescription(), u"");
  EXPECT_EQ(*cache_.getCompression(), u"");
  EXPECT_EQ(cache_.getNumRuns(), 0);
  EXPECT_EQ(cache_.getNumSignals(), 0);
  EXPECT_FALSE(cache_.getContainsView()) << "a thumbnail is no view";
  EXPECT_FALSE(cache_.getContainsComparison());
  EXPECT_TRUE(cache_.getRunIDs().empty());
}

TEST_F(Metadata, CountsOnlyTheFirstRunList) {
  bind([](SessionWriter& session) {
    session.setView("{}");
    session.addPart(u"/one.json", u"application/json", tavlox::relationship_types::kRunData,
                    R"([{"id": 1, "runClassName": "comparisonset"}])");
    session.addPart(u"/two.json", u"application/json", tavlox::relationship_types::kRunData,
                    R"([{"id": 2, "runClassName": "ComparisonSet"}, {"id": 3}])");
  });
  EXPECT_TRUE(cache_.getContainsView());
  EXPECT_EQ(cache_.getNumRuns(), 1);
  EXPECT_FALSE(cache_.getContainsComparison()) << "the class name is compared exactly, in the first list";
  EXPECT_EQ(cache_.getRunIDs(), std::vector<FileRunId>{FileRunId{1}});
}

TEST_F(Metadata, IsReadAgainExactlyWhenTheFilesTimeChanges) {
  bind([](SessionWriter& session) { session.setDescription(u"before"); });
  const std::u16string* description = cache_.getDescription();
  EXPECT_TRUE(cache_.isUpToDate());
  const auto stamp = std::filesystem::last_write_time(path());

  sessions_.write("s.tavlox", [](SessionWriter& session) { session.setDescription(u"after"); });
  std::filesystem::last_write_time(path(), stamp);
  EXPECT_EQ(*cache_.getDescription(), u"before") << "nothing but the time stamp makes the cache stale";

  std::filesystem::last_write_time(path(), stamp + std::chrono::microseconds(1));
  EXPECT_FALSE(cache_.isUpToDate());
  EXPECT_EQ(*cache_.getDescription(), u"after");
  EXPECT_EQ(cache_.getDescription(), description) << "the text is changed in place";
}

TEST_F(Metadata, SaysThatTheFileIsGone) {
  bind(support::fillTwoRuns);
  cache_.getNumRuns();
  std::filesystem::remove(path());
  const std::string notFound = "tavlox:general:FileNotFound(" + path() + ")";
  EXPECT_EQ(raisedBy([&] { cache_.getNumRuns(); }), notFound);
  EXPECT_EQ(raisedBy([&] { cache_.getFilename(); }), notFound);
  EXPECT_EQ(raisedBy([&] { cache_.isUpToDate(); }), notFound);
  EXPECT_EQ(raisedBy([&] { cache_.getRunIDs(); }), notFound);
}

TEST_F(Metadata, AFirstPassThatFailsHalfWayKeepsWhatItReadAndIsNotRepeated) {
  cache_.setFilename(
      sessions_.writeWithPart("s.tavlox", tavlox::relationship_types::kCompression, "no JSON"));
  EXPECT_NE(raisedBy([&] { cache_.getNumRuns(); }), "");
  EXPECT_EQ(*cache_.getDescription(), u"a description");
  EXPECT_EQ(*cache_.getVersion(), u"1.0");
  EXPECT_EQ(raisedBy([&] { cache_.getCompression(); }), "tavlox_io:general:InternalError(" + path() + ", 3)");
  EXPECT_EQ(raisedBy([&] { cache_.getNumRuns(); }), "tavlox_io:general:InternalError(" + path() + ", 4)");

  bind(support::fillTwoRuns);
  sessions_.touch("s.tavlox");
  EXPECT_EQ(cache_.getNumRuns(), 2);
}

TEST_F(Metadata, ALaterPassThatFailsLeavesTheEarlierValues) {
  bind(support::fillTwoRuns);
  EXPECT_EQ(cache_.getNumRuns(), 2);
  sessions_.writeWithPart("s.tavlox", tavlox::relationship_types::kRunData, R"([{"id": 1}, {"id": 1}])");
  sessions_.touch("s.tavlox");
  EXPECT_EQ(raisedBy([&] { cache_.getNumRuns(); }).substr(0, 49),
            "simulation_data_repository:sdr:InvalidSessionData");
  EXPECT_EQ(*cache_.getDescription(), u"a description") << "read before the failure";
  EXPECT_EQ(cache_.getNumRuns(), 2) << "not reached again";
}

TEST_F(Metadata, BindsUnderTheAbsoluteNameAndRefusesUnderTheNameGiven) {
  bind(support::fillTwoRuns);
  std::filesystem::current_path(sessions_.folder().path());
  cache_.setFilename(u"s.tavlox");
  EXPECT_EQ(*cache_.getFilename(), sessions_.folder().wide("s.tavlox"));
  EXPECT_EQ(raisedBy([&] { cache_.setFilename(u"missing.tavlox"); }),
            "tavlox:general:FileNotFound(missing.tavlox)");
  sessions_.folder().write("text.tavlox", "text");
  EXPECT_EQ(raisedBy([&] { cache_.setFilename(u"text.tavlox"); }),
            "tavlox:general:UnableToReadFile(text.tavlox)");
}

TEST_F(Metadata, LastModifiedIsLocalTime) {
  bind([](SessionWriter&) {});
  setenv("TZ", "UTC-5:30", 1);  // five and a half hours ahead
  tzset();
  const timespec evening[] = {{1794775469, 999'999'999}, {1794775469, 999'999'999}};  // 20:44:29 in UTC
  ASSERT_EQ(utimensat(AT_FDCWD, path().c_str(), evening, 0), 0);
  EXPECT_EQ(*cache_.getLastModified(), u"16-Nov-2026 02:14:29");
}

}  // namespace
}  // namespace orra::tavloxio
