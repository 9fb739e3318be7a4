#pragma once

#include <string>
#include <utility>
#include <vector>

#include "hosts/cli/report.h"
#include "platform/samples/comparison.h"

/// What `compare` finds, and the page that shows it.
namespace tavlox::cli {

/// Which runs are compared, and which have no partner.
struct Pairing {
  std::vector<std::pair<const samples::RecordedRun*, const samples::RecordedRun*>> pairs;
  std::vector<const samples::RecordedRun*> onlyInA, onlyInB;
};

struct Outcome {
  Pairing runs;
  std::vector<samples::RunComparison> compared;

  bool isEqual() const;

  /// What there was nothing to compare with, and metadata that differ.
  struct Remark {
    std::u16string runs, subject;  ///< ids; the name of a signal or a field, or empty
    const char* verdict;
    bool isDifference;
  };
  std::vector<Remark> notCompared() const;
};

/// What is told of a pair of signals in a word or two.
const char* verdictOf(const samples::SignalComparison& signal);

/// "2", or "2:5" if the two have different ones.
std::u16string idsOf(const samples::RecordedRun& a, const samples::RecordedRun& b);

/// The page of one comparison: of each pair of signals the two curves in one plot, and below it how far B is
/// from A. Signals that differ come first, and the largest difference is pointed at.
class ComparisonPage {
 public:
  /// Reads the times of all runs, which decide how finely samples are kept. Sessions and pairing must outlive
  /// the page.
  ComparisonPage(Page::Sink write, const samples::RecordedSession& a, const samples::RecordedSession& b,
                 const Pairing& runs, Detail detail);

  /// Compares the next pair of the pairing, and writes its curves.
  samples::RunComparison add(samples::RunComparer comparer, const samples::RecordedRun& a,
                             const samples::RecordedRun& b);
  /// Writes the table of all signals. To be called last.
  void finish(const Outcome& outcome);

 private:
  std::u16string seriesOf(const samples::RecordedRun& a, const samples::RecordedRun& b,
                          std::u16string_view which) const;
  void addTable(const Outcome& outcome);

  const samples::RecordedSession &a_, &b_;
  const Pairing& runs_;
  std::vector<std::pair<samples::Span, samples::Span>> spans_;  ///< of each pair of runs
  SampleBudget budget_;
  Page page_;
  std::size_t next_ = 0;  ///< which pair
};

}  // namespace tavlox::cli
