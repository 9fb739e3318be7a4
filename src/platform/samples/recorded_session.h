#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/export_file/data_export_file.h"
#include "platform/repository/records.h"
#include "platform/samples/sample_reader.h"

/// What was recorded comes out again: which signals have samples and where, the samples themselves as
/// numbers, and what hosts do with them that is more than reading: common times, reduction, comparison.
namespace tavlox::samples {

/// How a signal goes on between two of its samples.
enum class Between { Linear, Held };

/// Linear for floating-point numbers and for signals that do not name their type, held for everything else:
/// integers, booleans and enumerations take no values between two samples.
Between betweenSamplesOf(std::u16string_view dataTypeLabel);

/// The value on the line through two samples, at a time between theirs, which must differ. NaN if one of them
/// is.
double interpolated(double time, double firstTime, double first, double secondTime, double second);

/// One signal, with what it takes to read and to label its samples.
struct RecordedSignal {
  std::int32_t id = 0;
  std::u16string name, units, dataTypeLabel;
  std::uint32_t column = 0;  ///< in the run's samples, from 1, where the time is; 0 if it has no samples
};

/// One run with its signals, in the order in which they were recorded.
struct RecordedRun {
  orra::RunRecord record;
  std::int32_t orderIndex = 0;                  ///< the place in the run list if the run has no other
  std::optional<opc::model::PartName> samples;  ///< the part that holds them, if there is one
  std::vector<RecordedSignal> signals;

  std::int32_t id() const { return record.id; }
  const std::u16string& name() const { return orra::textOf(record.name); }
};

/// A session that is open for reading. The runs are read at once, their samples when they are asked for.
///
/// A run names the part with its samples and a signal its column. Where they do not, as in older files, the
/// parts are given to the runs with signals in the order of the relationships, and the columns behind the
/// time to the signals in theirs.
class RecordedSession {
 public:
  /// Raises what opening the package raises, and what reading run list and signals parts raises if they are
  /// not valid.
  explicit RecordedSession(const std::u16string& path) : RecordedSession(path, {}) {}
  /// `visit` is given each signal with everything recorded of it, while the signals are read; the run has no
  /// samples yet. Of a signal only what RecordedSignal holds is kept.
  using SignalVisitor = std::function<void(const RecordedRun& run, const orra::SignalRecord& signal)>;
  RecordedSession(const std::u16string& path, const SignalVisitor& visit);

  /// As it was given.
  const std::u16string& path() const { return path_; }
  const DataExportFile& file() const { return file_; }
  /// In the order of the run list.
  const std::vector<RecordedRun>& runs() const { return runs_; }

  /// The run's name, with its identifier where another has the same name: "hot (run 3)", or "run 3" if it has
  /// none.
  std::u16string labelOf(const RecordedRun& run) const;

  /// The run's samples; see SampleReader. The session must outlive the reader. Raises
  /// samples:session:NoSamples, naming file and run, for a run without.
  SampleReader read(const RecordedRun& run, Wanted wanted) const;

 private:
  std::u16string path_;
  DataExportFile file_{false};
  std::vector<RecordedRun> runs_;
};

/// The name of the run list or signals part that is not valid, for messages that must say which of several it
/// is; empty if each is by itself. Raises what opening the package raises.
std::u16string invalidSessionPart(const std::u16string& path);

/// What a run's place in its session is: less than the run, since there may be hundreds of thousands.
struct RunPlace {
  std::int32_t id = 0, orderIndex = 0;                  ///< as RecordedRun has them
  std::unique_ptr<const opc::model::PartName> samples;  ///< as well; most runs have none
  bool namesSamples = false;                            ///< whether it names a part, be it there or not
  struct Signal {
    std::uint32_t column;  ///< as RecordedSignal has it
    bool isAsked;
  };
  std::vector<Signal> signals;
};

/// The places of a session's runs and of their signals, and nothing else of them. Only the parts that tell
/// them are read: of a session without samples no signals part.
class SessionPlaces {
 public:
  enum class Of { Runs, Signals };

  /// Asked for are all signals, or those of one name. Raises what RecordedSession raises.
  SessionPlaces(const std::u16string& path, Of of, const std::u16string* onlyName = nullptr);

  /// In the order of the run list.
  const std::vector<RunPlace>& runs() const { return runs_; }
  /// Null if there is none.
  const RunPlace* findRun(std::int32_t id) const;
  /// Whether the runs have their signals. They have none where there are no samples and each run has an order
  /// index of its own, by which its signals' records tell it.
  bool hasSignals() const { return hasSignals_; }

 private:
  /// Nothing if there is none of that identifier.
  std::optional<std::size_t> indexOf(std::int32_t id) const;

  std::vector<RunPlace> runs_;
  std::vector<std::pair<std::int32_t, std::size_t>> byId_;  ///< sorted; the index of the run
  bool hasSignals_ = false;
};

}  // namespace tavlox::samples
