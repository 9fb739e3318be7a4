#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlox {

/// One run as the run list keeps it. Members that are not set are left out of the document.
struct RunRecord {
  std::int32_t id = 0;
  std::string runClassName = "Set";  ///< "Set" or "ComparisonSet"
  std::optional<std::u16string> name, dateCreated, model, simMode, status;
  std::optional<std::uint32_t> runNumber;
  std::optional<std::int32_t> orderIndex;
  std::optional<double> startTime, stopTime, updateTime, simTime, termTime, totalTime;  ///< seconds
  std::map<std::string, std::u16string> metadata;  ///< keys as orra::strings names them
};

/// One signal as a signals part keeps it.
struct SignalRecord {
  std::int32_t id = 0;
  std::int32_t runID = 0;
  std::optional<std::u16string> name, domainType, description, units, displayUnits, dataTypeLabel, sampleTime,
      model, displayBlockPath, blockName, rootSource, timeSource, dataSource;
  std::optional<std::int32_t> complexity, complexCoordSystem, portIndex;
  std::optional<std::vector<std::uint64_t>> dimensions, channel;
};

/// Writes complete session packages. Parts are written as they come, in memory that grows with the number of
/// runs but not with their signals and samples; `close` saves the package durably or, failing, leaves no new
/// file and an existing one as it was. Raises opc::Exception, or fl::filesystem::Error where an existing file
/// cannot be replaced. A call that raises changes nothing; the writer can go on, unless the disk is full.
class SessionWriter {
 public:
  /// `path` must not exist; an existing file is replaced, in `close`, with `Existing::Replace`.
  enum class Existing { Refuse, Replace };
  explicit SessionWriter(const std::u16string& path, Existing existing = Existing::Refuse);
  ~SessionWriter();

  void setDescription(const std::u16string& description);
  /// The run list keeps this order. Raises if a run of this id was added before.
  void addRun(const RunRecord& run);
  /// The signals of one run become one signals part; a signal goes to the part of the run it names, which
  /// must have been added. That signal ids differ is the caller's care.
  void addSignal(const SignalRecord& signal);
  void setCompressionType(const std::u16string& type);
  void setView(std::string_view json);
  void setThumbnail(std::string_view bytes);

  /// Keeps the recorded samples of a run: `writeSamples` is called once with a function that takes the next
  /// bytes. If it raises, no samples are kept.
  using Sink = std::function<void(std::string_view)>;
  void addSamples(std::int32_t runID, const std::function<void(const Sink&)>& writeSamples);

  /// Parts for tests and tools: any name, content type and package-level relationship type (none if empty).
  void addPart(const std::u16string& name, const std::u16string& contentType,
               std::u16string_view relationshipType, std::string_view data);

  /// Saves the session. Without it nothing is kept. Closing again does nothing; any other call then raises.
  void close();

 private:
  struct State;
  State& state() const;
  static void finish(State& session);

  std::unique_ptr<State> state_;
};

}  // namespace tavlox
