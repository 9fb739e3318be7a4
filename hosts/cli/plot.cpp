// A look at recorded samples without leaving the terminal: a small plot for each signal, one below the other.
// However many samples there are, each column of dots shows all values of its stretch of time, from the
// smallest to the largest, so that no spike is lost.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/output.h"
#include "hosts/cli/selection.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/samples/reduction.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using foundation::core::except::raise;
using samples::Bucket;
using samples::RecordedSession;
using samples::RecordedSignal;
using samples::Reduction;
using samples::Sample;
using samples::SampleBlock;
using samples::Wanted;

constexpr std::size_t kHeight = 12;      // lines of one plot
constexpr std::size_t kLabelWidth = 11;  // of the values on the left, the axis not counted
constexpr std::size_t kNarrowest = 40;   // columns; on narrower terminals lines wrap

/// How dots become characters.
enum class Charset { Braille, Ascii };

/// Whether a terminal of this locale shows UTF-8: the variables in the order in which they count.
bool isLocaleUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    std::string locale(value);
    std::ranges::transform(locale, locale.begin(), [](unsigned char byte) { return std::tolower(byte); });
    return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return false;
}

/// A field of dots, and the lines of text that show it.
class Canvas {
 public:
  Canvas(Charset charset, std::size_t columns, std::size_t lines)
      : charset_(charset), columns_(columns), cells_(columns * lines, 0) {}

  std::size_t dotColumns() const { return columns_ * dotsAcross(); }
  std::size_t dotRows() const { return cells_.size() / columns_ * dotsDown(); }

