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

TEST_F(Metadata, CountsOnlyTheFirstRunListAndNoThumbnail) {
  bind([](SessionWriter& session) { session.setThumbnail("image"); });
  EXPECT_EQ(*cache_.getDescription() + *cache_.getCompression(), u"");
  EXPECT_EQ(cache_.getNumRuns() + cache_.getNumSignals(), 0);
  EXPECT_FALSE(cache_.getContainsView() || cache_.getContainsComparison());
  EXPECT_TRUE(cache_.getRunIDs().empty());
  bind([](support::TestSession& session) {
    session.setView("{}");
    for (const char* json : {R"([{"id": 1, "runClassName": "comparisonset"}])",
                             R"([{"id": 2, "runClassName": "ComparisonSet"}, {"id": 3}])"}) {
      session.addPart(json[8] == '1' ? u"/1" : u"/2", u"application/json",
                      tavlox::relationship_types::kRunData, json);
    }
  });
  EXPECT_TRUE(cache_.getContainsView());
  EXPECT_FALSE(cache_.getContainsComparison()) << "the class name is compared exactly, in the first list";
  EXPECT_EQ(cache_.getRunIDs(), std::vector<FileRunId>{FileRunId{1}});
  EXPECT_EQ(cache_.getNumRuns(), 1);
}

TEST_F(Metadata, IsReadAgainExactlyWhenTheFilesTimeChanges) {
  bind([](SessionWriter& session) { session.setDescription(u"before"); });
  const std::u16string* description = cache_.getDescription();
  const auto stamp = std::filesystem::last_write_time(path());
  sessions_.write("s.tavlox", [](SessionWriter& session) { session.setDescription(u"after"); });
  std::filesystem::last_write_time(path(), stamp);
  EXPECT_TRUE(cache_.isUpToDate());
  EXPECT_EQ(*cache_.getDescription(), u"before") << "nothing but the time stamp makes the cache stale";
  std::filesystem::last_write_time(path(), stamp + std::chrono::microseconds(1));
  EXPECT_FALSE(cache_.isUpToDate());
  cache_.getDescription();
  EXPECT_EQ(*description, u"after") << "the text is changed in place";
}

TEST_F(Metadata, SaysThatTheFileIsGone) {
  bind(support::fillTwoRuns);
  cache_.getNumRuns();
  std::filesystem::remove(path());
  const std::function<void()> kQuestions[] = {[&] { cache_.getNumRuns(); }, [&] { cache_.getFilename(); },
                                              [&] { cache_.isUpToDate(); }, [&] { cache_.getRunIDs(); }};
  for (const auto& ask : kQuestions) EXPECT_EQ(raisedBy(ask), "tavlox:general:FileNotFound(" + path() + ")");
}

TEST_F(Metadata, APassThatFailsHalfWayKeepsWhatItReadAndIsNotRepeated) {
  const auto writeBroken = [this] {
    return sessions_.writeWithPart("s.tavlox", tavlox::relationship_types::kCompression, "no JSON");
  };
  cache_.setFilename(writeBroken());
  EXPECT_NE(raisedBy([&] { cache_.getNumRuns(); }), "");
  EXPECT_EQ(*cache_.getDescription() + *cache_.getVersion(), u"a description1.0");
  EXPECT_EQ(raisedBy([&] { cache_.getCompression(); }), "tavlox_io:general:InternalError(" + path() + ", 3)");
  bind(support::fillTwoRuns);
  EXPECT_EQ(cache_.getNumRuns(), 2);
  writeBroken();
  sessions_.touch("s.tavlox");
  EXPECT_NE(raisedBy([&] { cache_.getNumRuns(); }), "");
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
