// Comparing two recordings, of which the first is the reference. What is compared, and how, is in
// platform/samples; here runs are paired, tolerances are found for each signal, and the outcome is told.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <map>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/comparison_page.h"
#include "hosts/cli/output.h"
#include "hosts/cli/output_file.h"
#include "hosts/cli/selection.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_ustring;
using foundation::core::except::raise;
using samples::RecordedRun;
using samples::RecordedSession;
using samples::RecordedSignal;
using samples::RunComparer;
using samples::RunComparison;
using samples::SignalComparison;
using samples::Tolerance;

// ---- tolerances ----

/// A value that may not be negative. Raises tavlox:cli:NotANumber.
double toleranceFrom(const Request& request, std::string_view option) {
  const double value = numberOf(request, option).value_or(0);
  if (value < 0) raise("tavlox:cli:NotANumber", option, request.one(option));
  return value;
}

Tolerance toleranceFrom(const Request& request) {
  return {.absolute = toleranceFrom(request, "--abs"),
          .relative = toleranceFrom(request, "--rel"),
          .range = toleranceFrom(request, "--range"),
          .time = toleranceFrom(request, "--time-tol")};
}

/// Tolerances of signals by their names: those of the command line, and in their place the values that the
/// last line of the file that describes the name gives.
class Tolerances {
 public:
  explicit Tolerances(const Request& request) : otherwise_(toleranceFrom(request)) {
    if (request.has("--tolerances")) read(request.one("--tolerances"));
  }

  Tolerance of(const std::u16string& name) const {
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line)
      if (matchesGlob(line->glob, name)) return line->tolerance;
    return otherwise_;
  }

 private:
  struct Line {
    std::u16string glob;
    Tolerance tolerance;
  };

  /// A line is a glob and any of abs=, rel=, range= and time= behind it. Names may hold blanks, so the values
  /// are taken off its end. Lines that begin with # say nothing.
  void read(const std::u16string& path) {
    if (!fl::filesystem::exists(path)) raise("tavlox:general:FileNotFound", path);
    // Raises if it is no file that may be read.
    static_cast<void>(fl::filesystem::open_for_reading(path));
    std::ifstream file(fl::i18n::to_string(path), std::ios::binary);
    std::string text;
    for (std::uint64_t number = 1; std::getline(file, text); ++number) {
      if (text.starts_with('#')) continue;
      Line line{{}, otherwise_};
      for (trim(text); takeValue(text, line.tolerance); trim(text)) {
      }
      // What is left and looks like a value is a mistyped one.
      const std::string last = text.substr(text.find_last_of(" \t") + 1);
      const bool isMistyped = last.find('=') != std::string::npos || !fl::i18n::is_well_formed(text);
      if (isMistyped) raise("tavlox:compare:BadTolerance", path, number, last);
      if (text.empty()) continue;
      line.glob = to_ustring(text);
      lines_.push_back(std::move(line));
    }
  }

  static void trim(std::string& text) { text.erase(text.find_last_not_of(" \t\r") + 1); }

  /// Takes "name=number" off the end; false if there is none.
  static bool takeValue(std::string& text, Tolerance& tolerance) {
    static constexpr std::pair<std::string_view, double Tolerance::*> kValues[] = {
        {"abs=", &Tolerance::absolute},
        {"rel=", &Tolerance::relative},
        {"range=", &Tolerance::range},
        {"time=", &Tolerance::time},
    };
    const std::size_t start = text.find_last_of(" \t") + 1;
    const std::string_view word = std::string_view(text).substr(start);
    for (const auto& [name, member] : kValues) {
      if (!word.starts_with(name)) continue;
      double value = 0;
      const char* const last = word.data() + word.size();
      const auto [end, error] = std::from_chars(word.data() + name.size(), last, value);
      if (error != std::errc() || end != last || !(value >= 0)) return false;
      tolerance.*member = value;
      text.erase(start);
      return true;
    }
    return false;
  }

  Tolerance otherwise_;
  std::vector<Line> lines_;
};

