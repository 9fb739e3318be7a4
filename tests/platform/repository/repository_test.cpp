#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/progress/progress.h"
#include "tests/platform/repository/repository_fixture.h"

using namespace orra;
using foundation::core::except::collection;
using foundation::core::except::except_with_causes;
using support::raisedBy;
using Errors = std::vector<std::string>;
using Numbers = std::vector<std::uint64_t>;

constexpr char kTwoRuns[] = R"([{"id":7},{"id":3}])";

TEST(Repository, ExtremeValuesComeBackAndMissingOnesDoNotComeFromTheRowBefore) {
  RepositoryFixture session;
  session.loadRuns(R"([{"id":-5,"name":"Größe","runNumber":4294967295,"orderIndex":-9,"stopTime":1e300,
    "metadata":{"Tag":"t","x":"1","x":"2","no key":"?","y":[1]}}, {"id":2}])");
  session.loadSignals(R"({"id":1,"runID":-5,"name":"n\u0000\ud83d\ude00","portIndex":-2147483648,
    "dimensions":[1,127,128,18446744073709551615],"channel":[0,1,300]}, {"id":2,"runID":2})");
  const auto check = [&] {
    const Set full = *session.run(-5), bare = *session.run(2);
    EXPECT_EQ(full.getRunDisplayName() + full.getRunMetaDataUstring(strings::Tag), u"Größet");
    EXPECT_EQ(full.getRunNumber(), 4294967295u);
    EXPECT_EQ(full.getOrderIndex(), -9);
    EXPECT_EQ(full.getStopTime(), 1e300);
    EXPECT_EQ(full.getRunMetaDataUstring("no key"), u"");
    EXPECT_EQ(bare.getRunDisplayName() + bare.getRunMetaDataUstring(strings::Tag), u"");
    EXPECT_EQ(bare.getOrderIndex(), 2) << "the position in the list";
    const Signal first = session.signalsOf(-5)[0], second = session.signalsOf(2)[0];
    EXPECT_EQ(first.getName(), std::u16string(u"n\0\U0001F600", 4));
    EXPECT_EQ(first.getPortIndex(), -2147483647 - 1);
    EXPECT_EQ(first.getDimensions(), (Numbers{1, 127, 128, 18446744073709551615u}));
    EXPECT_EQ(first.getChannel(true), (Numbers{0, 0, 299}));
    EXPECT_EQ(second.getName() + second.getRun()->getRunDisplayName(), u"");
    EXPECT_EQ(second.getDimensions(), Numbers());
  };
  check();                                        // every accessor on its own
  EXPECT_EQ(session.collected(check), Errors());  // and on rows that are kept
}

TEST(Repository, ARunOfAnotherRepositoryFindsNothing) {
  RepositoryFixture first, second;
  for (RepositoryFixture* session : {&first, &second}) session->loadRuns(kTwoRuns);
  second.runIds[FileRunId{7}] = first.runId(7);
  EXPECT_EQ(raisedBy([&] { second.run(7); }), "simulation_data_repository:sdr:NoSuchRun()");
  EXPECT_TRUE(second.signalsOf(7).empty());
  EXPECT_EQ(raisedBy([&] { second.loadSignals(signalJson(1, 7, "a")); }),
            "simulation_data_repository:sdr:InvalidSessionData(signals part, 1, \"runID\" is no run of the "
            "run list)");
}

TEST(Repository, SignalsComeInTheOrderOfLoading) {
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  session.loadSignals(signalJson(9, 7, "z") + "," + signalJson(1, 3, "x") + "," + signalJson(5, 7, "a"));
  // Another part may use identifiers again: they are the part's own.
  session.loadSignals(signalJson(9, 7, "m"));
  session.loadSignals("");
  EXPECT_EQ(session.names(7), "z a m ");
  EXPECT_EQ(session.names(3), "x ");
}

