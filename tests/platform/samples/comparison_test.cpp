#include "platform/samples/comparison.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/platform/samples/session_of.h"

using namespace tavlox;
using namespace tavlox::samples;
using support::sessionOf;

namespace {

/// "verdict largest at time: A B, needed failed/tested" of the only signal.
std::string show(const SignalComparison& signal) {
  constexpr const char* kVerdicts[] = {"equal", "different", "other span", "nothing"};
  return fmt::format("{} {} at {}: {} {}, {} {}/{}", kVerdicts[static_cast<int>(signal.verdict)],
                     signal.largest, signal.largestTime, signal.valueA, signal.valueB, signal.needed,
                     signal.failed, signal.tested);
}

struct Case {
  const char *a, *b;
  Tolerance tolerance;
  const char* shown;
  const char16_t* dataType = u"double";
  Extent extent = Extent::Whole;
};

}  // namespace

TEST(Comparison, LooksForEachValueInTheOtherWithinTheTolerance) {
  const Case kCases[] = {
      {"0,1\n1,2\n", "0,1\n1,2\n", {}, "equal 0 at 0: 0 0, 0 0/4"},
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {}, "different 0.5 at 1: 2 2.5, 0.5 2/4"},
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {.absolute = 0.5}, "equal 0.5 at 1: 2 2.5, 0.5 0/4"},
      // The reference's value counts: 0.25 of 2 is enough, 0.2 of B's 2.5 would be too.
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {.relative = 0.25}, "equal 0.5 at 1: 2 2.5, 0.5 0/4"},
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {.relative = 0.2}, "different 0.5 at 1: 2 2.5, 0.5 2/4"},
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {.range = 0.5}, "equal 0.5 at 1: 2 2.5, 0.5 0/4"},
      {"0,1\n1,2\n", "0,1\n1,2.5\n", {.range = 0.4}, "different 0.5 at 1: 2 2.5, 0.5 2/4"},
      // On other times, between samples; held signals are another thing.
      {"0,0\n2,2\n", "0,0\n1,1\n2,2\n", {}, "equal 0 at 0: 0 0, 0 0/6"},
      {"0,0\n2,2\n", "0,0\n1,1\n2,2\n", {}, "different 1 at 1: 0 1, 1 2/6", u"uint8"},
      {"0,0\n2,2\n", "0,0\n1,0\n2,2\n", {}, "equal 0 at 0: 0 0, 0 0/6", u"boolean"},
      // A spike that the other lost is found whichever has it.
      {"0,0\n1,0\n2,9\n3,0\n4,0\n", "0,0\n4,0\n", {}, "different 9 at 2: 9 0, 9 2/10"},
      {"0,0\n4,0\n", "0,0\n1,0\n2,9\n3,0\n4,0\n", {}, "different 9 at 2: 0 9, 9 2/10"},
      {"0,0\n1,0\n2,9\n3,0\n4,0\n", "0,0\n4,0\n", {.time = 1.5}, "different 9 at 2: 9 0, 9 1/10"},
      // A step that comes later.
      {"0,0\n1,0\n1,5\n3,5\n", "0,0\n1.25,0\n1.25,5\n3,5\n", {.time = 0.25}, "equal 5 at 1: 5 0, 0 0/10"},
      {"0,0\n1,0\n1,5\n3,5\n",
       "0,0\n1.25,0\n1.25,5\n3,5\n",
       {.time = 0.125},
       "different 5 at 1: 5 0, 5 2/10"},
      {"0,0\n1,5\n3,5\n", "0,0\n1.25,5\n3,5\n", {.time = 0.25}, "equal 5 at 1: 5 0, 0 0/8", u"int8"},
      // Both values of a repeated time are there, and nothing between them.
      {"0,0\n1,0\n1,5\n2,5\n", "0,0\n1,0\n1,5\n2,5\n", {}, "equal 0 at 0: 0 0, 0 0/8"},
      {"0,0\n1,0\n1,5\n2,5\n", "0,0\n1,2\n2,5\n", {}, "different 3 at 1: 5 2, 3 3/7"},
      // A held signal has the last of them.
      {"0,0\n1,3\n1,5\n2,5\n", "0,0\n1,5\n2,5\n", {}, "equal 0 at 0: 0 0, 0 0/6", u"int8"},
      {"0,nan\n1,nan\n", "0,nan\n1,nan\n", {}, "equal 0 at 0: 0 0, 0 0/4"},
      {"0,nan\n1,1\n", "0,1\n1,1\n", {.absolute = 1e300}, "different inf at 0: nan 1, inf 2/4"},
      {"0,inf\n1,inf\n", "0,inf\n1,-inf\n", {.relative = 1}, "different inf at 1: inf -inf, inf 2/4"},
      {"0,1\n1,1\n", "0,1\n1.5,1\n", {}, "other span 0 at 0: 0 0, 0 0/4"},
      {"0,1\n1,1\n", "0,1\n1.5,1\n", {.time = 0.5}, "equal 0 at 0: 0 0, 0 0/5"},
      {"0,1\n1,1\n", "0,1\n2,9\n", {}, "different 4 at 1: 1 5, 4 2/4", u"double", Extent::Overlap},
      {"0,1\n1,1\n", "2,1\n3,1\n", {}, "nothing 0 at 0: 0 0, 0 0/0", u"double", Extent::Overlap},
      {"", "", {}, "nothing 0 at 0: 0 0, 0 0/0"},
      {"", "0,1\n", {.time = 9}, "nothing 0 at 0: 0 0, 0 0/0"},
  };
  const support::SessionFixture files;
  for (const Case& one : kCases) {
    const auto a = sessionOf(files, "a.tavlox", {std::string("t,v\n") + one.a}, one.dataType);
    const auto b = sessionOf(files, "b.tavlox", {std::string("t,v\n") + one.b}, one.dataType);
    RunComparer comparer;
    comparer.toleranceOf = [&](const std::u16string&) { return one.tolerance; };
    comparer.extent = one.extent;
    const RunComparison compared = comparer.compare(a, a.runs()[0], b, b.runs()[0]);
    EXPECT_EQ(show(compared.signals.at(0)), one.shown) << one.a << "against\n" << one.b;
    EXPECT_EQ(compared.isEqual(), std::string_view(one.shown).starts_with("equal"));
  }
}

