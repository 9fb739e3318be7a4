#include <gtest/gtest.h>

#include "tests/platform/repository/repository_fixture.h"
#include "tests/support/other_connection.h"

using namespace orra;
using foundation::core::except::except_with_causes;
using support::raisedBy;
using Errors = std::vector<std::string>;
using Numbers = std::vector<std::uint64_t>;

constexpr char kTwoRuns[] = R"([{"id":7},{"id":3}])";

TEST(Repository, ExtremeValuesComeBackAndMissingOnesDoNotComeFromTheRowBefore) {
  RepositoryFixture session;
  session.loadRuns(R"([{"id":-5,"orderIndex":-9,"stopTime":1e300,
    "metadata":{"Tag":"t","x":"1","x":"2","no key":"?","y":[1]}}, {"id":2}])");
  session.loadSignals(R"({"id":1,"runID":-5,"name":"n\u0000\ud83d\ude00","portIndex":-2147483648,
    "dimensions":[1,127,128,18446744073709551615],"channel":[0,1,300]}, {"id":2,"runID":2})");
  const auto check = [&] {
    const Set full = *session.run(-5), bare = *session.run(2);
    EXPECT_EQ(full.getRunMetaDataUstring(strings::Tag) + full.getRunMetaDataUstring("no key"), u"t");
    EXPECT_EQ(full.getOrderIndex(), -9);
    EXPECT_EQ(full.getStopTime(), 1e300);
    EXPECT_EQ(bare.getRunMetaDataUstring(strings::Tag), u"");
    EXPECT_EQ(bare.getOrderIndex(), 2) << "the position in the list";
    const Signal first = session.signalsOf(-5)[0], second = session.signalsOf(2)[0];
    EXPECT_EQ(first.getName(), std::u16string(u"n\0\U0001F600", 4));
    EXPECT_EQ(first.getPortIndex(), -2147483647 - 1);
    EXPECT_EQ(first.getDimensions(), (Numbers{1, 127, 128, 18446744073709551615u}));
    EXPECT_EQ(first.getChannel(true), (Numbers{0, 0, 299}));
    EXPECT_EQ(second.getName(), u"");
    EXPECT_EQ(second.getDimensions(), Numbers());
  };
  check();                                        // every accessor on its own
  EXPECT_EQ(session.collected(check), Errors());  // and on rows that are kept
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

  // Of more runs in turns than are collected at once.
  std::string runs, signals;
  for (int i = 0; i < 600; ++i) {
    const std::string comma = i == 0 ? "" : ",";
    if (i < 300) runs += comma + R"({"id":)" + std::to_string(100 + i) + "}";
    signals += comma + signalJson(i, 100 + i % 300, std::to_string(i));
  }
  session.loadRuns("[" + runs + "]");
  session.loadSignals(signals);
  for (const int i : {0, 1, 150, 299}) {
    EXPECT_EQ(session.names(100 + i), std::to_string(i) + " " + std::to_string(i + 300) + " ");
  }
}

TEST(Repository, RunsThatWereReadAheadAreThoseThatAreAskedFor) {
  RepositoryFixture session;
  session.loadRuns(R"([{"id":1,"name":"a"},{"id":2,"name":"b"},{"id":3,"name":"c"},{"id":4,"name":"d"}])");
  const auto names = [&](const std::vector<int>& runs) {
    std::u16string found;
    for (const int run : runs)
      EXPECT_EQ(session.collected([&] { found += session.run(run)->getRunDisplayName(); }), Errors());
    return fl::i18n::to_string(found);
  };
  EXPECT_EQ(names({1, 2, 3, 4, 4, 1, 2, 4, 3}), "abcddabdc");
  names({1, 2});
  const support::OtherConnection other(session.database(),
                                       "UPDATE runs SET records = CAST(replace(records, 'b', 'x') AS BLOB)");
  EXPECT_EQ(names({2}), "x") << "one that was read before is read again";
  const auto readAndFail = [&] {
    session.loadRuns(R"([{"id":5},{"id":6},{"id":7}])");
    session.run(5)->record();
    session.run(6)->record();
    throw except_with_causes("a:b:Undone");
  };
  EXPECT_EQ(session.collected(readAndFail), Errors{"a:b:Undone()"});
  EXPECT_EQ(raisedBy([&] { session.run(7)->record(); }), "simulation_data_repository:sdr:NoSuchRun()");
}

TEST(Repository, SignalsThatAreAlikeAreReadInAnyOrder) {
  // Several batches of signals, of which each tenth differs from the one before in its units.
  RepositoryFixture session;
  session.loadRuns(R"([{"id":7}])");
  const auto unitsOf = [](int i) { return std::to_string(i / 10 % 7); };
  std::string json;
  for (int i = 0; i < 2000; ++i) {
    const std::string path(50, static_cast<char>('a' + i % 26));
    json += (json.empty() ? "" : ",") + std::string(R"({"id":)") + std::to_string(i) +
            R"(,"runID":7,"units":")" + unitsOf(i) + R"(","displayBlockPath":")" + path + R"("})";
  }
  session.loadSignals(json);
  const std::vector<Signal> signals = session.signalsOf(7);
  ASSERT_EQ(signals.size(), 2000u);
  for (int step : {1, 3, 64, 601, 1999}) {
    for (int i = 0, at = 0; i < 500; ++i, at = (at + step) % 2000) {
      const auto number = static_cast<std::size_t>(at);
      EXPECT_EQ(fl::i18n::to_string(signals[number].getUnits()), unitsOf(at))
          << at << " by steps of " << step;
      EXPECT_EQ(signals[number].getDisplayBlockPath().front(), u'a' + at % 26);
    }
  }
  EXPECT_EQ(signals[9].repeatedFields(signals[7]), 0U) << "of others than neighbours nothing is known";
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
  RepositoryFixture session, another;
  session.loadRuns(R"([{"id":7}])");
  another.loadRuns(R"([{"id":9}])");
  session.runIds[FileRunId{9}] = another.runId(9);  // as of an earlier load
  for (const char* second : {R"({"id":2,"runID":8})", R"({"id":2,"runID":9})", R"({"id":2})"}) {
    EXPECT_NE(raisedBy([&] { session.loadSignals(signalJson(1, 7, "a") + "," + second); }), "") << second;
    EXPECT_EQ(session.names(7), "") << second;
  }
  EXPECT_NE(raisedBy([&] { session.loadRuns(R"([{"id":8},{"id":9},{"id":8}])"); }), "");
  EXPECT_EQ(session.newRuns.size(), 1u) << "the run of before";
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
