#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "hosts/cli/report/page.h"
#include "platform/samples/recorded_session.h"

/// How recorded samples become curves of a page.
namespace tavlox::cli {

/// How much of the samples a page takes.
enum class Detail { Reduced, Full };

/// A run's signals that go into a page, with what the page calls them and, once read, their samples.
struct PlottedRun {
  const samples::RecordedRun* run;
  std::vector<samples::RecordedSignal> signals;  ///< only those with samples
  std::u16string label;                          ///< different for every run of the page
  samples::Span span;
};

/// Decides how finely samples are kept, so that a page of a long session stays small enough to be sent by
/// mail: some 3.5 MB for all curves together. A curve of many keeps a few hundred buckets all the same.
class SampleBudget {
 public:
  /// `values` is how many numbers all curves would have.
  SampleBudget(Detail detail, std::uint64_t values, std::uint64_t curves);

  /// An empty collection for a curve that is as long.
  CurveSamples curveOf(const samples::Span& span) const;

 private:
  bool isReduced_;
  std::size_t buckets_;
};

/// The samples of every signal of the run, in one pass through its part. Raises what SampleReader raises.
std::vector<CurveSamples> readCurves(const samples::RecordedSession& session, const PlottedRun& plotted,
                                     const SampleBudget& budget);

}  // namespace tavlox::cli
