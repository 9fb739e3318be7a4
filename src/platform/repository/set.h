#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/ptr_container/ptr_vector.hpp>
#include <boost/unordered_map.hpp>

#include "platform/repository/object_ref.h"

namespace orra {

/// File identifiers to repository identifiers.
using IdentifierMap = boost::unordered_map<std::int32_t, std::int32_t>;

/// The application that a session is loaded for.
enum class Application { SessionFile = 0 };

/// Which signals of a run are asked for.
enum class SignalQueryType { None = 0, All = 1 };

/// One recorded run. Every accessor reads the repository and raises its database failures; inside a
/// transaction all of them see one state. Times are in seconds.
class Set : public ORM {
 public:
  using ORM::ORM;

  /// Loads a run list (see ObjRefArrayJSON for what is refused). Adds an entry to the map, and an element to
  /// the list, for each run. Repository identifiers are never reused within a process.
  static void loadRunsFromJSON(ObjectManager& manager, std::istream& stream, IdentifierMap& fileToRepository,
                               std::vector<std::int32_t>& newRuns, Application application);

  /// Looks a run up by its repository identifier; false, and no result, if there is none. With `mustExist` a
  /// missing run raises simulation_data_repository:sdr:NoSuchRun instead.
  static bool lookupSet(std::int32_t run, std::shared_ptr<Set>& result, ObjectManager& manager,
                        bool mustExist);

  /// Appends the run's signals, in the order in which they were loaded.
  static void getAllSignals(ObjectManager& manager, SignalQueryType type, std::int32_t run,
                            boost::ptr_vector<ObjectRef>& references);
  /// The same for the signals of exactly this name.
  static void getAllSignalsByName(ObjectManager& manager, const std::u16string& name, std::int32_t run,
                                  boost::ptr_vector<ObjectRef>& references);

  std::u16string getRunDisplayName() const;
  /// Empty text for a key that the run does not have. Keys are those of orra::strings.
  std::u16string getRunMetaDataUstring(std::string_view key) const;
  std::string getDateString() const;
  std::uint32_t getRunNumber() const;
  std::int32_t getOrderIndex() const;
  std::u16string getModel() const;
  std::string getSimMode() const;
  double getStartTime() const;
  double getStopTime() const;
  std::u16string getRunStatus() const;
  double getUpdateTime() const;
  double getSimTime() const;
  double getTermTime() const;
  double getTotalTime() const;
};

}  // namespace orra