// ---- runs ----

const RecordedRun& findRun(const RecordedSession& session, const std::u16string& word) {
  const auto run = std::ranges::find(session.runs(), toRunID(word), &RecordedRun::id);
  if (run == session.runs().end()) raise("tavlox:samples:NoSuchRun", session.path(), word);
  return *run;
}

/// "3:5" taken apart; "3" stands for "3:3". Raises tavlox:cli:NotARunID.
std::pair<std::u16string, std::u16string> pairOf(const std::u16string& word) {
  const std::size_t colon = word.find(u':');
  const std::u16string a = word.substr(0, colon);
  const std::u16string b = colon == word.npos ? a : word.substr(colon + 1);
  toRunID(a);
  toRunID(b);
  return {a, b};
}

/// The runs that the options name, or else those of one name: the n-th of it with the n-th. Two sessions of
/// one run each are compared whatever the runs are called, which mostly is what their tables were called.
Pairing pairRuns(const Request& request, const RecordedSession& a, const RecordedSession& b) {
  Pairing pairing;
  for (const std::u16string& word : request.all("--run")) {
    const auto [inA, inB] = pairOf(word);
    pairing.pairs.emplace_back(&findRun(a, inA), &findRun(b, inB));
  }
  if (request.has("--run")) return pairing;
  if (a.runs().size() == 1 && b.runs().size() == 1) {
    pairing.pairs.emplace_back(&a.runs().front(), &b.runs().front());
    return pairing;
  }
  std::map<std::u16string, std::vector<const RecordedRun*>> left;
  for (auto run = b.runs().rbegin(); run != b.runs().rend(); ++run) left[run->name()].push_back(&*run);
  for (const RecordedRun& run : a.runs()) {
    auto& partners = left[run.name()];
    if (partners.empty()) {
      pairing.onlyInA.push_back(&run);
      continue;
    }
    pairing.pairs.emplace_back(&run, partners.back());
    partners.pop_back();
  }
  for (const RecordedRun& run : b.runs()) {
    const auto& partners = left[run.name()];
    if (std::ranges::find(partners, &run) != partners.end()) pairing.onlyInB.push_back(&run);
  }
  return pairing;
}

// ---- the outcome ----

std::u16string number(double value) { return to_ustring(fmt::format("{}", value)); }

void printTable(const Outcome& outcome) {
  std::vector<std::vector<std::u16string>> rows;
  for (const auto& [runs, signal, verdict, isDifference] : outcome.notCompared())
    rows.push_back({runs, signal, to_ustring(verdict), u"", u"", u"", u"", u""});
  for (const RunComparison& runs : outcome.compared) {
    for (const SignalComparison& signal : runs.signals) {
      rows.push_back({idsOf(*runs.a, *runs.b), signal.a.name, to_ustring(verdictOf(signal)),
                      number(signal.largest), number(signal.largestTime), number(signal.valueA),
                      number(signal.valueB), number(signal.needed)});
    }
  }
  print(Table{{"run", "signal", "verdict", "largest", "at", "A", "B", "needed"},
              rows.size(),
              [&](std::size_t i) { return rows[i]; }});
}

void writeNames(fl::i18n::JsonWriter& json, std::string_view member,
                const std::vector<RecordedSignal>& signals) {
  json.member(member).beginArray();
  for (const RecordedSignal& signal : signals) json.value(signal.name);
  json.endArray();
}