  /// Row 0 is the lowest.
  void set(std::size_t column, std::size_t row) {
    // Bits as Unicode numbers the dots of a Braille cell: down the left column, down the right one, and
    // the lowest two, which came later.
    static constexpr std::uint8_t kDots[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
    const std::size_t fromTop = dotRows() - 1 - row;
    std::uint8_t& cell = cells_[fromTop / dotsDown() * columns_ + column / dotsAcross()];
    cell |= charset_ == Charset::Braille ? kDots[fromTop % 4][column % 2] : std::uint8_t{1};
  }

  std::string line(std::size_t index) const {
    std::string text;
    for (std::size_t i = 0; i < columns_; ++i) {
      const std::uint8_t cell = cells_[index * columns_ + i];
      if (charset_ == Charset::Ascii) {
        text += cell == 0 ? ' ' : '*';
        continue;
      }
      // U+2800 and up in UTF-8. The blank is one of them too: in many fonts it is as wide as the others,
      // and a space is not.
      text += {'\xE2', static_cast<char>(0xA0 | cell >> 6), static_cast<char>(0x80 | (cell & 0x3F))};
    }
    return text;
  }

 private:
  std::size_t dotsAcross() const { return charset_ == Charset::Braille ? 2 : 1; }
  std::size_t dotsDown() const { return charset_ == Charset::Braille ? 4 : 1; }

  Charset charset_;
  std::size_t columns_;
  std::vector<std::uint8_t> cells_;  ///< line by line from the top
};

/// A signal's samples, reduced to a bucket for each column of dots.
struct Curve {
  const RecordedSignal* signal;
  std::u16string run;  ///< its label
  std::int32_t runID;
  Reduction reduction;
  Bucket whole;
};

/// The finite values, between which the plot is drawn; of a constant signal some room around it.
std::pair<double, double> limitsOf(const Bucket& whole) {
  double low = whole.minimum.value, high = whole.maximum.value;
  constexpr double kLargest = std::numeric_limits<double>::max() / 4;
  low = std::clamp(low, -kLargest, kLargest);
  high = std::clamp(high, -kLargest, kLargest);
  if (low == high) {
    const double room = low == 0 ? 1 : std::abs(low) / 2;
    return {low - room, high + room};
  }
  return {low, high};
}

void draw(Canvas& canvas, const Curve& curve) {
  const auto [low, high] = limitsOf(curve.whole);
  const auto rowOf = [&, low = low, high = high](double value) {
    const double share = std::clamp((value - low) / (high - low), 0.0, 1.0);
    return static_cast<std::size_t>(std::lround(share * static_cast<double>(canvas.dotRows() - 1)));
  };
  const std::vector<Bucket>& buckets = curve.reduction.buckets();
  const bool isHeld = samples::betweenSamplesOf(curve.signal->dataTypeLabel) == samples::Between::Held;
  std::optional<std::pair<std::size_t, double>> previous;  // column and last value
  for (std::size_t column = 0; column < buckets.size(); ++column) {
    const Bucket& bucket = buckets[column];
    // A NaN breaks the line.
    if (bucket.count == 0 && bucket.hasGap) previous.reset();
    if (bucket.count == 0) continue;
    std::size_t bottom = rowOf(bucket.minimum.value), top = rowOf(bucket.maximum.value);
    if (previous) {
      // Columns between two samples: the line from one to the other, or the value that is held.
      const auto steps = static_cast<double>(column - previous->first);
      const double rise = isHeld ? 0 : (bucket.first.value - previous->second) / steps;
      std::size_t row = rowOf(previous->second);
      for (std::size_t i = previous->first + 1; i < column; ++i) {
        const std::size_t next = rowOf(previous->second + rise * static_cast<double>(i - previous->first));
        for (std::size_t dot = std::min(row, next); dot <= std::max(row, next); ++dot) canvas.set(i, dot);
        row = next;
      }
      bottom = std::min(bottom, row);
      top = std::max(top, row);
    }
    for (std::size_t row = bottom; row <= top; ++row) canvas.set(column, row);
    previous = {column, bucket.last.value};
  }
}

/// Six digits, as much as fits beside a plot.
std::string shortNumber(double value) { return fmt::format("{:.6g}", value); }

/// Title, plot and axes of one signal.
std::string plotOf(const Curve& curve, Charset charset, std::size_t width, double from, double to) {
  const bool isBraille = charset == Charset::Braille;
  const std::size_t columns = width - kLabelWidth - 1;
  Canvas canvas(charset, columns, kHeight);
  draw(canvas, curve);
  const std::string title = singleLine(curve.run + u": " + headingOf(*curve.signal));
  const auto& [first, minimum, maximum, last, count, hasGap] = curve.whole;
  std::string text = bold(title, coloursFor(stdout));
  text +=
      fmt::format("  min {} at {} s, max {} at {} s, {} samples\n", shortNumber(minimum.value),
                  shortNumber(minimum.time), shortNumber(maximum.value), shortNumber(maximum.time), count);
  const auto [low, high] = limitsOf(curve.whole);
  for (std::size_t line = 0; line < kHeight; ++line) {
    const bool isTop = line == 0, isMiddle = line == kHeight / 2, isBottom = line + 1 == kHeight;
    const double share = static_cast<double>(kHeight - 1 - line) / static_cast<double>(kHeight - 1);
    const std::string label =
        isTop || isMiddle || isBottom ? shortNumber(isTop ? high : low + share * (high - low)) : "";
    text +=
        fmt::format("{:>{}} {}{}\n", label, kLabelWidth - 1, isBraille ? "\u2502" : "|", canvas.line(line));
  }
  text += fmt::format("{:>{}} {}", "", kLabelWidth - 1, isBraille ? "\u2514" : "+");
  for (std::size_t i = 0; i < columns; ++i) text += isBraille ? "\u2500" : "-";
  const std::string start = shortNumber(from), end = shortNumber(to) + " s";
  const std::size_t used = start.size() + end.size();
  const std::size_t gap = columns > used ? columns - used : 1;
  return text + fmt::format("\n{:>{}}{}{:>{}}{}\n", "", kLabelWidth + 1, start, "", gap, end);
}

/// Reads all signals of a run at once. Nothing for a run without samples at these times.
std::vector<Curve> curvesOf(const RecordedSession& session, const SelectedRun& run,
                            const std::u16string& label, Wanted wanted, std::size_t dotColumns) {
  wanted.columns = run.columns();
  Wanted times = wanted;
  times.columns.clear();
  const samples::Span span = samples::spanOf(session.read(*run.run, times));
  std::vector<Curve> curves;
  if (span.rows == 0) return curves;
  for (const RecordedSignal& signal : run.signals)
    curves.push_back({&signal, label, run.run->id(), Reduction(span.first, span.last, dotColumns), {}});
  samples::SampleReader reader = session.read(*run.run, wanted);
  for (SampleBlock block; reader.next(block);) {
    for (std::size_t i = 0; i < curves.size(); ++i) {
      for (std::size_t row = 0; row < block.rows; ++row)
        curves[i].reduction.add(block.times[row], block.values[i][row]);
    }
  }
  for (Curve& curve : curves)
    for (const Bucket& bucket : curve.reduction.buckets()) curve.whole.add(bucket);
  return curves;
}

void writeJson(fl::i18n::JsonWriter& json, const Curve& curve) {
  json.beginObject().member("RunID").value(curve.runID).member("Name").value(curve.signal->name);
  json.member("StoredUnits").value(curve.signal->units).member("NumSamples").value(curve.whole.count);
  const auto write = [&](const char* value, const char* time, const Sample& sample) {
    json.member(value).value(sample.value).member(time).value(sample.time);
  };
  write("Minimum", "MinimumTime", curve.whole.minimum);
  write("Maximum", "MaximumTime", curve.whole.maximum);
  write("First", "FirstTime", curve.whole.first);
  write("Last", "LastTime", curve.whole.last);
  json.endObject();
}

ExitCode runPlot(const Request& request) {
  const RecordedSession session(request.one("FILE"));
  const std::vector<SelectedRun> runs = selectSamples(request, session);
  const bool isAscii = request.has("--ascii") || !isLocaleUtf8();
  const Charset charset = isAscii ? Charset::Ascii : Charset::Braille;
  const std::size_t width = std::max(kNarrowest, isTerminal(stdout) ? columnsOf(stdout) : 80);
  const std::size_t dotColumns = (width - kLabelWidth - 1) * (isAscii ? 1 : 2);
  const Wanted wanted = rangeOf(request);
  bool isAnything = false;
  fl::i18n::JsonWriter json;
  json.beginArray();
  for (const SelectedRun& run : runs) {
    for (const Curve& curve : curvesOf(session, run, labelOf(*run.run, runs), wanted, dotColumns)) {
      if (curve.whole.count == 0) continue;
      if (request.format == OutputFormat::Json) {
        writeJson(json, curve);
      } else {
        const double from = curve.whole.first.time, to = curve.whole.last.time;
        print((isAnything ? "\n" : "") + plotOf(curve, charset, width, from, to));
      }
      isAnything = true;
    }
  }
  if (!isAnything) raise("tavlox:plot:NothingToDraw", session.path());
  if (request.format == OutputFormat::Json) print(json.endArray());
  return ExitCode::Done;
}

void checkPlot(const Request& request) {
  for (const std::u16string& word : request.all("--run")) toRunID(word);
  rangeOf(request);
}

}  // namespace

extern const Command kPlot = {
    .name = "plot",
    .summary = "Draw recorded samples on the terminal",
    .examples = R"help(  tavlox plot filter.tavlox --signal "v(out)"
  tavlox plot filter.tavlox --run 1 --from 0 --to 1e-4
)help",
    .details =
        R"(A plot for each signal of each run, as wide as the terminal, with the name, the
unit, the smallest and the largest value above it. Every column of dots shows
all values of its stretch of time, however many there are. With --json an
object for each signal: its first, last, smallest and largest value and their
times.

Dots are Braille characters; where the locale is not UTF-8, or with --ascii,
stars.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   kRunOption,
                   kSignalOption,
                   kFromOption,
                   kToOption,
                   {"--ascii", Takes::Flag, "Draw with ASCII characters"}},
    .run = runPlot,
    .check = checkPlot,
};

}  // namespace tavlox::cli