TEST(Comparison, PairsSignalsByNameAndTellsWhatElseDiffers) {
  const support::SessionFixture files;
  const auto sessionWith = [&](const char* name, const char16_t* solver, std::vector<SignalRecord> signals,
                               const char* table) {
    return RecordedSession(files.write(name, [&](SessionWriter& session) {
      session.addRun(
          {.id = 1, .simMode = solver, .totalTime = signals.size() * 1.5, .metadata = {{"Tag", solver}}});
      for (const SignalRecord& signal : signals) session.addSignal(signal);
      session.addSamples(1, [&](const auto& sink) { sink(table); });
    }));
  };
  const auto signal = [](std::int32_t id, const char16_t* name, const char16_t* units) {
    return SignalRecord{.id = id, .runID = 1, .name = name, .units = units};
  };
  const auto a =
      sessionWith("a.tavlox", u"x", {signal(1, u"v", u"V"), signal(2, u"i", u"A"), signal(3, u"v", u"V")},
                  "t,v,i,v\n0,1,2,3\n1,1,2,3\n");
  const auto b =
      sessionWith("b.tavlox", u"y", {signal(1, u"u", u""), signal(2, u"v", u"mV")}, "t,u,v\n0,1,1\n1,1,1\n");
  const RunComparison compared = RunComparer().compare(a, a.runs()[0], b, b.runs()[0]);
  EXPECT_EQ(compared.metadata, (std::vector<std::string>{"simMode", "Tag"}));
  ASSERT_EQ(compared.onlyInA.size(), 2u);
  // The second of a name has no partner where there is only one.
  EXPECT_EQ(compared.onlyInA[0].name, u"i");
  EXPECT_EQ(compared.onlyInA[1].id, 3);
  ASSERT_EQ(compared.onlyInB.size(), 1u);
  EXPECT_EQ(compared.onlyInB[0].name, u"u");
  ASSERT_EQ(compared.signals.size(), 1u);
  // The numbers are the same, the units are not.
  EXPECT_EQ(compared.signals[0].verdict, Verdict::Equal);
  EXPECT_FALSE(compared.signals[0].isEqual());
}
