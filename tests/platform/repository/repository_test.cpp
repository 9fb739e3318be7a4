#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/progress/progress.h"
#include "tests/platform/repository/repository_fixture.h"

using namespace orra;
using foundation::core::except::collection;
using support::raisedBy;
using Errors = std::vector<std::string>;

namespace {

std::string narrow(const std::u16string& text) { return fl::i18n::to_string(text); }

std::string listed(const std::vector<std::uint64_t>& numbers) {
  std::string text = "[";
  for (const auto number : numbers) text += std::to_string(number) + ",";
  return text + "]";
}

/// A field of every kind that the database stores.
std::string described(const Set& run) {
  std::ostringstream text;
  text << narrow(run.getRunDisplayName()) << '|' << run.getRunNumber() << '|' << run.getOrderIndex() << '|'
       << run.getStopTime() << '|' << narrow(run.getRunMetaDataUstring(strings::Tag)) << '|'
       << narrow(run.getRunMetaDataUstring("no key"));
  return text.str();
}

std::string described(const Signal& signal) {
  std::ostringstream text;
  text << narrow(signal.getName()) << '|' << narrow(signal.getRun()->getRunDisplayName()) << '|'
       << signal.getPortIndex() << '|' << listed(signal.getDimensions()) << '|'
       << listed(signal.getChannel(false)) << '|' << listed(signal.getChannel(true));
  return text.str();
}

constexpr char kTwoRuns[] = R"([{"id":7},{"id":3}])";

}  // namespace

TEST(Repository, EveryKindOfFieldOfFullAndBareObjects) {
  RepositoryFixture session;
  session.loadRuns(R"([{"runClassName":"Set","id":-5,"name":"Größe","runNumber":4294967295,
    "orderIndex":-9,"stopTime":1e300,"metadata":{"Tag":"t","x":"1","x":"2","no key":"?","y":[1]}}, {"id":2}])");
  session.loadSignals(R"([{"id":1,"runID":-5,"name":"n\u0000\ud83d\ude00","portIndex":-2147483648,
    "dimensions":[1,127,128,18446744073709551615],"channel":[0,1,300]}, {"id":2,"runID":2}])");
  const std::string name("n\0\xF0\x9F\x98\x80", 6);
  const auto check = [&] {
    EXPECT_EQ(described(*session.run(-5)), "Größe|4294967295|-9|1e+300|t|");
    EXPECT_EQ(described(*session.run(2)), "|0|2|0||") << "nothing of the run before it";
    EXPECT_EQ(described(*session.signalsOf(-5)[0]),
              name + "|Größe|-2147483648|[1,127,128,18446744073709551615,]|[0,1,300,]|[0,0,299,]");
    EXPECT_EQ(described(*session.signalsOf(2)[0]), "||0|[]|[]|[]");
  };
  check();                                        // every accessor on its own
  EXPECT_EQ(session.collected(check), Errors());  // and on rows that are kept
}

TEST(Repository, ARunOfAnotherRepositoryFindsNothing) {
  RepositoryFixture first, second;
  for (RepositoryFixture* session : {&first, &second}) session->loadRuns(kTwoRuns);
  EXPECT_EQ(second.newRuns, (std::vector<RunId>{second.runId(7), second.runId(3)}));
  second.runIds[FileRunId{7}] = first.runId(7);
  std::shared_ptr<Set> found = second.run(3);
  EXPECT_FALSE(Set::lookupSet(first.runId(7), found, second.manager, false));
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(raisedBy([&] { second.run(7); }), "simulation_data_repository:sdr:NoSuchRun()");
  EXPECT_TRUE(second.signalsOf(7).empty());
  EXPECT_EQ(raisedBy([&] { second.loadSignals("[" + signalJson(1, 7, "a") + "]"); }),
            "simulation_data_repository:sdr:InvalidSessionData(signals part, 1, \"runID\" is no run of the "
            "run list)");
}

TEST(Repository, SignalsComeInTheOrderOfLoading) {
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  session.loadSignals("[" + signalJson(9, 7, "z") + "," + signalJson(1, 3, "x") + "," +
                      signalJson(5, 7, "a") + "," + signalJson(2, 3, "y") + "]");
  // Another part may use identifiers again: they are the part's own.
  session.loadSignals("[" + signalJson(9, 7, "m") + "]");
  session.loadSignals("[]");
  EXPECT_EQ(session.names(7), "z a m ");
  EXPECT_EQ(session.names(3), "x y ");
  EXPECT_EQ(session.runIds.size(), 2u);
}

TEST(Repository, NamesMatchExactly) {
  RepositoryFixture session;
  session.loadRuns(kTwoRuns);
  session.loadSignals("[" + signalJson(1, 7, "Speed") + "," + signalJson(2, 7, "speed") + "," +
                      signalJson(3, 3, "Speed") + R"(,{"id":4,"runID":7},)" + signalJson(5, 7, "") + "," +
                      signalJson(6, 7, "a\\u0000b") + "," + signalJson(7, 7, "\u00e4") + "," +
                      signalJson(8, 7, "Speed") + "]");
  const std::pair<std::u16string, std::size_t> kSearches[] = {
      {u"Speed", 2},     {u"speed", 1}, {u"SPEED", 0},  {u"Spee_", 0},   {std::u16string(u"a\0b", 3), 1},
      {u"", 2},          {u"a", 0},     {u"\u00e4", 1}, {u"a\u0308", 0}, {u"Speed\xD800", 0},
      {u"' OR 1 --", 0},
  };
  for (const auto& [name, found] : kSearches) {
    EXPECT_EQ(session.named(name, 7).size(), found) << fl::i18n::to_string_lossy(name);
  }
  EXPECT_EQ(session.named(u"Speed", 3).size(), 1u);
  session.loadSignals("[" + signalJson(1, 3, "Speed") + "]");
  EXPECT_EQ(session.named(u"Speed", 3).size(), 2u) << "loaded after the first search";
}