TEST(Repository, NamesMatchExactly) {
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  session.loadSignals(signalJson(1, 7, "Speed") + "," + signalJson(2, 7, "speed") + "," +
                      signalJson(3, 3, "Speed") + R"(,{"id":4,"runID":7},)" + signalJson(5, 7, "") + "," +
                      signalJson(6, 7, "a\\u0000b") + "," + signalJson(7, 7, "ä"));
  const std::pair<std::u16string, std::size_t> kSearches[] = {
      {u"Speed", 1}, {u"SPEED", 0},       {u"Spee_", 0}, {std::u16string(u"a\0b", 3), 1},
      {u"", 2},      {u"Speed\xD800", 0}, {u"a", 0},     {u"a\u0308", 0},
  };
  for (const auto& [name, found] : kSearches) {
    EXPECT_EQ(session.countNamed(name, 7), found) << fl::i18n::to_string_lossy(name);
  }
  session.loadSignals(signalJson(1, 3, "Speed"));
  EXPECT_EQ(session.countNamed(u"Speed", 3), 2u) << "loaded after the first search";
}

TEST(Repository, ARefusedLoadLeavesNothing) {
  const std::string good = signalJson(1, 7, "a");
  const std::pair<std::string, std::string> kParts[] = {
      {good + R"(,{"id":2,"runID":8})", "2, \"runID\" is no run of the run list"},
      {good + R"(,{"id":2})", "2, \"runID\" is missing"},
  };
  RepositoryFixture session;
  session.loadRuns(R"([{"id":7}])");
  for (const auto& [part, reason] : kParts) {
    EXPECT_EQ(raisedBy([&] { session.loadSignals(part); }),
              "simulation_data_repository:sdr:InvalidSessionData(signals part, " + reason + ")");
    EXPECT_EQ(session.names(7), "") << part;
  }
  EXPECT_NE(raisedBy([&] { session.loadRuns(R"([{"id":8},{"id":9},{"id":8}])"); }), "");
  EXPECT_EQ(session.runIds.size() + session.newRuns.size(), 2u) << "those of the run before";
}

TEST(Repository, ProgressIsReportedAndMayEndTheLoading) {
  constexpr int kCount = 65'537;
  std::string part = signalJson(1, 7, "");
  for (int id = 2; id <= kCount; ++id) part += "," + signalJson(id, 7, "");
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  std::vector<std::uint64_t> reports;
  corvan::ProgressSubscription whole([&](const corvan::Progress& progress) {
    reports.push_back(progress.done);
    if (reports.size() == 2) throw std::runtime_error("enough");
  });
  EXPECT_EQ(raisedBy([&] { session.loadSignals(part); }), "enough");
  EXPECT_TRUE(session.signalsOf(7).empty());
  session.loadSignals(part);
  EXPECT_EQ(reports, (std::vector<std::uint64_t>{0, 65'536, 0, 65'536, kCount}));
}

TEST(SafeTransaction, CollectsWhatTheWorkRaises) {
  RepositoryFixture session;
  const std::string failed = "sqldb:ssdb:Failed(" + session.database().string() + ", ";
  collection two;
  two.add(except_with_causes("a:b:First", {u"1"}));
  two.add(except_with_causes("a:b:Second"));
  const std::pair<boost::function<void()>, Errors> kCases[] = {
      {[] { throw except_with_causes("a:b:Own", {u"x"}); }, {"a:b:Own(x)"}},
      {[&] { throw two; }, {"a:b:First(1)", "a:b:Second()"}},
      {[] { throw collection(); }, {failed + "the work failed without a reason)"}},
      {[] { throw std::runtime_error("why"); }, {failed + "why)"}},
      {[] { throw 1; }, {failed + "the work failed without a reason)"}},
  };
  for (const auto& [work, expected] : kCases) EXPECT_EQ(session.collected(work), expected);
}

TEST(SafeTransaction, RollsBackAsAWhole) {
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  const auto held = session.run(7);
  const Errors errors = session.collected([&] {
    EXPECT_EQ(held->getOrderIndex(), 1);  // on its row while others are written
    session.loadSignals(signalJson(1, 7, "a"));
    EXPECT_NE(raisedBy([&] { session.loadSignals(R"({"id":2})"); }), "");
    EXPECT_EQ(session.countNamed(u"a", 7), 1u);
    throw except_with_causes("a:b:Own");
  });
  EXPECT_EQ(errors, Errors{"a:b:Own()"});
  EXPECT_EQ(session.names(7), "");
  EXPECT_EQ(session.collected([&] { session.loadSignals(signalJson(1, 7, "b")); }), Errors());
  EXPECT_EQ(session.countNamed(u"b", 7), 1u) << "also when its index was rolled back";
}
