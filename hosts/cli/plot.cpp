// A look at recorded samples without leaving the terminal: small plots one below the other, each of one curve
// or of several. However many samples there are, each column of dots shows all values of its stretch of time,
// from the smallest to the largest, so that no spike is lost.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <span>
#include <utility>

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

// What tells the curves of a plot apart: a character of its own for each, or on terminals with colours a
// colour.
constexpr std::string_view kGlyphs = "*+ox#@%&";
constexpr std::array<int, kGlyphs.size()> kColours = {34, 31, 32, 35, 36, 33, 94, 91};

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

  Charset charset() const { return charset_; }
  std::size_t columns() const { return columns_; }
  /// The dots of one character: 0 for none. Line 0 is the highest.
  std::uint8_t cell(std::size_t line, std::size_t column) const { return cells_[line * columns_ + column]; }

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
  const SelectedRun* run;
  std::u16string label;  ///< of the run
  std::size_t plot;      ///< which one it is drawn in
  Reduction reduction{0, 0, 1};
  Bucket whole;
};

/// Curves on common axes.
struct Plot {
  std::u16string title;
  std::vector<std::size_t> curves;                                    ///< indices
  double from = std::numeric_limits<double>::infinity(), to = -from;  ///< seconds
  Bucket whole;
};

/// What stands in one plot.
enum class By { Curve, Signal, Unit };

/// The plots of all curves, which are told theirs.
std::vector<Plot> plan(std::vector<Curve>& curves, By by) {
  std::vector<Plot> plots;
  std::map<std::u16string, std::size_t> latest;
  for (std::size_t i = 0; i < curves.size(); ++i) {
    const RecordedSignal& signal = *curves[i].signal;
    const std::u16string unit = signal.units.empty() ? u"no unit" : signal.units;
    const std::u16string title = by == By::Unit ? unit : headingOf(signal);
    const auto found = latest.find(title);
    // No more than can be told apart.
    const bool isNew =
        by == By::Curve || found == latest.end() || plots[found->second].curves.size() == kGlyphs.size();
    if (isNew) {
      latest[title] = plots.size();
      plots.push_back({.title = title, .curves = {}, .whole = {}});
    }
    curves[i].plot = latest[title];
    plots[curves[i].plot].curves.push_back(i);
  }
  return plots;
}

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