void writeSignal(fl::i18n::JsonWriter& json, const SignalComparison& signal) {
  json.beginObject().member("Name").value(signal.a.name).member("Verdict").value(verdictOf(signal));
  json.member("Equal").value(signal.isEqual());
  json.member("UnitsA").value(signal.a.units).member("UnitsB").value(signal.b.units);
  json.member("DataTypeA").value(signal.a.dataTypeLabel).member("DataTypeB").value(signal.b.dataTypeLabel);
  // Infinite numbers have no place in JSON and are null.
  json.member("LargestDifference").value(signal.largest).member("Time").value(signal.largestTime);
  json.member("ValueA").value(signal.valueA).member("ValueB").value(signal.valueB);
  json.member("NeededTolerance").value(signal.needed);
  json.member("Tested").value(signal.tested).member("Failed").value(signal.failed);
  json.member("Tolerance").beginObject();
  json.member("Abs").value(signal.tolerance.absolute).member("Rel").value(signal.tolerance.relative);
  json.member("Range").value(signal.tolerance.range).member("Time").value(signal.tolerance.time);
  json.endObject().endObject();
}

void printJson(const Request& request, const Outcome& outcome) {
  fl::i18n::JsonWriter json;
  json.beginObject();
  json.member("FilenameA").value(fl::filesystem::absolute(request.one("A")));
  json.member("FilenameB").value(fl::filesystem::absolute(request.one("B")));
  json.member("Equal").value(outcome.isEqual());
  if (request.has("--output")) json.member("Page").value(fl::filesystem::absolute(request.one("--output")));
  const auto writeIds = [&](std::string_view member, const std::vector<const RecordedRun*>& runs) {
    json.member(member).beginArray();
    for (const RecordedRun* run : runs) json.value(run->id());
    json.endArray();
  };
  writeIds("RunsOnlyInA", outcome.runs.onlyInA);
  writeIds("RunsOnlyInB", outcome.runs.onlyInB);
  json.member("Runs").beginArray();
  for (const RunComparison& runs : outcome.compared) {
    json.beginObject().member("RunIDA").value(runs.a->id()).member("RunIDB").value(runs.b->id());
    json.member("Equal").value(runs.isEqual());
    json.member("OtherMetadata").beginArray();
    for (const std::string& field : runs.metadata) json.value(field);
    json.endArray();
    writeNames(json, "OnlyInA", runs.onlyInA);
    writeNames(json, "OnlyInB", runs.onlyInB);
    json.member("Signals").beginArray();
    for (const SignalComparison& signal : runs.signals) writeSignal(json, signal);
    json.endArray().endObject();
  }
  print(json.endArray().endObject());
}

void checkCompare(const Request& request) {
  for (const std::u16string& word : request.all("--run")) pairOf(word);
  toleranceFrom(request);
}

/// A glob that describes no signal of either is a mistake, not a comparison that found no difference.
void requireSignals(const Request& request, const RecordedSession& a, const RecordedSession& b) {
  for (const std::u16string& glob : request.all("--signal")) {
    const auto describes = [&](const RecordedSignal& signal) { return matchesGlob(glob, signal.name); };
    const auto isIn = [&](const RecordedSession& session) {
      return std::ranges::any_of(session.runs(), [&](const RecordedRun& run) {
        return std::ranges::any_of(run.signals, describes);
      });
    };
    if (!isIn(a) && !isIn(b)) raise("tavlox:samples:NoSuchSignal", a.path(), glob);
  }
}

RunComparer comparerFor(const Request& request, const Tolerances& tolerances) {
  RunComparer comparer;
  const std::vector<std::u16string>& globs = request.all("--signal");
  if (!globs.empty()) {
    comparer.isWanted = [&](const std::u16string& name) {
      return std::ranges::any_of(globs, [&](const std::u16string& glob) { return matchesGlob(glob, name); });
    };
  }
  comparer.toleranceOf = [&](const std::u16string& name) { return tolerances.of(name); };
  if (request.has("--overlap")) comparer.extent = samples::Extent::Overlap;
  return comparer;
}

void compareOnto(const Request& request, const RunComparer& comparer, const RecordedSession& a,
                 const RecordedSession& b, Outcome& outcome) {
  OutputFile output(request);
  const auto detail = request.has("--full") ? Detail::Full : Detail::Reduced;
  ComparisonPage page([&](std::string_view bytes) { output.write(bytes); }, a, b, outcome.runs, detail);
  for (const auto& [runA, runB] : outcome.runs.pairs)
    outcome.compared.push_back(page.add(comparer, *runA, *runB));
  page.finish(outcome);
  output.finish();
}