TEST(Repository, ARefusedLoadLeavesNothing) {
  const std::string good = signalJson(1, 7, "a");
  const std::pair<std::string, std::string> kParts[] = {
      {good + R"(,{"id":2,"runID":8})", "2, \"runID\" is no run of the run list"},
      {good + R"(,{"id":2})", "2, \"runID\" is missing"},
      {good + R"(,{"id":1,"runID":7})", "2, an earlier element has its \"id\""},
  };
  RepositoryFixture session;
  session.loadRuns(R"([{"id":7}])");
  for (const auto& [part, reason] : kParts) {
    EXPECT_EQ(raisedBy([&] { session.loadSignals("[" + part + "]"); }),
              "simulation_data_repository:sdr:InvalidSessionData(signals part, " + reason + ")");
    EXPECT_EQ(session.names(7), "") << part;
  }
  EXPECT_NE(raisedBy([&] { session.loadRuns(R"([{"id":8},{"id":9},{"id":8}])"); }), "");
  EXPECT_EQ(session.runIds.size(), 1u);
  EXPECT_EQ(session.newRuns.size(), 1u);
  session.loadSignals("[" + good + "]");
  EXPECT_EQ(session.names(7), "a ");
}

TEST(Repository, ProgressIsReportedAndMayEndTheLoading) {
  constexpr int kCount = 65'537;
  std::string part = "[" + signalJson(1, 7, "");
  for (int id = 2; id <= kCount; ++id) part += "," + signalJson(id, 7, "");
  part += "]";
  RepositoryFixture session;
  session.loadRuns(R"([{"id":7}])");
  std::vector<std::uint64_t> reports;
  {
    corvan::ProgressSubscription impatient([](const corvan::Progress& progress) {
      if (progress.done > 0) throw std::runtime_error("enough");
    });
    EXPECT_EQ(raisedBy([&] { session.loadSignals(part); }), "enough");
    EXPECT_TRUE(session.signalsOf(7).empty());
  }
  corvan::ProgressSubscription whole([&](const corvan::Progress& progress) {
    EXPECT_EQ(progress.total, std::uint64_t{kCount});
    reports.push_back(progress.done);
  });
  session.loadSignals(part);
  EXPECT_EQ(reports, (std::vector<std::uint64_t>{0, 65'536, kCount}));
}

TEST(SafeTransaction, CollectsWhatTheWorkRaises) {
  RepositoryFixture session;
  const std::string failed = "sqldb:ssdb:Failed(" + session.database().string() + ", ";
  collection two;
  two.add(foundation::core::except::except_with_causes("a:b:First", {u"1"}));
  two.add(foundation::core::except::except_with_causes("a:b:Second"));
  const std::pair<boost::function<void()>, Errors> kCases[] = {
      {[] {}, {}},
      {[] { throw foundation::core::except::except_with_causes("a:b:Own", {u"x"}); }, {"a:b:Own(x)"}},
      {[&] { throw two; }, {"a:b:First(1)", "a:b:Second()"}},
      {[] { throw collection(); }, {failed + "the work failed without a reason)"}},
      {[] { throw std::runtime_error("why"); }, {failed + "why)"}},
      {[] { throw 1; }, {failed + "the work failed without a reason)"}},
  };
  for (const auto& [work, expected] : kCases) EXPECT_EQ(session.collected(work), expected);
  ObjectManager none;
  none.safeTransaction([] {}, two);
  EXPECT_EQ(two.errors().back().GetID(), "simulation_data_repository:sdr:InternalError");
}

TEST(SafeTransaction, RollsBackAsAWhole) {
  RepositoryFixture session;
  session.loadRuns(R"([{"id":7}])");
  const auto held = session.run(7);
  EXPECT_EQ(session.collected([&] {
    EXPECT_EQ(held->getOrderIndex(), 1);  // on its row while others are written
    session.loadSignals("[" + signalJson(1, 7, "a") + "]");
    EXPECT_FALSE(raisedBy([&] { session.loadSignals(R"([{"id":2}])"); }).empty());
    EXPECT_EQ(session.named(u"a", 7).size(), 1u);
    throw foundation::core::except::except_with_causes("a:b:Own");
  }),
            Errors{"a:b:Own()"});
  EXPECT_EQ(session.names(7), "");
  EXPECT_EQ(session.collected([&] { session.loadSignals("[" + signalJson(1, 7, "b") + "]"); }), Errors());
  EXPECT_EQ(session.names(7), "b ");
  EXPECT_EQ(session.named(u"b", 7).size(), 1u) << "also when its index was rolled back";
}
