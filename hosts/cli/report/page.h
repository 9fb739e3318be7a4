#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/samples/recorded_session.h"
#include "platform/samples/reduction.h"
#include "platform/text/json_writer.h"

/// One HTML page that shows recorded data without any other file: the page itself, its script, its styles and
/// the drawing library are part of this program, and the data goes into it as JSON.
namespace tavlox::cli {

/// The samples of one signal on their way into a page: all of them, or, past a number of buckets of equal
/// duration, the first, smallest, largest and last of each. Coarser views are taken from these in the page,
/// at whatever zoom it shows: the smallest of the smallest is still the smallest.
class CurveSamples {
 public:
  /// All samples. `count` is how many there will be.
  explicit CurveSamples(std::uint64_t count);
  /// Reduced, in buckets from the first to the last time of the span.
  CurveSamples(const samples::Span& span, std::size_t buckets);

  /// In the order of the times.
  void add(double time, double value);

  /// What goes into the page. Where a bucket had values that are no numbers, one stands behind its samples.
  std::vector<samples::Sample> kept() const;
  bool isReduced() const { return reduction_.has_value(); }

  // Of all samples that were added, infinities included; NaN if none of them was a number.
  std::uint64_t count() const { return count_; }
  double minimum() const { return all_.count > 0 ? all_.minimum.value : kNone; }
  double maximum() const { return all_.count > 0 ? all_.maximum.value : kNone; }
  double mean() const { return all_.count > 0 ? mean_ : kNone; }
  double last() const { return last_; }

 private:
  static constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

  std::vector<samples::Sample> samples_;  // empty where they are reduced
  std::optional<samples::Reduction> reduction_;
  double from_ = 0, to_ = 0;
  samples::Bucket all_;
  std::uint64_t count_ = 0;
  double mean_ = 0, last_ = kNone;
};

/// What the page says of a curve. Curves of one group share a plot, unless they go into one below it.
struct CurveLabel {
  std::u16string name, unit;  ///< of the signal; both together are its group
  std::u16string series;      ///< which of a group: the run's name
  std::u16string below;       ///< the title of the plot below; empty for the group's own
  samples::Between between = samples::Between::Linear;
  std::optional<double> markTime;  ///< what the page points at, seconds
  std::u16string markText;
};

/// Writes a page front to back: head, then curves, then tables, then the facts, which the page shows first
/// but which are mostly known last. Nothing of what it is given is taken for markup or script. Texts longer
/// than a piece are not held.
class Page {
 public:
  using Sink = std::function<void(std::string_view)>;
  struct Head {
    std::string_view kind;  ///< what stands above the title
    std::u16string title, subtitle;
    std::string_view seriesTitle;  ///< what the series are: "Runs"
  };

  Page(Sink write, const Head& head);

  /// Curves that follow each other closely and have the same times carry these once.
  void addCurve(const CurveLabel& label, const CurveSamples& samples);

  /// Begins the tables, after which there are no more curves, and ends the table before. `columns` are those
  /// fields that are seen at once; the others are folded. Cells that are `bad` are seen as such.
  void beginTable(std::string_view title, std::span<const std::string> fields,
                  std::span<const std::string> columns, std::string_view bad = {});
  /// The caller writes an array with a value for each field.
  fl::i18n::JsonWriter& beginRow();
  void endRow();

  /// Names and values that say what the page is about.
  using Facts = std::vector<std::pair<std::string, std::u16string>>;
  void finish(const Facts& facts);

 private:
  void flush();
  void endTable();

  Sink write_;
  fl::i18n::JsonWriter json_;
  std::vector<std::pair<std::size_t, std::vector<double>>> recentTimes_;  ///< by the index of their curve
  std::size_t curveCount_ = 0;
  bool hasTables_ = false;
};

/// A number for a table of the page: JSON has none for infinities, which become texts, and for NaN.
void writeNumber(fl::i18n::JsonWriter& json, double number);

/// JSON as it may stand in a script element: nothing in it can be taken for markup or for a line's end.
std::string asScriptText(std::string json);

}  // namespace tavlox::cli
