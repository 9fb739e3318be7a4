#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/ptr_container/ptr_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/repository/object_manager.h"
#include "platform/repository/records.h"
#include "platform/text/conversion.h"

namespace orra {

// Runs have two identifiers: the one that their file gives them, which other files may give as well, and the
// one that they get when they are loaded. The two are types of their own, since both are 32-bit integers and
// mixing them up would find the wrong run, or none, without anything failing.
/// A run's identifier in its file.
enum class FileRunId : std::int32_t {};
/// A run's identifier in the repository. Never used again within a process.
enum class RunId : std::int32_t {};

/// Files choose their identifiers; the hash starts from a number of the process's own, so that they cannot
/// choose some that collide.
struct FileRunIdHash {
  std::size_t operator()(FileRunId run) const noexcept;
};
/// From the file's identifier to the repository's.
using RunIdMap = boost::unordered_flat_map<FileRunId, RunId, FileRunIdHash>;

/// The application that a session is loaded for.
/// It makes no difference to what is loaded; there is one so far.
enum class Application { SessionFile = 0 };

/// Which signals of a run are asked for.
enum class SignalQueryType { None = 0, All = 1 };

/// One recorded run. Every accessor reads the repository and raises its database failures, or
/// simulation_data_repository:sdr:NoSuchRun; inside a transaction all of them see one state. Times are in
/// seconds.
class Set : public ORM {
 public:
  using ORM::ORM;

  /// Loads a run list (see ObjRefArrayJSON for what is refused). Adds an entry to the map, and an element to
  /// the list, for each run.
  static void loadRunsFromJSON(ObjectManager& manager, std::istream& stream, RunIdMap& runIds,
                               std::vector<RunId>& newRuns, Application application);

  /// Looks a run up; false, and no result, if there is none. With `mustExist` a missing run raises NoSuchRun
  /// instead.
  static bool lookupSet(RunId run, std::shared_ptr<Set>& result, ObjectManager& manager, bool mustExist);

  /// Appends the run's signals, in the order in which they were loaded.
  static void getAllSignals(ObjectManager& manager, SignalQueryType type, RunId run,
                            boost::ptr_vector<ObjectRef>& references);
  /// The same for the signals of exactly this name.
  static void getAllSignalsByName(ObjectManager& manager, const std::u16string& name, RunId run,
                                  boost::ptr_vector<ObjectRef>& references);

  /// All fields, read in one go. Valid, as are the texts below, until another run of the repository is read.
  const RunRecord& record() const;

  // A field that the run does not have reads as the empty text or as 0. Texts are copied only where they are
  // narrowed.
  const std::u16string& getRunDisplayName() const { return textOf(record().name); }
  /// Empty text for a key that the run does not have. Keys are those of orra::strings.
  const std::u16string& getRunMetaDataUstring(std::string_view key) const;
  std::string getDateString() const { return fl::i18n::to_string(textOf(record().dateCreated)); }
  /// The number that the recorder gave the run, which need not be unique.
  std::uint32_t getRunNumber() const { return record().runNumber.value_or(0); }
  /// Where the run stands among those of its session; from 1 where the file does not say.
  std::int32_t getOrderIndex() const { return record().orderIndex.value_or(0); }
  const std::u16string& getModel() const { return textOf(record().model); }
  std::string getSimMode() const { return fl::i18n::to_string(textOf(record().simMode)); }
  /// The first two in simulated time; the others are what the phases of the simulation took.
  double getStartTime() const { return record().startTime.value_or(0); }
  double getStopTime() const { return record().stopTime.value_or(0); }
  const std::u16string& getRunStatus() const { return textOf(record().status); }
  double getUpdateTime() const { return record().updateTime.value_or(0); }
  double getSimTime() const { return record().simTime.value_or(0); }
  double getTermTime() const { return record().termTime.value_or(0); }
  double getTotalTime() const { return record().totalTime.value_or(0); }
};

}  // namespace orra