ExitCode runCompare(const Request& request) {
  const Tolerances tolerances(request);
  const RecordedSession a(request.one("A")), b(request.one("B"));
  requireSignals(request, a, b);
  Outcome outcome{pairRuns(request, a, b), {}};
  // Nothing against nothing would be equal.
  if (a.runs().empty() && b.runs().empty()) raise("tavlox:samples:NoneRecorded", a.path());
  const RunComparer comparer = comparerFor(request, tolerances);
  if (request.has("--output")) {
    compareOnto(request, comparer, a, b, outcome);
  } else {
    for (const auto& [runA, runB] : outcome.runs.pairs)
      outcome.compared.push_back(comparer.compare(a, *runA, b, *runB));
  }
  request.format == OutputFormat::Json ? printJson(request, outcome) : printTable(outcome);
  return outcome.isEqual() ? ExitCode::Done : ExitCode::Found;
}

}  // namespace

extern const Command kCompare = {
    .name = "compare",
    .summary = "Compare recorded samples with a reference",
    .examples = R"help(  tavlox compare reference.tavlox new.tavlox --rel 1e-6
  tavlox compare reference.tavlox new.tavlox --run 1:3 --signal "v*" --abs 1e-3
  tavlox compare reference.tavlox new.tavlox -o differences.html
  tavlox compare a.tavlox b.tavlox --tolerances limits.txt --json | jq .Equal
)help",
    .details =
        R"(A is the reference. A value b of B at time t passes if at some time T' not
further from t than --time-tol the distance |b - A(T')| is at most the largest
of these, all of which are 0 unless given:

  --abs, --rel times |A(T')|, --range times (max A - min A)

Values of A are looked for in B likewise, so that neither may lack a spike of
the other. Between samples, floating-point signals are interpolated linearly,
integers, booleans and enumerations keep their value.

Runs are paired by name, or as --run says. A run or a signal that only one of
them has, other units, and first or last times that differ by more than
--time-tol are differences; with --overlap only the time that both have is
compared. Other metadata is told, and makes no difference.

The file of --tolerances has a signal name a line, in which * and ? stand for
any text, and behind it any of abs=, rel=, range= and time=; the last line that
describes a signal counts, and lines that begin with # say nothing:

  v(*)   abs=1e-3
  i(r1)  rel=0.01 time=1e-6

With -o there is also a page that any browser opens, with the curves of A and B
and below them their difference, the signals that differ first.

Prints a line for each signal: run, name, verdict, the largest difference at
one time, that time, the two values there, and the smallest --abs that would
pass.

Exit code: 0 equal within the tolerances, 3 different, 1 an error.
)",
    .parameters = {{"A", Takes::One, "The reference"},
                   {"B", Takes::One, "The package to compare with it"},
                   {"--run", Takes::Values, "Only run A of the first with run B of the second", "A:B"},
                   kSignalOption,
                   {"--abs", Takes::Value, "How far values may be apart", "X"},
                   {"--rel", Takes::Value, "The same as a share of the reference's value", "Y"},
                   {"--range", Takes::Value, "The same as a share of the reference's range", "Z"},
                   {"--time-tol", Takes::Value, "How far times may be apart, in seconds", "T"},
                   {"--tolerances", Takes::Value, "Tolerances of single signals", "PATH"},
                   {"--overlap", Takes::Flag, "Compare the time that both have"},
                   {"--output", Takes::Value, "The page to make", "PAGE", "-o"},
                   {"--full", Takes::Flag, "Every sample in the page, also of long runs"},
                   {"--force", Takes::Flag, "Replace PAGE if it exists"}},
    .run = runCompare,
    .check = checkCompare,
};

}  // namespace tavlox::cli