void draw(Canvas& canvas, const Curve& curve, double low, double high) {
  const auto rowOf = [&](double value) {
    const double share = std::clamp((value - low) / (high - low), 0.0, 1.0);
    return static_cast<std::size_t>(std::lround(share * static_cast<double>(canvas.dotRows() - 1)));
  };
  // Characters have half as many columns as dots.
  const bool isHalved = canvas.dotColumns() < curve.reduction.buckets().size();
  const Reduction reduction = isHalved ? curve.reduction.halved() : curve.reduction;
  const std::vector<Bucket>& buckets = reduction.buckets();
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

/// One line of the field: characters that show which curve is where. Where several curves share a character,
/// they take turns from column to column, so that a curve that lies on another is seen too.
std::string lineOf(const std::vector<Canvas>& canvases, std::size_t line, Colours colours) {
  std::string text;
  int shown = 0;  // the colour at hand, 0 for the terminal's own
  const bool isBraille = canvases.front().charset() == Charset::Braille;
  for (std::size_t column = 0; column < canvases.front().columns(); ++column) {
    std::uint8_t dots = 0;
    std::vector<std::size_t> here;
    for (std::size_t i = 0; i < canvases.size(); ++i) {
      const std::uint8_t cell = canvases[i].cell(line, column);
      dots |= cell;
      if (cell != 0) here.push_back(i);
    }
    const std::size_t curve = here.empty() ? 0 : here[column % here.size()];
    const int colour = here.empty() || canvases.size() == 1 || colours == Colours::Off ? 0 : kColours[curve];
    if (colour != std::exchange(shown, colour)) text += fmt::format("\x1b[{}m", colour);
    // U+2800 and up in UTF-8. The blank is one of them too: in many fonts it is as wide as the others, and a
    // space is not.
    if (isBraille)
      text += {'\xE2', static_cast<char>(0xA0 | dots >> 6), static_cast<char>(0x80 | (dots & 0x3F))};
    else
      text += here.empty() ? ' ' : kGlyphs[curve];
  }
  return shown == 0 ? text : text + "\x1b[0m";
}

std::string extremesOf(const Bucket& whole) {
  return fmt::format("  min {} at {} s, max {} at {} s, {} samples\n", shortNumber(whole.minimum.value),
                     shortNumber(whole.minimum.time), shortNumber(whole.maximum.value),
                     shortNumber(whole.maximum.time), whole.count);
}

/// What stands above a plot: the one curve's name, or what is common to all and a line for each.
std::string headOf(const Plot& plot, const std::vector<const Curve*>& curves, By by, Charset charset,
                   Colours colours) {
  const auto nameOf = [&](const Curve& curve) {
    return by == By::Signal && curves.size() > 1 ? curve.label
                                                 : curve.label + u": " + headingOf(*curve.signal);
  };
  if (curves.size() == 1)
    return bold(singleLine(nameOf(*curves.front())), colours) + extremesOf(curves.front()->whole);
  std::string text = bold(singleLine(plot.title), colours) + "\n";
  for (std::size_t i = 0; i < curves.size(); ++i) {
    const std::string mark = charset == Charset::Ascii ? std::string(1, kGlyphs[i]) : "\u2501\u2501";
    text +=
        colours == Colours::On ? fmt::format("  \x1b[{}m{}\x1b[0m ", kColours[i], mark) : "  " + mark + " ";
    text += singleLine(nameOf(*curves[i])) + extremesOf(curves[i]->whole);
  }
  return text;
}

/// Head, field and axes of a plot.
std::string textOf(const Plot& plot, const std::vector<const Curve*>& curves, By by, Charset charset,
                   std::size_t width) {
  const Colours colours = coloursFor(stdout);
  // Dots show no difference; without colours there have to be characters that do.
  if (curves.size() > 1 && colours == Colours::Off) charset = Charset::Ascii;
  const bool isBraille = charset == Charset::Braille;
  const std::size_t columns = width - kLabelWidth - 1;
  const auto [low, high] = limitsOf(plot.whole);
  std::vector<Canvas> canvases(curves.size(), Canvas(charset, columns, kHeight));
  for (std::size_t i = 0; i < curves.size(); ++i) draw(canvases[i], *curves[i], low, high);
  std::string text = headOf(plot, curves, by, charset, colours);
  for (std::size_t line = 0; line < kHeight; ++line) {
    const bool isTop = line == 0, isMiddle = line == kHeight / 2, isBottom = line + 1 == kHeight;
    const double share = static_cast<double>(kHeight - 1 - line) / static_cast<double>(kHeight - 1);
    const std::string label =
        isTop || isMiddle || isBottom ? shortNumber(isTop ? high : low + share * (high - low)) : "";
    text += fmt::format("{:>{}} {}{}\n", label, kLabelWidth - 1, isBraille ? "\u2502" : "|",
                        lineOf(canvases, line, colours));
  }
  text += fmt::format("{:>{}} {}", "", kLabelWidth - 1, isBraille ? "\u2514" : "+");
  for (std::size_t i = 0; i < columns; ++i) text += isBraille ? "\u2500" : "-";
  const std::string start = shortNumber(plot.from), end = shortNumber(plot.to) + " s";
  const std::size_t used = start.size() + end.size();
  const std::size_t gap = columns > used ? columns - used : 1;
  return text + fmt::format("\n{:>{}}{}{:>{}}{}\n", "", kLabelWidth + 1, start, "", gap, end);
}

/// Fills the curves of one run, which stand next to each other, in one pass through its samples.
void readCurves(const RecordedSession& session, std::span<Curve> curves, Wanted wanted) {
  wanted.columns = curves.front().run->columns();
  samples::SampleReader reader = session.read(*curves.front().run->run, wanted);
  for (SampleBlock block; reader.next(block);) {
    for (std::size_t i = 0; i < curves.size(); ++i) {
      for (std::size_t row = 0; row < block.rows; ++row)
        curves[i].reduction.add(block.times[row], block.values[i][row]);
    }
  }
  for (Curve& curve : curves)
    for (const Bucket& bucket : curve.reduction.buckets()) curve.whole.add(bucket);
}

void writeJson(fl::i18n::JsonWriter& json, const Curve& curve) {
  json.beginObject().member("RunID").value(curve.run->run->id()).member("Name").value(curve.signal->name);
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

/// Raises tavlox:plot:UnknownGrouping.
By byOf(const Request& request) {
  const std::u16string by = request.oneOr("--by", u"signal");
  if (by == u"curve") return By::Curve;
  if (by == u"signal") return By::Signal;
  if (by != u"unit") raise("tavlox:plot:UnknownGrouping", by);
  return By::Unit;
}

/// The curves with samples at these times, reduced to so many columns of dots, and the plots that they are
/// in.
std::pair<std::vector<Curve>, std::vector<Plot>> readPlots(const Request& request,
                                                           const RecordedSession& session,
                                                           const std::vector<SelectedRun>& runs,
                                                           std::size_t dotColumns) {
  std::vector<Curve> curves;
  for (const SelectedRun& run : runs) {
    for (const RecordedSignal& signal : run.signals)
      curves.push_back(
          {.signal = &signal, .run = &run, .label = session.labelOf(*run.run), .plot = 0, .whole = {}});
  }
  std::vector<Plot> plots = plan(curves, byOf(request));
  const Wanted wanted = rangeOf(request);
  const auto forEachRun = [&](const auto& visit) {
    for (std::span<Curve> rest = curves; !rest.empty(); rest = rest.subspan(rest.front().run->signals.size()))
      visit(rest.first(rest.front().run->signals.size()));
  };
  // The times first: curves of one plot have their dots in the same columns.
  forEachRun([&](std::span<Curve> ofRun) {
    const samples::Span span = samples::spanOf(session.read(*ofRun.front().run->run, wanted));
    if (span.rows == 0) return;
    for (const Curve& curve : ofRun) {
      plots[curve.plot].from = std::min(plots[curve.plot].from, span.first);
      plots[curve.plot].to = std::max(plots[curve.plot].to, span.last);
    }
  });
  forEachRun([&](std::span<Curve> ofRun) {
    for (Curve& curve : ofRun)
      curve.reduction = Reduction(plots[curve.plot].from, plots[curve.plot].to, dotColumns);
    readCurves(session, ofRun, wanted);
    for (const Curve& curve : ofRun) plots[curve.plot].whole.add(curve.whole);
  });
  return {std::move(curves), std::move(plots)};
}

ExitCode runPlot(const Request& request) {
  const RecordedSession session(request.one("FILE"));
  const std::vector<SelectedRun> runs = selectSamples(request, session);
  const bool isAscii = request.has("--ascii") || !isLocaleUtf8();
  const std::size_t width = std::max(kNarrowest, isTerminal(stdout) ? columnsOf(stdout) : 80);
  const std::size_t dotColumns = (width - kLabelWidth - 1) * 2;
  const auto [curves, plots] = readPlots(request, session, runs, dotColumns);
  if (std::ranges::all_of(curves, [](const Curve& curve) { return curve.whole.count == 0; }))
    raise("tavlox:plot:NothingToDraw", session.path());
  if (request.format == OutputFormat::Json) {
    fl::i18n::JsonWriter json;
    json.beginArray();
    for (const Curve& curve : curves)
      if (curve.whole.count > 0) writeJson(json, curve);
    print(json.endArray());
    return ExitCode::Done;
  }
  bool isFirst = true;
  for (const Plot& plot : plots) {
    std::vector<const Curve*> drawn;
    for (const std::size_t curve : plot.curves)
      if (curves[curve].whole.count > 0) drawn.push_back(&curves[curve]);
    if (drawn.empty()) continue;
    print((std::exchange(isFirst, false) ? "" : "\n") +
          textOf(plot, drawn, byOf(request), isAscii ? Charset::Ascii : Charset::Braille, width));
  }
  return ExitCode::Done;
}

void checkPlot(const Request& request) {
  for (const std::u16string& word : request.all("--run")) toRunID(word);
  rangeOf(request);
  byOf(request);
}

}  // namespace

extern const Command kPlot = {
    .name = "plot",
    .summary = "Draw recorded samples on the terminal",
    .examples = R"help(  tavlox plot filter.tavlox --signal "v(out)"
  tavlox plot filter.tavlox --run 1 --from 0 --to 1e-4
  tavlox plot filter.tavlox --by unit
)help",
    .details =
        R"(A plot for each signal, as wide as the terminal, with the curves of all runs on
top of each other. Above it stand names and units, and of each curve the
smallest and the largest value. Every column of dots shows all values of its
stretch of time, however many there are. With --by unit, signals of one unit
share a plot; with --by curve each run of each signal has its own. A plot holds
eight curves at most. With --json an object for each curve: its first, last,
smallest and largest value and their times.

Dots are Braille characters; where the locale is not UTF-8, or with --ascii,
stars. Several curves are told apart by colours, or where there are none by a
character for each.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   kRunOption,
                   kSignalOption,
                   kFromOption,
                   kToOption,
                   {"--by", Takes::Value, "What has a plot: signal, unit or curve", "WHAT"},
                   {"--ascii", Takes::Flag, "Draw with ASCII characters"}},
    .run = runPlot,
    .check = checkPlot,
};

}  // namespace tavlox::cli
